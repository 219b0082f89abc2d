#include "engine/Kernels.h"

#include <cmath>

#include "engine/TruePeakFilter.h"

namespace velorum {

namespace {

// A table as the kernels take it, with the pure-delay phase found from the
// coefficients: every tap but one below 1e-15 and all of them together
// clearly below 1 in magnitude, so that even with rounding the phase's output
// stays below the largest sample of its window.
struct KernelTable {
  alignas(64) double pairs[2 * kLongTruePeakTaps];
  TruePeakTable table;

  KernelTable(const double* tapMajor, int taps) {
    for (int i = 0; i < 4 * taps; ++i) pairs[2 * i] = pairs[2 * i + 1] = tapMajor[i];
    table.tapMajor = tapMajor;
    table.pairs = pairs;
    table.taps = taps;
    for (int p = 0; p < kTruePeakPhases && table.delayPhase < 0; ++p) {
      double sum = 0.0;
      int centre = 0, heavy = 0;
      for (int k = 0; k < taps; ++k) {
        const double c = std::fabs(tapMajor[4 * k + p]);
        sum += c;
        if (c >= 1e-15) {
          centre = k;
          ++heavy;
        }
      }
      if (heavy == 1 && sum <= 1.0 - 1e-6) {
        table.delayPhase = p;
        table.delayTap = centre;
        table.delayGain = tapMajor[4 * centre + p];
      }
    }
  }
};

}  // namespace

const TruePeakTable& LongTruePeakTable() {
  static const KernelTable t(TruePeakFilterTables().longTapMajor, kLongTapsPerPhase);
  return t.table;
}

const TruePeakTable& ShortTruePeakTable() {
  static const KernelTable t(TruePeakFilterTables().shortTapMajor, kShortTapsPerPhase);
  return t.table;
}

bool CodePathSupported(CodePath path) {
  switch (path) {
    case CodePath::Scalar:
    case CodePath::Sse2:
      return true;
    case CodePath::Avx2:
#if (defined(__x86_64__) || defined(_M_X64)) && defined(__GNUC__)
      __builtin_cpu_init();
      return __builtin_cpu_supports("avx2") != 0;
#else
      return false;
#endif
    case CodePath::Avx512:
#if (defined(__x86_64__) || defined(_M_X64)) && defined(__GNUC__)
      __builtin_cpu_init();
      return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("avx512f") != 0 &&
             __builtin_cpu_supports("avx512dq") != 0;
#else
      return false;
#endif
  }
  return false;
}

CodePath BestCodePath() {
  if (CodePathSupported(CodePath::Avx512)) return CodePath::Avx512;
  if (CodePathSupported(CodePath::Avx2)) return CodePath::Avx2;
  return CodePath::Sse2;
}

const char* CodePathName(CodePath path) {
  switch (path) {
    case CodePath::Scalar:
      return "scalar";
    case CodePath::Sse2:
      return "sse2";
    case CodePath::Avx2:
      return "avx2";
    case CodePath::Avx512:
      return "avx512";
  }
  return "unknown";
}

const KernelSet& Kernels(CodePath path) {
  switch (path) {
    case CodePath::Scalar:
      return kernels::kScalar;
    case CodePath::Sse2:
      return kernels::kSse2;
    case CodePath::Avx2:
#if defined(__x86_64__) || defined(_M_X64)
      return kernels::kAvx2;
#else
      return kernels::kSse2;
#endif
    case CodePath::Avx512:
#if defined(__x86_64__) || defined(_M_X64)
      return kernels::kAvx512;
#else
      return kernels::kSse2;
#endif
  }
  return kernels::kScalar;
}

}  // namespace velorum
