// EBU Tech 3342 loudness-range minimum requirements (+-1 LU).
#include <gtest/gtest.h>

#include "EngineTestSignals.h"

namespace velorum::test {
namespace {

double RangeOf(std::initializer_list<double> levels) {
  Signal s = MakeSignal(2);
  for (double l : levels) AppendSine(s, 20.0, l);
  LoudnessEngine e;
  Prepare(e, s);
  Feed(e, s, 4096);
  return e.LoudnessRange();
}

TEST(Ebu3342, LoudnessRangeOfSteppedTones) {
  EXPECT_NEAR(RangeOf({-20.0, -30.0}), 10.0, 1.0);
  EXPECT_NEAR(RangeOf({-20.0, -15.0}), 5.0, 1.0);
  EXPECT_NEAR(RangeOf({-40.0, -20.0}), 20.0, 1.0);
  EXPECT_NEAR(RangeOf({-50.0, -35.0, -20.0, -35.0, -50.0}), 15.0, 1.0);
}

TEST(Ebu3342, SteadyToneHasNoRangeAndRangeWaitsForTheShortTermWindow) {
  Signal s = MakeSignal(2);
  AppendSine(s, 10.0, -23.0);
  LoudnessEngine e;
  Prepare(e, s);
  double rangeDuringFirst3s = 0.0;
  Feed(e, s, 480, [&](int fed) {
    if (fed < 3 * 48000) rangeDuringFirst3s = std::max(rangeDuringFirst3s, e.LoudnessRange());
  });
  EXPECT_EQ(rangeDuringFirst3s, 0.0);
  EXPECT_NEAR(e.LoudnessRange(), 0.0, 0.05);
  EXPECT_NEAR(e.LoudnessRangeHigh(), -23.0, 0.1);
}

}  // namespace
}  // namespace velorum::test
