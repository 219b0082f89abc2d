#include "analysis/EngineFeeder.h"

#include <algorithm>

#include "analysis/BlockPipeline.h"
#include "engine/LoudnessEngine.h"

namespace velorum {

EngineFeeder::EngineFeeder(LoudnessEngine& engine, int channels, int maxFrames)
    : engine_(engine),
      channels_(std::max(channels, 1)),
      maxFrames_(std::max(maxFrames, 1)),
      planes_(static_cast<size_t>(channels_), std::vector<double>(static_cast<size_t>(maxFrames_))),
      pins_(static_cast<size_t>(channels_)) {
  for (size_t c = 0; c < planes_.size(); ++c) pins_[c] = planes_[c].data();
}

void EngineFeeder::configure(LoudnessEngine& engine, double sampleRate, int layoutIndex, int channels) {
  engine.SetSampleRate(sampleRate);
  engine.SetLayout(layoutIndex);
  engine.SetInputCount(channels);
  engine.Reset();
}

void EngineFeeder::feed(const float* interleaved, int frames) {
  while (frames > 0) {
    const int n = std::min(frames, maxFrames_);
    const size_t channels = static_cast<size_t>(channels_);
    for (size_t c = 0; c < channels; ++c) {
      double* plane = planes_[c].data();
      const float* in = interleaved + c;
      for (int f = 0; f < n; ++f) plane[f] = static_cast<double>(in[static_cast<size_t>(f) * channels]);
      nonFinite_ += silenceNonFinite(plane, static_cast<size_t>(n));
    }
    engine_.ProcessBlock(pins_.data(), n);
    interleaved += static_cast<size_t>(n) * channels;
    frames -= n;
  }
}

}  // namespace velorum
