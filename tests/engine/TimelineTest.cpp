// Timeline mode, jumps, pause and reset as seen in the history.
#include <gtest/gtest.h>

#include "EngineTestSignals.h"
#include "history/Distributions.h"

namespace velorum::test {
namespace {

Signal Varying(double seconds) {
  Signal s = MakeSignal(2);
  for (int i = 0; i < static_cast<int>(seconds); ++i) AppendSine(s, 1.0, -18.0 - (i * 7) % 15);
  return s;
}

TEST(Timeline, PlayingThePassageTwiceReadsAsOnePass) {
  const Signal s = Varying(12.0);
  LoudnessEngine once;
  once.SetTimelineMode(true);
  Prepare(once, s);
  Feed(once, s);

  LoudnessEngine twice;
  twice.SetTimelineMode(true);
  Prepare(twice, s);
  Feed(twice, s);
  const double firstPass = twice.Integrated();
  twice.RestartSignalChain();
  twice.MoveTimelineOrigin(0);
  Feed(twice, s);
  EXPECT_EQ(twice.Integrated(), once.Integrated());
  EXPECT_EQ(twice.Integrated(), firstPass);
  EXPECT_NEAR(twice.LoudnessRange(), once.LoudnessRange(), 1e-9);
  EngineLock lock(twice.Mutex());
  EXPECT_EQ(twice.History().Size100(), 120u);
  EXPECT_EQ(twice.History().Size10(), 1200u);
  EXPECT_TRUE(twice.History().replacedLoudness.replaced);
}

TEST(Timeline, DistributionsCountAReplayedPassageOnce) {
  const Signal s = Varying(8.0);
  LoudnessEngine e;
  e.SetTimelineMode(true);
  Prepare(e, s);
  LoudnessDistribution loudness;
  TruePeakDistribution peak;
  auto update = [&](int) {
    EngineLock lock(e.Mutex());
    loudness.Update(e.History());
    peak.Update(e.History());
  };
  auto total = [](const Distribution& d) {
    float sum = 0.0f;
    for (int i = 0; i < d.BinCount(); ++i) sum += d.Bins()[i];
    return sum;
  };
  Feed(e, s, 480, update);  // one block per 10 ms: every 100 ms step is seen
  EXPECT_EQ(total(loudness), 80.0f);
  EXPECT_EQ(total(peak), 80.0f);
  const std::array<float, Distribution::kBinCount> once = loudness.bins;
  e.RestartSignalChain();
  e.MoveTimelineOrigin(0);
  Feed(e, s, 480, update);
  EXPECT_EQ(total(loudness), 80.0f);  // moved from old bins to new ones, not added twice
  EXPECT_EQ(total(peak), 80.0f);
  EXPECT_EQ(loudness.bins, once);
}

TEST(Timeline, ForwardJumpFillsTheGapAndResetEmptiesEverything) {
  Signal s = MakeSignal(2);
  AppendSine(s, 5.0, -20.0);
  LoudnessEngine e;
  e.SetTimelineMode(true);
  Prepare(e, s);
  Feed(e, s);
  e.RestartSignalChain();
  e.MoveTimelineOrigin(15 * 48000);
  Feed(e, s);
  {
    EngineLock lock(e.Mutex());
    const MeasurementHistory& h = e.History();
    ASSERT_EQ(h.Size10(), 2000u);
    ASSERT_EQ(h.Size100(), 200u);
    for (std::size_t i = 500; i < 1500; ++i) {
      ASSERT_EQ(h.momentary[i], -120.0f) << i;
      ASSERT_EQ(h.shortTerm[i], -120.0f) << i;
      ASSERT_EQ(h.truePeak[i], -120.0f) << i;
      ASSERT_EQ(h.dynamics[i], 0.0f) << i;
      ASSERT_EQ(h.stepFlags[i], kFlagBefore) << i;
    }
    EXPECT_NE(h.momentary[499], -120.0f);
    EXPECT_NE(h.momentary[1500], -120.0f);
    for (std::size_t i = 50; i < 150; ++i) {
      ASSERT_EQ(h.momentaryPower[i], 1e-12f) << i;
      ASSERT_EQ(h.shortTermPower[i], 1e-12f) << i;
    }
  }
  e.Reset();
  EngineLock lock(e.Mutex());
  const MeasurementHistory& h = e.History();
  for (std::size_t size :
       {h.momentary.size(), h.shortTerm.size(), h.truePeak.size(), h.dynamics.size(), h.stepFlags.size(),
        h.stateFlags.size(), h.speechFlags.size(), h.momentaryPower.size(), h.shortTermPower.size(),
        h.integrated.size(), h.loudnessRange.size(), h.blockFlags.size(), h.dialogueMomentaryPower.size(),
        h.dialogueFlags.size()})
    EXPECT_EQ(size, 0u);
  EXPECT_EQ(e.Integrated(), -120.0);
  EXPECT_EQ(e.TruePeakMax(), -120.0);
}

TEST(Timeline, MeasurementStartingLateBeginsItsRegionThere) {
  Signal s = MakeSignal(2);
  AppendSine(s, 10.0, -23.0);
  LoudnessEngine e;
  e.SetTimelineMode(true);
  Prepare(e, s);
  e.SetTimelinePosition(10 * 48000);
  Feed(e, s);
  EngineLock lock(e.Mutex());
  const MeasurementHistory& h = e.History();
  EXPECT_EQ(h.start10, 1000);
  EXPECT_EQ(h.start100, 100);
  EXPECT_EQ(h.blockFlags[99], kFlagBefore);
  // Starting 3 s or more into the timeline, the first 30 blocks are warm-up.
  EXPECT_EQ(h.blockFlags[100], kFlagWarmUp);
  EXPECT_EQ(h.blockFlags[129], kFlagWarmUp);
  EXPECT_EQ(h.blockFlags[130], kFlagMeasured);
  EXPECT_NEAR(e.Integrated(), -23.0, 0.1);
}

TEST(Pause, PausedStepsAreFillsAndGatingStands) {
  Signal s = MakeSignal(2);
  AppendSine(s, 5.0, -23.0);
  Signal loud = MakeSignal(2);
  AppendSine(loud, 2.0, -10.0);
  LoudnessEngine e;
  Prepare(e, s);
  Feed(e, s);
  const double before = e.Integrated();
  const double peakBefore = e.TruePeakMax();
  e.SetPaused(true);
  Feed(e, loud);
  EXPECT_EQ(e.Integrated(), before);
  EXPECT_EQ(e.TruePeakMax(), peakBefore);
  EngineLock lock(e.Mutex());
  const MeasurementHistory& h = e.History();
  ASSERT_EQ(h.Size10(), 700u);
  EXPECT_EQ(h.momentary[650], -120.0f);
  EXPECT_EQ(h.momentaryPower[65], 1e-12f);
  EXPECT_TRUE(h.stateFlags[650] & kStatePaused);
  EXPECT_FALSE(h.stateFlags[450] & kStatePaused);
  EXPECT_FALSE(h.stateFlags[450] & kStateUnsettled);
  EXPECT_TRUE(h.stateFlags[100] & kStateUnsettled);
}

TEST(Ranges, SelectedRangeAndRebuildAgreeWithTheRunningValues) {
  Signal s = MakeSignal(2);
  AppendSine(s, 10.0, -30.0);
  AppendSine(s, 10.0, -20.0);
  LoudnessEngine e;
  Prepare(e, s);
  Feed(e, s);
  const RangeReading all = e.MeasureRange(0, 1 << 30);
  EXPECT_NEAR(all.integrated, e.Integrated(), 1e-9);
  const RangeReading second = e.MeasureRange(100, 200);
  EXPECT_NEAR(second.integrated, -20.0, 0.1);
  EXPECT_EQ(second.blocks, 100);
  EXPECT_EQ(e.MeasureRange(150, 100).blocks, 0);

  // Restore the arrays into a fresh engine and rebuild the readings.
  LoudnessEngine restored;
  restored.SetSampleRate(48000.0);
  {
    EngineLock a(e.Mutex());
    EngineLock b(restored.Mutex());
    restored.MutableHistory() = e.History();
  }
  restored.RebuildFromHistory();
  EXPECT_NEAR(restored.Integrated(), e.Integrated(), 1e-9);
  EXPECT_NEAR(restored.LoudnessRange(), e.LoudnessRange(), 1e-6);
  EXPECT_NEAR(restored.TruePeakMax(), e.TruePeakMax(), 1e-4);
  EXPECT_NEAR(restored.MomentaryMax(), e.MomentaryMax(), 1e-4);
  EXPECT_NEAR(restored.Plr(), e.Plr(), 1e-4);
  EXPECT_TRUE(restored.Result().valid);
}

TEST(EngineMutexTest, RecursiveLockCountsItsOwner) {
  LoudnessEngine e;
  EngineMutex& m = e.Mutex();
  EngineLock a(m);
  EngineLock b(m);
  EXPECT_TRUE(m.OwnedByCaller());
  EXPECT_EQ(m.Count(), 2);
  e.Reset();  // takes the same mutex again on this thread
  EXPECT_EQ(m.Count(), 2);
}

}  // namespace
}  // namespace velorum::test
