#pragma once
// Feeds interleaved float frames to a LoudnessEngine the way the plug-in's
// audio callback does: one double-precision buffer per channel, handed to
// ProcessBlock. The buffers are allocated once, for the largest block.
#include <cstdint>
#include <vector>

namespace velorum {

class LoudnessEngine;

class EngineFeeder {
 public:
  EngineFeeder(LoudnessEngine& engine, int channels, int maxFrames);
  // Sets the engine up for a programme: rate, layout, input count, reset.
  static void configure(LoudnessEngine& engine, double sampleRate, int layoutIndex, int channels);
  // Processes `frames` interleaved frames (frames <= maxFrames). NaN and
  // infinite samples are measured as silence and counted.
  void feed(const float* interleaved, int frames);
  int64_t nonFiniteSamples() const { return nonFinite_; }

 private:
  LoudnessEngine& engine_;
  int channels_;
  int maxFrames_;
  std::vector<std::vector<double>> planes_;
  std::vector<const double*> pins_;
  int64_t nonFinite_ = 0;
};

}  // namespace velorum
