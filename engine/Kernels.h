// Hot loops of the engine, built once per instruction set. Every variant
// performs the same operations in the same order (the engine is compiled
// without floating-point contraction), so all give bit-identical results.
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

// One channel's true-peak input history: a ring of 64 samples kept twice
// (slots i and i + 64, and slot 0 once more at 128) so that the newest N
// samples, and the one after them, are always contiguous, with room for
// several samples in flight.
struct TruePeakRing {
    static constexpr int kSlots = 64;
    alignas(64) double samples[2 * kSlots + 8];
    int write = -1;  // slot of the newest sample, -1 before the first one
    void Clear();
};

struct KernelSet {
    // K-weights channels [0, channels) over n samples: x[c][i] in, the weighted
    // power of channel c at sample i out in power[c][i].
    void (*kWeight)(KWeightingBank& bank, const double* const* x, int channels, int n, double* const* power);
    // total[i] = ((0 + power[0][i]) + power[1][i]) + ... over the channels.
    void (*sumPowers)(const double* const* power, int channels, int n, double* total);
    // Runs n samples of x through a detector and returns the largest of peak
    // and every sample's true peak (NaN values never win).
    double (*truePeak)(const double* tapMajor, int taps, TruePeakRing& ring, const double* x, int n, double peak);
};

const KernelSet& Kernels(CodePath path);

namespace kernels {
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
extern double (*const kTruePeakAvx512)(const double*, int, TruePeakRing&, const double*, int, double);
#endif
}  // namespace kernels

}  // namespace velorum
