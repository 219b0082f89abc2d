// Speech classifier benchmark.
//
// 1. Evaluation on the held-out streams that engine/speech/train/make-mixtures.py
//    leaves in the cache (<cache>/eval.txt; train.sh makes them). Per
//    material: the share of decisions right, read every 2 s after the first
//    2.048 s, and for non-speech the worst single stream; for streams with a
//    speech stem, the engine's dialogue-gated integrated loudness against the
//    ideal gate (the mix measured over the 100 ms blocks after the first
//    2.048 s where the stem is active: its momentary loudness above -70 LUFS,
//    the dialogue reading's own absolute gate).
//    Printed as a Markdown table.
// 2. Cost: the engine with dialogue gating against the engine with it
//    switched off, stereo and 5.1 at 48 kHz, measured in the same run (Google
//    Benchmark table, then a ratio from alternating rounds in CPU time).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "engine/ChannelLayouts.h"
#include "engine/DialogueGate.h"
#include "engine/EngineMutex.h"
#include "engine/LoudnessEngine.h"
#include "engine/speech/SpeechClassifier.h"
#include "engine/speech/train/SpeechCorpus.h"

namespace {

namespace sc = velorum::speechcorpus;

struct Material {
  int label = 0;
  int streams = 0;
  long long right = 0, windows = 0;
  double worst = 0.0;             // highest share of speech decisions in one non-speech stream
  std::vector<double> gateError;  // dialogue-gated minus ideal, LU
  std::vector<double> speechContent;
};

// Share of speech decisions, read every 2 s after the latency.
double SpeechShare(const std::vector<float>& audio, long long& windows) {
  velorum::SpeechClassifier c;
  long long next = velorum::SpeechClassifier::kLatencySamples, speech = 0;
  windows = 0;
  for (std::size_t at = 0; at < audio.size();) {
    const auto run = static_cast<int>(
        std::min<long long>(next - c.SamplesPushed(), static_cast<long long>(audio.size() - at)));
    c.Push(audio.data() + at, run);
    at += static_cast<std::size_t>(run);
    if (c.SamplesPushed() == next) {
      speech += c.Decision() == 1;
      ++windows;
      next += 32000;
    }
  }
  return windows ? static_cast<double>(speech) / static_cast<double>(windows) : 0.0;
}

struct EngineRun {
  std::vector<float> momentaryPower;  // per 100 ms block
  double integrated = -120.0, dialogue = -120.0, speechContent = 0.0;
};

EngineRun Measure(const std::vector<float>& audio) {
  velorum::LoudnessEngine e;
  e.SetChannelCount(1);
  e.SetInputCount(1);
  e.SetSampleRate(16000.0);
  e.Reset();
  std::vector<double> x(audio.begin(), audio.end());
  const int block = 1024;
  for (std::size_t at = 0; at < x.size(); at += block) {
    const double* ch[1] = {x.data() + at};
    e.ProcessBlock(ch, static_cast<int>(std::min<std::size_t>(block, x.size() - at)));
  }
  EngineRun r;
  {
    velorum::EngineLock lock(e.Mutex());
    r.momentaryPower = e.History().momentaryPower;
  }
  r.integrated = e.Integrated();
  r.dialogue = e.IntegratedDialogue();
  r.speechContent = e.SpeechContent();
  return r;
}

// The mix over the blocks where the speech stem is active, after the latency.
double IdealGate(const EngineRun& mix, const EngineRun& stem) {
  const double active = velorum::DialogueGate::kGate;
  const std::size_t first = 21;  // 2.048 s in 100 ms blocks, rounded up
  double sum = 0.0;
  long long n = 0;
  for (std::size_t i = first; i < std::min(mix.momentaryPower.size(), stem.momentaryPower.size()); ++i)
    if (static_cast<double>(stem.momentaryPower[i]) > active) {
      sum += static_cast<double>(mix.momentaryPower[i]);
      ++n;
    }
  return n > 0 && sum > 0.0 ? 10.0 * std::log10(sum / static_cast<double>(n)) : -120.0;
}

void Evaluate() {
  const std::string cache = sc::DefaultCacheDir();
  const std::vector<sc::Stream> streams = sc::LoadStreams(cache, "eval");
  if (streams.empty()) {
    std::printf("speech evaluation skipped: no %s/eval.txt (engine/speech/train/train.sh makes it)\n",
                cache.c_str());
    return;
  }
  std::map<std::string, Material> materials;
  for (const sc::Stream& s : streams) {
    const std::vector<float> audio = sc::ReadF32(s.mix);
    Material& m = materials[s.category];
    m.label = s.label;
    ++m.streams;
    long long windows = 0;
    const double share = SpeechShare(audio, windows);
    m.windows += windows;
    m.right += std::llround((s.label ? share : 1.0 - share) * static_cast<double>(windows));
    if (!s.label) m.worst = std::max(m.worst, share);
    if (!s.stem.empty()) {
      const EngineRun mix = Measure(audio), stem = Measure(sc::ReadF32(s.stem));
      const double ideal = IdealGate(mix, stem);
      if (mix.dialogue > -120.0 && ideal > -120.0)
        m.gateError.push_back(mix.dialogue - ideal);
      else
        m.gateError.push_back(NAN);  // no dialogue found at all
      m.speechContent.push_back(mix.speechContent);
    }
  }
  std::printf("\nSpeech classifier on the held-out streams (%zu streams)\n\n", streams.size());
  std::printf(
      "| material | streams | windows | right | worst stream | DIAL - ideal gate, mean / worst | no dialogue "
      "|\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  for (const auto& [name, m] : materials) {
    std::printf("| %s | %d | %lld | %.1f %% |", name.c_str(), m.streams, m.windows,
                m.windows ? 100.0 * static_cast<double>(m.right) / static_cast<double>(m.windows) : 0.0);
    if (m.label)
      std::printf(" |");
    else
      std::printf(" %.1f %% speech |", 100.0 * m.worst);
    if (m.gateError.empty()) {
      std::printf(" | |\n");
      continue;
    }
    double sum = 0.0, worst = 0.0;
    int found = 0;
    for (double v : m.gateError)
      if (std::isfinite(v)) {
        sum += v;
        worst = std::fabs(v) > std::fabs(worst) ? v : worst;
        ++found;
      }
    std::printf(" %+.2f / %+.2f LU | %zu of %zu |\n", found ? sum / found : 0.0, worst,
                m.gateError.size() - static_cast<std::size_t>(found), m.gateError.size());
  }
  std::fflush(stdout);
}

// Ten seconds of 48 kHz programme: a voice-like harmonic signal with
// syllable-rate bursts over noise, different in each channel.
struct Programme {
  std::vector<std::vector<double>> channels;
  Programme() : channels(6, std::vector<double>(480000)) {
    std::mt19937 rng(5);
    std::normal_distribution<double> g(0.0, 0.02);
    const double pi = 3.14159265358979323846;
    for (std::size_t i = 0; i < channels[0].size(); ++i) {
      const double t = static_cast<double>(i) / 48000.0;
      const double env = 0.5 + 0.5 * std::sin(2.0 * pi * 4.0 * t);
      double v = 0.0;
      for (int h = 1; h <= 8; ++h) v += std::sin(2.0 * pi * 140.0 * h * t) / h;
      for (std::size_t c = 0; c < channels.size(); ++c)
        channels[c][i] = (0.1 - 0.01 * static_cast<double>(c)) * env * v + g(rng);
    }
  }
};

const Programme& TheProgramme() {
  static const Programme p;
  return p;
}

void Configure(velorum::LoudnessEngine& e, int channels, bool dialogue) {
  e.SetChannelCount(channels);
  e.SetInputCount(channels);
  if (channels == 6) e.SetLayout(velorum::LayoutByName("5.1 (L R C LFE Ls Rs)"));
  e.SetSampleRate(48000.0);
  e.Reset();
  e.Dialogue().SetEnabled(dialogue);
}

void Feed(velorum::LoudnessEngine& e, int channels, std::size_t pos, int block) {
  const Programme& p = TheProgramme();
  const double* ch[6];
  for (int c = 0; c < channels; ++c) ch[c] = p.channels[static_cast<std::size_t>(c)].data() + pos;
  e.ProcessBlock(ch, block);
}

void RunEngine(benchmark::State& state, int channels, bool dialogue) {
  velorum::LoudnessEngine engine;
  Configure(engine, channels, dialogue);
  const int block = 512;
  std::size_t pos = 0;
  for (auto _ : state) {
    if (pos + block > TheProgramme().channels[0].size()) pos = 0;
    Feed(engine, channels, pos, block);
    pos += block;
  }
  state.SetItemsProcessed(state.iterations() * block);
  benchmark::DoNotOptimize(engine.Integrated());
}

void BM_EngineStereo48k_LevelGated(benchmark::State& state) {
  RunEngine(state, 2, false);
}
void BM_EngineStereo48k_DialogueGated(benchmark::State& state) {
  RunEngine(state, 2, true);
}
void BM_Engine51_48k_LevelGated(benchmark::State& state) {
  RunEngine(state, 6, false);
}
void BM_Engine51_48k_DialogueGated(benchmark::State& state) {
  RunEngine(state, 6, true);
}
BENCHMARK(BM_EngineStereo48k_LevelGated)->MinTime(1.0);
BENCHMARK(BM_EngineStereo48k_DialogueGated)->MinTime(1.0);
BENCHMARK(BM_Engine51_48k_LevelGated)->MinTime(1.0);
BENCHMARK(BM_Engine51_48k_DialogueGated)->MinTime(1.0);

// The ratio printed at the end: both engines are timed in turn, seven rounds of
// 100 s of audio each, in process CPU time; the fastest round of each counts
// (the one least disturbed by other work on the machine).
double CpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double NsPerSample(velorum::LoudnessEngine& engine, int channels) {
  const int block = 512;
  const double t0 = CpuSeconds();
  long long samples = 0;
  for (int pass = 0; pass < 10; ++pass)
    for (std::size_t pos = 0; pos + block <= TheProgramme().channels[0].size(); pos += block) {
      Feed(engine, channels, pos, block);
      samples += block;
    }
  return (CpuSeconds() - t0) * 1e9 / static_cast<double>(samples);
}

void PrintCostRatio(int channels, const char* name) {
  velorum::LoudnessEngine level, dialogue;
  Configure(level, channels, false);
  Configure(dialogue, channels, true);
  double bestLevel = 1e30, bestDialogue = 1e30;
  for (int round = 0; round < 7; ++round) {
    bestLevel = std::min(bestLevel, NsPerSample(level, channels));
    bestDialogue = std::min(bestDialogue, NsPerSample(dialogue, channels));
  }
  std::printf(
      "dialogue gating cost, %s 48 kHz (CPU time, fastest of 7 rounds): %.2f ns/frame with dialogue "
      "gating vs %.2f ns/frame level-gated only: ratio %.3fx\n",
      name, bestDialogue, bestLevel, bestDialogue / bestLevel);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Evaluate();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintCostRatio(2, "stereo");
  PrintCostRatio(6, "5.1");
  return 0;
}
