// Eight-wide true-peak filter (AVX-512F/DQ, chosen at run time): eight
// consecutive output samples per register, one input load per tap shared by
// the phases, each coefficient broadcast from the table. The sums run in the
// same order as every other variant (four partial sums over taps k = q (mod 4),
// combined as (s0 + s1) + (s2 + s3)), without FMA. K-weighting and the power
// sum use the AVX2 loops.
#include <immintrin.h>

// GCC 12's AVX-512 intrinsics pass an unset merge source to their builtins.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "engine/Kernels.h"
#include "engine/TruePeakFilter.h"

namespace velorum::kernels {

namespace {

inline __m512d Abs8(__m512d v) {
  return _mm512_abs_pd(v);
}
// v > peak ? v : peak, lane by lane (a NaN v never wins).
inline __m512d Larger(__m512d v, __m512d peak) {
  return _mm512_max_pd(v, peak);
}

// One load of the samples of a tap, shared by every phase: the register
// barrier keeps the compiler from folding the load into each phase's product
// (three loads of a line-crossing vector instead of one).
inline __m512d Load(const double* p) {
  __m512d x = _mm512_loadu_pd(p);
  __asm__("" : "+v"(x));
  return x;
}

// P phases of the eight outputs whose windows start at u .. u + 7 (tap k of
// phase p at tp[p][4k]).
template <int P, int N>
inline __m512d Peaks(const double* const (&tp)[P], const double* u, __m512d best) {
  __m512d s[P][4];
#pragma GCC unroll 4
  for (int q = 0; q < 4; ++q) {
    __m512d x = Load(u + q);
#pragma GCC unroll 4
    for (int p = 0; p < P; ++p) s[p][q] = _mm512_mul_pd(_mm512_set1_pd(tp[p][4 * q]), x);
  }
  int k = 4;
#pragma GCC unroll 8
  for (; k + 4 <= N; k += 4) {
#pragma GCC unroll 4
    for (int q = 0; q < 4; ++q) {
      __m512d x = Load(u + k + q);
#pragma GCC unroll 4
      for (int p = 0; p < P; ++p)
        s[p][q] = _mm512_add_pd(s[p][q], _mm512_mul_pd(_mm512_set1_pd(tp[p][4 * (k + q)]), x));
    }
  }
#pragma GCC unroll 3
  for (int q = 0; q < 3; ++q) {
    if (k + q >= N) break;
    __m512d x = Load(u + k + q);
#pragma GCC unroll 4
    for (int p = 0; p < P; ++p)
      s[p][q] = _mm512_add_pd(s[p][q], _mm512_mul_pd(_mm512_set1_pd(tp[p][4 * (k + q)]), x));
  }
#pragma GCC unroll 4
  for (int p = 0; p < P; ++p)
    best =
        Larger(Abs8(_mm512_add_pd(_mm512_add_pd(s[p][0], s[p][1]), _mm512_add_pd(s[p][2], s[p][3]))), best);
  return best;
}

template <int N>
double Span(const TruePeakTable& t, const double* w, int m, double peak) {
  if (m < 8) return TruePeakSpanAvx2(t, w, m, peak);
  __m512d best = _mm512_set1_pd(peak);
  if (t.delayPhase >= 0) {
    const __m512d gain = _mm512_set1_pd(t.delayGain);
    const double* tp[3];
    for (int p = 0, i = 0; p < 4; ++p)
      if (p != t.delayPhase) tp[i++] = t.tapMajor + p;
    for (int j = 0;; j += 8) {
      if (j > m - 8) j = m - 8;  // the last group may repeat outputs: the peak is the same
      const double* u = w + j + 1 - N;
      best = Peaks<3, N>(tp, u, best);
      best = Larger(Abs8(_mm512_mul_pd(gain, _mm512_loadu_pd(u + t.delayTap))), best);
      best = Larger(Abs8(_mm512_loadu_pd(w + j)), best);
      if (j == m - 8) break;
    }
  } else {
    const double* tp[4] = {t.tapMajor, t.tapMajor + 1, t.tapMajor + 2, t.tapMajor + 3};
    for (int j = 0;; j += 8) {
      if (j > m - 8) j = m - 8;
      const double* u = w + j + 1 - N;
      best = Peaks<4, N>(tp, u, best);
      best = Larger(Abs8(_mm512_loadu_pd(w + j)), best);
      if (j == m - 8) break;
    }
  }
  alignas(64) double lanes[8];
  _mm512_store_pd(lanes, best);
  double r = lanes[0];
  for (int l = 1; l < 8; ++l) r = lanes[l] > r ? lanes[l] : r;
  return r;
}

double TruePeakSpanAvx512(const TruePeakTable& t, const double* w, int m, double peak) {
  if (t.taps == kLongTapsPerPhase) return Span<kLongTapsPerPhase>(t, w, m, peak);
  if (t.taps == kShortTapsPerPhase) return Span<kShortTapsPerPhase>(t, w, m, peak);
  return TruePeakSpanAvx2(t, w, m, peak);
}

double TruePeakAvx512(const TruePeakTable& t, TruePeakHistory& h, const double* x, int n, double peak) {
  return RunTruePeak(TruePeakSpanAvx512, t, h, x, n, peak);
}

}  // namespace

const KernelSet kAvx512{KWeightAvx2, SumAvx2, TruePeakAvx512};

}  // namespace velorum::kernels
