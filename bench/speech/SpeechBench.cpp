// Speech classifier benchmark.
//
// 1. Evaluation: the classifier runs over the held-out half of the corpus
//    (engine/speech/train/prepare-data.sh prepares it on first use; set
//    VELORUM_SPEECH_NO_PREPARE=1 to skip it) and a decision is read every 2 s
//    after the first 2.048 s. Printed: the share of 2-second windows
//    classified correctly for clean dialogue, music, effects and noise, and
//    dialogue with music 10 dB down.
// 2. Cost: the engine on stereo 48 kHz with dialogue gating and with it
//    switched off, measured in the same run (Google Benchmark table, then a
//    ratio from alternating rounds in CPU time).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "engine/DialogueGate.h"
#include "engine/LoudnessEngine.h"
#include "engine/speech/SpeechClassifier.h"
#include "engine/speech/train/SpeechCorpus.h"

namespace {

namespace sc = velorum::speechcorpus;

struct Score {
  long long correct = 0, total = 0;
  double Percent() const { return total ? 100.0 * static_cast<double>(correct) / static_cast<double>(total) : 0.0; }
};

void Score2s(const std::vector<float>& audio, int expected, Score& s) {
  const sc::Windows w = sc::Classify(audio, 32000, false);
  for (int d : w.decisions) {
    s.correct += (d == 1 ? 1 : 0) == expected;
    ++s.total;
  }
}

void Evaluate() {
  std::string cache = sc::DefaultCacheDir();
  if (sc::LoadManifest(cache).empty()) {
    const char* skip = std::getenv("VELORUM_SPEECH_NO_PREPARE");
    if (skip && *skip == '1') {
      std::printf("speech evaluation skipped: no corpus in %s\n", cache.c_str());
      return;
    }
    const std::string cmd = std::string(VELORUM_SOURCE_DIR) + "/engine/speech/train/prepare-data.sh '" + cache + "'";
    std::printf("preparing the corpus: %s\n", cmd.c_str());
    std::fflush(stdout);
    if (std::system(cmd.c_str()) != 0 || sc::LoadManifest(cache).empty()) {
      std::printf("speech evaluation skipped: corpus preparation failed\n");
      return;
    }
  }
  const std::vector<sc::Entry> manifest = sc::LoadManifest(cache);
  sc::Builder b(manifest, sc::Split::kEvaluation, 2u);
  const std::vector<sc::Stream> speech = b.Speech(60.0);
  const std::vector<sc::Stream> music = b.Music();
  const std::vector<sc::Stream> effects = b.Effects(60.0);
  Score sSpeech, sMusic, sEffects, sMixed;
  for (const auto& s : speech) Score2s(s.audio, 1, sSpeech);
  for (const auto& s : music) Score2s(s.audio, 0, sMusic);
  for (const auto& s : effects) Score2s(s.audio, 0, sEffects);
  if (!music.empty()) {
    for (std::size_t i = 0; i < speech.size(); ++i) {
      const auto& m = music[(i * 7 + 3) % music.size()].audio;
      Score2s(sc::Mix(speech[i].audio, m, 10.0), 1, sMixed);
    }
  }
  std::printf("speech classifier, held-out evaluation set (%zu dialogue, %zu music, %zu effects/noise streams),\n"
              "share of 2-second windows correctly classified:\n",
              speech.size(), music.size(), effects.size());
  std::printf("  clean speech             %6.2f %%  (%lld windows)\n", sSpeech.Percent(), sSpeech.total);
  std::printf("  music                    %6.2f %%  (%lld windows)\n", sMusic.Percent(), sMusic.total);
  std::printf("  effects / noise          %6.2f %%  (%lld windows)\n", sEffects.Percent(), sEffects.total);
  std::printf("  speech over music -10 dB %6.2f %%  (%lld windows)\n", sMixed.Percent(), sMixed.total);
  std::fflush(stdout);
}

// Ten seconds of stereo 48 kHz programme: a voice-like harmonic signal with
// syllable-rate bursts over noise, different in each channel.
struct Programme {
  std::vector<double> left, right;
  Programme() : left(480000), right(480000) {
    std::mt19937 rng(5);
    std::normal_distribution<double> g(0.0, 0.02);
    const double pi = 3.14159265358979323846;
    for (std::size_t i = 0; i < left.size(); ++i) {
      const double t = static_cast<double>(i) / 48000.0;
      const double env = 0.5 + 0.5 * std::sin(2.0 * pi * 4.0 * t);
      double v = 0.0;
      for (int h = 1; h <= 8; ++h) v += std::sin(2.0 * pi * 140.0 * h * t) / h;
      left[i] = 0.1 * env * v + g(rng);
      right[i] = 0.08 * env * v + g(rng);
    }
  }
};

const Programme& TheProgramme() {
  static const Programme p;
  return p;
}

void RunEngine(benchmark::State& state, bool dialogue) {
  const Programme& p = TheProgramme();
  velorum::LoudnessEngine engine;
  engine.SetChannelCount(2);
  engine.SetInputCount(2);
  engine.SetSampleRate(48000.0);
  engine.Reset();
  engine.Dialogue().SetEnabled(dialogue);
  const int block = 512;
  std::size_t pos = 0;
  for (auto _ : state) {
    if (pos + block > p.left.size()) pos = 0;
    const double* ch[2] = {p.left.data() + pos, p.right.data() + pos};
    engine.ProcessBlock(ch, block);
    pos += block;
  }
  state.SetItemsProcessed(state.iterations() * block);
  benchmark::DoNotOptimize(engine.Integrated());
}

void BM_EngineStereo48k_LevelGated(benchmark::State& state) { RunEngine(state, false); }
void BM_EngineStereo48k_DialogueGated(benchmark::State& state) { RunEngine(state, true); }
BENCHMARK(BM_EngineStereo48k_LevelGated)->MinTime(1.0);
BENCHMARK(BM_EngineStereo48k_DialogueGated)->MinTime(1.0);

// The ratio printed at the end: both engines are timed in turn, seven rounds of
// 100 s of audio each, in process CPU time; the fastest round of each counts
// (the one least disturbed by other work on the machine).
double CpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double NsPerSample(velorum::LoudnessEngine& engine, const Programme& p) {
  const int block = 512;
  const double t0 = CpuSeconds();
  long long samples = 0;
  for (int pass = 0; pass < 10; ++pass)
    for (std::size_t pos = 0; pos + block <= p.left.size(); pos += block) {
      const double* ch[2] = {p.left.data() + pos, p.right.data() + pos};
      engine.ProcessBlock(ch, block);
      samples += block;
    }
  return (CpuSeconds() - t0) * 1e9 / static_cast<double>(samples);
}

void PrintCostRatio() {
  const Programme& p = TheProgramme();
  velorum::LoudnessEngine level, dialogue;
  for (velorum::LoudnessEngine* e : {&level, &dialogue}) {
    e->SetChannelCount(2);
    e->SetInputCount(2);
    e->SetSampleRate(48000.0);
    e->Reset();
  }
  level.Dialogue().SetEnabled(false);
  double bestLevel = 1e30, bestDialogue = 1e30;
  for (int round = 0; round < 7; ++round) {
    bestLevel = std::min(bestLevel, NsPerSample(level, p));
    bestDialogue = std::min(bestDialogue, NsPerSample(dialogue, p));
  }
  std::printf("dialogue gating cost, stereo 48 kHz (CPU time, fastest of 7 rounds): %.2f ns/sample with dialogue "
              "gating vs %.2f ns/sample level-gated only: ratio %.3fx\n",
              bestDialogue, bestLevel, bestDialogue / bestLevel);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Evaluate();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintCostRatio();
  return 0;
}
