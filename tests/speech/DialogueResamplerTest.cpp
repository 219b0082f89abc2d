#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "engine/speech/DialogueResampler.h"

namespace velorum {
namespace {

constexpr double kPi = 3.14159265358979323846;

TEST(DialogueResampler, FilterLengthFollowsTheInputRate) {
  EXPECT_EQ(DialogueResampler::TapsForRate(192000.0), 104);
  EXPECT_EQ(DialogueResampler::TapsForRate(96000.0), 76);
  EXPECT_EQ(DialogueResampler::TapsForRate(88200.0), 72);
  EXPECT_EQ(DialogueResampler::TapsForRate(48000.0), 38);
  EXPECT_EQ(DialogueResampler::TapsForRate(44100.0), 34);
  EXPECT_EQ(DialogueResampler::TapsForRate(32000.0), 26);
  EXPECT_EQ(DialogueResampler::TapsForRate(22050.0), 22);
  // Other rates: ceil(rate / 48000 * 38), rounded down to even, at most 8192.
  EXPECT_EQ(DialogueResampler::TapsForRate(16000.0), 12);  // ceil(12.67) = 13 -> 12
  EXPECT_EQ(DialogueResampler::TapsForRate(11025.0), 8);   // ceil(8.73) = 9 -> 8
  EXPECT_EQ(DialogueResampler::TapsForRate(64000.0), 50);  // ceil(50.67) = 51 -> 50
  EXPECT_EQ(DialogueResampler::TapsForRate(384000.0), 304);
  EXPECT_EQ(DialogueResampler::TapsForRate(1e7), 7916);  // ceil(7916.67) = 7917 -> 7916
  EXPECT_EQ(DialogueResampler::TapsForRate(2e7), 8192);
  EXPECT_EQ(DialogueResampler::TapsForRate(0.0), 0);
  EXPECT_EQ(DialogueResampler::TapsForRate(std::numeric_limits<double>::quiet_NaN()), 0);

  DialogueResampler r;
  r.Configure(4000.0, 16000.0);  // ceil(3.17) = 4 taps: still filtered
  EXPECT_FALSE(r.Bypassed());
  r.Configure(3000.0, 16000.0);  // ceil(2.38) = 3 -> 2 taps: bypassed
  EXPECT_TRUE(r.Bypassed());
  float out[4];
  ASSERT_EQ(r.Push(0.25f, out), 1);
  EXPECT_EQ(out[0], 0.25f);
  r.Configure(-1.0, 16000.0);
  EXPECT_TRUE(r.Bypassed());
}

struct Resampled {
  std::vector<float> out;
};

Resampled Resample(double inRate, double freq, double seconds, double amplitude = 0.5) {
  DialogueResampler r;
  r.Configure(inRate, 16000.0);
  Resampled run;
  std::vector<float> buf(static_cast<std::size_t>(r.MaxOutputsPerInput()));
  const auto n = static_cast<long long>(inRate * seconds);
  for (long long i = 0; i < n; ++i) {
    const float x =
        static_cast<float>(amplitude * std::sin(2.0 * kPi * freq * static_cast<double>(i) / inRate));
    const int k = r.Push(x, buf.data());
    run.out.insert(run.out.end(), buf.begin(), buf.begin() + k);
  }
  return run;
}

double RmsAfter(const std::vector<float>& x, std::size_t skip) {
  double s = 0.0;
  std::size_t n = 0;
  for (std::size_t i = skip; i < x.size(); ++i, ++n)
    s += static_cast<double>(x[i]) * static_cast<double>(x[i]);
  return n ? std::sqrt(s / static_cast<double>(n)) : 0.0;
}

TEST(DialogueResampler, KeepsTheSpeechBandAndRejectsWhatWouldAlias) {
  for (double rate : {22050.0, 32000.0, 44100.0, 48000.0, 88200.0, 96000.0, 192000.0}) {
    SCOPED_TRACE(rate);
    // 16000 output samples per second of input, less the few that are still
    // inside the filter's delay of half its length.
    const Resampled pass = Resample(rate, 1000.0, 2.0);
    EXPECT_NEAR(static_cast<double>(pass.out.size()), 32000.0 - 6.0, 3.0);
    const double passDb = 20.0 * std::log10(RmsAfter(pass.out, 200) / (0.5 / std::sqrt(2.0)));
    EXPECT_NEAR(passDb, 0.0, 0.5);
    // A tone above the classifier's Nyquist frequency must not fold back
    // into the band: at least 25 dB down (these filters are short on purpose).
    const double high = std::min(rate / 2.0 * 0.95, 12000.0);
    if (high > 9500.0) {
      const Resampled stop = Resample(rate, high, 2.0);
      const double stopDb = 20.0 * std::log10(RmsAfter(stop.out, 200) / (0.5 / std::sqrt(2.0)) + 1e-12);
      EXPECT_LT(stopDb, -25.0);
    }
  }
  // Upsampling from 8 kHz also gives 16000 samples per second and keeps 1 kHz.
  const Resampled up = Resample(8000.0, 1000.0, 2.0);
  EXPECT_NEAR(static_cast<double>(up.out.size()), 32000.0, 8.0);
  EXPECT_NEAR(20.0 * std::log10(RmsAfter(up.out, 200) / (0.5 / std::sqrt(2.0))), 0.0, 1.0);
}

TEST(DialogueResampler, RecoversFromNonFiniteInputAndResets) {
  DialogueResampler r;
  r.Configure(48000.0, 16000.0);
  std::vector<float> buf(static_cast<std::size_t>(r.MaxOutputsPerInput()));
  std::vector<float> out;
  for (int i = 0; i < 4800; ++i) {
    float x = 0.1f;
    if (i == 100) x = std::numeric_limits<float>::quiet_NaN();
    if (i == 101) x = std::numeric_limits<float>::infinity();
    const int k = r.Push(x, buf.data());
    out.insert(out.end(), buf.begin(), buf.begin() + k);
  }
  ASSERT_GT(out.size(), 1500u);
  // Once the bad samples have left the filter the output is the DC input again.
  EXPECT_NEAR(out.back(), 0.1f, 1e-4f);
  r.Reset();
  int produced = 0;
  for (int i = 0; i < 20; ++i) produced += r.Push(1.0f, buf.data());
  EXPECT_EQ(produced, 1);  // the first output needs half the filter after it (20 samples)
  EXPECT_LT(std::fabs(buf[0]), 1.0f);
}

}  // namespace
}  // namespace velorum
