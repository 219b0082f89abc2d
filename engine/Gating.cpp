#include "engine/Gating.h"

#include <algorithm>
#include <cmath>

namespace velorum {

double GatedMean(const float* powers, std::int64_t begin, std::int64_t end, double threshold) {
  const float absolute = static_cast<float>(kGateAbsolute);
  const float relative = static_cast<float>(threshold);
  double sum = 0.0;
  std::int64_t count = 0;
  for (std::int64_t i = begin; i < end; ++i) {
    const float v = powers[i];
    if (v > absolute && v > relative) {
      sum += static_cast<double>(v);
      ++count;
    }
  }
  return count > 0 ? sum / static_cast<double>(count) : 0.0;
}

double PowerToLufs(double power) {
  return power > 1e-12 ? 10.0 * std::log10(power) : -120.0;
}

RangeEnds RangeOfSorted(const std::vector<float>& sorted, double gate) {
  RangeEnds r;
  if (sorted.empty()) return r;
  const float g = static_cast<float>(std::max(gate, kGateAbsolute));
  const auto n = static_cast<std::int64_t>(sorted.size()) - 1;
  auto it = std::lower_bound(sorted.begin(), sorted.end(), g);
  const std::int64_t i0 = it == sorted.end() ? n : static_cast<std::int64_t>(it - sorted.begin());
  const double nd = static_cast<double>(n);
  const double i0d = static_cast<double>(i0);
  auto lowIndex = static_cast<std::int64_t>(std::round(nd * kRangeLowPercentile + i0d * 0.9));
  auto highIndex =
      static_cast<std::int64_t>(std::round(nd * kRangeHighPercentile + i0d * (1.0 - kRangeHighPercentile)));
  lowIndex = std::min(lowIndex, n);
  highIndex = std::min(highIndex, n);
  r.low = PowerToLufs(static_cast<double>(sorted[static_cast<std::size_t>(lowIndex)]));
  r.high = PowerToLufs(static_cast<double>(sorted[static_cast<std::size_t>(highIndex)]));
  r.range = r.high - r.low;
  return r;
}

void InsertSorted(std::vector<float>& sorted, float v) {
  if (sorted.empty() || !(v < sorted.back())) {
    sorted.push_back(v);
    return;
  }
  sorted.insert(std::lower_bound(sorted.begin(), sorted.end(), v), v);
}

void EraseSorted(std::vector<float>& sorted, float v) {
  auto it = std::lower_bound(sorted.begin(), sorted.end(), v);
  if (it != sorted.end() && *it == v) sorted.erase(it);
}

}  // namespace velorum
