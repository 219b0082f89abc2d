// The values at the end of a programme: BS.1770-4's gates over the whole
// programme (against libebur128 on real speech with a quiet tail), no
// integrated value below one complete gating block, and NaN/Inf/huge samples.
#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"
#include "export/TextSummary.h"

namespace velorum {
namespace {

double Libebur128Integrated(const std::vector<float>& samples, int channels, int rate) {
  ebur128_state* st =
      ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rate), EBUR128_MODE_I);
  ebur128_add_frames_float(st, samples.data(), samples.size() / static_cast<size_t>(channels));
  double lufs = -HUGE_VAL;
  ebur128_loudness_global(st, &lufs);
  ebur128_destroy(&st);
  return lufs;
}

struct Analysed {
  int state = 0;
  OfflineAnalysis::FileInfo info;
  test::Readings readings{};
};

Analysed Analyse(const std::string& path) {
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {path};
  analysis.run(request);
  return {analysis.state(), analysis.fileInfo(), test::readingsOf(engine)};
}

// Pink noise (Paul Kellet's filter) at the given loudness, as measured by libebur128.
std::vector<float> PinkNoise(int rate, double seconds, double lufs) {
  std::mt19937 random(5);
  std::normal_distribution<double> white(0.0, 0.1);
  std::vector<float> out(static_cast<size_t>(rate * seconds));
  double b0 = 0, b1 = 0, b2 = 0, b3 = 0, b4 = 0, b5 = 0, b6 = 0;
  for (float& v : out) {
    const double w = white(random);
    b0 = 0.99886 * b0 + w * 0.0555179;
    b1 = 0.99332 * b1 + w * 0.0750759;
    b2 = 0.96900 * b2 + w * 0.1538520;
    b3 = 0.86650 * b3 + w * 0.3104856;
    b4 = 0.55000 * b4 + w * 0.5329522;
    b5 = -0.7616 * b5 - w * 0.0168980;
    v = static_cast<float>(b0 + b1 + b2 + b3 + b4 + b5 + b6 + w * 0.5362);
    b6 = w * 0.115926;
  }
  const double gain = std::pow(10.0, (lufs - Libebur128Integrated(out, 1, rate)) / 20.0);
  for (float& v : out) v = static_cast<float>(static_cast<double>(v) * gain);
  return out;
}

#ifdef VELORUM_TRUST_FIXTURES
TEST(ProgrammeEnd, SpeechWithAQuietTailReadsAsLibebur128AndNotTheStaleLiveValue) {
  int channels = 0, rate = 0;
  std::vector<float> programme = test::readBack(VELORUM_TRUST_FIXTURES "/speech.wav", channels, rate);
  ASSERT_EQ(channels, 1);
  ASSERT_GT(programme.size(), static_cast<size_t>(rate * 15));
  // Speech at its own level, then a long tail of -65 LUFS pink noise: the
  // tail's blocks pass the absolute gate and lower the relative one.
  const std::vector<float> tail = PinkNoise(rate, 300.0, -65.0);
  programme.insert(programme.end(), tail.begin(), tail.end());
  test::TempDir dir;
  ASSERT_TRUE(
      test::writeFile(dir.file("quiet-tail.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, rate, programme));

  const Analysed a = Analyse(dir.file("quiet-tail.wav"));
  ASSERT_EQ(a.state, OfflineAnalysis::Done);
  const double peer = Libebur128Integrated(programme, 1, rate);
  EXPECT_NEAR(a.readings.integrated, peer, 0.05);
  EXPECT_NEAR(a.info.programme.integrated, peer, 0.05);
  EXPECT_TRUE(a.info.programme.complete);

  // The live rule keeps the value of the last block that passed the gate:
  // far enough off here that the test shows the difference.
  LoudnessEngine live;
  live.SetSampleRate(rate);
  live.SetChannelCount(1);
  live.SetInputCount(1);
  live.Reset();
  std::vector<double> plane(programme.begin(), programme.end());
  const double* pins[] = {plane.data()};
  live.ProcessBlock(pins, static_cast<int>(plane.size()));
  EXPECT_GT(std::fabs(live.Integrated() - peer), 0.1) << live.Integrated() << " " << peer;
  live.FinishProgramme();
  EXPECT_NEAR(live.Integrated(), peer, 0.05);
}
#endif

TEST(ProgrammeEnd, NoIntegratedValueBelowOneCompleteGatingBlock) {
  struct Case {
    double seconds;
    bool complete;
  };
  test::TempDir dir;
  for (const Case& c :
       {Case{0.3, false}, Case{0.39, false}, Case{0.4, true}, Case{0.75, true}, Case{2.0, true}}) {
    const int rate = 48000;
    std::vector<float> tone(static_cast<size_t>(rate * c.seconds));
    for (size_t i = 0; i < tone.size(); ++i)
      tone[i] = static_cast<float>(0.1 * std::sin(2 * M_PI * 997.0 * i / rate));
    const std::string path = dir.file("tone-" + std::to_string(c.seconds) + ".wav");
    ASSERT_TRUE(test::writeWav(path, 1, rate, tone, SF_FORMAT_FLOAT));
    const Analysed a = Analyse(path);
    ASSERT_EQ(a.state, OfflineAnalysis::Done) << c.seconds;
    EXPECT_EQ(a.info.programme.complete, c.complete) << c.seconds;
    if (c.complete) {
      EXPECT_NEAR(a.readings.integrated, Libebur128Integrated(tone, 1, rate), 0.01) << c.seconds;
    } else {
      SummaryInput in;
      in.values.integratedMeasured = a.info.programme.complete;
      std::string text;
      ASSERT_TRUE(BuildTextSummary(in, text));
      EXPECT_NE(text.find("Integrated = not measured"), std::string::npos);
    }
  }
}

// 10 s at -20 dBFS then 20 s at -30 dBFS in 32-bit floats; copies with one
// NaN, +Inf or -Inf read exactly as the clean file (the sample is measured as
// silence), and one with a huge finite sample is measured without failing
// and recovers once the sample has left the windows.
TEST(ProgrammeEnd, NonFiniteSamplesAreSilenceAndHugeOnesAreSignal) {
  const int rate = 48000;
  std::vector<float> clean(static_cast<size_t>(rate * 30));
  for (size_t i = 0; i < clean.size(); ++i)
    clean[i] = static_cast<float>((i < static_cast<size_t>(rate * 10) ? 0.1 : 0.0316) *
                                  std::sin(2 * M_PI * 1000.0 * static_cast<double>(i) / rate));
  test::TempDir dir;
  auto write = [&](const std::string& name, size_t at, float value) {
    std::vector<float> copy = clean;
    if (at < copy.size()) copy[at] = value;
    EXPECT_TRUE(test::writeWav(dir.file(name), 1, rate, copy, SF_FORMAT_FLOAT));
    return Analyse(dir.file(name));
  };
  const size_t zeroCrossing = static_cast<size_t>(rate) * 12;  // sin(24000 pi): the clean sample is ~0
  const Analysed reference = write("clean.wav", clean.size(), 0.0f);
  ASSERT_EQ(reference.state, OfflineAnalysis::Done);
  EXPECT_NEAR(reference.readings.integrated, Libebur128Integrated(clean, 1, rate), 0.05);
  EXPECT_EQ(reference.info.nonFiniteSamples, 0);
  const float inf = std::numeric_limits<float>::infinity();
  for (float bad : {std::numeric_limits<float>::quiet_NaN(), inf, -inf}) {
    const Analysed a = write("bad.wav", zeroCrossing, bad);
    ASSERT_EQ(a.state, OfflineAnalysis::Done) << bad;
    EXPECT_EQ(a.info.nonFiniteSamples, 1) << bad;
    EXPECT_NEAR(a.readings.integrated, reference.readings.integrated, 1e-6) << bad;
    EXPECT_NEAR(a.readings.loudnessRange, reference.readings.loudnessRange, 1e-6) << bad;
    EXPECT_NEAR(a.readings.truePeakMax, reference.readings.truePeakMax, 1e-6) << bad;
    EXPECT_NEAR(a.readings.momentaryMax, reference.readings.momentaryMax, 1e-6) << bad;
  }

  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  write("huge.wav", zeroCrossing, 1e30f);
  request.paths = {dir.file("huge.wav")};
  ASSERT_TRUE(analysis.run(request));
  EXPECT_NEAR(engine.TruePeakMax(), 600.0, 0.1);
  EXPECT_TRUE(std::isfinite(engine.Integrated()) && std::isfinite(engine.LoudnessRange()));
  // 18 s after the sample the short-term loudness is the clean programme's again.
  EXPECT_NEAR(engine.ShortTerm(), -33.0, 0.1);
  SummaryInput in;
  in.values.integrated = engine.Integrated();
  in.values.loudnessRange = engine.LoudnessRange();
  in.values.plr = engine.Plr();
  in.values.momentaryMax = engine.MomentaryMax();
  in.values.shortTermMax = engine.ShortTermMax();
  in.values.truePeakMax = engine.TruePeakMax();
  std::string text;
  EXPECT_TRUE(BuildTextSummary(in, text));
}

}  // namespace
}  // namespace velorum
