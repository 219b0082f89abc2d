// The true-peak limiter: bit-exact below its ceiling, peaks between the
// samples held under it, the delay hidden, the gain shared by the channels
// and given back completely after a loud passage.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "export/InterSamplePeak.h"
#include "export/TruePeakLimiter.h"

namespace velorum {
namespace {

// Stereo: a 997 Hz tone, and from `from` to `to` seconds a 11 kHz tone at
// `loud` whose phase puts its peaks between the samples.
std::vector<float> Signal(double seconds, double quiet, double loud, double from, double to) {
  const int rate = 48000;
  std::vector<float> s(static_cast<size_t>(seconds * rate) * 2);
  for (size_t i = 0; i < s.size() / 2; ++i) {
    const double t = static_cast<double>(i) / rate;
    double v = quiet * std::sin(2 * std::numbers::pi * 997.0 * t);
    if (t >= from && t < to) v += loud * std::sin(2 * std::numbers::pi * 11025.0 * t + std::numbers::pi / 4);
    s[2 * i] = static_cast<float>(v);
    s[2 * i + 1] = static_cast<float>(0.5 * v);
  }
  return s;
}

std::vector<float> Limit(const std::vector<float>& in, TruePeakLimiter& limiter) {
  std::vector<float> out;
  for (size_t done = 0; done < in.size() / 2; done += 1000) {
    const int n = static_cast<int>(std::min<size_t>(1000, in.size() / 2 - done));
    limiter.Process(in.data() + 2 * done, n, out);
  }
  limiter.Finish(out);
  return out;
}

float PeakOf(const std::vector<float>& s) {
  InterSamplePeak detector(2);
  std::vector<float> padded = s;
  padded.resize(s.size() + 2 * InterSamplePeak::kLatency, 0.0f);
  std::vector<float> peaks(padded.size() / 2);
  detector.Process(padded.data(), static_cast<int>(peaks.size()), peaks.data());
  float peak = 0.0f;
  for (float p : peaks) peak = std::max(peak, p);
  return peak;
}

TEST(TruePeakLimiter, BelowTheCeilingTheAudioPassesBitForBit) {
  const std::vector<float> in = Signal(2.0, 0.5, 0.0, 0.0, 0.0);
  TruePeakLimiter limiter(2, 48000, -1.0);
  const std::vector<float> out = Limit(in, limiter);
  EXPECT_EQ(out, in);
  EXPECT_EQ(limiter.MaxReductionDb(), 0.0);
  EXPECT_EQ(limiter.LimitedFrames(), 0);
}

TEST(TruePeakLimiter, PeaksBetweenSamplesAreHeldAndTheGainComesBack) {
  // An 11 kHz burst whose sample values stay below the ceiling while the
  // waveform between them goes over it.
  const std::vector<float> in = Signal(4.0, 0.2, 0.75, 1.0, 1.5);
  const double ceiling = -1.0;
  const float limit = static_cast<float>(std::pow(10.0, ceiling / 20.0));
  TruePeakLimiter limiter(2, 48000, ceiling);
  const std::vector<float> out = Limit(in, limiter);
  ASSERT_EQ(out.size(), in.size());
  EXPECT_GT(PeakOf(in), limit);
  EXPECT_LE(PeakOf(out), limit * 1.005f);
  EXPECT_GT(limiter.MaxReductionDb(), 0.5);
  for (size_t i = 0; i < out.size(); i += 2) {
    // One gain for both channels: the right channel stays half the left.
    ASSERT_EQ(out[i + 1], static_cast<float>(static_cast<double>(out[i]) * 0.5)) << i;
  }
  // Untouched before the look-ahead reaches the burst, and again once the
  // release has run its course.
  const size_t before = 2 * (48000 - 48000 * 4 / 1000), after = 2 * 48000 * 3;
  EXPECT_TRUE(std::equal(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(before), out.begin()));
  EXPECT_TRUE(std::equal(in.begin() + static_cast<std::ptrdiff_t>(after), in.end(),
                         out.begin() + static_cast<std::ptrdiff_t>(after)));
}

TEST(TruePeakLimiter, StreamsShorterThanTheDelayComeOutWhole) {
  for (int frames : {0, 1, 7, 200}) {
    std::vector<float> in(static_cast<size_t>(frames) * 2, 0.99f);
    TruePeakLimiter limiter(2, 44100, -1.0);
    std::vector<float> out;
    limiter.Process(in.data(), frames, out);
    limiter.Finish(out);
    EXPECT_EQ(out.size(), in.size()) << frames;
    for (float v : out) EXPECT_LE(v, 0.8913f) << frames;
  }
}

}  // namespace
}  // namespace velorum
