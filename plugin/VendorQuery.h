// The meter's own effVendorSpecific query, for test hosts and tools that need
// to look inside a running plug-in through the ordinary dispatcher:
//   dispatcher(effect, effVendorSpecific, kVendorQueryIndex, 0, &request, 0)
// returns 1 when the request was handled (0 otherwise); results are written
// into request.value.
#pragma once

#include <cstdint>

namespace velorum {

inline constexpr int32_t kVendorQueryIndex = 0x566C6D51;  // "VlmQ"

struct VendorRequest {
  int32_t command = 0;
  int32_t index = 0;
  double value = 0.0;
};

enum VendorCommand : int32_t {
  kQueryGetParam = 1,       // value = parameter `index`
  kQuerySetParam = 2,       // parameter `index` = value (as the editor sets it)
  kQueryApplyStandard = 3,  // applies standards-table item `index`; value = result code (0 applied)
  kQueryReset = 4,          // resets the measurement
  kQuerySuspend = 5,        // suspended = (value != 0)
  kQueryReading = 6,        // value = reading `index` (VendorReading)
  kQueryBin =
      7,  // value = bin (index % 1000) of distribution (index / 1000): 0 loudness, 1 true peak, 2 dynamics
  kQueryBinTotal = 8,       // value = sum of the bins of distribution `index`
  kQueryShownStandard = 9,  // value = the standards item whose name the menu shows
};

enum VendorReading : int32_t {
  kReadingIntegrated = 0,
  kReadingMomentary = 1,
  kReadingShortTerm = 2,
  kReadingMomentaryMax = 3,
  kReadingShortTermMax = 4,
  kReadingLoudnessRange = 5,
  kReadingTruePeakMax = 6,
  kReadingPlr = 7,
  kReadingPosition = 8,         // timeline position in samples
  kReadingMeasuredSamples = 9,  // samples measured since the reset
  kReadingBlocks = 10,          // 100 ms history entries
  kReadingWarmUp = 11,          // 1 while the histograms warm up
  kReadingSuspended = 12,
  kReadingInProcess = 13,          // 1 while a processing call runs (never seen from a dispatcher call)
  kReadingNonFinite = 14,          // non-finite input samples measured as silence since the reset
  kReadingStateHoldMaxUs = 15,     // longest hold of the plug-in lock by a state call, microseconds
  kReadingSnapshotSlice = 16,      // most history entries of one array a state save copied under one hold
  kReadingRateSupported = 17,      // 0 while the host's sample rate is outside what the meter measures
  kReadingStateHoldMaxCpuUs = 18,  // the same hold as 15 on the holding thread's own clock, microseconds
  kReadingPeakHold0 = 100,         // 100 + channel: held sample peak (linear)
};

}  // namespace velorum
