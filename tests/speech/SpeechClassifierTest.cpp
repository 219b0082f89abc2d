#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "engine/speech/SpeechClassifier.h"
#include "engine/speech/SpeechFft.h"
#include "engine/speech/SpeechModel.h"
#include "speech/SpeechTestSignals.h"

namespace velorum {
namespace {

constexpr double kPi = 3.14159265358979323846;

TEST(SpeechFft, MatchesADirectTransform) {
  SpeechFft fft(512);
  std::vector<float> x(512);
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (float& v : x) v = u(rng);
  std::vector<float> re(257), im(257);
  fft.Forward(x.data(), re.data(), im.data());
  for (int k : {0, 1, 2, 17, 100, 255, 256}) {
    std::complex<double> ref = 0.0;
    for (int n = 0; n < 512; ++n)
      ref +=
          static_cast<double>(x[static_cast<std::size_t>(n)]) * std::polar(1.0, -2.0 * kPi * k * n / 512.0);
    EXPECT_NEAR(re[static_cast<std::size_t>(k)], ref.real(), 1e-3) << k;
    EXPECT_NEAR(im[static_cast<std::size_t>(k)], ref.imag(), 1e-3) << k;
  }
}

// Pushes audio and returns the decision after every 64 ms once known.
std::vector<int> Decisions(SpeechClassifier& c, const std::vector<float>& audio) {
  std::vector<int> d;
  for (float x : audio) {
    c.Push(x);
    if (c.SamplesPushed() >= SpeechClassifier::kLatencySamples && c.SamplesPushed() % 1024 == 0)
      d.push_back(c.Decision());
  }
  return d;
}

TEST(SpeechClassifier, UnknownForTheFirst2048MillisecondsAndAfterReset) {
  SpeechClassifier c;
  EXPECT_EQ(SpeechClassifier::kLatencySamples, static_cast<long long>(std::ceil(16000 * 2.048)));
  const std::vector<float> speech = testsignals::EspeakDialogue16k();
  ASSERT_GT(speech.size(), 40000u);
  for (long long i = 0; i < SpeechClassifier::kLatencySamples - 1; ++i) {
    c.Push(speech[static_cast<std::size_t>(i)]);
    ASSERT_EQ(c.Decision(), -1) << i;
  }
  c.Push(speech[static_cast<std::size_t>(SpeechClassifier::kLatencySamples - 1)]);
  EXPECT_NE(c.Decision(), -1);
  c.Reset();
  EXPECT_EQ(c.Decision(), -1);
  EXPECT_EQ(c.SamplesPushed(), 0);
}

TEST(SpeechClassifier, SilenceTonesAndNoiseAreNotSpeech) {
  const std::size_t n = 16000 * 8;
  std::vector<std::vector<float>> signals;
  signals.emplace_back(n, 0.0f);  // digital silence
  std::vector<float> tone(n), chord(n), noise(n);
  std::mt19937 rng(3);
  std::normal_distribution<float> g(0.0f, 0.05f);
  for (std::size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / 16000.0;
    tone[i] = static_cast<float>(0.3 * std::sin(2.0 * kPi * 997.0 * t));
    // A sustained three-note chord changing every second, with harmonics.
    const double root = 220.0 * std::pow(2.0, static_cast<double>(static_cast<int>(t) % 4) * 2.0 / 12.0);
    double v = 0.0;
    for (double ratio : {1.0, 1.26, 1.5})
      for (int h = 1; h <= 5; ++h) v += std::sin(2.0 * kPi * root * ratio * h * t) / (h * 6.0);
    chord[i] = static_cast<float>(0.3 * v);
    noise[i] = g(rng);
  }
  signals.push_back(tone);
  signals.push_back(chord);
  signals.push_back(noise);
  for (std::size_t s = 0; s < signals.size(); ++s) {
    SpeechClassifier c;
    const std::vector<int> d = Decisions(c, signals[s]);
    ASSERT_FALSE(d.empty());
    int speech = 0;
    for (int v : d) speech += v == 1;
    EXPECT_EQ(speech, 0) << "signal " << s;
  }
}

TEST(SpeechClassifier, RecognisesSynthesisedDialogueAtAnyLevel) {
  // Espeak-ng dialogue, repeated with short pauses: speech once the first
  // 2.048 s have passed, the same at any sensible level (the inputs are level
  // differences; only the floor of the logarithms is absolute).
  const std::vector<float> clip = testsignals::EspeakDialogue16k();
  std::vector<int> first;
  for (double gainDb : {-30.0, -12.0, 0.0}) {
    std::vector<float> audio;
    for (int r = 0; r < 3; ++r) {
      for (float v : clip)
        audio.push_back(static_cast<float>(static_cast<double>(v) * std::pow(10.0, gainDb / 20.0)));
      audio.insert(audio.end(), 4000, 0.0f);
    }
    SpeechClassifier c;
    const std::vector<int> d = Decisions(c, audio);
    int speech = 0;
    for (int v : d) speech += v == 1;
    EXPECT_GT(static_cast<double>(speech) / static_cast<double>(d.size()), 0.9) << gainDb;
    if (first.empty()) first = d;
    int differ = 0;
    for (std::size_t i = 0; i < d.size(); ++i) differ += d[i] != first[i];
    EXPECT_LE(differ, 2) << "level dependence at " << gainDb << " dB";
  }
}

TEST(SpeechClassifier, BlockSizeDoesNotChangeTheDecisions) {
  const std::vector<float> clip = testsignals::EspeakDialogue16k();
  SpeechClassifier whole;
  whole.Push(clip.data(), static_cast<int>(clip.size()));
  for (int block : {1, 7, 511, 512, 4096}) {
    SpeechClassifier c;
    for (std::size_t at = 0; at < clip.size(); at += static_cast<std::size_t>(block))
      c.Push(clip.data() + at,
             static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(block), clip.size() - at)));
    EXPECT_EQ(c.Decision(), whole.Decision()) << block;
    EXPECT_EQ(c.Probability(), whole.Probability()) << block;
  }
}

TEST(SpeechNet, StreamingMatchesTheWholeSequenceNetwork) {
  // The classifier runs the network one frame at a time from ring buffers;
  // the same network evaluated layer by layer over a whole sequence (as it
  // is trained) must give the same logits.
  using W = SpeechModelWeights;
  const W& w = kSpeechModelWeights;
  constexpr int kFrames = 90, kC = W::kChannels;
  std::mt19937 rng(11);
  std::normal_distribution<float> g(0.0f, 1.0f);
  std::vector<float> in(static_cast<std::size_t>(kFrames) * W::kInputs);
  for (std::size_t i = 0; i < in.size(); ++i)
    in[i] = w.mean[i % W::kInputs] + g(rng) / w.invStd[i % W::kInputs];
  std::vector<float> h(static_cast<std::size_t>(kFrames) * kC);
  for (int t = 0; t < kFrames; ++t)
    for (int o = 0; o < kC; ++o) {
      float a = w.inputBias[o];
      for (int i = 0; i < W::kInputs; ++i) {
        const float x = std::fmax(
            -8.0f,
            std::fmin(8.0f, (in[static_cast<std::size_t>(t * W::kInputs + i)] - w.mean[i]) * w.invStd[i]));
        a += w.input[i][o] * x;
      }
      h[static_cast<std::size_t>(t * kC + o)] = std::fmax(a, 0.0f);
    }
  for (int l = 0; l < W::kLayers; ++l) {
    std::vector<float> next = h;
    for (int t = 0; t < kFrames; ++t)
      for (int o = 0; o < kC; ++o) {
        float a = w.convBias[l][o];
        for (int k = 0; k < W::kTaps; ++k) {
          const int u = t - (W::kTaps - 1 - k) * W::kDilation[l];
          if (u < 0) continue;
          for (int i = 0; i < kC; ++i) a += w.conv[l][k][i][o] * h[static_cast<std::size_t>(u * kC + i)];
        }
        next[static_cast<std::size_t>(t * kC + o)] += std::fmax(a, 0.0f);
      }
    h = next;
  }
  std::vector<float> state(SpeechNet::kStateValues, 0.0f);
  for (int t = 0; t < kFrames; ++t) {
    float z = w.outputBias;
    for (int o = 0; o < kC; ++o) z += w.output[o] * h[static_cast<std::size_t>(t * kC + o)];
    const float streamed = SpeechNet::Frame(w, in.data() + t * W::kInputs, state.data(), t);
    EXPECT_NEAR(streamed, z, 1e-3f * (1.0f + std::fabs(z))) << t;
  }
  static_assert(SpeechClassifier::kStateValues <= 38064, "the classifier state stays within its budget");
}

TEST(SpeechClassifier, ForgetsNonFiniteInputOnce2048MillisecondsHavePassed) {
  // One classifier hears a clip with a NaN and an infinity in it, another the
  // clean clip; after both have heard the clip once more, the bad samples
  // have left every part of the state and the two agree exactly.
  const std::vector<float> clean = testsignals::EspeakDialogue16k();
  std::vector<float> bad = clean;
  bad[20000] = std::numeric_limits<float>::quiet_NaN();
  bad[20001] = std::numeric_limits<float>::infinity();
  SpeechClassifier a, b;
  a.Push(bad.data(), static_cast<int>(bad.size()));
  b.Push(clean.data(), static_cast<int>(clean.size()));
  EXPECT_TRUE(a.Decision() == 0 || a.Decision() == 1);
  a.Push(clean.data(), static_cast<int>(clean.size()));
  b.Push(clean.data(), static_cast<int>(clean.size()));
  EXPECT_EQ(a.Decision(), b.Decision());
  EXPECT_EQ(a.Probability(), b.Probability());
  EXPECT_TRUE(std::isfinite(a.Probability()));
}

TEST(SpeechClassifier, HostileInputGivesDefinedDecisions) {
  // Full-scale square waves, huge and denormal values, DC, clicks and a
  // burst of non-finite samples: every decision is 0 or 1 with a finite
  // probability, and none of them is taken for speech.
  const std::size_t n = 16000 * 5;
  std::mt19937 rng(9);
  std::uniform_int_distribution<int> pick(0, 5);
  const std::vector<std::function<float(std::size_t)>> makers = {
      [](std::size_t i) { return (i / 20) % 2 ? 1.0f : -1.0f; },
      [](std::size_t i) { return i % 3 ? 1e30f : -1e30f; },
      [](std::size_t i) { return i % 2 ? 1e-40f : -1e-40f; },
      [](std::size_t) { return 0.5f; },
      [](std::size_t i) { return i % 4000 == 0 ? 1.0f : 0.0f; },
      [&](std::size_t i) {
        if (i > 20000 && i < 30000) return std::numeric_limits<float>::quiet_NaN();
        return pick(rng) == 0 ? std::numeric_limits<float>::infinity()
                              : 0.1f * static_cast<float>(pick(rng) - 2);
      },
  };
  for (std::size_t m = 0; m < makers.size(); ++m) {
    std::vector<float> x(n);
    for (std::size_t i = 0; i < n; ++i) x[i] = makers[m](i);
    SpeechClassifier c;
    for (int d : Decisions(c, x)) EXPECT_EQ(d, 0) << "signal " << m;
    EXPECT_TRUE(std::isfinite(c.Probability())) << m;
  }
}

}  // namespace
}  // namespace velorum
