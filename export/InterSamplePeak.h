#pragma once
// The peak of the continuous waveform around each sample, as a limiter needs
// it: every channel is interpolated at eight points per sample period with a
// Kaiser-windowed sinc of 16 taps per point, and the peak of a frame is the
// largest magnitude over its channels of the sample itself and of the
// interpolated points on both sides of it. Finer and longer than the meter's
// 4x measurement filter, so that what it holds below a ceiling also reads
// below it on any 4x meter.
#include <array>
#include <vector>

namespace velorum {

class InterSamplePeak {
 public:
  static constexpr int kTaps = 16;   // taps per interpolated point
  static constexpr int kFactor = 8;  // points per sample period
  static constexpr int kLatency = kTaps / 2;

  explicit InterSamplePeak(int channels);
  // Reads `frames` interleaved frames and writes one linear peak per frame
  // into `peaks`, for the frames delayed by kLatency (the first kLatency
  // peaks of a stream belong to the silence before it).
  void Process(const float* interleaved, int frames, float* peaks);
  void Reset();

 private:
  int mChannels;
  // Per channel: the last kTaps samples of the previous block, then the block.
  std::vector<std::vector<float>> mLines;
  std::vector<float> mIntervals;
  std::array<std::array<float, kTaps>, kFactor> mPhases{};
};

}  // namespace velorum
