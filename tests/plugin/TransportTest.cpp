// The meter following a scripted host transport in its four histogram modes.
#include <gtest/gtest.h>

#include "MeterHost.h"
#include "plugin/MeterParams.h"

namespace velorum::testing {
namespace {

constexpr double kRate = 48000.0;

TEST(Transport, StoppedHostIsMeasuredOnlyInContinuousMode) {
  for (int mode = 0; mode <= 3; ++mode) {
    MeterHost meter(kRate, 2);
    meter.SetParam(param::kHistogramMode, mode);
    meter.Transport().playing = false;
    meter.Play(Noise(1.0, kRate, 2, 1), {512, 100});
    const double expected = mode == 3 ? kRate : 0.0;
    EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), expected) << "mode " << mode;
    EXPECT_EQ(meter.Reading(kReadingPosition), expected) << "mode " << mode;
    EXPECT_EQ(meter.Param(param::kElapsedSeconds), expected / kRate) << "mode " << mode;
  }
}

TEST(Transport, NoTimeInformationCountsAsStopped) {
  MeterHost meter(kRate, 2);
  meter.Host().SetTimeInfoAvailable(false);
  meter.Play(Noise(0.5, kRate, 2, 1));
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 0.0);
  meter.SetParam(param::kHistogramMode, 3);
  meter.Play(Noise(0.5, kRate, 2, 1));
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 0.5 * kRate);
}

TEST(Transport, TimeCodeModeMovesTheTimelineToTheHostPosition) {
  MeterHost meter(kRate, 2);
  meter.SetParam(param::kHistogramMode, 1);
  meter.Transport().playing = true;
  meter.Transport().position = 2.0 * kRate;  // starts playing at 2 s
  meter.Play(Noise(1.0, kRate, 2, 2), {512});
  EXPECT_EQ(meter.Reading(kReadingPosition), 3.0 * kRate);

  meter.Transport().position = 60.0 * kRate;  // the user clicks at 1:00
  meter.Play(Noise(0.5, kRate, 2, 3), {512});
  EXPECT_EQ(meter.Reading(kReadingPosition), 60.5 * kRate);
  EXPECT_DOUBLE_EQ(meter.Param(param::kElapsedSeconds), 60.5);

  meter.Transport().position = 1.0 * kRate;  // and back to 0:01
  meter.Play(Noise(0.25, kRate, 2, 4), {512});
  EXPECT_EQ(meter.Reading(kReadingPosition), 1.25 * kRate);
  // Only what was played was measured.
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 1.75 * kRate);

  // A move smaller than twice the block is not a jump.
  meter.Transport().position += 700;
  meter.Play(Noise(0.25, kRate, 2, 4), {512});
  EXPECT_EQ(meter.Reading(kReadingPosition), 1.5 * kRate);
}

// Ten seconds of song: 5 s at -30 LUFS, then 5 s at -20 LUFS.
std::vector<std::vector<float>> Song() {
  return Concat({Sine(997.0, -30.0, 5.0, kRate), Sine(997.0, -20.0, 5.0, kRate)});
}

double IntegratedAfter(int mode, bool replayLoop) {
  MeterHost meter(kRate, 2);
  meter.SetParam(param::kHistogramMode, mode);
  auto stream = Song();
  if (replayLoop) {
    // The host loops over 5 s .. 10 s once: the same audio comes again.
    const auto song = Song();
    for (size_t c = 0; c < 2; ++c) stream[c].insert(stream[c].end(), song[c].begin() + 240000, song[c].end());
    meter.Transport().loop = true;
    meter.Transport().loopStart = 5.0 * kRate;
    meter.Transport().loopEnd = 10.0 * kRate;
  }
  meter.Transport().playing = true;
  meter.Play(stream, {512});
  return meter.Reading(kReadingIntegrated);
}

TEST(Transport, LoopReplayedOnTheTimelineCountsOnce) {
  const double onePass = IntegratedAfter(1, false);
  EXPECT_NEAR(onePass, -22.6, 0.2);
  EXPECT_NEAR(IntegratedAfter(1, true), onePass, 0.05);
  // Without the timeline the loud half counts twice.
  EXPECT_GT(IntegratedAfter(3, true) - onePass, 0.5);
}

TEST(Transport, ResetOnJumpRestartsTheMeasurement) {
  MeterHost meter(kRate, 2);
  meter.SetParam(param::kResetOnJump, 1.0);
  meter.Transport().playing = true;
  meter.Play(Noise(3.0, kRate, 2, 5), {512});
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 3.0 * kRate);
  meter.SetParam(param::kMeasurementReset, 0.0);

  meter.Transport().position = 100.0 * kRate;
  meter.Play(Noise(1.0, kRate, 2, 6), {512});
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 1.0 * kRate);
  EXPECT_EQ(meter.Reading(kReadingPosition), 1.0 * kRate);
  EXPECT_EQ(meter.Param(param::kMeasurementReset), 1.0);

  // Stopping and starting again also starts a new measurement.
  meter.Transport().playing = false;
  meter.Play(Noise(0.2, kRate, 2, 7), {512});
  meter.Transport().playing = true;
  meter.Play(Noise(0.5, kRate, 2, 8), {512});
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 0.5 * kRate);
}

TEST(Transport, WithoutResetOnJumpElapsedModeKeepsCounting) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  meter.Play(Noise(2.0, kRate, 2, 5), {512});
  meter.Transport().position = 100.0 * kRate;
  meter.Play(Noise(1.0, kRate, 2, 6), {512});
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 3.0 * kRate);
  EXPECT_EQ(meter.Reading(kReadingPosition), 3.0 * kRate);
}

TEST(Transport, SystemModePlacesTheTimelineAtTheWallClock) {
  MeterHost meter(kRate, 2);
  meter.SetParam(param::kHistogramMode, 2);
  meter.Transport().playing = true;
  meter.Play(Noise(1.0, kRate, 2, 5), {512});
  // Playback started within a few seconds of the reset at creation.
  EXPECT_GE(meter.Reading(kReadingPosition), 1.0 * kRate);
  EXPECT_LE(meter.Reading(kReadingPosition), 5.0 * kRate);
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), kRate);
}

TEST(Transport, PauseHoldsMeasurementAndTimeline) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  meter.Play(Noise(1.0, kRate, 2, 5));
  meter.SetParam(param::kPaused, 1.0);
  meter.Play(Noise(1.0, kRate, 2, 6));
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), kRate);
  EXPECT_EQ(meter.Reading(kReadingPosition), kRate);
  meter.SetParam(param::kPaused, 0.0);
  meter.Play(Noise(0.5, kRate, 2, 7));
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 1.5 * kRate);
}

TEST(Transport, SuspendedMeterIsSilentAndMeasuresNothing) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  meter.Play(Noise(1.0, kRate, 2, 5));
  const double integrated = meter.Reading(kReadingIntegrated);
  meter.Query(kQuerySuspend, 0, 1.0);
  const auto out = meter.Run(Noise(1.0, kRate, 2, 6), {512, 1, 0, 8192});
  for (size_t c = 0; c < out.size(); ++c) {
    for (float v : out[c]) ASSERT_EQ(v, 0.0f) << "output " << c;
  }
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), kRate);
  EXPECT_EQ(meter.Reading(kReadingPosition), kRate);
  EXPECT_EQ(meter.Reading(kReadingIntegrated), integrated);
  meter.Query(kQuerySuspend, 0, 0.0);
  const auto noise = Noise(0.5, kRate, 2, 7);
  const auto passed = meter.Run(noise);
  EXPECT_EQ(passed[0], noise[0]);
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 1.5 * kRate);
}

TEST(Transport, PendingChannelConfigurationIsAppliedBetweenBlocks) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  meter.Play(Noise(1.0, kRate, 2, 5));
  meter.SetParam(param::kPendingConfig, 0.0);
  meter.Play(Noise(0.5, kRate, 2, 6));
  EXPECT_EQ(meter.Param(param::kPendingConfig), -1.0);
  EXPECT_EQ(meter.Param(param::kChannelConfig), 0.0);
  EXPECT_EQ(meter.Param(param::kConfigInUse), 0.0);
  // The switch restarted the measurement.
  EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 0.5 * kRate);
}

}  // namespace
}  // namespace velorum::testing
