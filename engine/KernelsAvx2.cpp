// Four-wide variant (AVX2, chosen at run time): four channels per register in
// the K-weighting, four consecutive output samples per register in the
// true-peak filter. Built with -mavx2 but without FMA so that it rounds
// exactly like the other variants.
#include <immintrin.h>

#include "engine/Kernels.h"
#include "engine/TruePeakFilter.h"

namespace velorum::kernels {

namespace {

inline __m256d Abs4(__m256d v) {
  return _mm256_andnot_pd(_mm256_set1_pd(-0.0), v);
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
    ya = _mm256_sub_pd(ya, _mm256_mul_pd(a1a, y1a));
    x2a = x1a;
    x1a = xi;
    y2a = y1a;
    y1a = ya;
    __m256d yb = _mm256_add_pd(_mm256_mul_pd(b0b, ya), _mm256_mul_pd(b1b, x1b));
    yb = _mm256_add_pd(yb, _mm256_mul_pd(b2b, x2b));
    yb = _mm256_sub_pd(yb, _mm256_mul_pd(a2b, y2b));
    yb = _mm256_sub_pd(yb, _mm256_mul_pd(a1b, y1b));
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

}  // namespace

void KWeightAvx2(KWeightingBank& k, const double* const* x, int channels, int n, double* const* power) {
  int c = 0;
  for (; c + 4 <= channels; c += 4) KWeightQuad(k, x, c, n, power);
  for (; c + 2 <= channels; c += 2) KWeightPairSse2(k, x, c, n, power);
  KWeightChannels(k, x, c, channels, n, power);
}

namespace {

void SumAvx2Impl(const double* const* power, int channels, int n, double* total) {
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
inline __m256d Larger(__m256d v, __m256d peak) {
  return _mm256_max_pd(v, peak);
}

// One load of the samples of a tap, shared by every phase: the register
// barrier keeps the compiler from folding the load into each phase's product
// (three loads of a line-crossing vector instead of one).
inline __m256d Load(const double* p) {
  __m256d x = _mm256_loadu_pd(p);
  __asm__("" : "+v"(x));
  return x;
}

// P phases of the four outputs whose windows start at u .. u + 3, the table
// given per phase (tap k of phase p at tp[p][4k]): four partial sums over taps
// k = q (mod 4), (s0 + s1) + (s2 + s3), like every variant.
template <int P, int N>
inline __m256d Peaks(const double* const (&tp)[P], const double* u, __m256d best) {
  __m256d s[P][4];
#pragma GCC unroll 4
  for (int q = 0; q < 4; ++q) {
    __m256d x = Load(u + q);
#pragma GCC unroll 4
    for (int p = 0; p < P; ++p) s[p][q] = _mm256_mul_pd(_mm256_broadcast_sd(tp[p] + 4 * q), x);
  }
  int k = 4;
#pragma GCC unroll 8
  for (; k + 4 <= N; k += 4) {
#pragma GCC unroll 4
    for (int q = 0; q < 4; ++q) {
      __m256d x = Load(u + k + q);
#pragma GCC unroll 4
      for (int p = 0; p < P; ++p)
        s[p][q] = _mm256_add_pd(s[p][q], _mm256_mul_pd(_mm256_broadcast_sd(tp[p] + 4 * (k + q)), x));
    }
  }
#pragma GCC unroll 3
  for (int q = 0; q < 3; ++q) {
    if (k + q >= N) break;
    __m256d x = Load(u + k + q);
#pragma GCC unroll 4
    for (int p = 0; p < P; ++p)
      s[p][q] = _mm256_add_pd(s[p][q], _mm256_mul_pd(_mm256_broadcast_sd(tp[p] + 4 * (k + q)), x));
  }
#pragma GCC unroll 4
  for (int p = 0; p < P; ++p)
    best =
        Larger(Abs4(_mm256_add_pd(_mm256_add_pd(s[p][0], s[p][1]), _mm256_add_pd(s[p][2], s[p][3]))), best);
  return best;
}

template <int N>
double Span(const TruePeakTable& t, const double* w, int m, double peak) {
  if (m < 4) return TruePeakSpanSse2(t, w, m, peak);
  __m256d best = _mm256_set1_pd(peak);
  const __m256d gain = _mm256_set1_pd(t.delayGain);
  if (t.delayPhase >= 0) {
    const double* tp[3];
    for (int p = 0, i = 0; p < 4; ++p)
      if (p != t.delayPhase) tp[i++] = t.tapMajor + p;
    for (int j = 0;; j += 4) {
      if (j > m - 4) j = m - 4;  // the last group may repeat outputs: the peak is the same
      const double* u = w + j + 1 - N;
      best = Peaks<3, N>(tp, u, best);
      best = Larger(Abs4(_mm256_mul_pd(gain, _mm256_loadu_pd(u + t.delayTap))), best);
      best = Larger(Abs4(_mm256_loadu_pd(w + j)), best);
      if (j == m - 4) break;
    }
  } else {
    const double* lo[2] = {t.tapMajor, t.tapMajor + 1};
    const double* hi[2] = {t.tapMajor + 2, t.tapMajor + 3};
    for (int j = 0;; j += 4) {
      if (j > m - 4) j = m - 4;
      const double* u = w + j + 1 - N;
      best = Peaks<2, N>(lo, u, best);
      best = Peaks<2, N>(hi, u, best);
      best = Larger(Abs4(_mm256_loadu_pd(w + j)), best);
      if (j == m - 4) break;
    }
  }
  alignas(32) double lanes[4];
  _mm256_store_pd(lanes, best);
  double r = lanes[0];
  for (int l = 1; l < 4; ++l) r = lanes[l] > r ? lanes[l] : r;
  return r;
}

double TruePeakAvx2(const TruePeakTable& t, TruePeakHistory& h, const double* x, int n, double peak) {
  return RunTruePeak(TruePeakSpanAvx2, t, h, x, n, peak);
}

}  // namespace

void SumAvx2(const double* const* power, int channels, int n, double* total) {
  SumAvx2Impl(power, channels, n, total);
}

double TruePeakSpanAvx2(const TruePeakTable& t, const double* w, int m, double peak) {
  if (t.taps == kLongTapsPerPhase) return Span<kLongTapsPerPhase>(t, w, m, peak);
  if (t.taps == kShortTapsPerPhase) return Span<kShortTapsPerPhase>(t, w, m, peak);
  return TruePeakSpanSse2(t, w, m, peak);
}

const KernelSet kAvx2{KWeightAvx2, SumAvx2, TruePeakAvx2};

}  // namespace velorum::kernels
