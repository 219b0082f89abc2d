// Hot loops of the engine, built once per instruction set. Every variant
// performs the same operations in the same order (the engine is compiled
// without floating-point contraction), so all give bit-identical results.
// They run with denormals flushed to zero (FlushDenormals, set by the
// engine around them), which is how the K-weighting stores exactly zero for
// a result that would be denormal without a test in its recurrence.
#pragma once

#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"

namespace velorum {

// Running K-weighting state of all channels, structure of arrays so that
// neighbouring channels can share a vector register.
struct KWeightingBank {
  // Stage 1 and stage 2 state: previous inputs and outputs.
  alignas(32) double x1a[kMaxChannels], x2a[kMaxChannels], y1a[kMaxChannels], y2a[kMaxChannels];
  alignas(32) double x1b[kMaxChannels], x2b[kMaxChannels], y1b[kMaxChannels], y2b[kMaxChannels];
  // Active coefficients per channel (all channels share the rate, but
  // keeping them per lane lets the loops load them as vectors).
  alignas(32) double b0a[kMaxChannels], b1a[kMaxChannels], b2a[kMaxChannels], a1a[kMaxChannels],
      a2a[kMaxChannels];
  alignas(32) double b0b[kMaxChannels], b1b[kMaxChannels], b2b[kMaxChannels], a1b[kMaxChannels],
      a2b[kMaxChannels];
  alignas(32) double weight[kMaxChannels];

  void ClearState();
};

// One channel's true-peak input history: the newest kKeep samples in order,
// oldest first (enough for the longest filter's window).
struct TruePeakHistory {
  static constexpr int kKeep = 32;
  alignas(64) double samples[kKeep];
  void Clear();
};

// One true-peak filter as the detectors run it. Each output sample j gives
// four phase outputs out_p = sum over k < taps of coef[4k + p] * x[j - (taps - 1) + k],
// summed as four partial sums over taps k = q (mod 4), each in ascending k from
// its first product, combined as (s0 + s1) + (s2 + s3); every variant sums
// in exactly this order.
//
// A phase whose only coefficient of any weight is one tap of magnitude below
// 1 (the rest below 1e-15) is a pure delay: its output is the delayed sample
// times that tap, give or take far less than the tap's distance from 1, so it
// can never exceed the sample peak counted when that sample arrived. Such a
// phase is not summed; the delayed sample times the tap stands in for it, so
// that a step's peak still sees it. Only the long filter has one (phase 1).
struct TruePeakTable {
  const double* tapMajor = nullptr;  // entry 4k + p: tap k of phase p
  const double* pairs = nullptr;     // every entry twice, 16-byte aligned (two-wide operands)
  int taps = 0;                      // per phase, at most TruePeakHistory::kKeep + 1
  int delayPhase = -1;               // the pure-delay phase, -1 when there is none
  int delayTap = 0;
  double delayGain = 0.0;
};
// The default-mode (long) and eco (short) tables.
const TruePeakTable& LongTruePeakTable();
const TruePeakTable& ShortTruePeakTable();

struct KernelSet {
  // K-weights channels [0, channels) over n samples: x[c][i] in, the weighted
  // power of channel c at sample i out in power[c][i].
  void (*kWeight)(KWeightingBank& bank, const double* const* x, int channels, int n, double* const* power);
  // total[i] = ((0 + power[0][i]) + power[1][i]) + ... over the channels.
  void (*sumPowers)(const double* const* power, int channels, int n, double* total);
  // Runs n samples of x through a detector and returns the largest of peak
  // and every sample's true peak (NaN values never win).
  double (*truePeak)(const TruePeakTable& table, TruePeakHistory& history, const double* x, int n,
                     double peak);
};

const KernelSet& Kernels(CodePath path);

namespace kernels {
// The largest of peak and the true peaks of samples w[0 .. m) (m >= 1), whose
// windows reach back to w[1 - taps]; the vector variants hand the ends of a
// run to the narrower ones, which sum in the same order.
using TruePeakSpan = double (*)(const TruePeakTable& table, const double* w, int m, double peak);
double TruePeakSpanScalar(const TruePeakTable& table, const double* w, int m, double peak);
double TruePeakSpanSse2(const TruePeakTable& table, const double* w, int m, double peak);
// Runs x through span in runs of a bounded length, with the history in front.
double RunTruePeak(TruePeakSpan span, const TruePeakTable& table, TruePeakHistory& history, const double* x,
                   int n, double peak);

extern const KernelSet kScalar;
// Scalar K-weighting of channels [first, last): the tail of the vector loops.
void KWeightChannels(KWeightingBank& bank, const double* const* x, int first, int last, int n,
                     double* const* power);
extern const KernelSet kSse2;
// Two-wide K-weighting of channels c and c + 1 (SSE2): the pair loop of the
// SSE2 set and the two-channel tail of the wider sets.
void KWeightPairSse2(KWeightingBank& bank, const double* const* x, int c, int n, double* const* power);
#if defined(__x86_64__) || defined(_M_X64)
extern const KernelSet kAvx2;
void KWeightAvx2(KWeightingBank& bank, const double* const* x, int channels, int n, double* const* power);
void SumAvx2(const double* const* power, int channels, int n, double* total);
double TruePeakSpanAvx2(const TruePeakTable& table, const double* w, int m, double peak);
extern const KernelSet kAvx512;
#endif
}  // namespace kernels

}  // namespace velorum
