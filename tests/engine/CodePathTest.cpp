// Every instruction-set path and every way of feeding the engine must give
// bit-identical readings and histories.
#include <gtest/gtest.h>

#include <cstring>

#include "EngineTestSignals.h"

namespace velorum::test {
namespace {

// Noise bursts, tones and silence: exercises gating, peaks and denormals.
Signal Programme(int channels, double rate, double seconds) {
  Signal s = MakeSignal(channels, rate);
  Noise noise(7);
  const auto n = static_cast<std::size_t>(seconds * rate);
  for (std::size_t c = 0; c < s.channels.size(); ++c) {
    auto& ch = s.channels[c];
    ch.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
      const double t = static_cast<double>(i) / rate;
      const double env = (static_cast<int>(t * 2.0) % 3 == 2) ? 0.0 : 0.3 + 0.25 * std::sin(t * (1.0 + c));
      ch[i] = env * (0.6 * noise.Next() + 0.4 * std::sin(2.0 * std::numbers::pi * (220.0 + 110.0 * c) * t));
    }
    if (n > 1000) ch[n / 2] = 1e-310;  // a denormal input sample
  }
  return s;
}

struct Snapshot {
  std::vector<double> readings;
  std::vector<float> momentary, truePeak, dynamics, powers;
};

Snapshot Take(const LoudnessEngine& e) {
  Snapshot s;
  s.readings = {
      e.Momentary(),     e.ShortTerm(),        e.MomentaryMax(),      e.ShortTermMax(),  e.Integrated(),
      e.LoudnessRange(), e.LoudnessRangeLow(), e.LoudnessRangeHigh(), e.Plr(),           e.RealtimeDynamics(),
      e.TruePeak(),      e.TruePeakMax(),      e.MomentaryPower(),    e.ShortTermPower()};
  for (int c = 0; c < kMaxChannels; ++c) s.readings.push_back(e.ChannelTruePeakMax(c));
  EngineLock lock(e.Mutex());
  s.momentary = e.History().momentary;
  s.truePeak = e.History().truePeak;
  s.dynamics = e.History().dynamics;
  s.powers = e.History().shortTermPower;
  return s;
}

void ExpectIdentical(const Snapshot& a, const Snapshot& b, const std::string& what) {
  ASSERT_EQ(a.readings.size(), b.readings.size());
  for (std::size_t i = 0; i < a.readings.size(); ++i)
    EXPECT_EQ(std::memcmp(&a.readings[i], &b.readings[i], sizeof(double)), 0)
        << what << " reading " << i << ": " << a.readings[i] << " vs " << b.readings[i];
  EXPECT_EQ(a.momentary, b.momentary) << what;
  EXPECT_EQ(a.truePeak, b.truePeak) << what;
  EXPECT_EQ(a.dynamics, b.dynamics) << what;
  EXPECT_EQ(a.powers, b.powers) << what;
}

TEST(CodePaths, EveryPathAndFeedGivesIdenticalResults) {
  for (int channels : {1, 2, 3, 6, 7}) {
    for (bool eco : {false, true}) {
      const Signal s = Programme(channels, 44100.0, 4.0);
      LoudnessEngine reference;
      ASSERT_TRUE(reference.SetCodePath(CodePath::Scalar));
      reference.SetEcoMode(eco);
      Prepare(reference, s);
      // The reference takes one sample at a time.
      const auto p = s.Pointers();
      for (int i = 0; i < s.Frames(); ++i) reference.ProcessSample(p.data(), i);
      const Snapshot want = Take(reference);
      EXPECT_GT(reference.Integrated(), -40.0);

      for (CodePath path : {CodePath::Scalar, CodePath::Sse2, CodePath::Avx2, CodePath::Avx512}) {
        LoudnessEngine e;
        if (!e.SetCodePath(path)) {
          std::printf("code path %s not supported here\n", CodePathName(path));
          continue;
        }
        e.SetEcoMode(eco);
        Prepare(e, s);
        Feed(e, s, path == CodePath::Sse2 ? 333 : 4096);  // odd block sizes too
        ExpectIdentical(
            want, Take(e),
            std::string(CodePathName(path)) + " ch " + std::to_string(channels) + (eco ? " eco" : ""));
      }
    }
  }
}

// ProcessSample gathers samples until a step ends; settings changed between
// samples must still apply from the right sample on. The reference runs each
// sample at once as a one-frame block.
TEST(CodePaths, GatheredSamplesHonourSettingsChangedBetweenSamples) {
  Signal s = Programme(3, 48000.0, 3.0);
  // A quarter-rate burst with peaks between samples just before the eco
  // switch: the two filters read it differently.
  for (int i = 19700; i < 20005; ++i)
    s.channels[0][static_cast<std::size_t>(i)] =
        0.9 * std::sin(std::numbers::pi / 2.0 * i + std::numbers::pi / 4.0);
  const auto p = s.Pointers();
  LoudnessEngine gathered, direct;
  for (LoudnessEngine* e : {&gathered, &direct}) {
    e->SetTimelineMode(true);
    Prepare(*e, s);
  }
  auto settings = [&](LoudnessEngine& e, int i) {
    if (i == 20011) e.SetEcoMode(true);
    if (i == 40007) e.SetPaused(true);
    if (i == 50003) e.SetPaused(false);
    if (i == 60001) e.SetInputCount(2);
    if (i == 70009) e.SetTimelinePosition(200000);  // a jump
    if (i == 90001) e.MoveTimelineOrigin(100);
    if (i == 100003) e.RestartSignalChain();
    if (i == 110017) e.SetMomentaryWindowMs(300);
    if (i == 120019) e.SetEcoMode(false);
    e.SetTimelinePosition(e.TimelinePosition());  // the plug-in sets it before every sample
  };
  for (int i = 0; i < s.Frames(); ++i) {
    settings(gathered, i);
    gathered.ProcessSample(p.data(), i);
    settings(direct, i);
    direct.ProcessBlock(p.data(), i, 1);
    if (i % 4801 == 0) {
      ASSERT_EQ(gathered.MeasuredSamples(), direct.MeasuredSamples()) << i;
    }
  }
  ExpectIdentical(Take(direct), Take(gathered), "gathered");
  EXPECT_EQ(gathered.TimelinePosition(), direct.TimelinePosition());
}

}  // namespace
}  // namespace velorum::test
