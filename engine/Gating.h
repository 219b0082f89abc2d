// Gated integrated loudness and loudness range (BS.1770-4, EBU Tech 3342):
// the shared arithmetic of the running measurement and of range queries.
#pragma once

#include <cstdint>
#include <vector>

namespace velorum {

inline constexpr double kGateAbsolute = 1e-7;         // -70 LUFS as offset power
inline constexpr double kRangeRelativeFactor = 0.01;  // -20 LU
inline constexpr double kRangeLowPercentile = 0.1;
inline constexpr double kRangeHighPercentile = 0.95;

// Mean of the blocks in [begin, end) of `powers` that are > 1e-7 and > the
// relative threshold (both compared in single precision); 0.0 when none.
double GatedMean(const float* powers, std::int64_t begin, std::int64_t end, double threshold);

// Loudness in LUFS of an offset power: -120.0 unless the power is > 1e-12.
double PowerToLufs(double power);

struct RangeEnds {
  double range = 0.0;
  double low = -120.0;
  double high = -120.0;
};

// Percentiles of an ascending vector of short-term powers above the gate
// max(gate, 1e-7): nearest rank over the gated part.
RangeEnds RangeOfSorted(const std::vector<float>& sorted, double gate);

// Inserts keeping ascending order (appends when not smaller than the last).
void InsertSorted(std::vector<float>& sorted, float v);
// Removes one entry equal to v, if there is one.
void EraseSorted(std::vector<float>& sorted, float v);

}  // namespace velorum
