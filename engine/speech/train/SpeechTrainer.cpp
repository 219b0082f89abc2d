// Trains the speech classifier's perceptron and writes its weights as C++.
//
//   velorum_speech_train [--cache DIR] [--out FILE] [--reuse]
//
// Reads the corpus prepared by prepare-data.sh (run it first), builds the
// training streams (clean dialogue, dialogue over music 5 to 20 dB down,
// dialogue in noise, music, effects and noises), extracts the window features
// with the classifier's own feature code every 256 ms, trains a tanh /
// logistic perceptron with Adam on class-balanced cross-entropy, reports the
// accuracy on the training and the evaluation streams and writes
// engine/speech/SpeechModelWeights.cpp (or FILE).

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "engine/speech/SpeechClassifier.h"
#include "engine/speech/SpeechModel.h"
#include "engine/speech/train/SpeechCorpus.h"

namespace sc = velorum::speechcorpus;
using velorum::SpeechModelWeights;

namespace {

constexpr int kIn = SpeechModelWeights::kInputs;
constexpr int kHid = SpeechModelWeights::kHidden;

struct Sample {
  std::vector<float> x;
  float y;
  int set;  // index into the set names, for per-set accuracy
};

struct Dataset {
  std::vector<Sample> samples;
  std::vector<std::string> names;
  int AddSet(const std::string& name) {
    names.push_back(name);
    return static_cast<int>(names.size()) - 1;
  }
};

// Adds the windows of a stream every `hop` samples after the latency; windows
// the classifier gates as silence are left out, the model never sees them.
void AddStreamGated(Dataset& d, const std::vector<float>& audio, float label, int set, long long hop) {
  velorum::SpeechClassifier c;
  long long next = velorum::SpeechClassifier::kLatencySamples;
  float f[kIn];
  for (float v : audio) {
    c.Push(v);
    if (c.SamplesPushed() != next) continue;
    next += hop;
    if (!c.WindowFeatures(f) || !(c.WindowMeanSquare() >= velorum::SpeechClassifier::kSilence)) continue;
    d.samples.push_back({std::vector<float>(f, f + kIn), label, set});
  }
}

void BuildSets(Dataset& d, sc::Split split, long long hop) {
  const std::vector<sc::Entry> manifest = sc::LoadManifest(sc::DefaultCacheDir());
  sc::Builder b(manifest, split, split == sc::Split::kTrain ? 1u : 2u);
  std::vector<sc::Stream> speech = b.Speech(60.0);
  std::vector<sc::Stream> music = b.Music();
  std::vector<sc::Stream> effects = b.Effects(60.0);
  std::fprintf(stderr, "  %zu speech, %zu music, %zu effects/noise streams\n", speech.size(), music.size(),
               effects.size());
  // Clean speech per source, so that the report shows which kind fails.
  for (auto& s : speech) {
    const std::string source = "speech " + s.name.substr(0, s.name.find('-'));
    int set = -1;
    for (std::size_t k = 0; k < d.names.size(); ++k)
      if (d.names[k] == source) set = static_cast<int>(k);
    if (set < 0) set = d.AddSet(source);
    AddStreamGated(d, s.audio, 1.0f, set, hop);
  }
  // Music as one set for training, one set per track in the evaluation report.
  const int sMusic = split == sc::Split::kTrain ? d.AddSet("music") : -1;
  const int sEffects = d.AddSet("effects/noise");
  for (auto& s : music) AddStreamGated(d, s.audio, 0.0f, sMusic >= 0 ? sMusic : d.AddSet(s.name), hop);
  for (auto& s : effects) AddStreamGated(d, s.audio, 0.0f, sEffects, hop);
  if (music.empty() || effects.empty()) return;
  const double below[] = {10.0, 15.0, 20.0};
  for (double db : below) {
    const int set = d.AddSet("speech+music " + std::to_string(static_cast<int>(db)) + " dB down");
    for (std::size_t i = 0; i < speech.size(); ++i) {
      const auto& m = music[(i * 7 + static_cast<std::size_t>(db)) % music.size()].audio;
      // Start the music somewhere inside the track.
      const std::size_t off = (i * 48000 * 7) % std::max<std::size_t>(1, m.size() / 2);
      std::vector<float> part(m.begin() + static_cast<std::ptrdiff_t>(off), m.end());
      AddStreamGated(d, sc::Mix(speech[i].audio, part, db), 1.0f, set, hop);
    }
  }
  const int sNoise = d.AddSet("speech in noise/effects 10-20 dB down");
  for (std::size_t i = 0; i < speech.size(); ++i) {
    const auto& e = effects[(i * 5) % effects.size()].audio;
    AddStreamGated(d, sc::Mix(speech[i].audio, e, 10.0 + static_cast<double>(i % 3) * 5.0), 1.0f, sNoise, hop);
  }
}

// The extracted windows are kept in the corpus cache so that training runs
// that only change the model can skip the extraction (--reuse). The tag
// names everything that shapes the windows; change it with the features.
constexpr const char* kWindowsTag = "w35-hop512-mix10-15-20-v1";

bool SaveWindows(const Dataset& d, const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  const std::uint32_t sets = static_cast<std::uint32_t>(d.names.size());
  std::fwrite(&sets, sizeof sets, 1, f);
  for (const std::string& n : d.names) {
    const std::uint32_t len = static_cast<std::uint32_t>(n.size());
    std::fwrite(&len, sizeof len, 1, f);
    std::fwrite(n.data(), 1, len, f);
  }
  const std::uint64_t count = d.samples.size();
  std::fwrite(&count, sizeof count, 1, f);
  for (const Sample& smp : d.samples) {
    std::fwrite(smp.x.data(), sizeof(float), kIn, f);
    std::fwrite(&smp.y, sizeof smp.y, 1, f);
    std::fwrite(&smp.set, sizeof smp.set, 1, f);
  }
  return std::fclose(f) == 0;
}

bool LoadWindows(Dataset& d, const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  bool ok = true;
  std::uint32_t sets = 0;
  ok = ok && std::fread(&sets, sizeof sets, 1, f) == 1 && sets < 100000;
  for (std::uint32_t i = 0; ok && i < sets; ++i) {
    std::uint32_t len = 0;
    ok = std::fread(&len, sizeof len, 1, f) == 1 && len < 4096;
    std::string n(ok ? len : 0, ' ');
    ok = ok && std::fread(n.data(), 1, len, f) == len;
    d.names.push_back(n);
  }
  std::uint64_t count = 0;
  ok = ok && std::fread(&count, sizeof count, 1, f) == 1;
  for (std::uint64_t i = 0; ok && i < count; ++i) {
    Sample smp{std::vector<float>(kIn), 0.0f, 0};
    ok = std::fread(smp.x.data(), sizeof(float), kIn, f) == kIn && std::fread(&smp.y, sizeof smp.y, 1, f) == 1 &&
         std::fread(&smp.set, sizeof smp.set, 1, f) == 1 && smp.set >= 0 && smp.set < static_cast<int>(sets);
    if (ok) d.samples.push_back(std::move(smp));
  }
  std::fclose(f);
  return ok;
}

float Forward(const SpeechModelWeights& w, const float* xs, float* hidden) {
  float z = w.outputBias;
  for (int h = 0; h < kHid; ++h) {
    float a = w.hiddenBias[h];
    for (int i = 0; i < kIn; ++i) a += w.hidden[h][i] * xs[i];
    hidden[h] = std::tanh(a);
    z += w.output[h] * hidden[h];
  }
  return 1.0f / (1.0f + std::exp(-z));
}

void Standardise(const SpeechModelWeights& w, const float* x, float* xs) {
  for (int i = 0; i < kIn; ++i) {
    const float v = (x[i] - w.mean[i]) * w.invStd[i];
    xs[i] = std::isfinite(v) ? std::fmax(-8.0f, std::fmin(8.0f, v)) : 0.0f;
  }
}

void Train(SpeechModelWeights& w, const Dataset& d) {
  const std::size_t n = d.samples.size();
  // Standardisation from the training data.
  for (int i = 0; i < kIn; ++i) {
    double s = 0.0, q = 0.0;
    for (const Sample& smp : d.samples) {
      const double v = smp.x[static_cast<std::size_t>(i)];
      s += v;
      q += v * v;
    }
    const double m = s / static_cast<double>(n);
    const double sd = std::sqrt(std::max(1e-12, q / static_cast<double>(n) - m * m));
    w.mean[i] = static_cast<float>(m);
    w.invStd[i] = static_cast<float>(1.0 / sd);
  }
  std::vector<float> xs(n * kIn);
  for (std::size_t k = 0; k < n; ++k) Standardise(w, d.samples[k].x.data(), &xs[k * kIn]);
  // Class balance: each class contributes half of the loss; within the
  // positive class every set contributes equally, and so within the negative.
  std::vector<double> setCount(d.names.size(), 0.0);
  std::vector<float> setLabel(d.names.size(), 0.0f);
  for (const Sample& s : d.samples) {
    setCount[static_cast<std::size_t>(s.set)] += 1.0;
    setLabel[static_cast<std::size_t>(s.set)] = s.y;
  }
  // Within the negative class music counts three times as much as the small
  // effects and noise set.
  std::vector<double> setShare(d.names.size(), 0.0);
  double posTotal = 0.0, negTotal = 0.0;
  for (std::size_t s = 0; s < setCount.size(); ++s) {
    if (setCount[s] <= 0) continue;
    setShare[s] = setLabel[s] > 0.5f ? 1.0 : (d.names[s] == "music" ? 3.0 : 1.0);
    (setLabel[s] > 0.5f ? posTotal : negTotal) += setShare[s];
  }
  std::vector<float> weight(n);
  for (std::size_t k = 0; k < n; ++k) {
    const auto set = static_cast<std::size_t>(d.samples[k].set);
    const double classTotal = d.samples[k].y > 0.5f ? posTotal : negTotal;
    weight[k] = static_cast<float>(static_cast<double>(n) * setShare[set] / (2.0 * classTotal * setCount[set]));
  }

  std::mt19937 rng(12345);
  std::normal_distribution<float> init(0.0f, 1.0f);
  for (int h = 0; h < kHid; ++h) {
    for (int i = 0; i < kIn; ++i) w.hidden[h][i] = init(rng) / std::sqrt(static_cast<float>(kIn));
    w.hiddenBias[h] = 0.0f;
    w.output[h] = init(rng) / std::sqrt(static_cast<float>(kHid));
  }
  w.outputBias = 0.0f;

  constexpr int kParams = kHid * kIn + kHid + kHid + 1;
  std::vector<float> grad(kParams), m1(kParams, 0.0f), m2(kParams, 0.0f);
  auto param = [&](int p) -> float& {
    if (p < kHid * kIn) return w.hidden[p / kIn][p % kIn];
    p -= kHid * kIn;
    if (p < kHid) return w.hiddenBias[p];
    p -= kHid;
    if (p < kHid) return w.output[p];
    return w.outputBias;
  };
  std::vector<std::size_t> order(n);
  for (std::size_t k = 0; k < n; ++k) order[k] = k;
  const int epochs = 80;
  const std::size_t batch = 128;
  const float l2 = 3e-4f;
  long long step = 0;
  float hidden[kHid];
  for (int epoch = 0; epoch < epochs; ++epoch) {
    std::shuffle(order.begin(), order.end(), rng);
    const float lr = 3e-3f * (epoch < epochs / 2 ? 1.0f : (epoch < epochs * 3 / 4 ? 0.3f : 0.1f));
    double loss = 0.0;
    for (std::size_t b0 = 0; b0 < n; b0 += batch) {
      std::fill(grad.begin(), grad.end(), 0.0f);
      const std::size_t b1 = std::min(n, b0 + batch);
      for (std::size_t bi = b0; bi < b1; ++bi) {
        const std::size_t k = order[bi];
        const float* x = &xs[k * kIn];
        const float p = Forward(w, x, hidden);
        const float y = d.samples[k].y;
        const float wt = weight[k];
        loss -= static_cast<double>(wt * (y * std::log(std::max(p, 1e-7f)) + (1 - y) * std::log(std::max(1 - p, 1e-7f))));
        const float dz = wt * (p - y);
        for (int h = 0; h < kHid; ++h) {
          grad[static_cast<std::size_t>(kHid * kIn + kHid + h)] += dz * hidden[h];
          const float da = dz * w.output[h] * (1.0f - hidden[h] * hidden[h]);
          for (int i = 0; i < kIn; ++i) grad[static_cast<std::size_t>(h * kIn + i)] += da * x[i];
          grad[static_cast<std::size_t>(kHid * kIn + h)] += da;
        }
        grad[kParams - 1] += dz;
      }
      ++step;
      const float scale = 1.0f / static_cast<float>(b1 - b0);
      const float c1 = 1.0f - std::pow(0.9f, static_cast<float>(step));
      const float c2 = 1.0f - std::pow(0.999f, static_cast<float>(step));
      for (int p = 0; p < kParams; ++p) {
        float& v = param(p);
        const float g = grad[static_cast<std::size_t>(p)] * scale + l2 * v;
        m1[static_cast<std::size_t>(p)] = 0.9f * m1[static_cast<std::size_t>(p)] + 0.1f * g;
        m2[static_cast<std::size_t>(p)] = 0.999f * m2[static_cast<std::size_t>(p)] + 0.001f * g * g;
        v -= lr * (m1[static_cast<std::size_t>(p)] / c1) / (std::sqrt(m2[static_cast<std::size_t>(p)] / c2) + 1e-8f);
      }
    }
    if (epoch % 10 == 9 || epoch == epochs - 1)
      std::fprintf(stderr, "  epoch %d  loss %.4f\n", epoch + 1, loss / static_cast<double>(n));
  }
}

void Report(const char* title, const SpeechModelWeights& w, const Dataset& d) {
  std::vector<int> ok(d.names.size(), 0), all(d.names.size(), 0);
  float xs[kIn];
  for (const Sample& s : d.samples) {
    Standardise(w, s.x.data(), xs);
    float hidden[kHid];
    const bool speech = Forward(w, xs, hidden) >= w.threshold;
    ok[static_cast<std::size_t>(s.set)] += speech == (s.y > 0.5f);
    all[static_cast<std::size_t>(s.set)] += 1;
  }
  std::printf("%s\n", title);
  for (std::size_t i = 0; i < d.names.size(); ++i)
    std::printf("  %-42s %6d windows  %6.2f %% correct\n", d.names[i].c_str(), all[i],
                all[i] ? 100.0 * ok[i] / all[i] : 0.0);
}

void Write(const SpeechModelWeights& w, const std::string& path, std::size_t samples) {
  FILE* f = std::fopen(path.c_str(), "w");
  if (!f) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    return;
  }
  auto row = [&](const float* v, int count) {
    std::fprintf(f, "{");
    for (int i = 0; i < count; ++i) std::fprintf(f, "%s%.9gf", i ? ", " : "", static_cast<double>(v[i]));
    std::fprintf(f, "}");
  };
  std::fprintf(f,
               "// Generated by engine/speech/train (velorum_speech_train) from %zu training\n"
               "// windows of the Debian-packaged speech, music and effects corpus. Do not edit.\n\n"
               "#include \"engine/speech/SpeechModel.h\"\n\nnamespace velorum {\n\n"
               "const SpeechModelWeights kSpeechModelWeights = {\n  ",
               samples);
  row(w.mean, kIn);
  std::fprintf(f, ",\n  ");
  row(w.invStd, kIn);
  std::fprintf(f, ",\n  {");
  for (int h = 0; h < kHid; ++h) {
    std::fprintf(f, "%s\n   ", h ? "," : "");
    row(w.hidden[h], kIn);
  }
  std::fprintf(f, "},\n  ");
  row(w.hiddenBias, kHid);
  std::fprintf(f, ",\n  ");
  row(w.output, kHid);
  std::fprintf(f, ",\n  %.9gf,\n  %.9gf};\n\n}  // namespace velorum\n", static_cast<double>(w.outputBias),
               static_cast<double>(w.threshold));
  std::fclose(f);
}

}  // namespace

int main(int argc, char** argv) {
  std::string out = std::string(VELORUM_SOURCE_DIR) + "/engine/speech/SpeechModelWeights.cpp";
  bool reuse = false;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--reuse")) reuse = true;
    else if (i + 1 < argc && !std::strcmp(argv[i], "--out")) out = argv[++i];
    else if (i + 1 < argc && !std::strcmp(argv[i], "--cache")) setenv("VELORUM_SPEECH_DATA", argv[++i], 1);
  }
  if (sc::LoadManifest(sc::DefaultCacheDir()).empty()) {
    std::fprintf(stderr, "no corpus in %s: run engine/speech/train/prepare-data.sh first\n",
                 sc::DefaultCacheDir().c_str());
    return 1;
  }
  const std::string trainCache = sc::DefaultCacheDir() + "/windows-train-" + kWindowsTag + ".bin";
  const std::string evalCache = sc::DefaultCacheDir() + "/windows-eval-" + kWindowsTag + ".bin";
  Dataset train, eval;
  if (!(reuse && LoadWindows(train, trainCache) && LoadWindows(eval, evalCache))) {
    train = Dataset{};
    eval = Dataset{};
    std::fprintf(stderr, "building training windows\n");
    BuildSets(train, sc::Split::kTrain, 4096);
    std::fprintf(stderr, "  %zu windows\nbuilding evaluation windows\n", train.samples.size());
    BuildSets(eval, sc::Split::kEvaluation, 32000);
    std::fprintf(stderr, "  %zu windows\n", eval.samples.size());
    SaveWindows(train, trainCache);
    SaveWindows(eval, evalCache);
  }
  std::fprintf(stderr, "training on %zu windows\n", train.samples.size());
  SpeechModelWeights w{};
  w.threshold = 0.5f;
  Train(w, train);
  Report("training windows (every 256 ms)", w, train);
  Report("evaluation windows (every 2 s)", w, eval);
  std::fflush(stdout);
  Write(w, out, train.samples.size());
  std::fprintf(stderr, "wrote %s\n", out.c_str());
  return 0;
}
