#include "history/Distributions.h"

#include <cmath>

namespace velorum {

std::int32_t Distribution::BinOf(double v) const {
  if (!Counted(v)) return -1;
  const double scaled = std::trunc((v + offsetUnits) * binsPerUnit);
  if (!(scaled >= 0.0) || scaled >= static_cast<double>(binCount)) return -1;
  return static_cast<std::int32_t>(scaled);
}

double Distribution::BinLowerEdge(std::int32_t i) const {
  return static_cast<double>(i) / binsPerUnit - offsetUnits;
}

void Distribution::Add(double v, float delta) {
  const std::int32_t bin = BinOf(v);
  if (bin >= 0) bins[static_cast<std::size_t>(bin)] += delta;
}

void Distribution::Update(const MeasurementHistory& history) {
  previousIndex = lastIndex;
  lastIndex = history.current100;
  if (lastIndex == previousIndex) return;
  const ReplacedValue& replaced = Replaced(history);
  if (replaced.replaced && replaced.index == lastIndex) Add(static_cast<double>(replaced.value), -1.0f);
  const std::vector<float>& source = Source(history);
  if (lastIndex >= 0) {
    const std::int32_t i10 = MeasurementHistory::TenMsIndexOfBlock(lastIndex);
    if (i10 >= 0 && static_cast<std::size_t>(i10) < source.size()) {
      Add(static_cast<double>(source[static_cast<std::size_t>(i10)]), 1.0f);
      redraw.store(true, std::memory_order_relaxed);
    }
  }
}

void Distribution::Clear(std::int32_t currentIndex) {
  bins.fill(0.0f);
  lastIndex = currentIndex;
  previousIndex = currentIndex;
  redraw.store(true, std::memory_order_relaxed);
}

void Distribution::Rebuild(const MeasurementHistory& history) {
  Clear(history.current100);
  const std::vector<float>& source = Source(history);
  const auto blocks = static_cast<std::int32_t>(history.blockFlags.size());
  for (std::int32_t b = std::max<std::int32_t>(history.start100, 0); b < blocks; ++b) {
    const std::int32_t i10 = MeasurementHistory::TenMsIndexOfBlock(b);
    if (static_cast<std::size_t>(i10) >= source.size()) break;
    if (history.blockFlags[static_cast<std::size_t>(b)] == kFlagBefore) continue;
    Add(static_cast<double>(source[static_cast<std::size_t>(i10)]), 1.0f);
  }
}

bool TruePeakDistribution::Counted(double v) const {
  return !(v < -120.0) && std::fabs(v + 120.0) >= 0.001;
}

}  // namespace velorum
