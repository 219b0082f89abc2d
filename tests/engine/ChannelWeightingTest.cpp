// K-weighting at several rates, channel weights and layouts, hostile input.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "EngineTestSignals.h"
#include "engine/KWeightingFilter.h"

namespace velorum::test {
namespace {

TEST(KWeighting, ReferenceRateKeepsPublishedCoefficientsBitForBit) {
  LoudnessEngine e;
  e.SetSampleRate(48000.0);
  for (int ch : {0, 23}) {
    const auto s1 = e.ActiveCoefficients(ch, 1);
    const auto s2 = e.ActiveCoefficients(ch, 2);
    EXPECT_EQ(s1[0], kStage1Reference.a1);
    EXPECT_EQ(s1[1], kStage1Reference.a2);
    EXPECT_EQ(s1[2], kStage1Reference.b0);
    EXPECT_EQ(s1[3], kStage1Reference.b1);
    EXPECT_EQ(s1[4], kStage1Reference.b2);
    EXPECT_EQ(s2[0], -1.99004745483398);
    EXPECT_EQ(s2[1], 0.99007225036621);
    EXPECT_EQ(s2[2], 1.0);
    EXPECT_EQ(s2[3], -2.0);
    EXPECT_EQ(s2[4], 1.0);
  }
}

TEST(KWeighting, ConvertedHighPassStaysAPureHighPass) {
  for (double rate : {44100.0, 96000.0, 192000.0}) {
    const Biquad b = ConvertBiquadToRate(kStage2Reference, rate);
    EXPECT_NEAR(b.b0, b.b2, 1e-12) << rate;
    EXPECT_NEAR(b.b1, -2.0 * b.b0, 1e-12) << rate;
    EXPECT_NEAR(b.b0 + b.b1 + b.b2, 0.0, 1e-12) << rate;
  }
  // Converting there and back returns the reference.
  const Biquad there = ConvertBiquadToRate(kStage1Reference, 44100.0);
  Biquad back = ConvertBiquadToRate(there, 48000.0);
  EXPECT_NEAR(back.a1, kStage1Reference.a1, 1e-9);
  EXPECT_NEAR(back.b0, kStage1Reference.b0, 1e-9);
  EXPECT_NEAR(back.b2, kStage1Reference.b2, 1e-9);
}

double SineInOneChannel(double rate, int channels, int loudChannel, int layout = -1) {
  Signal s = MakeSignal(channels, rate);
  std::vector<double> levels(static_cast<std::size_t>(channels), std::nan(""));
  levels[static_cast<std::size_t>(loudChannel)] = 0.0;
  AppendSine(s, 3.0, 0.0, 997.0, levels);
  LoudnessEngine e;
  Prepare(e, s, layout);
  Feed(e, s);
  return e.Momentary();
}

TEST(KWeighting, FullScale997HzInOneFrontChannelReadsMinus3) {
  for (double rate : {44100.0, 48000.0}) EXPECT_NEAR(SineInOneChannel(rate, 2, 0), -3.01, 0.01) << rate;
  EXPECT_NEAR(SineInOneChannel(96000.0, 1, 0), -3.01, 0.02);
}

TEST(ChannelWeights, LfeSilentInLoudnessButSeenByTruePeakSurroundsWeighted) {
  const int layout = LayoutByName("5.1 (L R C LFE Ls Rs)");
  ASSERT_GE(layout, 0);
  const double front = SineInOneChannel(48000.0, 6, 0, layout);
  const double surround = SineInOneChannel(48000.0, 6, 4, layout);
  EXPECT_NEAR(std::pow(10.0, (surround - front) / 10.0), 1.41254, 1e-4);

  Signal s = MakeSignal(6);
  AppendSine(s, 2.0, 0.0, 997.0,
             {std::nan(""), std::nan(""), std::nan(""), -6.0, std::nan(""), std::nan("")});
  LoudnessEngine e;
  Prepare(e, s, layout);
  Feed(e, s);
  EXPECT_EQ(e.Momentary(), -120.0);
  EXPECT_EQ(e.Integrated(), -120.0);
  EXPECT_NEAR(e.ChannelTruePeakMax(3), -6.0, 0.05);
  EXPECT_NEAR(e.TruePeakMax(), -6.0, 0.05);
}

TEST(ChannelLayouts, TableFollowsTheWeightRule) {
  ASSERT_GE(LayoutCount(), 14);
  for (int i = 0; i < LayoutCount(); ++i) {
    const ChannelLayout& l = LayoutAt(i);
    EXPECT_EQ(l.index, i);
    EXPECT_EQ(LayoutByName(l.name), i);
    for (int c = 0; c < kMaxChannels; ++c) {
      const std::string_view n = l.channelNames[static_cast<std::size_t>(c)];
      const double w = l.weights[static_cast<std::size_t>(c)];
      if (c >= l.channelCount)
        EXPECT_EQ(w, 0.0);
      else if (n.substr(0, 3) == "LFE")
        EXPECT_EQ(w, 0.0) << l.name;
      else
        EXPECT_EQ(w, WeightForChannelName(n));
    }
  }
  const ChannelLayout& l51 = LayoutAt(LayoutByName("5.1 (L R C LFE Ls Rs)"));
  EXPECT_EQ(l51.weights[4], kSurroundWeight);
  EXPECT_EQ(l51.weights[2], 1.0);
  for (int n : {1, 2, 3, 5, 6, 8, 12, 16, 24}) EXPECT_EQ(LayoutAt(LayoutForChannelCount(n)).channelCount, n);
  EXPECT_GE(LayoutAt(LayoutForChannelCount(9)).channelCount, 9);
  EXPECT_EQ(LayoutAt(LayoutForChannelCount(99)).channelCount, 24);
  EXPECT_EQ(LayoutByName("no such layout"), -1);
  const std::string_view names[] = {"L", "R", "Ls", "Rs", "C", "LFE"};
  EXPECT_EQ(LayoutByChannelNames(names, 6), LayoutByName("5.1 (L R Ls Rs C LFE)"));
}

TEST(ChannelWeights, TwentyFourChannelsCountedAndATwentyFifthIgnored) {
  Signal s = MakeSignal(25);
  AppendSine(s, 1.0, -30.0, 997.0);
  LoudnessEngine e;
  double ones[25];
  std::fill(std::begin(ones), std::end(ones), 1.0);
  e.SetChannelCount(25);
  EXPECT_EQ(e.ChannelCount(), 24);
  e.SetChannelWeights(ones, 25);
  e.SetInputCount(25);
  EXPECT_EQ(e.ProcessedChannels(), 24);
  e.SetSampleRate(48000.0);
  e.Reset();
  Feed(e, s);
  // 24 equal channels: -30 dBFS sine reads -33.01 + 10 log10(24) LUFS.
  EXPECT_NEAR(e.Momentary(), -33.01 + 10.0 * std::log10(24.0), 0.02);
  // Fewer host inputs than configured channels: only those are measured.
  e.SetInputCount(1);
  e.Reset();
  Feed(e, s);
  EXPECT_NEAR(e.Momentary(), -33.01, 0.02);
}

TEST(HostileInput, NanInfSilenceAndNullBuffersNeverBreakReadings) {
  LoudnessEngine e;
  e.SetSampleRate(48000.0);
  e.Reset();
  std::vector<double> silence(48000, 0.0);
  const double* p[2] = {silence.data(), silence.data()};
  e.ProcessBlock(p, 48000);
  EXPECT_EQ(e.Momentary(), -120.0);
  EXPECT_EQ(e.ShortTerm(), -120.0);
  EXPECT_EQ(e.Integrated(), -120.0);
  EXPECT_EQ(e.TruePeak(), -120.0);
  EXPECT_EQ(e.LoudnessRange(), 0.0);
  EXPECT_EQ(e.RealtimeDynamics(), 0.0);

  std::vector<double> bad(4800, std::numeric_limits<double>::quiet_NaN());
  bad[100] = std::numeric_limits<double>::infinity();
  bad[200] = -std::numeric_limits<double>::infinity();
  bad[300] = 1e-310;
  const double* q[2] = {bad.data(), nullptr};
  e.ProcessBlock(q, 4800);
  e.ProcessBlock(q, 0);
  e.ProcessBlock(q, -5);
  e.ProcessBlock(nullptr, 10);
  e.ProcessSample(q, 4799);
  for (double v : {e.Momentary(), e.ShortTerm(), e.Integrated(), e.LoudnessRange(), e.Plr()})
    EXPECT_FALSE(std::isnan(v) || std::isinf(v));
  // The signal chain recovers after a restart.
  e.RestartSignalChain();
  Signal s = MakeSignal(2);
  AppendSine(s, 1.0, -23.0);
  Feed(e, s);
  EXPECT_NEAR(e.Momentary(), -23.0, 0.1);

  // Absurd rates are refused; rates below 100 Hz never complete a step.
  e.SetSampleRate(std::nan(""));
  e.SetSampleRate(-1.0);
  EXPECT_EQ(e.SampleRate(), 48000.0);
  e.SetSampleRate(50.0);
  e.Reset();
  e.ProcessBlock(p, 1000);
  EXPECT_EQ(e.Steps10(), 0);
  EXPECT_EQ(e.Momentary(), -120.0);
}

}  // namespace
}  // namespace velorum::test
