// Histograms of the measurement, kept up to date incrementally from the
// newest 100 ms block of the history, once per audio block.
//
// Which arrays feed them: each distribution samples a 10 ms history at 100 ms
// steps, reading for block b the entry MeasurementHistory::TenMsIndexOfBlock(b)
// (the block's last 10 ms step):
//   LoudnessDistribution  <- momentary        (LUFS, -70 .. +30 in 0.1 LU bins)
//   DynamicsDistribution  <- dynamics         (realtime dynamics, 0 .. 100 LU)
//   TruePeakDistribution  <- truePeak         (dBTP, -150 .. +50 in 0.2 dB bins)
// A replaced value (timeline mode, a block measured again) is taken from the
// history's replacedLoudness / replacedDynamics / replacedTruePeak records.
//
// Update() runs on the audio thread (under the caller's lock that also guards
// the history); Bins() may be read without a lock by the views.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "history/MeasurementHistory.h"

namespace velorum {

class Distribution {
 public:
  static constexpr std::int32_t kBinCount = 1000;

  virtual ~Distribution() = default;

  // Counts the newest 100 ms block of `history` when its index changed
  // since the last call, taking out what that write replaced.
  void Update(const MeasurementHistory& history);

  // Every bin to 0.0; both indices to `currentIndex` (the history's current
  // 100 ms index, -1 for an empty history).
  void Clear(std::int32_t currentIndex = -1);

  // Recounts every block of the history from scratch (after a restore).
  void Rebuild(const MeasurementHistory& history);

  const float* Bins() const { return bins.data(); }
  std::int32_t BinCount() const { return binCount; }
  // Bin of a value, or -1 when the value is not counted or outside the bins.
  std::int32_t BinOf(double v) const;
  virtual bool Counted(double v) const = 0;
  // Lower edge of bin i in the distribution's unit.
  double BinLowerEdge(std::int32_t i) const;

  // The view clears this after redrawing.
  bool TakeRedraw() { return redraw.exchange(false, std::memory_order_relaxed); }
  bool NeedsRedraw() const { return redraw.load(std::memory_order_relaxed); }

  std::array<float, kBinCount> bins{};
  std::int32_t binCount = kBinCount;
  double binsPerUnit = 0.0;
  double lowest = -120.0;
  std::int32_t lastIndex = -1;
  std::int32_t previousIndex = -1;
  std::atomic<bool> redraw{false};

 protected:
  Distribution(double perUnit, double binOffset) : binsPerUnit(perUnit), offsetUnits(binOffset) {}
  // The 10 ms array this distribution samples and its replaced record.
  virtual const std::vector<float>& Source(const MeasurementHistory& h) const = 0;
  virtual const ReplacedValue& Replaced(const MeasurementHistory& h) const = 0;

 private:
  void Add(double v, float delta);
  double offsetUnits;  // added to a value before scaling to a bin
};

class LoudnessDistribution final : public Distribution {
 public:
  LoudnessDistribution() : Distribution(static_cast<double>(kBinCount / 100), 70.0) {}
  bool Counted(double) const override { return true; }

 protected:
  const std::vector<float>& Source(const MeasurementHistory& h) const override { return h.momentary; }
  const ReplacedValue& Replaced(const MeasurementHistory& h) const override { return h.replacedLoudness; }
};

class DynamicsDistribution final : public Distribution {
 public:
  DynamicsDistribution() : Distribution(static_cast<double>(kBinCount / 100), 0.0) {}
  bool Counted(double v) const override { return v != 0.0; }

 protected:
  const std::vector<float>& Source(const MeasurementHistory& h) const override { return h.dynamics; }
  const ReplacedValue& Replaced(const MeasurementHistory& h) const override { return h.replacedDynamics; }
};

class TruePeakDistribution final : public Distribution {
 public:
  static constexpr std::int32_t offset = 150;
  TruePeakDistribution() : Distribution(static_cast<double>(kBinCount / 200), static_cast<double>(offset)) {}
  bool Counted(double v) const override;  // not silence, not below -120.0

 protected:
  const std::vector<float>& Source(const MeasurementHistory& h) const override { return h.truePeak; }
  const ReplacedValue& Replaced(const MeasurementHistory& h) const override { return h.replacedTruePeak; }
};

}  // namespace velorum
