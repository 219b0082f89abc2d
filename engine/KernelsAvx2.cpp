// Four-wide variant (AVX2, chosen at run time): four channels per register in
// the K-weighting, the four phases of one sample per register in the
// true-peak filter. Built with -mavx2 but without FMA so that it rounds
// exactly like the other variants.
#include <immintrin.h>

#include <cfloat>

#include "engine/Kernels.h"

namespace velorum::kernels {

namespace {

inline __m256d Abs4(__m256d v) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), v); }

inline __m256d Flush4(__m256d y) {
    const __m256d tiny = _mm256_cmp_pd(Abs4(y), _mm256_set1_pd(DBL_MIN), _CMP_LT_OQ);
    return _mm256_andnot_pd(tiny, y);
}

void KWeightQuad(KWeightingBank& k, const double* const* x, int c, int n, double* const* power) {
    __m256d x1a = _mm256_load_pd(k.x1a + c), x2a = _mm256_load_pd(k.x2a + c);
    __m256d y1a = _mm256_load_pd(k.y1a + c), y2a = _mm256_load_pd(k.y2a + c);
    __m256d x1b = _mm256_load_pd(k.x1b + c), x2b = _mm256_load_pd(k.x2b + c);
    __m256d y1b = _mm256_load_pd(k.y1b + c), y2b = _mm256_load_pd(k.y2b + c);
    const __m256d b0a = _mm256_load_pd(k.b0a + c), b1a = _mm256_load_pd(k.b1a + c);
    const __m256d b2a = _mm256_load_pd(k.b2a + c), a1a = _mm256_load_pd(k.a1a + c);
    const __m256d a2a = _mm256_load_pd(k.a2a + c);
    const __m256d b0b = _mm256_load_pd(k.b0b + c), b1b = _mm256_load_pd(k.b1b + c);
    const __m256d b2b = _mm256_load_pd(k.b2b + c), a1b = _mm256_load_pd(k.a1b + c);
    const __m256d a2b = _mm256_load_pd(k.a2b + c);
    const __m256d w = _mm256_load_pd(k.weight + c);
    const double* in0 = x[c];
    const double* in1 = x[c + 1];
    const double* in2 = x[c + 2];
    const double* in3 = x[c + 3];
    double* out0 = power[c];
    double* out1 = power[c + 1];
    double* out2 = power[c + 2];
    double* out3 = power[c + 3];
    for (int i = 0; i < n; ++i) {
        const __m256d xi = _mm256_set_pd(in3[i], in2[i], in1[i], in0[i]);
        __m256d ya = _mm256_add_pd(_mm256_mul_pd(b0a, xi), _mm256_mul_pd(b1a, x1a));
        ya = _mm256_add_pd(ya, _mm256_mul_pd(b2a, x2a));
        ya = _mm256_sub_pd(ya, _mm256_mul_pd(a2a, y2a));
        ya = Flush4(_mm256_sub_pd(ya, _mm256_mul_pd(a1a, y1a)));
        x2a = x1a;
        x1a = xi;
        y2a = y1a;
        y1a = ya;
        __m256d yb = _mm256_add_pd(_mm256_mul_pd(b0b, ya), _mm256_mul_pd(b1b, x1b));
        yb = _mm256_add_pd(yb, _mm256_mul_pd(b2b, x2b));
        yb = _mm256_sub_pd(yb, _mm256_mul_pd(a2b, y2b));
        yb = Flush4(_mm256_sub_pd(yb, _mm256_mul_pd(a1b, y1b)));
        x2b = x1b;
        x1b = ya;
        y2b = y1b;
        y1b = yb;
        const __m256d v = _mm256_mul_pd(yb, w);
        const __m256d p = _mm256_mul_pd(v, v);
        const __m128d lo = _mm256_castpd256_pd128(p);
        const __m128d hi = _mm256_extractf128_pd(p, 1);
        _mm_store_sd(out0 + i, lo);
        _mm_storeh_pd(out1 + i, lo);
        _mm_store_sd(out2 + i, hi);
        _mm_storeh_pd(out3 + i, hi);
    }
    _mm256_store_pd(k.x1a + c, x1a), _mm256_store_pd(k.x2a + c, x2a);
    _mm256_store_pd(k.y1a + c, y1a), _mm256_store_pd(k.y2a + c, y2a);
    _mm256_store_pd(k.x1b + c, x1b), _mm256_store_pd(k.x2b + c, x2b);
    _mm256_store_pd(k.y1b + c, y1b), _mm256_store_pd(k.y2b + c, y2b);
}

void KWeightAvx2(KWeightingBank& k, const double* const* x, int channels, int n, double* const* power) {
    int c = 0;
    for (; c + 4 <= channels; c += 4) KWeightQuad(k, x, c, n, power);
    for (; c + 2 <= channels; c += 2) KWeightPairSse2(k, x, c, n, power);
    KWeightChannels(k, x, c, channels, n, power);
}

void SumAvx2(const double* const* power, int channels, int n, double* total) {
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        __m256d s = _mm256_setzero_pd();
        for (int c = 0; c < channels; ++c) s = _mm256_add_pd(s, _mm256_loadu_pd(power[c] + i));
        _mm256_storeu_pd(total + i, s);
    }
    for (; i < n; ++i) {
        double s = 0.0;
        for (int c = 0; c < channels; ++c) s += power[c][i];
        total[i] = s;
    }
}

// v > peak ? v : peak, lane by lane (a NaN v never wins).
inline __m256d Larger(__m256d v, __m256d peak) { return _mm256_max_pd(v, peak); }

inline void Push(TruePeakRing& r, int& w, double v) {
    w = (w + 1) & (TruePeakRing::kSlots - 1);
    r.samples[w] = v;
    r.samples[w + TruePeakRing::kSlots] = v;
    if (w == 0) r.samples[2 * TruePeakRing::kSlots] = v;
}

// All four phases of a sample in one register, summed like the scalar
// variant: four partial sums over taps k = q (mod 4), (s0 + s1) + (s2 + s3).
#define VELORUM_TAP(acc, k, win) acc = _mm256_add_pd(acc, _mm256_mul_pd(_mm256_load_pd(t + 4 * (k)), _mm256_broadcast_sd(win + (k))))

inline __m256d Phases(const double* t, const double* u, int taps) {
    __m256d s0 = _mm256_mul_pd(_mm256_load_pd(t), _mm256_broadcast_sd(u));
    __m256d s1 = _mm256_mul_pd(_mm256_load_pd(t + 4), _mm256_broadcast_sd(u + 1));
    __m256d s2 = _mm256_mul_pd(_mm256_load_pd(t + 8), _mm256_broadcast_sd(u + 2));
    __m256d s3 = _mm256_mul_pd(_mm256_load_pd(t + 12), _mm256_broadcast_sd(u + 3));
    int k = 4;
    for (; k + 4 <= taps; k += 4) {
        VELORUM_TAP(s0, k, u);
        VELORUM_TAP(s1, k + 1, u);
        VELORUM_TAP(s2, k + 2, u);
        VELORUM_TAP(s3, k + 3, u);
    }
    if (k < taps) VELORUM_TAP(s0, k, u);
    if (k + 1 < taps) VELORUM_TAP(s1, k + 1, u);
    if (k + 2 < taps) VELORUM_TAP(s2, k + 2, u);
    return _mm256_add_pd(_mm256_add_pd(s0, s1), _mm256_add_pd(s2, s3));
}

double TruePeakAvx2(const double* t, int taps, TruePeakRing& r, const double* x, int n, double peak) {
    int w = r.write;
    __m256d best = _mm256_set1_pd(peak);
    int i = 0;
    for (; i + 2 <= n; i += 2) {
        // Two samples in flight; the second one's write never reaches a slot
        // inside the first one's window (the ring holds 64).
        Push(r, w, x[i]);
        const double* u = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        Push(r, w, x[i + 1]);
        const double* v = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        __m256d a0 = _mm256_mul_pd(_mm256_load_pd(t), _mm256_broadcast_sd(u));
        __m256d a1 = _mm256_mul_pd(_mm256_load_pd(t + 4), _mm256_broadcast_sd(u + 1));
        __m256d a2 = _mm256_mul_pd(_mm256_load_pd(t + 8), _mm256_broadcast_sd(u + 2));
        __m256d a3 = _mm256_mul_pd(_mm256_load_pd(t + 12), _mm256_broadcast_sd(u + 3));
        __m256d b0 = _mm256_mul_pd(_mm256_load_pd(t), _mm256_broadcast_sd(v));
        __m256d b1 = _mm256_mul_pd(_mm256_load_pd(t + 4), _mm256_broadcast_sd(v + 1));
        __m256d b2 = _mm256_mul_pd(_mm256_load_pd(t + 8), _mm256_broadcast_sd(v + 2));
        __m256d b3 = _mm256_mul_pd(_mm256_load_pd(t + 12), _mm256_broadcast_sd(v + 3));
        int k = 4;
        for (; k + 4 <= taps; k += 4) {
            VELORUM_TAP(a0, k, u);
            VELORUM_TAP(b0, k, v);
            VELORUM_TAP(a1, k + 1, u);
            VELORUM_TAP(b1, k + 1, v);
            VELORUM_TAP(a2, k + 2, u);
            VELORUM_TAP(b2, k + 2, v);
            VELORUM_TAP(a3, k + 3, u);
            VELORUM_TAP(b3, k + 3, v);
        }
        if (k < taps) {
            VELORUM_TAP(a0, k, u);
            VELORUM_TAP(b0, k, v);
        }
        if (k + 1 < taps) {
            VELORUM_TAP(a1, k + 1, u);
            VELORUM_TAP(b1, k + 1, v);
        }
        if (k + 2 < taps) {
            VELORUM_TAP(a2, k + 2, u);
            VELORUM_TAP(b2, k + 2, v);
        }
        best = Larger(Abs4(_mm256_add_pd(_mm256_add_pd(a0, a1), _mm256_add_pd(a2, a3))), best);
        best = Larger(Abs4(_mm256_add_pd(_mm256_add_pd(b0, b1), _mm256_add_pd(b2, b3))), best);
        best = Larger(Abs4(_mm256_set_pd(x[i + 1], x[i], x[i + 1], x[i])), best);
    }
    for (; i < n; ++i) {
        Push(r, w, x[i]);
        best = Larger(Abs4(Phases(t, r.samples + w + TruePeakRing::kSlots + 1 - taps, taps)), best);
        best = Larger(Abs4(_mm256_set1_pd(x[i])), best);
    }
    r.write = w;
    alignas(32) double lanes[4];
    _mm256_store_pd(lanes, best);
    double m = lanes[0];
    for (int l = 1; l < 4; ++l) m = lanes[l] > m ? lanes[l] : m;
    return m;
}

#undef VELORUM_TAP

}  // namespace

const KernelSet kAvx2{KWeightAvx2, SumAvx2, TruePeakAvx2};

}  // namespace velorum::kernels
