// Distributions, the standards table and the calibration signals of the
// running meter.
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "MeterHost.h"
#include "plugin/MeterParams.h"
#include "presets/LoudnessStandards.h"

namespace velorum::testing {
namespace {

constexpr double kRate = 48000.0;
enum { kLoudness = 0, kTruePeak = 1, kDynamics = 2 };

std::vector<double> AllBins(MeterHost& meter, int kind) {
  std::vector<double> bins;
  for (int b = 0; b < 1000; ++b) bins.push_back(meter.Bin(kind, b));
  return bins;
}

TEST(Distributions, SteadyProgrammeFillsOneLoudnessBin) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  // 997 Hz at -22.95 dBFS on both channels reads -22.95 LUFS: inside the
  // 0.1 LU bin that starts at -23.0. The first 0.3 s fill the 400 ms window.
  meter.Play(Sine(997.0, -22.95, 10.3, kRate), {512});
  EXPECT_NEAR(meter.Reading(kReadingMomentaryMax), -22.95, 0.02);
  EXPECT_EQ(meter.Bin(kLoudness, 470), 100.0);
  EXPECT_EQ(meter.BinTotal(kLoudness), 103.0);
  EXPECT_EQ(meter.BinTotal(kTruePeak), 103.0);
}

TEST(Distributions, SilenceIsNeverCountedAsTruePeak) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  meter.Play(Silence(5.0, kRate), {512});
  EXPECT_EQ(meter.BinTotal(kTruePeak), 0.0);
  EXPECT_EQ(meter.BinTotal(kLoudness), 0.0);  // -120 LUFS lies below the first bin
  EXPECT_EQ(meter.BinTotal(kDynamics), 0.0);
  EXPECT_EQ(meter.Reading(kReadingWarmUp), 0.0);  // 50 steps measured
  meter.Play(Sine(997.0, -20.0, 1.0, kRate), {512});
  EXPECT_GT(meter.BinTotal(kTruePeak), 0.0);
}

TEST(Distributions, UnchangedHistoryIndexChangesNoCount) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  meter.Play(Noise(1.0, kRate, 2, 3, 0.3f), {480});
  meter.Play(Noise(5.0 / kRate, kRate, 2, 4, 0.3f), {5});  // 5 samples into the next 100 ms step
  const auto loudness = AllBins(meter, kLoudness), peaks = AllBins(meter, kTruePeak);
  EXPECT_EQ(meter.Reading(kReadingWarmUp), 1.0);
  // 4000 more samples in blocks of 10 stay inside the same step.
  meter.Play(Noise(4000.0 / kRate, kRate, 2, 5, 0.3f), {10});
  EXPECT_EQ(AllBins(meter, kLoudness), loudness);
  EXPECT_EQ(AllBins(meter, kTruePeak), peaks);
  // A stopped host in elapsed mode measures nothing, so nothing is counted.
  meter.Transport().playing = false;
  meter.Play(Noise(1.0, kRate, 2, 6, 0.3f), {480});
  EXPECT_EQ(AllBins(meter, kLoudness), loudness);
  meter.Transport().playing = true;
  meter.Play(Noise(1000.0 / kRate, kRate, 2, 7, 0.3f), {10});  // completes the step
  EXPECT_EQ(meter.BinTotal(kLoudness), 11.0);
}

TEST(Distributions, ResetClearsEveryBin) {
  MeterHost meter(kRate, 2);
  meter.Transport().playing = true;
  meter.Play(Noise(1.0, kRate, 2, 3, 0.3f));
  ASSERT_GT(meter.BinTotal(kLoudness), 0.0);
  meter.Query(kQueryReset);
  EXPECT_EQ(meter.BinTotal(kLoudness), 0.0);
  EXPECT_EQ(meter.BinTotal(kTruePeak), 0.0);
  EXPECT_EQ(meter.BinTotal(kDynamics), 0.0);
}

TEST(PeakMeters, HoldTheBlockPeaksOfEachChannel) {
  MeterHost meter(kRate, 2);
  auto signal = Sine(997.0, -6.0, 0.5, kRate);
  for (float& v : signal[1]) v *= 0.5f;  // -12 dBFS on the right
  meter.Transport().playing = true;
  meter.Play(signal);
  EXPECT_NEAR(meter.Reading(kReadingPeakHold0), 0.501, 0.002);
  EXPECT_NEAR(meter.Reading(kReadingPeakHold0 + 1), 0.2506, 0.002);
  // Quieter audio right after a peak keeps the held value.
  meter.Play(Sine(997.0, -40.0, 0.5, kRate));
  EXPECT_NEAR(meter.Reading(kReadingPeakHold0), 0.501, 0.002);
}

// The parameters a standard writes, with the values expected after the write.
std::map<int, double> RowValues(const LoudnessStandard& s) {
  return {{17, s.target},
          {10, s.upper},
          {11, s.lower},
          {13, s.truePeakMax},
          {96, RelativeGateChoiceIndex(s.relativeGateLU)},
          {15, s.lkfs ? 1 : 0},
          {12, s.gateMode},
          {33, s.maximum},
          {34, s.maximum},
          {77, s.p77},
          {36, s.rangeUpper},
          {37, s.rangeLower},
          {92, s.dialTarget},
          {42, s.percent},
          {90, 0}};
}

TEST(Standards, EveryRowWritesExactlyItsValues) {
  for (const LoudnessStandard& s : LoudnessStandards()) {
    MeterHost meter(kRate, 2);
    // Start from values no row uses, so that every write shows.
    for (const auto& [index, value] : RowValues(s)) {
      (void)value;
      meter.SetParam(index, index == 90 ? 1.0 : -50.0);
    }
    const auto before = meter.AllParams();
    ASSERT_EQ(meter.ApplyStandard(s.index), 0) << s.menuText;
    const auto after = meter.AllParams();
    const auto expected = RowValues(s);
    for (int i = 1; i < 215; ++i) {  // 0 is the menu's own selection
      const auto it = expected.find(i);
      if (it != expected.end()) {
        EXPECT_EQ(after[size_t(i)], it->second) << s.menuText << " parameter " << i;
      } else {
        EXPECT_EQ(after[size_t(i)], before[size_t(i)]) << s.menuText << " touched parameter " << i;
      }
    }
    EXPECT_EQ(meter.Query(kQueryShownStandard), s.index);
  }
}

TEST(Standards, SameSettingsUnderAnotherNameChangeOnlyTheName) {
  MeterHost meter(kRate, 2);
  ASSERT_EQ(meter.ApplyStandard(2), 0);  // "ATSC A/85"
  const auto atsc = meter.AllParams();
  ASSERT_EQ(meter.ApplyStandard(3), 0);  // "OP-59"
  auto op59 = meter.AllParams();
  EXPECT_EQ(meter.Query(kQueryShownStandard), 3.0);
  EXPECT_EQ(op59[0], 3.0);
  op59[0] = atsc[0];
  EXPECT_EQ(op59, atsc);
}

TEST(Standards, IndexOutsideTheTableWritesNothing) {
  MeterHost meter(kRate, 2);
  ASSERT_EQ(meter.ApplyStandard(1), 0);
  const auto before = meter.AllParams();
  for (int index : {-1, 39, 100, 499, 1000, 123456}) {
    EXPECT_EQ(meter.ApplyStandard(index), static_cast<int>(ApplyResult::kUnknown)) << index;
  }
  EXPECT_EQ(meter.AllParams(), before);
  EXPECT_EQ(meter.Query(kQueryShownStandard), 1.0);
}

TEST(Standards, RelativeGateReachesTheMeasurement) {
  // A loud and a quiet half: the ungated mean is -22.74 LUFS, so the quiet
  // half at -32 LUFS falls below the -8 LU gate of AGCOM but not below the
  // -10 LU gate of EBU R128.
  auto programme = Concat({Sine(997.0, -20.0, 5.0, kRate), Sine(997.0, -32.0, 5.0, kRate)});
  auto integrated = [&](int standard) {
    MeterHost meter(kRate, 2);
    meter.ApplyStandard(standard);
    meter.Transport().playing = true;
    meter.Play(programme);
    return meter.Reading(kReadingIntegrated);
  };
  EXPECT_NEAR(integrated(5), -20.0, 0.3);  // blocks across the step still count
  EXPECT_NEAR(integrated(1), -22.74, 0.1);
}

TEST(CalibrationSignal, SineAndNoisePlayAtMinus23LufsOnTheFrontChannels) {
  for (int signal : {1, 2}) {
    MeterHost generator(kRate, 4);
    generator.SetParam(param::kGenerator, signal);
    const auto input = Silence(8.0, kRate, 4);
    generator.Transport().playing = true;
    const auto out = generator.Run(input, {512});
    EXPECT_EQ(out[0], out[1]);
    for (float v : out[2]) ASSERT_EQ(v, 0.0f) << "host audio must not mix with the signal";
    if (signal == 1) {
      float peak = 0.0f;
      for (float v : out[0]) peak = std::max(peak, std::fabs(v));
      EXPECT_NEAR(peak, 0.0708f, 0.0005f);
    }
    // The meter measured its input, not the signal.
    EXPECT_EQ(generator.Reading(kReadingIntegrated), -120.0);

    MeterHost listener(kRate, 2);
    listener.Transport().playing = true;
    listener.Play({out[0], out[1]});
    // The steady sine reads -23.0 over the last 3 s; the noise over the whole run.
    if (signal == 1) {
      EXPECT_NEAR(listener.Reading(kReadingShortTerm), -23.0, 0.05);
    } else {
      EXPECT_NEAR(listener.Reading(kReadingIntegrated), -23.0, 0.3);
    }
  }
}

TEST(CalibrationSignal, HostAudioKeptOnOtherOutputsWhenAsked) {
  MeterHost generator(kRate, 4);
  generator.SetParam(param::kGenerator, 1);
  generator.SetParam(param::kGeneratorKeepsHost, 1);
  const auto input = Noise(0.5, kRate, 4, 8, 0.1f);
  const auto out = generator.Run(input, {512});
  EXPECT_EQ(out[2], input[2]);
  EXPECT_EQ(out[3], input[3]);
  generator.SetParam(param::kGenerator, 0);
  const auto plain = generator.Run(input, {512});
  EXPECT_EQ(plain[0], input[0]);
}

}  // namespace
}  // namespace velorum::testing
