// Measurement history write/resize rules and the distributions fed from it.
#include <gtest/gtest.h>

#include "history/Distributions.h"
#include "history/MeasurementHistory.h"

namespace velorum {
namespace {

using H = MeasurementHistory;

TEST(MeasurementHistory, WriteGrowsWithFillsAppendsAndOverwrites) {
  std::vector<float> h;
  H::Write(h, 3, 5, 1.0f, -120.0f);  // grown to the start, then to the index
  ASSERT_EQ(h.size(), 6u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(h[static_cast<std::size_t>(i)], -120.0f);
  EXPECT_EQ(h[5], 1.0f);
  H::Write(h, 3, 6, 2.0f, -120.0f);  // append
  H::Write(h, 3, 4, 3.0f, -120.0f);  // overwrite
  EXPECT_EQ(h, (std::vector<float>{-120, -120, -120, -120, 3, 1, 2}));
  H::Write(h, 0, -7, 9.0f, -120.0f);  // negative index taken as 0
  EXPECT_EQ(h[0], 9.0f);
}

TEST(MeasurementHistory, ResizeInTimelineModeClearsStaleEntriesBeyondTheEnd) {
  H h;
  h.timelineMode = true;
  for (int i = 0; i < 20; ++i) {
    H::Write(h.momentary, 0, i, -20.0f, H::kLoudnessFill);
    H::Write(h.momentaryPower, 0, i / 10, 0.01f, H::kPowerFill);
  }
  h.end10 = 12;  // the host jumped back: entries from 12 on are stale
  h.end100 = 1;
  h.Resize(3, 25);
  ASSERT_EQ(h.momentary.size(), 25u);
  EXPECT_EQ(h.momentary[11], -20.0f);
  EXPECT_EQ(h.momentary[12], -120.0f);
  EXPECT_EQ(h.momentary[24], -120.0f);
  EXPECT_EQ(h.momentaryPower[1], 1e-12f);
  EXPECT_EQ(h.truePeak.size(), 25u);
  EXPECT_EQ(h.stateFlags[3], H::kStateFill);
  EXPECT_EQ(h.blockFlags.size(), 3u);
  h.Clear();
  EXPECT_EQ(h.Size10(), 0u);
  EXPECT_EQ(h.current100, -1);
}

// Writes one 100 ms block the way the engine does: ten 10 ms entries, then
// the block, with `replaced` describing what the block's last entry replaced.
void WriteBlock(H& h, int block, float loudness, float peak, float dynamics) {
  for (int s = 0; s < 10; ++s) {
    const int i = block * 10 + s;
    const bool existed = static_cast<std::size_t>(i) < h.Size10();
    const float oldL = existed ? h.momentary[static_cast<std::size_t>(i)] : 0.0f;
    const float oldP = existed ? h.truePeak[static_cast<std::size_t>(i)] : 0.0f;
    const float oldD = existed ? h.dynamics[static_cast<std::size_t>(i)] : 0.0f;
    H::Write(h.momentary, 0, i, loudness, H::kLoudnessFill);
    H::Write(h.truePeak, 0, i, peak, H::kPeakFill);
    H::Write(h.dynamics, 0, i, dynamics, H::kDynamicsFill);
    if (s == 9) {
      h.replacedLoudness = {block, oldL, existed};
      h.replacedTruePeak = {block, oldP, existed};
      h.replacedDynamics = {block, oldD, existed};
    }
  }
  H::Write(h.blockFlags, 0, block, kFlagMeasured, H::kBlockFlagFill);
  h.current100 = block;
}

TEST(Distributions, TenSecondsAtMinus23FillBin470) {
  H h;
  LoudnessDistribution loudness;
  TruePeakDistribution peak;
  DynamicsDistribution dynamics;
  for (int b = 0; b < 100; ++b) {
    WriteBlock(h, b, -23.0f, -120.0f, 12.5f);
    loudness.Update(h);
    peak.Update(h);
    dynamics.Update(h);
    // A second call with an unchanged index changes nothing.
    loudness.Update(h);
  }
  EXPECT_EQ(loudness.Bins()[470], 100.0f);
  float total = 0.0f;
  for (int i = 0; i < loudness.BinCount(); ++i) total += loudness.Bins()[i];
  EXPECT_EQ(total, 100.0f);
  for (int i = 0; i < peak.BinCount(); ++i) ASSERT_EQ(peak.Bins()[i], 0.0f);  // silence is never counted
  EXPECT_EQ(dynamics.Bins()[125], 100.0f);
  EXPECT_TRUE(loudness.TakeRedraw());
  EXPECT_FALSE(loudness.TakeRedraw());
}

TEST(Distributions, BinsEdgesAndReplacedValues) {
  LoudnessDistribution loudness;
  TruePeakDistribution peak;
  DynamicsDistribution dynamics;
  EXPECT_EQ(loudness.binsPerUnit, 10.0);
  EXPECT_EQ(peak.binsPerUnit, 5.0);
  EXPECT_EQ(peak.offset, 150);
  EXPECT_EQ(loudness.BinOf(35.0), -1);   // above the last bin
  EXPECT_EQ(loudness.BinOf(-71.0), -1);  // below the first
  EXPECT_EQ(loudness.BinOf(29.95), 999);
  EXPECT_EQ(peak.BinOf(-120.0), -1);
  EXPECT_EQ(peak.BinOf(-119.9995), -1);
  EXPECT_EQ(peak.BinOf(-1.0), 745);
  EXPECT_EQ(dynamics.BinOf(0.0), -1);
  EXPECT_EQ(dynamics.BinOf(0.15), 1);

  // A block measured again moves from its old bin to its new one.
  H h;
  WriteBlock(h, 0, -30.0f, -3.0f, 5.0f);
  loudness.Update(h);
  peak.Update(h);
  WriteBlock(h, 1, -30.0f, -3.0f, 5.0f);
  loudness.Update(h);
  peak.Update(h);
  WriteBlock(h, 0, -20.0f, -1.0f, 5.0f);  // the host jumped back
  loudness.Update(h);
  peak.Update(h);
  EXPECT_EQ(loudness.Bins()[400], 1.0f);
  EXPECT_EQ(loudness.Bins()[500], 1.0f);
  EXPECT_EQ(peak.Bins()[735], 1.0f);
  EXPECT_EQ(peak.Bins()[745], 1.0f);

  loudness.Clear(h.current100);
  loudness.Update(h);  // index unchanged since the clear: nothing counted
  EXPECT_EQ(loudness.Bins()[500], 0.0f);
  loudness.Rebuild(h);
  EXPECT_EQ(loudness.Bins()[400], 1.0f);
  EXPECT_EQ(loudness.Bins()[500], 1.0f);
}

}  // namespace
}  // namespace velorum
