#include "engine/speech/train/SpeechCorpus.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

#include "engine/speech/SpeechClassifier.h"

namespace velorum::speechcorpus {

namespace {

constexpr double kRate = 16000.0;

std::uint32_t Fnv1a(const std::string& s) {
  std::uint32_t h = 2166136261u;
  for (unsigned char c : s) {
    h ^= c;
    h *= 16777619u;
  }
  return h;
}

inline double Sq(float v) {
  const double d = v;
  return d * d;
}

double Rms(const std::vector<float>& x) {
  double s = 0.0;
  for (float v : x) s += Sq(v);
  return x.empty() ? 0.0 : std::sqrt(s / static_cast<double>(x.size()));
}

// RMS over the 32 ms blocks that are within 30 dB of the loudest one, so that
// pauses do not lower the level of a dialogue stream.
double ActiveRms(const std::vector<float>& x) {
  const std::size_t block = 512;
  std::vector<double> ms;
  for (std::size_t i = 0; i + block <= x.size(); i += block) {
    double s = 0.0;
    for (std::size_t j = 0; j < block; ++j) s += Sq(x[i + j]);
    ms.push_back(s / block);
  }
  if (ms.empty()) return Rms(x);
  const double top = *std::max_element(ms.begin(), ms.end());
  double s = 0.0;
  int n = 0;
  for (double v : ms)
    if (v >= top * 1e-3) {
      s += v;
      ++n;
    }
  return n > 0 ? std::sqrt(s / n) : 0.0;
}

// Drops leading and trailing 10 ms blocks more than 40 dB below the peak block.
std::vector<float> Trim(const std::vector<float>& x) {
  const std::size_t block = 160;
  if (x.size() < block) return x;
  std::vector<double> ms;
  for (std::size_t i = 0; i + block <= x.size(); i += block) {
    double s = 0.0;
    for (std::size_t j = 0; j < block; ++j) s += Sq(x[i + j]);
    ms.push_back(s / block);
  }
  const double top = *std::max_element(ms.begin(), ms.end());
  std::size_t first = 0, last = ms.size();
  while (first < last && ms[first] < top * 1e-4) ++first;
  while (last > first && ms[last - 1] < top * 1e-4) --last;
  return std::vector<float>(x.begin() + static_cast<std::ptrdiff_t>(first * block),
                            x.begin() + static_cast<std::ptrdiff_t>(std::min(x.size(), last * block)));
}

void Scale(std::vector<float>& x, double gain) {
  for (float& v : x) v = static_cast<float>(static_cast<double>(v) * gain);
}

// Joins clips with random pauses into streams of about `seconds`.
std::vector<Stream> Join(const std::string& name, std::vector<std::vector<float>>& clips, double seconds,
                         double gapMin, double gapMax, std::mt19937& rng) {
  std::vector<Stream> out;
  std::uniform_real_distribution<double> gap(gapMin, gapMax);
  Stream cur;
  int index = 0;
  for (auto& c : clips) {
    if (cur.audio.empty()) cur.name = name + "#" + std::to_string(index++);
    cur.audio.insert(cur.audio.end(), c.begin(), c.end());
    cur.audio.insert(cur.audio.end(), static_cast<std::size_t>(gap(rng) * kRate), 0.0f);
    if (static_cast<double>(cur.audio.size()) >= seconds * kRate) {
      out.push_back(std::move(cur));
      cur = Stream{};
    }
  }
  // A remainder shorter than the decision window plus a few seconds is dropped.
  if (static_cast<double>(cur.audio.size()) >= 6.0 * kRate) out.push_back(std::move(cur));
  return out;
}

}  // namespace

std::string DefaultCacheDir() {
  if (const char* d = std::getenv("VELORUM_SPEECH_DATA"); d && *d) return d;
  const char* home = std::getenv("HOME");
  return std::string(home ? home : ".") + "/.cache/velorum/speech-data";
}

std::vector<Entry> LoadManifest(const std::string& cacheDir) {
  std::vector<Entry> out;
  std::ifstream in(cacheDir + "/manifest.txt");
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream ls(line);
    std::string kind, group, path;
    if (!(ls >> kind >> group) || !std::getline(ls >> std::ws, path)) continue;
    Entry e{Kind::kSpeech, group, path};
    if (kind == "music") e.kind = Kind::kMusic;
    else if (kind == "effects") e.kind = Kind::kEffects;
    else if (kind != "speech") continue;
    out.push_back(std::move(e));
  }
  return out;
}

Split SplitOf(const Entry& e) {
  if (e.group.rfind("fillets-nl-", 0) == 0) return Split::kEvaluation;
  if (e.group.rfind("fillets-cs-", 0) == 0) return Split::kTrain;
  return Fnv1a(e.group) % 100 < 30 ? Split::kEvaluation : Split::kTrain;
}

std::vector<float> ReadPcm(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<float> out(bytes.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) {
    const auto lo = static_cast<unsigned char>(bytes[2 * i]);
    const auto hi = static_cast<unsigned char>(bytes[2 * i + 1]);
    out[i] = static_cast<float>(static_cast<std::int16_t>(lo | (hi << 8))) / 32768.0f;
  }
  return out;
}

Builder::Builder(const std::vector<Entry>& manifest, Split split, std::uint32_t seed) : seed_(seed) {
  for (const Entry& e : manifest) {
    if (SplitOf(e) != split) continue;
    if (e.kind == Kind::kSpeech) speech_.push_back(e);
    else if (e.kind == Kind::kMusic) music_.push_back(e);
    else effects_.push_back(e);
  }
}

std::vector<Stream> Builder::Speech(double seconds) {
  std::mt19937 rng(seed_ ^ 0x5eec4u);
  std::uniform_real_distribution<double> level(-3.0, 3.0);
  // Groups in a fixed order, lines shuffled within a group.
  std::vector<std::string> groups;
  for (const Entry& e : speech_)
    if (std::find(groups.begin(), groups.end(), e.group) == groups.end()) groups.push_back(e.group);
  std::sort(groups.begin(), groups.end());
  std::vector<Stream> out;
  for (const std::string& g : groups) {
    std::vector<std::vector<float>> clips;
    for (const Entry& e : speech_) {
      if (e.group != g) continue;
      std::vector<float> c = Trim(ReadPcm(e.path));
      const double rms = ActiveRms(c);
      if (c.size() < 1600 || rms < 1e-4) continue;
      Scale(c, std::pow(10.0, (-23.0 + level(rng)) / 20.0) / rms);
      clips.push_back(std::move(c));
    }
    std::shuffle(clips.begin(), clips.end(), rng);
    for (Stream& s : Join(g, clips, seconds, 0.1, 0.6, rng)) out.push_back(std::move(s));
  }
  return out;
}

std::vector<Stream> Builder::Music() {
  std::mt19937 rng(seed_ ^ 0x3051cu);
  std::uniform_real_distribution<double> level(-6.0, 6.0);
  std::vector<Stream> out;
  for (const Entry& e : music_) {
    std::vector<float> x = ReadPcm(e.path);
    const double rms = ActiveRms(x);
    if (x.size() < 6 * 16000 || rms < 1e-4) continue;
    Scale(x, std::pow(10.0, (-23.0 + level(rng)) / 20.0) / rms);
    out.push_back({e.group, std::move(x)});
  }
  return out;
}

std::vector<Stream> Builder::Effects(double seconds) {
  std::mt19937 rng(seed_ ^ 0xeffu);
  std::uniform_real_distribution<double> level(-8.0, 8.0);
  std::vector<std::vector<float>> clips;
  for (const Entry& e : effects_) {
    std::vector<float> c = Trim(ReadPcm(e.path));
    const double rms = ActiveRms(c);
    if (c.size() < 800 || rms < 1e-4) continue;
    Scale(c, std::pow(10.0, (-23.0 + level(rng)) / 20.0) / rms);
    // Long ambiences are cut into pieces so that no single file dominates.
    for (std::size_t at = 0; at < c.size(); at += 10 * 16000)
      clips.emplace_back(c.begin() + static_cast<std::ptrdiff_t>(at),
                         c.begin() + static_cast<std::ptrdiff_t>(std::min(c.size(), at + 10 * 16000)));
  }
  std::shuffle(clips.begin(), clips.end(), rng);
  std::vector<Stream> out = Join("effects", clips, seconds, 0.0, 1.0, rng);
  // Noises: white, pink (Voss-McCartney style sum of held random values) and
  // brown (integrated white), each 60 s at -23 dBFS.
  std::normal_distribution<float> white(0.0f, 1.0f);
  const std::size_t n = static_cast<std::size_t>(60 * kRate);
  Stream w{"noise-white", std::vector<float>(n)}, p{"noise-pink", std::vector<float>(n)},
      b{"noise-brown", std::vector<float>(n)};
  float rows[12] = {};
  float brown = 0.0f;
  for (std::size_t i = 0; i < n; ++i) {
    w.audio[i] = white(rng);
    float sum = 0.0f;
    for (int r = 0; r < 12; ++r) {
      if ((i & ((std::size_t{1} << r) - 1)) == 0) rows[r] = white(rng);
      sum += rows[r];
    }
    p.audio[i] = sum;
    brown = 0.995f * brown + white(rng);
    b.audio[i] = brown;
  }
  for (Stream* s : {&w, &p, &b}) {
    Scale(s->audio, std::pow(10.0, -23.0 / 20.0) / Rms(s->audio));
    out.push_back(std::move(*s));
  }
  return out;
}

std::vector<float> Mix(const std::vector<float>& speech, const std::vector<float>& other, double dbBelow) {
  std::vector<float> out(speech);
  if (other.empty()) return out;
  const double gain = ActiveRms(speech) / std::max(1e-9, ActiveRms(other)) * std::pow(10.0, -dbBelow / 20.0);
  for (std::size_t i = 0; i < out.size(); ++i) out[i] += static_cast<float>(static_cast<double>(other[i % other.size()]) * gain);
  return out;
}

Windows Classify(const std::vector<float>& audio, long long hopSamples, bool wantFeatures) {
  Windows w;
  SpeechClassifier c;
  long long next = SpeechClassifier::kLatencySamples;
  float f[SpeechFeatureLayout::kWindowFeatures];
  for (std::size_t i = 0; i < audio.size(); ++i) {
    c.Push(audio[i]);
    if (c.SamplesPushed() == next) {
      next += hopSamples;
      w.decisions.push_back(c.Decision());
      if (wantFeatures && c.WindowFeatures(f)) {
        w.features.emplace_back(f, f + SpeechFeatureLayout::kWindowFeatures);
      }
    }
  }
  return w;
}

}  // namespace velorum::speechcorpus
