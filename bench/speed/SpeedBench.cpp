// Where the meter's time goes, as ratios against libebur128 and FFmpeg's
// ebur128 filter measured in the same run:
//   1. `velorum analyze` on a 10-minute 24-bit stereo WAV, CPU time of the
//      whole process (user + system) beside a libebur128 program that decodes
//      the same file and FFmpeg's `ebur128=peak=true`;
//   2. the true-peak kernel alone, per sample and channel, beside the share
//      of true peak in libebur128 and in FFmpeg (their time with true peak on
//      less their time with it off);
//   3. the floor: decoding the file plus the filters' multiply-adds at the
//      peak rate this core reaches with mul + add on its widest registers;
//   4. the plug-in's cost per 512-frame block at 48 kHz through the test host,
//      stereo and 5.1, as a share of one core, beside libebur128 fed the same
//      blocks.
// The machine may be shared: every figure is CPU time (getrusage), taken in
// rounds that alternate the contenders, and the median round counts.
//
// Usage: velorum_speed_bench [--velorum PATH] [--plugin PATH] [--wav PATH]
//                            [--rounds N] [--before-velorum PATH] [--before-plugin PATH]
// (--before-* measure an earlier build beside this one in the same rounds.)
#include <ebur128.h>
#include <fcntl.h>
#include <immintrin.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VstHost.h"
#include "analysis/AudioFileReader.h"
#include "engine/FlushDenormals.h"
#include "engine/Kernels.h"
#include "engine/LoudnessEngine.h"
#include "engine/TruePeakFilter.h"

namespace {

using Clock = double;  // seconds of CPU time

double ThreadCpu() {
  rusage u{};
  getrusage(RUSAGE_THREAD, &u);
  return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

double Median(std::vector<double> v) {
  if (v.empty()) return 0.0;
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// CPU time (user + system) of a child process; output discarded.
double ChildCpu(const std::vector<std::string>& args) {
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  rusage u{};
  wait4(pid, &status, 0, &u);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "failed: %s\n", args[0].c_str());
    return NAN;
  }
  return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

// ------------------------------------------------------------------ material

// Programme-like noise: pink-ish (one pole), loud and quiet passages.
std::vector<std::vector<float>> Programme(int channels, double rate, double seconds, unsigned seed) {
  const auto n = static_cast<size_t>(rate * seconds);
  std::vector<std::vector<float>> x(static_cast<size_t>(channels), std::vector<float>(n));
  unsigned long long s = 88172645463325252ull ^ seed;
  for (int c = 0; c < channels; ++c) {
    double lp = 0.0;
    for (size_t i = 0; i < n; ++i) {
      s ^= s << 13;
      s ^= s >> 7;
      s ^= s << 17;
      const double white = static_cast<double>(s >> 11) / 9007199254740992.0 * 2.0 - 1.0;
      lp = 0.97 * lp + 0.03 * white;
      const double env = std::fmod(static_cast<double>(i) / rate, 20.0) < 12.0 ? 1.0 : 0.3;
      x[size_t(c)][i] = static_cast<float>(env * (0.5 * white + 4.0 * lp) * 0.3);
    }
  }
  return x;
}

void WriteWav24(const std::string& path, const std::vector<std::vector<float>>& x, int rate) {
  const int channels = static_cast<int>(x.size());
  const size_t frames = x[0].size();
  const uint32_t data = static_cast<uint32_t>(frames * size_t(channels) * 3);
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return;
  auto u32 = [&](uint32_t v) { std::fwrite(&v, 4, 1, f); };
  auto u16 = [&](uint16_t v) { std::fwrite(&v, 2, 1, f); };
  std::fwrite("RIFF", 1, 4, f);
  u32(36 + data);
  std::fwrite("WAVEfmt ", 1, 8, f);
  u32(16);
  u16(1);
  u16(static_cast<uint16_t>(channels));
  u32(static_cast<uint32_t>(rate));
  u32(static_cast<uint32_t>(rate * channels * 3));
  u16(static_cast<uint16_t>(channels * 3));
  u16(24);
  std::fwrite("data", 1, 4, f);
  u32(data);
  std::vector<unsigned char> buf;
  buf.reserve(size_t(channels) * 3 * 4096);
  for (size_t i = 0; i < frames; ++i) {
    for (int c = 0; c < channels; ++c) {
      const double v = std::clamp(static_cast<double>(x[size_t(c)][i]), -1.0, 1.0 - 1.0 / 8388608.0);
      const auto q = static_cast<int32_t>(std::lrint(v * 8388608.0));
      buf.push_back(static_cast<unsigned char>(q & 0xFF));
      buf.push_back(static_cast<unsigned char>((q >> 8) & 0xFF));
      buf.push_back(static_cast<unsigned char>((q >> 16) & 0xFF));
    }
    if (buf.size() >= size_t(channels) * 3 * 4096) {
      std::fwrite(buf.data(), 1, buf.size(), f);
      buf.clear();
    }
  }
  std::fwrite(buf.data(), 1, buf.size(), f);
  std::fclose(f);
}

// ------------------------------------------------- the libebur128 file tool

// Decodes a WAV with the product's reader (the same decoding cost as the
// command) and measures it with libebur128: integrated, range, momentary,
// short-term and true peak.
int Ebur128File(const std::string& path, bool truePeak) {
  velorum::AudioFileReader reader;
  if (!reader.open(path) || !reader.prepare(4096)) return 1;
  const unsigned channels = reader.channels();
  int mode = EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_M | EBUR128_MODE_S;
  if (truePeak) mode |= EBUR128_MODE_TRUE_PEAK;
  ebur128_state* st = ebur128_init(channels, reader.sampleRate(), mode);
  while (reader.readBlock() && reader.framesRead() > 0)
    ebur128_add_frames_float(st, reader.buffer(), static_cast<size_t>(reader.framesRead()));
  double gi = 0.0, lra = 0.0, tp = 0.0;
  ebur128_loudness_global(st, &gi);
  ebur128_loudness_range(st, &lra);
  if (truePeak) ebur128_true_peak(st, 0, &tp);
  std::printf("I %.2f LRA %.2f TP %.2f\n", gi, lra, tp);
  ebur128_destroy(&st);
  return 0;
}

// Decoding alone, with the product's reader.
double DecodeCpu(const std::string& path) {
  const double t0 = ThreadCpu();
  velorum::AudioFileReader reader;
  if (!reader.open(path) || !reader.prepare(4096)) return NAN;
  double sink = 0.0;
  while (reader.readBlock() && reader.framesRead() > 0) sink += static_cast<double>(reader.buffer()[0]);
  if (sink == 12345.678) std::puts("");
  return ThreadCpu() - t0;
}

// ------------------------------------------------------------ peak MAC rate

// Multiply-adds per second on this core with separate mul and add (the
// product's kernels use no FMA so that every path rounds alike).
__attribute__((target("avx512f"))) double PeakMacRate512() {
  std::vector<double> rates;
  for (int r = 0; r < 5; ++r) {
    constexpr int kChains = 12;
    __m512d acc[kChains], x[kChains];
    for (int i = 0; i < kChains; ++i) {
      acc[i] = _mm512_set1_pd(0.0);
      x[i] = _mm512_set1_pd(1.0 + i * 1e-9);
    }
    const __m512d c = _mm512_set1_pd(0.999999);
    const long iterations = 20000000;
    const double t0 = ThreadCpu();
    for (long k = 0; k < iterations; ++k) {
#pragma GCC unroll 12
      for (int i = 0; i < kChains; ++i) acc[i] = _mm512_add_pd(acc[i], _mm512_mul_pd(c, x[i]));
      // The products stay in the loop: the barrier makes x new every time
      // (the sums are used below, so they stay too).
      __asm__ volatile(""
                       : "+v"(x[0]), "+v"(x[1]), "+v"(x[2]), "+v"(x[3]), "+v"(x[4]), "+v"(x[5]), "+v"(x[6]),
                         "+v"(x[7]), "+v"(x[8]), "+v"(x[9]), "+v"(x[10]), "+v"(x[11]));
    }
    const double t = ThreadCpu() - t0;
    __m512d total = acc[0];
    for (int i = 1; i < kChains; ++i) total = _mm512_add_pd(total, acc[i]);
    alignas(64) double lanes[8];
    _mm512_store_pd(lanes, total);
    if (lanes[0] == 1.25) std::puts("");
    rates.push_back(static_cast<double>(iterations) * kChains * 8 / t);
  }
  // A peak: the best round (other load on the machine only ever lowers it).
  return *std::max_element(rates.begin(), rates.end());
}

double PeakMacRate() {
  if (velorum::CodePathSupported(velorum::CodePath::Avx512)) return PeakMacRate512();
  std::printf("(no AVX-512 here: the floor is not estimated)\n");
  return NAN;
}

// ---------------------------------------------------------- true-peak kernel

struct KernelFigures {
  double velorum = 0.0;  // ns per sample and channel
  double ebur128 = 0.0;
};

double Ebur128Run(const std::vector<float>& interleaved, int channels, int mode) {
  const double t0 = ThreadCpu();
  ebur128_state* st = ebur128_init(static_cast<unsigned>(channels), 48000, mode);
  const size_t frames = interleaved.size() / size_t(channels);
  for (size_t off = 0; off < frames; off += 512)
    ebur128_add_frames_float(st, interleaved.data() + off * size_t(channels),
                             std::min<size_t>(512, frames - off));
  ebur128_destroy(&st);
  return ThreadCpu() - t0;
}

KernelFigures TruePeakKernel(int rounds, velorum::CodePath path, bool eco) {
  const auto x = Programme(2, 48000.0, 10.0, 3);
  std::vector<std::vector<double>> d(2);
  std::vector<float> interleaved;
  for (size_t i = 0; i < x[0].size(); ++i)
    for (int c = 0; c < 2; ++c) interleaved.push_back(x[size_t(c)][i]);
  for (int c = 0; c < 2; ++c) d[size_t(c)].assign(x[size_t(c)].begin(), x[size_t(c)].end());
  const double samples = 2.0 * static_cast<double>(x[0].size());
  const velorum::KernelSet& k = velorum::Kernels(path);
  const velorum::TruePeakTable& table = eco ? velorum::ShortTruePeakTable() : velorum::LongTruePeakTable();
  std::vector<double> ours, theirs;
  double sink = 0.0;
  for (int r = 0; r < rounds; ++r) {
    velorum::TruePeakHistory h[2];
    h[0].Clear();
    h[1].Clear();
    // Enough repetitions for a round to last well beyond the clock's tick.
    constexpr int kRepeats = 40;
    const double t0 = ThreadCpu();
    for (int rep = 0; rep < kRepeats; ++rep) {
      velorum::FlushDenormals flush;
      for (size_t off = 0; off < x[0].size(); off += 480)
        for (int c = 0; c < 2; ++c)
          sink += k.truePeak(table, h[c], d[size_t(c)].data() + off,
                             static_cast<int>(std::min<size_t>(480, x[0].size() - off)), 0.0);
    }
    ours.push_back((ThreadCpu() - t0) / (samples * kRepeats) * 1e9);
    const int base = EBUR128_MODE_M;
    const double with = Ebur128Run(interleaved, 2, base | EBUR128_MODE_TRUE_PEAK);
    const double without = Ebur128Run(interleaved, 2, base);
    theirs.push_back((with - without) / samples * 1e9);
  }
  if (sink == 1.2345) std::puts("");
  return {Median(ours), Median(theirs)};
}

// ------------------------------------------------------------------ plug-in

// CPU seconds per 512-frame block through the test host: the host's
// processReplacing calls alone, with the pin lists a DAW hands over (every
// declared pin, the unconnected ones on buffers of their own).
double PluginBlock(velorum::harness::PluginModule& module, const std::vector<std::vector<float>>& audio) {
  auto host = velorum::harness::HostedPlugin::Create(module, 48000.0, 512);
  host->SetChannels(static_cast<int>(audio.size()));
  host->HostTransport().playing = true;
  std::vector<std::vector<float>> out;
  // One second to settle (allocation of the history, first-use tables).
  std::vector<std::vector<float>> head(audio.size());
  for (size_t c = 0; c < audio.size(); ++c) head[c].assign(audio[c].begin(), audio[c].begin() + 48000);
  host->RunFloat(head, out, {512});
  velorum::vst::AEffect* effect = host->Effect();
  const auto pinsIn = static_cast<size_t>(effect->numInputs),
             pinsOut = static_cast<size_t>(effect->numOutputs);
  std::vector<std::vector<float>> spareIn(pinsIn, std::vector<float>(512)),
      spareOut(pinsOut, std::vector<float>(512));
  std::vector<float*> in(pinsIn), outs(pinsOut);
  for (size_t c = 0; c < pinsOut; ++c) outs[c] = spareOut[c].data();
  const int blocks = static_cast<int>(audio[0].size() / 512);
  constexpr int kRepeats = 6;  // a round lasts well beyond the clock's tick
  const double t0 = ThreadCpu();
  for (int rep = 0; rep < kRepeats; ++rep) {
    for (int b = 0; b < blocks; ++b) {
      for (size_t c = 0; c < pinsIn; ++c)
        in[c] = c < audio.size() ? const_cast<float*>(audio[c].data()) + b * 512 : spareIn[c].data();
      effect->processReplacing(effect, in.data(), outs.data(), 512);
      host->HostTransport().position += 512;
    }
  }
  return (ThreadCpu() - t0) / (blocks * kRepeats);
}

double Ebur128Block(const std::vector<std::vector<float>>& audio) {
  const int channels = static_cast<int>(audio.size());
  std::vector<float> interleaved;
  for (size_t i = 0; i < audio[0].size(); ++i)
    for (int c = 0; c < channels; ++c) interleaved.push_back(audio[size_t(c)][i]);
  const int mode =
      EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_TRUE_PEAK;
  constexpr int kRepeats = 2;
  double cpu = 0.0;
  for (int rep = 0; rep < kRepeats; ++rep) cpu += Ebur128Run(interleaved, channels, mode);
  return cpu / static_cast<double>(audio[0].size() / 512 * kRepeats);
}

std::string Arg(int argc, char** argv, const std::string& name, const std::string& fallback) {
  for (int i = 1; i + 1 < argc; ++i)
    if (name == argv[i]) return argv[i + 1];
  return fallback;
}

void Row(const char* what, double ours, double peer, const char* unit) {
  std::printf("  %-44s %10.4f %10.4f %s  ratio %.3f\n", what, ours, peer, unit, ours / peer);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--ebur128-file") return Ebur128File(argv[2], true);
  if (argc == 3 && std::string(argv[1]) == "--ebur128-file-no-peak") return Ebur128File(argv[2], false);
  const std::string bin = VELORUM_BINARY_DIR "/bin";
  const std::string velorum = Arg(argc, argv, "--velorum", bin + "/velorum");
  const std::string plugin = Arg(argc, argv, "--plugin", bin + "/Velorum.so");
  const std::string beforeVelorum = Arg(argc, argv, "--before-velorum", "");
  const std::string beforePlugin = Arg(argc, argv, "--before-plugin", "");
  const int rounds = std::max(1, std::atoi(Arg(argc, argv, "--rounds", "5").c_str()));
  std::string wav = Arg(argc, argv, "--wav", "");
  const std::string sections = Arg(argc, argv, "--sections", "1234");
  auto section = [&](char c) { return sections.find(c) != std::string::npos; };
  const std::string self = argv[0];
  std::printf("Velorum speed against libebur128 %d.%d.%d and FFmpeg, CPU time, median of %d rounds\n",
              EBUR128_VERSION_MAJOR, EBUR128_VERSION_MINOR, EBUR128_VERSION_PATCH, rounds);

  char tmpl[] = "/tmp/velorum-speed-XXXXXX";
  const std::string dir = mkdtemp(tmpl) ? tmpl : "/tmp";
  if (wav.empty() && (section('1') || section('3'))) {
    wav = dir + "/programme.wav";
    WriteWav24(wav, Programme(2, 48000.0, 600.0, 1), 48000);
  }

  // 1. The command on the long file.
  const std::vector<std::string> ffPeak = {"ffmpeg",
                                           "-nostdin",
                                           "-hide_banner",
                                           "-nostats",
                                           "-i",
                                           wav,
                                           "-af",
                                           "ebur128=peak=true:framelog=verbose",
                                           "-f",
                                           "null",
                                           "-"};
  std::vector<std::string> ffNoPeak = ffPeak;
  ffNoPeak[7] = "ebur128=framelog=verbose";
  std::vector<double> ours, before, lib, libNoPeak, ff, ffNo, decode;
  for (int r = 0; r < rounds && (section('1') || section('3')); ++r) {
    ours.push_back(ChildCpu({velorum, "analyze", wav}));
    if (!beforeVelorum.empty()) before.push_back(ChildCpu({beforeVelorum, "analyze", wav}));
    lib.push_back(ChildCpu({self, "--ebur128-file", wav}));
    libNoPeak.push_back(ChildCpu({self, "--ebur128-file-no-peak", wav}));
    ff.push_back(ChildCpu(ffPeak));
    ffNo.push_back(ChildCpu(ffNoPeak));
    decode.push_back(DecodeCpu(wav));
  }
  if (section('1')) {
    std::printf("\n1. velorum analyze, 10-min 24-bit stereo 48 kHz WAV (CPU s)      velorum       peer\n");
    Row("against libebur128 (same decoder, true peak)", Median(ours), Median(lib), "s");
    Row("against FFmpeg ebur128=peak=true", Median(ours), Median(ff), "s");
    if (!before.empty()) {
      Row("earlier build against libebur128", Median(before), Median(lib), "s");
      Row("earlier build against FFmpeg", Median(before), Median(ff), "s");
      Row("this build against the earlier one", Median(ours), Median(before), "s");
    }
  }

  // 2. The true-peak kernel.
  const double frames = 600.0 * 48000.0;
  if (section('2')) {
    std::printf("\n2. true-peak detection, ns per sample and channel              velorum       peer\n");
    const double ffTp = (Median(ff) - Median(ffNo)) / (2.0 * frames) * 1e9;
    const double libTp = (Median(lib) - Median(libNoPeak)) / (2.0 * frames) * 1e9;
    for (velorum::CodePath path : {velorum::CodePath::Scalar, velorum::CodePath::Sse2,
                                   velorum::CodePath::Avx2, velorum::CodePath::Avx512}) {
      if (!velorum::CodePathSupported(path)) continue;
      const KernelFigures f = TruePeakKernel(rounds, path, false);
      const std::string what =
          std::string(velorum::CodePathName(path)) + " kernel against libebur128's share";
      Row(what.c_str(), f.velorum, f.ebur128, "ns");
      if (path == velorum::BestCodePath()) {
        if (section('1')) Row("  the same against FFmpeg's share (whole file)", f.velorum, ffTp, "ns");
        const KernelFigures e = TruePeakKernel(rounds, path, true);
        Row("  eco (short filter) against libebur128's share", e.velorum, e.ebur128, "ns");
      }
    }
    if (section('1')) std::printf("  (libebur128's share in its file tool: %.2f ns)\n", libTp);
  }

  // 3. The floor.
  if (section('3')) {
    const double peak = PeakMacRate();
    const velorum::TruePeakTable& t = velorum::LongTruePeakTable();
    const int phasesSummed = t.delayPhase >= 0 ? 3 : 4;
    // True peak: taps per summed phase, one product for a delay phase; K-weighting: ten products.
    const double macs = phasesSummed * t.taps + (t.delayPhase >= 0 ? 1 : 0) + 10;
    const double floor = Median(decode) + 2.0 * frames * macs / peak;
    std::printf(
        "\n3. floor: decode %.3f s + %.0f multiply-adds per sample and channel at %.1f G/s = %.3f s\n",
        Median(decode), macs, peak * 1e-9, floor);
    Row("velorum analyze against the floor", Median(ours), floor, "s");
  }

  // 4. The plug-in per block.
  if (section('4')) {
    std::printf(
        "\n4. plug-in through the test host, 48 kHz, 512 frames (us per block)  velorum  libebur128\n");
    std::string error;
    auto module = velorum::harness::PluginModule::Load(plugin, &error);
    std::unique_ptr<velorum::harness::PluginModule> beforeModule;
    if (!beforePlugin.empty()) beforeModule = velorum::harness::PluginModule::Load(beforePlugin, &error);
    if (!module) {
      std::printf("  cannot load %s: %s\n", plugin.c_str(), error.c_str());
      return 1;
    }
    const double blockSeconds = 512.0 / 48000.0;
    for (int channels : {2, 6}) {
      const auto audio = Programme(channels, 48000.0, 21.0, 9);
      std::vector<double> p, b, e;
      for (int r = 0; r < rounds; ++r) {
        p.push_back(PluginBlock(*module, audio));
        if (beforeModule) b.push_back(PluginBlock(*beforeModule, audio));
        e.push_back(Ebur128Block(audio));
      }
      const std::string what = channels == 2 ? "stereo" : "5.1";
      Row((what + " per block").c_str(), Median(p) * 1e6, Median(e) * 1e6, "us");
      std::printf("  %-44s %9.3f %% of a core (libebur128 %.3f %%)\n", (what + " share of a core").c_str(),
                  Median(p) / blockSeconds * 100.0, Median(e) / blockSeconds * 100.0);
      if (beforeModule)
        std::printf("  %-44s %9.3f %% of a core, this build / earlier %.3f\n",
                    (what + " earlier build").c_str(), Median(b) / blockSeconds * 100.0,
                    Median(p) / Median(b));
    }
  }
  if (Arg(argc, argv, "--wav", "").empty() && !wav.empty()) {
    std::remove(wav.c_str());
    rmdir(dir.c_str());
  }
  return 0;
}
