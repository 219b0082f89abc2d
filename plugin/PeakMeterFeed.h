// Per-channel sample peaks for the editor's peak-meter bars. The audio thread
// writes them once per block; the user-interface thread reads them without a
// lock (every value is a relaxed atomic, and each channel's values are
// self-contained, so a torn read across channels only mixes two blocks).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace velorum {

class PeakMeterFeed {
 public:
  static constexpr int kChannels = 24;
  static constexpr double kHoldSeconds = 2.0;

  // Audio thread: the block's samples of `channels` channels.
  void Feed(const double* const* inputs, int channels, int frames, double sampleRate);
  // Audio or dispatcher thread (under the plug-in lock): all peaks to 0.
  void Reset();
  // Puts back the maxima saved with a measurement (linear, one per channel).
  void RestoreMaxima(const float* maxima, int channels);

  // Any thread. Linear amplitudes (1.0 = full scale).
  float Peak(int channel) const { return Load(mPeak, channel); }    // newest block
  float Hold(int channel) const { return Load(mHold, channel); }    // held for kHoldSeconds
  float Maximum(int channel) const { return Load(mMax, channel); }  // since the last reset
  int Channels() const { return mChannels.load(std::memory_order_relaxed); }
  // Increases with every fed block; the editor redraws when it changed.
  uint32_t Sequence() const { return mSequence.load(std::memory_order_relaxed); }

 private:
  static float Load(const std::array<std::atomic<float>, kChannels>& a, int c) {
    return c >= 0 && c < kChannels ? a[size_t(c)].load(std::memory_order_relaxed) : 0.0f;
  }

  std::array<std::atomic<float>, kChannels> mPeak{}, mHold{}, mMax{};
  std::array<int64_t, kChannels> mHoldLeft{};  // audio thread only: samples until the hold falls
  std::atomic<int> mChannels{0};
  std::atomic<uint32_t> mSequence{0};
};

}  // namespace velorum
