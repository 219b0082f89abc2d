// The true-peak kernels against the detector as published (four phases summed
// for every sample), and the floating-point mode around the engine's loops.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

#include "EngineTestSignals.h"
#include "engine/FlushDenormals.h"
#include "engine/Kernels.h"
#include "engine/TruePeakFilter.h"

namespace velorum::test {
namespace {

constexpr CodePath kPaths[] = {CodePath::Scalar, CodePath::Sse2, CodePath::Avx2, CodePath::Avx512};

// One phase output for the window ending at x[j], summed in the kernels' order.
double Phase(const TruePeakTable& t, int p, const std::vector<double>& x, int j) {
  double s[4] = {0.0, 0.0, 0.0, 0.0};
  for (int k = 0; k < t.taps; ++k) {
    const int i = j - (t.taps - 1) + k;
    const double v = t.tapMajor[4 * k + p] * (i >= 0 ? x[static_cast<std::size_t>(i)] : 0.0);
    s[k % 4] = k < 4 ? v : s[k % 4] + v;
  }
  return (s[0] + s[1]) + (s[2] + s[3]);
}

// The published detector: the largest of every phase and the sample.
double Reference(const TruePeakTable& t, const std::vector<double>& x, int begin, int end) {
  double peak = 0.0;
  for (int j = begin; j < end; ++j) {
    for (int p = 0; p < 4; ++p) {
      const double v = std::fabs(Phase(t, p, x, j));
      if (v > peak) peak = v;
    }
    const double a = std::fabs(x[static_cast<std::size_t>(j)]);
    if (a > peak) peak = a;
  }
  return peak;
}

// Material that puts the true peak in every place: noise, a full-scale
// quarter-rate sine at 45 degrees, Nyquist bursts that stop right at the end
// of a run, lone impulses, denormals and NaN.
std::vector<double> Material() {
  std::vector<double> x(6000, 0.0);
  Noise noise(5);
  for (int i = 0; i < 1500; ++i) x[size_t(i)] = noise.Next();
  for (int i = 1500; i < 2500; ++i)
    x[size_t(i)] = std::sin(std::numbers::pi / 2.0 * i + std::numbers::pi / 4.0);
  for (int i = 2500; i < 3360; ++i) x[size_t(i)] = (i % 2 ? -1.0 : 1.0) * (i < 2980 ? 1.0 : 0.5);
  x[3500] = 1.0;
  x[3700] = -0.75;
  for (int i = 3800; i < 3900; ++i) x[size_t(i)] = 4e-310 * (i % 3 - 1);
  for (int i = 4000; i < 5000; ++i) x[size_t(i)] = 0.3 * noise.Next();
  x[4500] = std::numeric_limits<double>::quiet_NaN();
  for (int i = 5000; i < 6000; ++i) x[size_t(i)] = 1e-3 * noise.Next();
  return x;
}

TEST(TruePeakKernel, LongFilterDelayPhaseIsItsCentreTapAndNeverExceedsTheSamplesItDelays) {
  const TruePeakTable& t = LongTruePeakTable();
  ASSERT_EQ(t.delayPhase, 1);
  EXPECT_EQ(t.delayTap, 15);
  EXPECT_EQ(t.delayGain, kLongTruePeakFilter[61] * 4.0);
  EXPECT_LT(t.delayGain, 1.0);
  EXPECT_EQ(ShortTruePeakTable().delayPhase, -1);  // every published phase interpolates
  // Summed in full, the phase stays below the largest sample of its window
  // (which the detector counted when it arrived) and within 2e-15 of the
  // delayed sample times the tap.
  const std::vector<double> x = Material();
  for (int j = 0; j < static_cast<int>(x.size()); ++j) {
    double window = 0.0;
    for (int i = std::max(0, j - t.taps + 1); i <= j; ++i) window = std::max(window, std::fabs(x[size_t(i)]));
    const double full = Phase(t, 1, x, j);
    if (std::isnan(full)) continue;
    ASSERT_LE(std::fabs(full), window) << j;
    const int delayed = j - (t.taps - 1) + t.delayTap;
    const double tap = delayed >= 0 ? t.delayGain * x[size_t(delayed)] : 0.0;
    ASSERT_LE(std::fabs(full - tap), 2e-15 * window) << j;
  }
}

TEST(TruePeakKernel, EveryPathMatchesThePublishedDetectorOverRunsOfAnyLength) {
  const std::vector<double> x = Material();
  const int runs[] = {1, 2, 3, 7, 8, 9, 15, 16, 31, 480, 441, 600};
  for (bool eco : {false, true}) {
    const TruePeakTable& t = eco ? ShortTruePeakTable() : LongTruePeakTable();
    std::vector<double> scalar;
    for (CodePath path : kPaths) {
      if (!CodePathSupported(path)) continue;
      const KernelSet& k = Kernels(path);
      TruePeakHistory h;
      h.Clear();
      FlushDenormals flush;
      std::vector<double> got;
      for (int at = 0, r = 0; at < static_cast<int>(x.size()); ++r) {
        const int n = std::min(runs[r % std::size(runs)], static_cast<int>(x.size()) - at);
        const double peak = k.truePeak(t, h, x.data() + at, n, 0.0);
        got.push_back(peak);
        const double want = Reference(t, x, at, at + n);
        // Only the delay phase's stand-in differs, by its side taps at most.
        double window = 0.0;
        for (int i = std::max(0, at - t.taps + 1); i < at + n; ++i)
          if (!std::isnan(x[size_t(i)])) window = std::max(window, std::fabs(x[size_t(i)]));
        if (eco)
          ASSERT_EQ(peak, want) << CodePathName(path) << " at " << at;
        else
          ASSERT_LE(std::fabs(peak - want), 2e-15 * window) << CodePathName(path) << " at " << at;
        at += n;
      }
      if (scalar.empty()) scalar = got;
      EXPECT_EQ(std::memcmp(got.data(), scalar.data(), got.size() * sizeof(double)), 0)
          << CodePathName(path) << (eco ? " eco" : "");
    }
  }
}

TEST(TruePeakKernel, EngineRestoresTheCallersFloatingPointMode) {
  const unsigned modes = FlushDenormals::kFlushToZero | FlushDenormals::kDenormalsAreZero;
  const unsigned saved = _mm_getcsr();
  Signal s = MakeSignal(2);
  AppendSine(s, 0.5, -20.0);
  s.channels[0][100] = 1e-310;
  for (unsigned mode : {0u, modes}) {
    _mm_setcsr((saved & ~modes) | mode);
    LoudnessEngine e;
    Prepare(e, s);
    Feed(e, s, 333);
    EXPECT_EQ(_mm_getcsr() & modes, mode);
    EXPECT_NEAR(e.TruePeakMax(), -20.0, 0.1);
  }
  _mm_setcsr(saved);
  volatile double tiny = 1e-310;
  EXPECT_EQ(tiny * 1.0, 1e-310);  // the test's own arithmetic keeps its denormals
}

}  // namespace
}  // namespace velorum::test
