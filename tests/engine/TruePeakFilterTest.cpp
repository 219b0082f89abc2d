// Properties of the true-peak interpolation filters and of the detector.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "EngineTestSignals.h"
#include "engine/TruePeakFilter.h"

namespace velorum::test {
namespace {

// Magnitude in dB of the natural-order long filter at `hz`, for a 48 kHz
// input upsampled to 192 kHz.
double LongFilterDb(double hz) {
  std::complex<double> sum = 0.0;
  for (int j = 0; j < kLongTruePeakTaps; ++j)
    sum += kLongTruePeakFilter[j] * std::polar(1.0, -2.0 * std::numbers::pi * hz / 192000.0 * j);
  return 20.0 * std::log10(std::abs(sum));
}

TEST(TruePeakFilter, LongFilterIsFlatTo20kHzAndRejectsImagesFrom28kHz) {
  double lo = 1e9, hi = -1e9;
  for (double f = 0.0; f <= 20000.0; f += 50.0) {
    lo = std::min(lo, LongFilterDb(f));
    hi = std::max(hi, LongFilterDb(f));
  }
  EXPECT_LT(hi - lo, 0.01) << "pass-band ripple";
  EXPECT_NEAR(LongFilterDb(0.0), 0.0, 1e-9);
  double stop = -1e9;
  for (double f = 28000.0; f <= 96000.0; f += 50.0) stop = std::max(stop, LongFilterDb(f));
  EXPECT_LT(stop, -70.0) << "stop-band rejection";
  // Linear phase centred on tap 61 (an input sample): 123 symmetric taps
  // and a final zero, so the phases sit at whole quarters of a sample.
  for (int j = 0; j < 61; ++j) EXPECT_EQ(kLongTruePeakFilter[j], kLongTruePeakFilter[122 - j]);
  EXPECT_EQ(kLongTruePeakFilter[123], 0.0);
  EXPECT_NEAR(kLongTruePeakFilter[61] * 4.0, 1.0, 1e-3);
}

TEST(TruePeakFilter, TablesAreTapMajorWithUnityGainPerPhase) {
  const TruePeakTables& t = TruePeakFilterTables();
  for (int p = 0; p < kTruePeakPhases; ++p) {
    double longGain = 0.0, shortGain = 0.0;
    for (int k = 0; k < kLongTapsPerPhase; ++k) longGain += t.longTapMajor[4 * k + p];
    for (int k = 0; k < kShortTapsPerPhase; ++k) {
      shortGain += t.shortTapMajor[4 * k + p];
      EXPECT_EQ(t.shortTapMajor[4 * k + p], kShortTruePeakFilter[p * kShortTapsPerPhase + k]);
    }
    EXPECT_NEAR(longGain, 1.0, 1e-3) << "phase " << p;
    EXPECT_NEAR(shortGain, 1.0, 0.03) << "phase " << p;
  }
  EXPECT_EQ(t.longTapMajor[5], kLongTruePeakFilter[5] * 4.0);
}

TEST(TruePeakDetector, ImpulseSilenceAndFullScaleQuarterRateSine) {
  for (bool eco : {false, true}) {
    Signal s = MakeSignal(2);
    AppendSilence(s, 0.5);
    s.channels[0][1000] = 1.0;  // a single full-scale sample reads 0 dBTP
    LoudnessEngine e;
    e.SetEcoMode(eco);
    Prepare(e, s);
    Feed(e, s);
    EXPECT_NEAR(e.ChannelTruePeakMax(0), 0.0, 1e-9) << eco;
    EXPECT_EQ(e.ChannelTruePeakMax(1), -120.0) << eco;  // silence
    EXPECT_EQ(e.TruePeak(), -120.0) << eco;             // the last step was silent
    EXPECT_NEAR(e.TruePeakMax(), 0.0, 1e-9) << eco;

    // Full-scale sine at fs/4, 45 degrees (faded in over 10 ms): samples
    // at +-0.707, the peaks between them at 1.0, 3 dB above.
    Signal q = MakeSignal(1);
    q.channels[0].resize(48000);
    for (int i = 0; i < 48000; ++i)
      q.channels[0][static_cast<std::size_t>(i)] =
          std::min(1.0, i / 480.0) * std::sin(std::numbers::pi / 2.0 * i + std::numbers::pi / 4.0);
    LoudnessEngine f;
    f.SetEcoMode(eco);
    Prepare(f, q);
    Feed(f, q);
    EXPECT_NEAR(f.TruePeakMax(), 0.0, eco ? 0.2 : 0.05) << eco;
    // Switching the mode keeps the maxima; they last until the reset.
    f.SetEcoMode(!eco);
    Feed(f, MakeSignal(1));
    EXPECT_NEAR(f.TruePeakMax(), 0.0, 0.2);
    f.Reset();
    EXPECT_EQ(f.TruePeakMax(), -120.0);
    EXPECT_EQ(f.ChannelTruePeakMax(0), -120.0);
  }
}

}  // namespace
}  // namespace velorum::test
