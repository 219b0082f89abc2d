// EBU Tech 3341 minimum requirements, with the signals generated here
// (1 kHz sines at 48 kHz, stereo in phase unless said otherwise).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "EngineTestSignals.h"

namespace velorum::test {
namespace {

constexpr double kTolerance = 0.1;

LoudnessEngine& Measured(LoudnessEngine& e, const Signal& s, int layout = -1) {
  Prepare(e, s, layout);
  Feed(e, s);
  return e;
}

TEST(Ebu3341, SteadyTonesReadTheirLevelOnEveryScale) {
  for (double level : {-23.0, -33.0}) {
    Signal s = MakeSignal(2);
    AppendSine(s, 20.0, level);
    LoudnessEngine e;
    Measured(e, s);
    EXPECT_NEAR(e.Momentary(), level, kTolerance) << level;
    EXPECT_NEAR(e.ShortTerm(), level, kTolerance) << level;
    EXPECT_NEAR(e.Integrated(), level, kTolerance) << level;
  }
}

TEST(Ebu3341, GatingIgnoresQuietSurroundings) {
  // Case 3: -36 / -23 / -36; case 4 adds -72 at both ends; case 5: -26 / -20 / -26.
  struct Part {
    double seconds, level;
  };
  const std::vector<std::vector<Part>> cases = {
      {{10, -36}, {60, -23}, {10, -36}},
      {{10, -72}, {10, -36}, {60, -23}, {10, -36}, {10, -72}},
      {{20, -26}, {20.1, -20}, {20, -26}},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    Signal s = MakeSignal(2);
    for (const Part& p : cases[i]) AppendSine(s, p.seconds, p.level);
    LoudnessEngine e;
    Measured(e, s);
    EXPECT_NEAR(e.Integrated(), -23.0, kTolerance) << "case " << i + 3;
  }
}

TEST(Ebu3341, FiveChannelProgrammeWeightsSurrounds) {
  Signal s = MakeSignal(5);
  AppendSine(s, 20.0, 0.0, 1000.0, {-28.0, -28.0, -24.0, -30.0, -30.0});
  LoudnessEngine e;
  Measured(e, s, LayoutByName("5.0 (L R C Ls Rs)"));
  EXPECT_NEAR(e.Integrated(), -23.0, kTolerance);
}

TEST(Ebu3341, ShortTermFollowsAlternatingTones) {
  // Case 9: (1.34 s at -20, 1.66 s at -30) x 5; S = -23 from 3 s on.
  Signal s = MakeSignal(2);
  for (int i = 0; i < 5; ++i) {
    AppendSine(s, 1.34, -20.0);
    AppendSine(s, 1.66, -30.0);
  }
  LoudnessEngine e;
  Prepare(e, s);
  double lo = 0.0, hi = -200.0;
  Feed(e, s, 480, [&](int fed) {
    if (fed >= 3 * 48000) {
      lo = std::min(lo, e.ShortTerm());
      hi = std::max(hi, e.ShortTerm());
    }
  });
  EXPECT_NEAR(lo, -23.0, kTolerance);
  EXPECT_NEAR(hi, -23.0, kTolerance);
}

TEST(Ebu3341, MomentaryFollowsAlternatingTones) {
  // Case 12: (0.18 s at -20, 0.22 s at -30) x 25; M = -23 from 1 s on.
  Signal s = MakeSignal(2);
  for (int i = 0; i < 25; ++i) {
    AppendSine(s, 0.18, -20.0);
    AppendSine(s, 0.22, -30.0);
  }
  LoudnessEngine e;
  Prepare(e, s);
  double lo = 0.0, hi = -200.0;
  Feed(e, s, 480, [&](int fed) {
    if (fed >= 48000) {
      lo = std::min(lo, e.Momentary());
      hi = std::max(hi, e.Momentary());
    }
  });
  EXPECT_NEAR(lo, -23.0, kTolerance);
  EXPECT_NEAR(hi, -23.0, kTolerance);
}

TEST(Ebu3341, MaximaCatchBurstsAtAnyOffset) {
  // Case 10: i x 0.15 s silence, 3 s at -23, 1 s silence -> max S = -23.
  for (int i = 0; i < 20; ++i) {
    Signal s = MakeSignal(2);
    AppendSilence(s, 0.15 * i);
    AppendSine(s, 3.0, -23.0);
    AppendSilence(s, 1.0);
    LoudnessEngine e;
    Measured(e, s);
    EXPECT_NEAR(e.ShortTermMax(), -23.0, kTolerance) << "i = " << i;
  }
  // Case 13: i x 20 ms silence, 400 ms at -23, 1 s silence -> max M = -23.
  for (int i = 0; i < 20; ++i) {
    Signal s = MakeSignal(2);
    AppendSilence(s, 0.02 * i);
    AppendSine(s, 0.4, -23.0);
    AppendSilence(s, 1.0);
    LoudnessEngine e;
    Measured(e, s);
    EXPECT_NEAR(e.MomentaryMax(), -23.0, kTolerance) << "i = " << i;
  }
}

// Cases 15 to 19: tones near full scale whose peaks fall between samples.
Signal TruePeakTone(double cyclesPerSample, double amplitude, double phaseDegrees) {
  Signal s = MakeSignal(2);
  const int n = 48000;
  const int fade = 480;
  for (auto& ch : s.channels) {
    ch.resize(n);
    for (int i = 0; i < n; ++i) {
      double g = 1.0;
      if (i < fade) g = 0.5 - 0.5 * std::cos(std::numbers::pi * i / fade);
      if (i >= n - fade) g = 0.5 - 0.5 * std::cos(std::numbers::pi * (n - 1 - i) / fade);
      ch[static_cast<std::size_t>(i)] =
          g * amplitude *
          std::sin(2.0 * std::numbers::pi * cyclesPerSample * i + phaseDegrees * std::numbers::pi / 180.0);
    }
  }
  return s;
}

TEST(Ebu3341, TruePeakOfInterSamplePeaksInBothModes) {
  struct Case {
    int number;
    double cyclesPerSample, amplitude, phase, expected;
  };
  const Case cases[] = {
      {15, 0.25, 0.5, 0.0, -6.0},   {16, 0.25, 0.5, 45.0, -6.0}, {17, 1.0 / 6.0, 0.5, 60.0, -6.0},
      {18, 0.125, 0.5, 67.5, -6.0}, {19, 0.25, 1.41, 45.0, 3.0},
  };
  for (bool eco : {false, true}) {
    for (const Case& c : cases) {
      Signal s = TruePeakTone(c.cyclesPerSample, c.amplitude, c.phase);
      LoudnessEngine e;
      e.SetEcoMode(eco);
      Measured(e, s);
      EXPECT_LE(e.TruePeakMax(), c.expected + 0.2) << "case " << c.number << (eco ? " eco" : "");
      EXPECT_GE(e.TruePeakMax(), c.expected - 0.4) << "case " << c.number << (eco ? " eco" : "");
      EXPECT_DOUBLE_EQ(e.ChannelTruePeakMax(0), e.TruePeakMax());
    }
  }
}

}  // namespace
}  // namespace velorum::test
