// Throughput of the loudness engine beside libebur128 on the same buffers:
// 48 kHz programme-like noise, 2, 6 and 24 channels, integrated, loudness
// range, momentary, short-term and true peak in both engines. Prints times
// real time for each and the ratio, in default and eco true-peak modes (the
// dialogue-gated measurement off, as libebur128 has none; one row with it on).
#include <benchmark/benchmark.h>
#include <ebur128.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

#include "engine/LoudnessEngine.h"

namespace {

constexpr double kRate = 48000.0;
constexpr int kSeconds = 10;
constexpr int kBlock = 1024;
constexpr int kRounds = 5;

struct Buffers {
  int channels = 0;
  int frames = 0;
  std::vector<std::vector<double>> planar;
  std::vector<double> interleaved;
};

Buffers Make(int channels) {
  Buffers b;
  b.channels = channels;
  b.frames = static_cast<int>(kRate) * kSeconds;
  b.planar.assign(static_cast<std::size_t>(channels),
                  std::vector<double>(static_cast<std::size_t>(b.frames)));
  b.interleaved.resize(static_cast<std::size_t>(channels) * static_cast<std::size_t>(b.frames));
  unsigned long long state = 88172645463325252ull;
  for (int i = 0; i < b.frames; ++i) {
    const double t = i / kRate;
    const double env = 0.1 + 0.08 * std::sin(2.0 * std::numbers::pi * 0.3 * t);
    for (int c = 0; c < channels; ++c) {
      state ^= state << 13;
      state ^= state >> 7;
      state ^= state << 17;
      const double noise = static_cast<double>(state >> 11) / 9007199254740992.0 * 2.0 - 1.0;
      const double v = env * (noise + 0.5 * std::sin(2.0 * std::numbers::pi * (200.0 + 50.0 * c) * t));
      b.planar[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)] = v;
      b.interleaved[static_cast<std::size_t>(i) * static_cast<std::size_t>(channels) +
                    static_cast<std::size_t>(c)] = v;
    }
  }
  return b;
}

template <class F>
double BestSeconds(F&& run) {
  double best = 1e30;
  for (int r = 0; r < kRounds; ++r) {
    const auto t0 = std::chrono::steady_clock::now();
    run();
    const auto t1 = std::chrono::steady_clock::now();
    best = std::min(best, std::chrono::duration<double>(t1 - t0).count());
  }
  return best;
}

velorum::CodePath gPath = velorum::BestCodePath();

double Velorum(const Buffers& b, bool eco, double& integrated, bool perSample = false,
               bool dialogue = false) {
  velorum::LoudnessEngine e;
  e.SetCodePath(gPath);
  e.SetDialogueEnabled(dialogue);
  e.SetChannelCount(b.channels);
  e.SetEcoMode(eco);
  e.SetSampleRate(kRate);
  std::vector<const double*> p;
  for (const auto& c : b.planar) p.push_back(c.data());
  return BestSeconds([&] {
    e.Reset();
    if (perSample)
      for (int i = 0; i < b.frames; ++i) e.ProcessSample(p.data(), i);
    else
      for (int off = 0; off < b.frames; off += kBlock)
        e.ProcessBlock(p.data(), off, std::min(kBlock, b.frames - off));
    integrated = e.Integrated() + e.LoudnessRange() + e.TruePeakMax();
    benchmark::DoNotOptimize(integrated);
  });
}

double Libebur128(const Buffers& b, double& integrated) {
  return BestSeconds([&] {
    ebur128_state* st = ebur128_init(
        static_cast<unsigned>(b.channels), static_cast<unsigned long>(kRate),
        EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_TRUE_PEAK);
    for (int c = 6; c < b.channels; ++c) ebur128_set_channel(st, static_cast<unsigned>(c), EBUR128_LEFT);
    for (int off = 0; off < b.frames; off += kBlock) {
      const int n = std::min(kBlock, b.frames - off);
      ebur128_add_frames_double(
          st, b.interleaved.data() + static_cast<std::size_t>(off) * static_cast<std::size_t>(b.channels),
          static_cast<std::size_t>(n));
    }
    double gi = 0.0, lra = 0.0, tp = 0.0;
    ebur128_loudness_global(st, &gi);
    ebur128_loudness_range(st, &lra);
    ebur128_true_peak(st, 0, &tp);
    integrated = gi + lra + tp;
    benchmark::DoNotOptimize(integrated);
    ebur128_destroy(&st);
  });
}

}  // namespace

// Usage: velorum_engine_bench [scalar|sse2|avx2|avx512]  (default: the best the CPU has)
int main(int argc, char** argv) {
  if (argc > 1) {
    for (velorum::CodePath p : {velorum::CodePath::Scalar, velorum::CodePath::Sse2, velorum::CodePath::Avx2,
                                velorum::CodePath::Avx512})
      if (std::string(argv[1]) == velorum::CodePathName(p) && velorum::CodePathSupported(p)) gPath = p;
  }
  std::printf(
      "Loudness engine throughput vs libebur128 %d.%d.%d, %g kHz, %d s of audio, best of %d, code path %s\n",
      EBUR128_VERSION_MAJOR, EBUR128_VERSION_MINOR, EBUR128_VERSION_PATCH, kRate / 1000.0, kSeconds, kRounds,
      velorum::CodePathName(gPath));
  std::printf("%-9s %-8s %16s %16s %8s\n", "channels", "mode", "velorum (x RT)", "libebur128 (x RT)",
              "ratio");
  for (int channels : {2, 6, 24}) {
    const Buffers b = Make(channels);
    double sink = 0.0;
    const double ref = Libebur128(b, sink);
    for (bool eco : {false, true}) {
      const double ours = Velorum(b, eco, sink);
      const double ourRt = kSeconds / ours;
      const double refRt = kSeconds / ref;
      std::printf("%-9d %-8s %16.0f %16.0f %7.2fx\n", channels, eco ? "eco" : "default", ourRt, refRt,
                  ourRt / refRt);
    }
    // With the dialogue-gated measurement as well (libebur128 has none).
    const double withDialogue = Velorum(b, false, sink, false, true);
    std::printf("%-9d %-8s %16.0f %16.0f %7.2fx  (with dialogue gating)\n", channels, "default",
                kSeconds / withDialogue, kSeconds / ref, ref / withDialogue);
    // The plug-in feeds one sample at a time (same results, more calls).
    const double single = Velorum(b, false, sink, true);
    std::printf("%-9d %-8s %16.0f %16.0f %7.2fx  (ProcessSample per sample)\n", channels, "default",
                kSeconds / single, kSeconds / ref, ref / single);
  }
  return 0;
}
