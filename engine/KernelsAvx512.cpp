// Eight-wide true-peak filter (AVX-512F/DQ, chosen at run time): the four
// phases of two neighbouring samples share one register, interleaved
// (lane 2p is phase p of the first sample, lane 2p + 1 of the second). The
// sums run in the same order as every other variant (four partial sums over
// taps k = q (mod 4), combined as (s0 + s1) + (s2 + s3)), without FMA.
// K-weighting and the power sum use the AVX2 loops.
#include <immintrin.h>

#include <cstring>

// GCC 12's _mm512_broadcast_f64x2 passes an unset merge source to its builtin.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "engine/Kernels.h"
#include "engine/TruePeakFilter.h"

namespace velorum::kernels {

namespace {

// Tap-major tables with each phase coefficient doubled: entry 8k + 2p and
// 8k + 2p + 1 hold coefficient p of tap k.
struct DoubledTables {
    alignas(64) double longTable[kLongTruePeakTaps * 2];
    alignas(64) double shortTable[kShortTruePeakTaps * 2];
};

const DoubledTables& Doubled() {
    static const DoubledTables tables = [] {
        DoubledTables d{};
        const TruePeakTables& t = TruePeakFilterTables();
        for (int i = 0; i < kLongTruePeakTaps; ++i) d.longTable[2 * i] = d.longTable[2 * i + 1] = t.longTapMajor[i];
        for (int i = 0; i < kShortTruePeakTaps; ++i)
            d.shortTable[2 * i] = d.shortTable[2 * i + 1] = t.shortTapMajor[i];
        return d;
    }();
    return tables;
}

inline __m512d Abs8(__m512d v) { return _mm512_abs_pd(v); }
// v > peak ? v : peak, lane by lane (a NaN v never wins).
inline __m512d Larger(__m512d v, __m512d peak) { return _mm512_max_pd(v, peak); }

inline void Push(TruePeakRing& r, int& w, double v) {
    w = (w + 1) & (TruePeakRing::kSlots - 1);
    r.samples[w] = v;
    r.samples[w + TruePeakRing::kSlots] = v;
    if (w == 0) r.samples[2 * TruePeakRing::kSlots] = v;
}

// acc += coefficients of tap k times {u[k], u[k + 1]} (two samples' windows).
#define VELORUM_TAP8(acc, k, u) \
    acc = _mm512_add_pd(acc, _mm512_mul_pd(_mm512_load_pd(t + 8 * (k)), _mm512_broadcast_f64x2(_mm_loadu_pd((u) + (k)))))
#define VELORUM_FIRST8(k, u) _mm512_mul_pd(_mm512_load_pd(t + 8 * (k)), _mm512_broadcast_f64x2(_mm_loadu_pd((u) + (k))))

// Both samples of the pair whose first window starts at u.
inline __m512d Pair(const double* t, const double* u, int taps) {
    __m512d s0 = VELORUM_FIRST8(0, u), s1 = VELORUM_FIRST8(1, u), s2 = VELORUM_FIRST8(2, u),
            s3 = VELORUM_FIRST8(3, u);
    int k = 4;
    for (; k + 4 <= taps; k += 4) {
        VELORUM_TAP8(s0, k, u);
        VELORUM_TAP8(s1, k + 1, u);
        VELORUM_TAP8(s2, k + 2, u);
        VELORUM_TAP8(s3, k + 3, u);
    }
    if (k < taps) VELORUM_TAP8(s0, k, u);
    if (k + 1 < taps) VELORUM_TAP8(s1, k + 1, u);
    if (k + 2 < taps) VELORUM_TAP8(s2, k + 2, u);
    return _mm512_add_pd(_mm512_add_pd(s0, s1), _mm512_add_pd(s2, s3));
}

double TruePeakAvx512(const double* table, int taps, TruePeakRing& r, const double* x, int n, double peak) {
    // A sample or two (the plug-in's sample-by-sample feed) run faster in the
    // 256-bit loop; it sums in the same order.
    if (n < 4) return kAvx2.truePeak(table, taps, r, x, n, peak);
    const DoubledTables& d = Doubled();
    const double* t = table == TruePeakFilterTables().shortTapMajor ? d.shortTable : d.longTable;
    int w = r.write;
    __m512d best = _mm512_set1_pd(peak);
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        // Four samples in flight (the ring of 64 keeps their windows intact).
        Push(r, w, x[i]);
        const double* u = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        Push(r, w, x[i + 1]);
        Push(r, w, x[i + 2]);
        const double* v = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        Push(r, w, x[i + 3]);
        __m512d a0 = VELORUM_FIRST8(0, u), a1 = VELORUM_FIRST8(1, u), a2 = VELORUM_FIRST8(2, u),
                a3 = VELORUM_FIRST8(3, u);
        __m512d b0 = VELORUM_FIRST8(0, v), b1 = VELORUM_FIRST8(1, v), b2 = VELORUM_FIRST8(2, v),
                b3 = VELORUM_FIRST8(3, v);
        int k = 4;
        for (; k + 4 <= taps; k += 4) {
            VELORUM_TAP8(a0, k, u);
            VELORUM_TAP8(b0, k, v);
            VELORUM_TAP8(a1, k + 1, u);
            VELORUM_TAP8(b1, k + 1, v);
            VELORUM_TAP8(a2, k + 2, u);
            VELORUM_TAP8(b2, k + 2, v);
            VELORUM_TAP8(a3, k + 3, u);
            VELORUM_TAP8(b3, k + 3, v);
        }
        if (k < taps) {
            VELORUM_TAP8(a0, k, u);
            VELORUM_TAP8(b0, k, v);
        }
        if (k + 1 < taps) {
            VELORUM_TAP8(a1, k + 1, u);
            VELORUM_TAP8(b1, k + 1, v);
        }
        if (k + 2 < taps) {
            VELORUM_TAP8(a2, k + 2, u);
            VELORUM_TAP8(b2, k + 2, v);
        }
        best = Larger(Abs8(_mm512_add_pd(_mm512_add_pd(a0, a1), _mm512_add_pd(a2, a3))), best);
        best = Larger(Abs8(_mm512_add_pd(_mm512_add_pd(b0, b1), _mm512_add_pd(b2, b3))), best);
        best = Larger(Abs8(_mm512_insertf64x4(_mm512_setzero_pd(), _mm256_loadu_pd(x + i), 0)), best);
    }
    for (; i + 2 <= n; i += 2) {
        Push(r, w, x[i]);
        const double* u = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        Push(r, w, x[i + 1]);
        best = Larger(Abs8(Pair(t, u, taps)), best);
        best = Larger(Abs8(_mm512_set1_pd(x[i])), best);
        best = Larger(Abs8(_mm512_set1_pd(x[i + 1])), best);
    }
    if (i < n) {
        // A single sample: four phases in one 256-bit register, same order.
        Push(r, w, x[i]);
        const double* u = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        const double* t4 = table;
        __m256d s0 = _mm256_mul_pd(_mm256_load_pd(t4), _mm256_broadcast_sd(u));
        __m256d s1 = _mm256_mul_pd(_mm256_load_pd(t4 + 4), _mm256_broadcast_sd(u + 1));
        __m256d s2 = _mm256_mul_pd(_mm256_load_pd(t4 + 8), _mm256_broadcast_sd(u + 2));
        __m256d s3 = _mm256_mul_pd(_mm256_load_pd(t4 + 12), _mm256_broadcast_sd(u + 3));
        int k = 4;
        for (; k + 4 <= taps; k += 4) {
            s0 = _mm256_add_pd(s0, _mm256_mul_pd(_mm256_load_pd(t4 + 4 * k), _mm256_broadcast_sd(u + k)));
            s1 = _mm256_add_pd(s1, _mm256_mul_pd(_mm256_load_pd(t4 + 4 * k + 4), _mm256_broadcast_sd(u + k + 1)));
            s2 = _mm256_add_pd(s2, _mm256_mul_pd(_mm256_load_pd(t4 + 4 * k + 8), _mm256_broadcast_sd(u + k + 2)));
            s3 = _mm256_add_pd(s3, _mm256_mul_pd(_mm256_load_pd(t4 + 4 * k + 12), _mm256_broadcast_sd(u + k + 3)));
        }
        if (k < taps) s0 = _mm256_add_pd(s0, _mm256_mul_pd(_mm256_load_pd(t4 + 4 * k), _mm256_broadcast_sd(u + k)));
        if (k + 1 < taps)
            s1 = _mm256_add_pd(s1, _mm256_mul_pd(_mm256_load_pd(t4 + 4 * k + 4), _mm256_broadcast_sd(u + k + 1)));
        if (k + 2 < taps)
            s2 = _mm256_add_pd(s2, _mm256_mul_pd(_mm256_load_pd(t4 + 4 * k + 8), _mm256_broadcast_sd(u + k + 2)));
        const __m256d sum = _mm256_add_pd(_mm256_add_pd(s0, s1), _mm256_add_pd(s2, s3));
        const __m256d mag = _mm256_andnot_pd(_mm256_set1_pd(-0.0), sum);
        best = Larger(_mm512_insertf64x4(_mm512_setzero_pd(), mag, 0), best);
        best = Larger(Abs8(_mm512_set1_pd(x[i])), best);
    }
    r.write = w;
    alignas(64) double lanes[8];
    _mm512_store_pd(lanes, best);
    double m = lanes[0];
    for (int l = 1; l < 8; ++l) m = lanes[l] > m ? lanes[l] : m;
    return m;
}

#undef VELORUM_TAP8
#undef VELORUM_FIRST8

}  // namespace

double (*const kTruePeakAvx512)(const double*, int, TruePeakRing&, const double*, int, double) = TruePeakAvx512;

}  // namespace velorum::kernels
