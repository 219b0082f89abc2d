#include "plugin/PeakMeterFeed.h"

#include <algorithm>
#include <cmath>

namespace velorum {

void PeakMeterFeed::Feed(const double* const* inputs, int channels, int frames, double sampleRate) {
  channels = std::clamp(channels, 0, kChannels);
  const auto holdSamples = static_cast<int64_t>(kHoldSeconds * sampleRate);
  for (int c = 0; c < channels; ++c) {
    double peak = 0.0;
    const double* x = inputs[c];
    for (int i = 0; i < frames; ++i) {
      const double a = std::fabs(x[i]);
      if (a > peak) peak = a;  // NaN never wins
    }
    const auto p = static_cast<float>(std::min(peak, 1.0e6));
    const size_t k = size_t(c);
    mPeak[k].store(p, std::memory_order_relaxed);
    mHoldLeft[k] -= frames;
    if (p >= mHold[k].load(std::memory_order_relaxed) || mHoldLeft[k] <= 0) {
      mHold[k].store(p, std::memory_order_relaxed);
      mHoldLeft[k] = holdSamples;
    }
    if (p > mMax[k].load(std::memory_order_relaxed)) mMax[k].store(p, std::memory_order_relaxed);
  }
  mChannels.store(channels, std::memory_order_relaxed);
  mSequence.fetch_add(1, std::memory_order_relaxed);
}

void PeakMeterFeed::Reset() {
  for (int c = 0; c < kChannels; ++c) {
    mPeak[size_t(c)].store(0.0f, std::memory_order_relaxed);
    mHold[size_t(c)].store(0.0f, std::memory_order_relaxed);
    mMax[size_t(c)].store(0.0f, std::memory_order_relaxed);
    mHoldLeft[size_t(c)] = 0;
  }
  mSequence.fetch_add(1, std::memory_order_relaxed);
}

void PeakMeterFeed::RestoreMaxima(const float* maxima, int channels) {
  channels = std::clamp(channels, 0, kChannels);
  for (int c = 0; c < channels; ++c) {
    const float m = std::isfinite(maxima[c]) ? std::clamp(maxima[c], 0.0f, 1.0e6f) : 0.0f;
    mMax[size_t(c)].store(m, std::memory_order_relaxed);
  }
  mSequence.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace velorum
