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

void KWeightSse2(KWeightingBank& k, const double* const* x, int channels, int n, double* const* power) {
    int c = 0;
    for (; c + 2 <= channels; c += 2) {
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

double TruePeakSse2(const double* t, int taps, TruePeakRing& r, const double* x, int n, double peak) {
    int w = r.write;
    __m128d best = _mm_set1_pd(peak);
    int i = 0;
    for (; i + 2 <= n; i += 2) {
        const double xa = x[i], xb = x[i + 1];
        const int wa = (w + 1) & (TruePeakRing::kSlots - 1);
        const int wb = (w + 2) & (TruePeakRing::kSlots - 1);
        r.samples[wa] = xa;
        r.samples[wa + TruePeakRing::kSlots] = xa;
        r.samples[wb] = xb;
        r.samples[wb + TruePeakRing::kSlots] = xb;
        w = wb;
        const double* ua = r.samples + wa + TruePeakRing::kSlots + 1 - taps;
        const double* ub = r.samples + wb + TruePeakRing::kSlots + 1 - taps;
        __m128d sa = _mm_set1_pd(ua[0]), sb = _mm_set1_pd(ub[0]);
        __m128d c01 = _mm_load_pd(t), c23 = _mm_load_pd(t + 2);
        __m128d a01 = _mm_mul_pd(c01, sa), a23 = _mm_mul_pd(c23, sa);
        __m128d b01 = _mm_mul_pd(c01, sb), b23 = _mm_mul_pd(c23, sb);
        for (int k = 1; k < taps; ++k) {
            c01 = _mm_load_pd(t + 4 * k);
            c23 = _mm_load_pd(t + 4 * k + 2);
            sa = _mm_set1_pd(ua[k]);
            sb = _mm_set1_pd(ub[k]);
            a01 = _mm_add_pd(a01, _mm_mul_pd(c01, sa));
            a23 = _mm_add_pd(a23, _mm_mul_pd(c23, sa));
            b01 = _mm_add_pd(b01, _mm_mul_pd(c01, sb));
            b23 = _mm_add_pd(b23, _mm_mul_pd(c23, sb));
        }
        best = Larger(Abs(a01), best);
        best = Larger(Abs(a23), best);
        best = Larger(Abs(b01), best);
        best = Larger(Abs(b23), best);
        best = Larger(Abs(_mm_set_pd(xb, xa)), best);
    }
    for (; i < n; ++i) {
        const double xa = x[i];
        w = (w + 1) & (TruePeakRing::kSlots - 1);
        r.samples[w] = xa;
        r.samples[w + TruePeakRing::kSlots] = xa;
        const double* ua = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        __m128d sa = _mm_set1_pd(ua[0]);
        __m128d a01 = _mm_mul_pd(_mm_load_pd(t), sa), a23 = _mm_mul_pd(_mm_load_pd(t + 2), sa);
        for (int k = 1; k < taps; ++k) {
            sa = _mm_set1_pd(ua[k]);
            a01 = _mm_add_pd(a01, _mm_mul_pd(_mm_load_pd(t + 4 * k), sa));
            a23 = _mm_add_pd(a23, _mm_mul_pd(_mm_load_pd(t + 4 * k + 2), sa));
        }
        best = Larger(Abs(a01), best);
        best = Larger(Abs(a23), best);
        best = Larger(Abs(_mm_set1_pd(xa)), best);
    }
    r.write = w;
    const double lo = _mm_cvtsd_f64(best);
    const double hi = _mm_cvtsd_f64(_mm_unpackhi_pd(best, best));
    return hi > lo ? hi : lo;
}

}  // namespace

const KernelSet kSse2{KWeightSse2, SumSse2, TruePeakSse2};

}  // namespace velorum::kernels
