#pragma once
// A true-peak limiter for delivery files. The peaks come from the 8x
// interpolation of InterSamplePeak; the gain that a peak needs is reached
// over a look-ahead of a few milliseconds before the peak (a linear ramp:
// a sliding minimum followed by a moving average of the same length) and
// given back with a smooth exponential release. Channels share one gain, so
// the image does not move. Below the ceiling the gain is exactly 1: the
// audio comes out bit for bit as it went in, only delayed, and the limiter
// hides that delay from its caller.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "export/InterSamplePeak.h"

namespace velorum {

class TruePeakLimiter {
 public:
  TruePeakLimiter(int channels, double sampleRate, double ceilingDb, double lookAheadMs = 3.0,
                  double releaseMs = 100.0);

  // Limits `frames` interleaved frames and appends the frames that are ready
  // to `out` (the first Latency() frames of a stream come out with later calls).
  void Process(const float* in, int frames, std::vector<float>& out);
  // Appends the frames still held back; the stream then ends.
  void Finish(std::vector<float>& out);

  int Latency() const { return mLatency; }
  // The largest gain reduction so far, in dB (0 when the limiter never acted).
  double MaxReductionDb() const;
  // Frames whose gain was below 1.
  int64_t LimitedFrames() const { return mLimitedFrames; }

 private:
  void Run(const float* in, int frames, std::vector<float>& out);

  int mChannels;
  double mThreshold;
  int mLookAhead;
  double mRelease;
  int mLatency;
  InterSamplePeak mDetector;
  std::vector<float> mPeaks;
  // Sliding minimum of the needed gains over the look-ahead (monotonic queue).
  std::vector<double> mMinValues;
  std::vector<int64_t> mMinIndex;
  size_t mMinHead = 0, mMinCount = 0;
  // The released envelope over the look-ahead, for the moving average.
  std::vector<double> mEnvelope;
  double mEnvelopeSum;
  double mReleased = 1.0;
  // The audio delayed by the latency (ring of frames).
  std::vector<float> mDelay;
  int64_t mIn = 0;   // frames received
  int64_t mOut = 0;  // frames handed out
  double mMinGain = 1.0;
  int64_t mLimitedFrames = 0;
};

}  // namespace velorum
