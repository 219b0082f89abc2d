// Internal state of LoudnessEngine: the signal chain, step counters, gating
// state and readings. Only LoudnessEngine's own files include this header.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "engine/KWeightingFilter.h"
#include "engine/Kernels.h"
#include "engine/LoudnessEngine.h"
#include "engine/SlidingWindow.h"

namespace velorum {

// A double that one thread writes and any thread reads.
class Reading {
 public:
  Reading() : v_(0.0) {}
  explicit Reading(double v) : v_(v) {}
  void Set(double v) { v_.store(v, std::memory_order_relaxed); }
  double Get() const { return v_.load(std::memory_order_relaxed); }
  Reading& operator=(double v) {
    Set(v);
    return *this;
  }
  operator double() const { return Get(); }

 private:
  std::atomic<double> v_;
};

struct EngineCore {
  static constexpr int kChunk = 128;            // samples per inner run
  static constexpr int kPeakWindowSteps = 150;  // realtime dynamics peak window

  // Configuration.
  double rate = 44100.0;
  int step100 = 4410;
  int step10 = 441;
  int momentaryMs = 400;
  int layout = 1;
  int channelCount = 2;
  int inputCount = kMaxChannels;
  bool eco = false;
  int taps = 31;
  bool paused = false;
  bool dialogue = true;
  bool timeline = false;
  double relativeGate = 0.1;
  CodePath path = CodePath::Scalar;
  const KernelSet* kernels = nullptr;

  // Signal chain.
  std::array<KWeightingFilter, kMaxChannels> filters{};
  KWeightingBank bank{};
  std::array<TruePeakHistory, kMaxChannels> peakHistory{};
  SlidingWindow momentary;
  SlidingWindow shortTerm;
  std::array<double, kPeakWindowSteps> peakWindow{};
  int peakWrite = 0;
  int peakMaxIndex = 0;
  double peakMax = 0.0;
  SlidingWindow peakAverage;
  std::array<double, kMaxChannels> stepPeak{};

  // Counters.
  int count10 = 0;
  int count100 = 0;
  std::int64_t position = 0;  // timeline position of the next sample
  std::int64_t measured = 0;  // samples processed since the reset
  std::int64_t steps10 = 0;
  std::int64_t steps100 = 0;
  std::int64_t segmentSteps100 = 0;  // 100 ms steps since the signal chain was last restarted
  bool started = false;              // a sample was processed since the reset
  std::int64_t startPosition = 0;    // position of that first sample
  std::int32_t trackedBlock = -1;    // warm-up bookkeeping: block of the newest 10 ms write
  bool trackedIncomplete = false;    // one of its 10 ms steps was not measured before

  // Gating.
  double integratedSum = 0.0;
  std::int64_t integratedCount = 0;
  double shortTermSum = 0.0;
  std::int64_t shortTermCount = 0;
  std::vector<float> sorted;
  // 100 ms blocks written while the momentary window was still filling
  // (not complete gating blocks), ascending.
  std::vector<std::int32_t> partialBlocks;
  // Set by FinishProgramme, cleared by the next audio or a reset.
  std::atomic<bool> finished{false};
  Reading finishedDialogue{-120.0};

  // Readings.
  Reading momentaryLufs{-120.0}, shortTermLufs{-120.0}, momentaryMax{-120.0}, shortTermMax{-120.0};
  Reading integrated{-120.0}, range{0.0}, rangeLow{-120.0}, rangeHigh{-120.0}, plr{0.0};
  Reading dynamics{0.0}, truePeak{-120.0}, truePeakMax{-120.0};
  Reading momentaryPower{0.0}, shortTermPower{0.0};
  std::array<Reading, kMaxChannels> channelPeak;
  std::array<Reading, kMaxChannels> channelPeakMax;
  std::atomic<std::int64_t> publishedSteps10{0}, publishedSteps100{0}, publishedMeasured{0};
  std::atomic<bool> haveResult{false};

  // Scratch of one run.
  alignas(32) double power[kMaxChannels][kChunk];
  alignas(32) double total[kChunk];
  alignas(32) double zeros[kChunk];
  double* powerRows[kMaxChannels];
  // Samples gathered by ProcessSample, not yet run.
  alignas(32) double pending[kMaxChannels][kChunk];
  const double* pendingRows[kMaxChannels];
  int pendingCount = 0;

  int Processed() const {
    int n = channelCount < inputCount ? channelCount : inputCount;
    if (n > kMaxChannels) n = kMaxChannels;
    return n < 0 ? 0 : n;
  }
};

}  // namespace velorum
