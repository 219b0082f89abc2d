// PLR, realtime dynamics and the momentary window length.
#include <gtest/gtest.h>

#include "EngineTestSignals.h"

namespace velorum::test {
namespace {

TEST(Dynamics, MonoSineHasThreeLuBetweenPeakAndLoudness) {
  // A mono sine at -20 dBFS: true peak -20 dBTP, loudness -23.01 LUFS.
  Signal s = MakeSignal(1);
  AppendSine(s, 6.0, -20.0, 997.0);
  LoudnessEngine e;
  Prepare(e, s);
  double lowest = 1e9;
  Feed(e, s, 480, [&](int) { lowest = std::min(lowest, e.RealtimeDynamics()); });
  EXPECT_GE(lowest, 0.0);
  EXPECT_NEAR(e.TruePeakMax(), -20.0, 0.02);
  // The integrated value includes the three blocks of the filling window.
  EXPECT_NEAR(e.Integrated(), -23.01, 0.15);
  EXPECT_DOUBLE_EQ(e.Plr(), e.TruePeakMax() - e.Integrated());
  EXPECT_NEAR(e.RealtimeDynamics(), 3.01, 0.03);
  EngineLock lock(e.Mutex());
  EXPECT_NEAR(e.History().dynamics.back(), 3.01f, 0.03f);
}

TEST(Dynamics, QuietProgrammeHasNoDynamicsAndNoIntegrated) {
  Signal s = MakeSignal(2);
  AppendSine(s, 5.0, -75.0);
  LoudnessEngine e;
  Prepare(e, s);
  Feed(e, s);
  EXPECT_EQ(e.RealtimeDynamics(), 0.0);
  EXPECT_EQ(e.Integrated(), -120.0);
  EXPECT_EQ(e.LoudnessRange(), 0.0);
  EXPECT_EQ(e.Plr(), 0.0);
  EXPECT_NEAR(e.Momentary(), -75.0, 0.1);
}

TEST(Dynamics, LoudBlockThenQuietPassageLeavesIntegratedStanding) {
  Signal s = MakeSignal(2);
  AppendSine(s, 5.0, -10.0);
  LoudnessEngine e;
  Prepare(e, s);
  Feed(e, s);
  // Once the 400 ms window has left the loud part, blocks more than 10 LU
  // below the running mean no longer move the reading.
  Signal quiet = MakeSignal(2);
  AppendSine(quiet, 0.5, -40.0);
  Feed(e, quiet);
  const double settled = e.Integrated();
  EXPECT_NEAR(settled, -10.0, 0.4);
  Feed(e, quiet);
  Feed(e, quiet);
  EXPECT_EQ(e.Integrated(), settled);
}

TEST(MomentaryWindow, LengthFollowsTheSetting) {
  // 0.5 s bursts at -20 between 0.5 s of silence: a 400 ms window sees the
  // full burst, a 1000 ms window only half of the power.
  Signal s = MakeSignal(2);
  for (int i = 0; i < 4; ++i) {
    AppendSine(s, 0.5, -20.0);
    AppendSilence(s, 0.5);
  }
  LoudnessEngine e;
  Prepare(e, s);
  Feed(e, s);
  EXPECT_NEAR(e.MomentaryMax(), -20.0, 0.1);
  e.SetMomentaryWindowMs(1000);
  EXPECT_EQ(e.MomentaryWindowMs(), 1000);
  e.Reset();
  Feed(e, s);
  EXPECT_NEAR(e.MomentaryMax(), -23.01, 0.1);
}

}  // namespace
}  // namespace velorum::test
