// Two-wide variant (SSE2, present on every x86-64 CPU): two channels per
// register in the K-weighting, phases (0,1) and (2,3) per register in the
// true-peak filter.
#include <emmintrin.h>

#include <cfloat>

#include "engine/Kernels.h"

namespace velorum::kernels {

namespace {

inline __m128d Abs(__m128d v) { return _mm_andnot_pd(_mm_set1_pd(-0.0), v); }

// 0.0 where the exponent is zero (zero or denormal); NaN passes.
inline __m128d Flush(__m128d y) {
    const __m128d tiny = _mm_cmplt_pd(Abs(y), _mm_set1_pd(DBL_MIN));
    return _mm_andnot_pd(tiny, y);
}

}  // namespace

void KWeightPairSse2(KWeightingBank& k, const double* const* x, int c, int n, double* const* power) {
    __m128d x1a = _mm_load_pd(k.x1a + c), x2a = _mm_load_pd(k.x2a + c);
    __m128d y1a = _mm_load_pd(k.y1a + c), y2a = _mm_load_pd(k.y2a + c);
    __m128d x1b = _mm_load_pd(k.x1b + c), x2b = _mm_load_pd(k.x2b + c);
    __m128d y1b = _mm_load_pd(k.y1b + c), y2b = _mm_load_pd(k.y2b + c);
    const __m128d b0a = _mm_load_pd(k.b0a + c), b1a = _mm_load_pd(k.b1a + c), b2a = _mm_load_pd(k.b2a + c);
    const __m128d a1a = _mm_load_pd(k.a1a + c), a2a = _mm_load_pd(k.a2a + c);
    const __m128d b0b = _mm_load_pd(k.b0b + c), b1b = _mm_load_pd(k.b1b + c), b2b = _mm_load_pd(k.b2b + c);
    const __m128d a1b = _mm_load_pd(k.a1b + c), a2b = _mm_load_pd(k.a2b + c);
    const __m128d w = _mm_load_pd(k.weight + c);
    const double* in0 = x[c];
    const double* in1 = x[c + 1];
    double* out0 = power[c];
    double* out1 = power[c + 1];
    for (int i = 0; i < n; ++i) {
        const __m128d xi = _mm_set_pd(in1[i], in0[i]);
        __m128d ya = _mm_add_pd(_mm_mul_pd(b0a, xi), _mm_mul_pd(b1a, x1a));
        ya = _mm_add_pd(ya, _mm_mul_pd(b2a, x2a));
        ya = _mm_sub_pd(ya, _mm_mul_pd(a2a, y2a));
        ya = Flush(_mm_sub_pd(ya, _mm_mul_pd(a1a, y1a)));
        x2a = x1a;
        x1a = xi;
        y2a = y1a;
        y1a = ya;
        __m128d yb = _mm_add_pd(_mm_mul_pd(b0b, ya), _mm_mul_pd(b1b, x1b));
        yb = _mm_add_pd(yb, _mm_mul_pd(b2b, x2b));
        yb = _mm_sub_pd(yb, _mm_mul_pd(a2b, y2b));
        yb = Flush(_mm_sub_pd(yb, _mm_mul_pd(a1b, y1b)));
        x2b = x1b;
        x1b = ya;
        y2b = y1b;
        y1b = yb;
        const __m128d v = _mm_mul_pd(yb, w);
        const __m128d p = _mm_mul_pd(v, v);
        _mm_store_sd(out0 + i, p);
        _mm_storeh_pd(out1 + i, p);
    }
    _mm_store_pd(k.x1a + c, x1a), _mm_store_pd(k.x2a + c, x2a);
    _mm_store_pd(k.y1a + c, y1a), _mm_store_pd(k.y2a + c, y2a);
    _mm_store_pd(k.x1b + c, x1b), _mm_store_pd(k.x2b + c, x2b);
    _mm_store_pd(k.y1b + c, y1b), _mm_store_pd(k.y2b + c, y2b);

}

namespace {

void KWeightSse2(KWeightingBank& k, const double* const* x, int channels, int n, double* const* power) {
    int c = 0;
    for (; c + 2 <= channels; c += 2) KWeightPairSse2(k, x, c, n, power);
    KWeightChannels(k, x, c, channels, n, power);
}

void SumSse2(const double* const* power, int channels, int n, double* total) {
    int i = 0;
    for (; i + 2 <= n; i += 2) {
        __m128d s = _mm_setzero_pd();
        for (int c = 0; c < channels; ++c) s = _mm_add_pd(s, _mm_loadu_pd(power[c] + i));
        _mm_storeu_pd(total + i, s);
    }
    for (; i < n; ++i) {
        double s = 0.0;
        for (int c = 0; c < channels; ++c) s += power[c][i];
        total[i] = s;
    }
}

// v > peak ? v : peak, lane by lane (a NaN v never wins).
inline __m128d Larger(__m128d v, __m128d peak) { return _mm_max_pd(v, peak); }

// Phases (0,1) or (2,3) of one sample, with the four partial sums of the
// scalar variant: taps k = q (mod 4), combined as (s0 + s1) + (s2 + s3).
inline __m128d Phases(const double* t, const double* win, int taps) {
    __m128d s0 = _mm_mul_pd(_mm_load_pd(t), _mm_set1_pd(win[0]));
    __m128d s1 = _mm_mul_pd(_mm_load_pd(t + 4), _mm_set1_pd(win[1]));
    __m128d s2 = _mm_mul_pd(_mm_load_pd(t + 8), _mm_set1_pd(win[2]));
    __m128d s3 = _mm_mul_pd(_mm_load_pd(t + 12), _mm_set1_pd(win[3]));
    int k = 4;
    for (; k + 4 <= taps; k += 4) {
        s0 = _mm_add_pd(s0, _mm_mul_pd(_mm_load_pd(t + 4 * k), _mm_set1_pd(win[k])));
        s1 = _mm_add_pd(s1, _mm_mul_pd(_mm_load_pd(t + 4 * k + 4), _mm_set1_pd(win[k + 1])));
        s2 = _mm_add_pd(s2, _mm_mul_pd(_mm_load_pd(t + 4 * k + 8), _mm_set1_pd(win[k + 2])));
        s3 = _mm_add_pd(s3, _mm_mul_pd(_mm_load_pd(t + 4 * k + 12), _mm_set1_pd(win[k + 3])));
    }
    if (k < taps) s0 = _mm_add_pd(s0, _mm_mul_pd(_mm_load_pd(t + 4 * k), _mm_set1_pd(win[k])));
    if (k + 1 < taps) s1 = _mm_add_pd(s1, _mm_mul_pd(_mm_load_pd(t + 4 * k + 4), _mm_set1_pd(win[k + 1])));
    if (k + 2 < taps) s2 = _mm_add_pd(s2, _mm_mul_pd(_mm_load_pd(t + 4 * k + 8), _mm_set1_pd(win[k + 2])));
    return _mm_add_pd(_mm_add_pd(s0, s1), _mm_add_pd(s2, s3));
}

double TruePeakSse2(const double* t, int taps, TruePeakRing& r, const double* x, int n, double peak) {
    int w = r.write;
    __m128d best = _mm_set1_pd(peak);
    for (int i = 0; i < n; ++i) {
        const double xi = x[i];
        w = (w + 1) & (TruePeakRing::kSlots - 1);
        r.samples[w] = xi;
        r.samples[w + TruePeakRing::kSlots] = xi;
        if (w == 0) r.samples[2 * TruePeakRing::kSlots] = xi;
        const double* win = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        best = Larger(Abs(Phases(t, win, taps)), best);
        best = Larger(Abs(Phases(t + 2, win, taps)), best);
        best = Larger(Abs(_mm_set1_pd(xi)), best);
    }
    r.write = w;
    const double lo = _mm_cvtsd_f64(best);
    const double hi = _mm_cvtsd_f64(_mm_unpackhi_pd(best, best));
    return hi > lo ? hi : lo;
}

}  // namespace

const KernelSet kSse2{KWeightSse2, SumSse2, TruePeakSse2};

}  // namespace velorum::kernels
