// Two-wide variant (SSE2, present on every x86-64 CPU): two channels per
// register in the K-weighting, two consecutive output samples per register in
// the true-peak filter.
#include <emmintrin.h>

#include "engine/Kernels.h"
#include "engine/TruePeakFilter.h"

namespace velorum::kernels {

namespace {

inline __m128d Abs(__m128d v) {
  return _mm_andnot_pd(_mm_set1_pd(-0.0), v);
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
    ya = _mm_sub_pd(ya, _mm_mul_pd(a1a, y1a));
    x2a = x1a;
    x1a = xi;
    y2a = y1a;
    y1a = ya;
    __m128d yb = _mm_add_pd(_mm_mul_pd(b0b, ya), _mm_mul_pd(b1b, x1b));
    yb = _mm_add_pd(yb, _mm_mul_pd(b2b, x2b));
    yb = _mm_sub_pd(yb, _mm_mul_pd(a2b, y2b));
    yb = _mm_sub_pd(yb, _mm_mul_pd(a1b, y1b));
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
inline __m128d Larger(__m128d v, __m128d peak) {
  return _mm_max_pd(v, peak);
}

// P phases of the two outputs whose windows start at u and u + 1, the table
// given per phase (tp[p]: the pair of tap k at tp[p] + 8k): four partial sums
// over taps k = q (mod 4), (s0 + s1) + (s2 + s3), like every variant.
template <int P, int N>
inline void Sums(const double* const (&tp)[P], const double* u, __m128d (&out)[P]) {
  __m128d s[P][4];
#pragma GCC unroll 4
  for (int q = 0; q < 4; ++q) {
    const __m128d x = _mm_loadu_pd(u + q);
#pragma GCC unroll 4
    for (int p = 0; p < P; ++p) s[p][q] = _mm_mul_pd(_mm_load_pd(tp[p] + 8 * q), x);
  }
  int k = 4;
#pragma GCC unroll 8
  for (; k + 4 <= N; k += 4) {
#pragma GCC unroll 4
    for (int q = 0; q < 4; ++q) {
      const __m128d x = _mm_loadu_pd(u + k + q);
#pragma GCC unroll 4
      for (int p = 0; p < P; ++p)
        s[p][q] = _mm_add_pd(s[p][q], _mm_mul_pd(_mm_load_pd(tp[p] + 8 * (k + q)), x));
    }
  }
#pragma GCC unroll 3
  for (int q = 0; q < 3; ++q) {
    if (k + q >= N) break;
    const __m128d x = _mm_loadu_pd(u + k + q);
#pragma GCC unroll 4
    for (int p = 0; p < P; ++p)
      s[p][q] = _mm_add_pd(s[p][q], _mm_mul_pd(_mm_load_pd(tp[p] + 8 * (k + q)), x));
  }
#pragma GCC unroll 4
  for (int p = 0; p < P; ++p) out[p] = _mm_add_pd(_mm_add_pd(s[p][0], s[p][1]), _mm_add_pd(s[p][2], s[p][3]));
}

template <int P, int N>
inline __m128d Peaks(const double* const (&tp)[P], const double* u, __m128d best) {
  __m128d out[P];
  Sums<P, N>(tp, u, out);
#pragma GCC unroll 4
  for (int p = 0; p < P; ++p) best = Larger(Abs(out[p]), best);
  return best;
}

template <int N>
double Span(const TruePeakTable& t, const double* w, int m, double peak) {
  if (m < 2) return TruePeakSpanScalar(t, w, m, peak);
  const double* pairs = t.pairs;
  __m128d best = _mm_set1_pd(peak);
  const __m128d gain = _mm_set1_pd(t.delayGain);
  if (t.delayPhase >= 0) {
    const double* tp[3];
    for (int p = 0, i = 0; p < 4; ++p)
      if (p != t.delayPhase) tp[i++] = pairs + 2 * p;
    for (int j = 0;; j += 2) {
      if (j > m - 2) j = m - 2;  // the last pair may repeat an output: the peak is the same
      const double* u = w + j + 1 - N;
      best = Peaks<3, N>(tp, u, best);
      best = Larger(Abs(_mm_mul_pd(gain, _mm_loadu_pd(u + t.delayTap))), best);
      best = Larger(Abs(_mm_loadu_pd(w + j)), best);
      if (j == m - 2) break;
    }
  } else {
    const double* lo[2] = {pairs, pairs + 2};
    const double* hi[2] = {pairs + 4, pairs + 6};
    for (int j = 0;; j += 2) {
      if (j > m - 2) j = m - 2;
      const double* u = w + j + 1 - N;
      best = Peaks<2, N>(lo, u, best);
      best = Peaks<2, N>(hi, u, best);
      best = Larger(Abs(_mm_loadu_pd(w + j)), best);
      if (j == m - 2) break;
    }
  }
  const double a = _mm_cvtsd_f64(best);
  const double b = _mm_cvtsd_f64(_mm_unpackhi_pd(best, best));
  return b > a ? b : a;
}

double TruePeakSse2(const TruePeakTable& t, TruePeakHistory& h, const double* x, int n, double peak) {
  return RunTruePeak(TruePeakSpanSse2, t, h, x, n, peak);
}

}  // namespace

double TruePeakSpanSse2(const TruePeakTable& t, const double* w, int m, double peak) {
  if (t.taps == kLongTapsPerPhase) return Span<kLongTapsPerPhase>(t, w, m, peak);
  if (t.taps == kShortTapsPerPhase) return Span<kShortTapsPerPhase>(t, w, m, peak);
  return TruePeakSpanScalar(t, w, m, peak);
}

const KernelSet kSse2{KWeightSse2, SumSse2, TruePeakSse2};

}  // namespace velorum::kernels
