// A day of stereo 48 kHz programme through the plug-in at a host block size,
// as fast as the CPU allows, the way a meter on a master bus lives through a
// long session: the cost of a block at the start and at the end, memory per
// hour of history, the state size, and the longest audio call while another
// thread saves the state every 10 s. After the first hour the other thread
// also saves and restores every 20 ms for a while, as the outside host did.
//
//   velorum_longrun_bench [hours=24] [block=512]
#include <ebur128.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "VstHost.h"
#include "plugin/VendorQuery.h"

namespace {

using Clock = std::chrono::steady_clock;
using velorum::harness::HostedPlugin;
using velorum::harness::PluginModule;

constexpr double kRate = 48000.0;
constexpr int kLoopSeconds = 60;

double PeakRssMb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

double CurrentRssMb() {
  long pages = 0, resident = 0;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return static_cast<double>(resident) * 4096.0 / (1024.0 * 1024.0);
}

// A minute of programme that loops: noise whose level walks between -40 and
// -14 dBFS, so the loudness range and the gates have work to do.
std::vector<std::vector<float>> Programme() {
  const auto frames = static_cast<size_t>(kRate * kLoopSeconds);
  std::vector<std::vector<float>> p(2, std::vector<float>(frames));
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (size_t i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / kRate;
    const double db = -27.0 + 13.0 * std::sin(2.0 * 3.14159265358979 * t / 17.0);
    const auto gain = static_cast<float>(std::pow(10.0, db / 20.0));
    p[0][i] = gain * u(rng);
    p[1][i] = gain * u(rng);
  }
  return p;
}

double Query(HostedPlugin& h, int32_t command, int32_t index) {
  velorum::VendorRequest r;
  r.command = command;
  r.index = index;
  h.Dispatch(velorum::vst::effVendorSpecific, velorum::kVendorQueryIndex, 0, &r);
  return r.value;
}

// libebur128's cost per block of the same size on the same programme.
double PeerNsPerBlock(const std::vector<std::vector<float>>& p, int block) {
  ebur128_state* st =
      ebur128_init(2, static_cast<unsigned>(kRate),
                   EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK | EBUR128_MODE_S);
  std::vector<float> interleaved(size_t(block) * 2);
  const size_t frames = p[0].size();
  const auto start = Clock::now();
  size_t blocks = 0;
  for (size_t at = 0; at + size_t(block) <= frames; at += size_t(block), ++blocks) {
    for (int i = 0; i < block; ++i) {
      interleaved[size_t(i) * 2] = p[0][at + size_t(i)];
      interleaved[size_t(i) * 2 + 1] = p[1][at + size_t(i)];
    }
    ebur128_add_frames_float(st, interleaved.data(), size_t(block));
  }
  const double ns = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
  ebur128_destroy(&st);
  return ns / static_cast<double>(blocks);
}

// CPU time of the calling thread: unlike the wall clock it leaves out the
// time the thread was preempted on a loaded machine (a wait for the plug-in's
// spinning lock still counts).
double ThreadCpuNs() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

struct Window {
  double totalNs = 0.0;
  double maxNs = 0.0;
  double maxCpuNs = 0.0;
  long blocks = 0;
  void Add(double ns, double cpuNs) {
    totalNs += ns;
    maxNs = std::max(maxNs, ns);
    maxCpuNs = std::max(maxCpuNs, cpuNs);
    ++blocks;
  }
  double MeanUs() const { return blocks ? totalNs / static_cast<double>(blocks) / 1000.0 : 0.0; }
};

}  // namespace

int main(int argc, char** argv) {
  const double hours = argc > 1 ? std::atof(argv[1]) : 24.0;
  const int block = argc > 2 ? std::atoi(argv[2]) : 512;
  auto module = PluginModule::Load(VELORUM_PLUGIN_PATH);
  if (!module) return 1;
  auto host = HostedPlugin::Create(*module, kRate, block);
  host->SetChannels(2);
  host->HostTransport().playing = true;
  host->HostTransport().advance = false;
  HostedPlugin& h = *host;
  const auto programme = Programme();
  const double peerNs = PeerNsPerBlock(programme, block);

  std::atomic<bool> stop{false}, saving{false}, stormy{false};
  std::atomic<size_t> stateBytes{0};
  std::atomic<long> saves{0}, storms{0};
  // The other thread: a save every 10 s; during the storm, a save and a
  // restore every 20 ms.
  std::thread other([&] {
    auto next = Clock::now() + std::chrono::seconds(10);
    while (!stop.load()) {
      if (stormy.load()) {
        saving.store(true);
        const auto chunk = h.SaveChunk();
        h.LoadChunk(chunk);
        saving.store(false);
        storms.fetch_add(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        continue;
      }
      if (Clock::now() < next) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        continue;
      }
      saving.store(true);
      stateBytes.store(h.SaveChunk().size());
      saving.store(false);
      saves.fetch_add(1);
      next = Clock::now() + std::chrono::seconds(10);
    }
  });

  const auto loopFrames = static_cast<int64_t>(programme[0].size());
  const auto total = static_cast<int64_t>(hours * 3600.0 * kRate);
  const int64_t tenMinutes = static_cast<int64_t>(600.0 * kRate);
  // Every pin gets a buffer: the host's two channels, silence on the other inputs.
  const std::vector<float> silence(static_cast<size_t>(block), 0.0f);
  std::vector<std::vector<float>> outBuffers(static_cast<size_t>(h.NumOutputs()),
                                             std::vector<float>(static_cast<size_t>(block)));
  std::vector<float*> outPins, inPins(static_cast<size_t>(h.NumInputs()), const_cast<float*>(silence.data()));
  for (auto& b : outBuffers) outPins.push_back(b.data());
  float** outs = outPins.data();
  auto pins = [&](int64_t offset) {
    inPins[0] = const_cast<float*>(programme[0].data() + offset);
    inPins[1] = const_cast<float*>(programme[1].data() + offset);
    return inPins.data();
  };
  Window first, last, firstHourSaving, lastHourSaving, storm;
  double worstNs = 0.0;
  std::printf("%-6s %10s %12s %12s %10s %10s\n", "hour", "mean us", "max wall us", "max CPU us", "RSS MB",
              "state MB");
  Window hourWindow;
  const auto hourFrames = static_cast<int64_t>(3600.0 * kRate);
  for (int64_t at = 0; at + block <= total; at += block) {
    const int64_t offset = at % (loopFrames - block);
    float** ins = pins(offset);
    const bool duringSave = saving.load(std::memory_order_relaxed);
    const double c0 = ThreadCpuNs();
    const auto t0 = Clock::now();
    h.Effect()->processReplacing(h.Effect(), ins, outs, block);
    const double ns = std::chrono::duration<double, std::nano>(Clock::now() - t0).count();
    const double cpu = ThreadCpuNs() - c0;
    worstNs = std::max(worstNs, ns);
    hourWindow.Add(ns, cpu);
    if (at < tenMinutes) first.Add(ns, cpu);
    if (at >= total - tenMinutes) last.Add(ns, cpu);
    if (duringSave && at < hourFrames) firstHourSaving.Add(ns, cpu);
    if (duringSave && at >= total - hourFrames) lastHourSaving.Add(ns, cpu);
    const int64_t next = at + block;
    if (next / hourFrames == at / hourFrames) continue;
    std::printf("%-6lld %10.2f %12.1f %12.1f %10.1f %10.2f\n", static_cast<long long>(next / hourFrames),
                hourWindow.MeanUs(), hourWindow.maxNs / 1000.0, hourWindow.maxCpuNs / 1000.0, CurrentRssMb(),
                static_cast<double>(stateBytes.load()) / 1e6);
    std::fflush(stdout);
    hourWindow = Window{};
    if (next / hourFrames != 1) continue;
    // The storm: 20 s of saving and restoring every 20 ms with an hour of
    // history, the audio in real time.
    stormy.store(true);
    const auto until = Clock::now() + std::chrono::seconds(20);
    int64_t stormAt = next;
    while (Clock::now() < until) {
      float** sin = pins(stormAt % (loopFrames - block));
      const double sc0 = ThreadCpuNs();
      const auto s0 = Clock::now();
      h.Effect()->processReplacing(h.Effect(), sin, outs, block);
      storm.Add(std::chrono::duration<double, std::nano>(Clock::now() - s0).count(), ThreadCpuNs() - sc0);
      stormAt += block;
      std::this_thread::sleep_until(s0 + std::chrono::microseconds(int64_t(block * 1e6 / kRate)));
    }
    stormy.store(false);
    while (saving.load()) std::this_thread::yield();
    std::printf(
        "storm at 1 h (save + restore every 20 ms for 20 s): %ld audio calls, longest %.2f ms wall, "
        "%.2f ms CPU; %ld saves+restores; longest state lock hold %.0f us wall, %.0f us CPU\n",
        storm.blocks, storm.maxNs / 1e6, storm.maxCpuNs / 1e6, storms.load(),
        Query(h, velorum::kQueryReading, velorum::kReadingStateHoldMaxUs),
        Query(h, velorum::kQueryReading, velorum::kReadingStateHoldMaxCpuUs));
    std::fflush(stdout);
  }
  stop.store(true);
  other.join();
  const auto chunk = h.SaveChunk();

  std::printf("\nper-block cost, first 10 min: %.2f us; last 10 min (at %.0f h): %.2f us; ratio %.2f\n",
              first.MeanUs(), hours, last.MeanUs(), last.MeanUs() / std::max(first.MeanUs(), 1e-9));
  std::printf(
      "libebur128 (I, S, LRA, true peak) per block of %d: %.2f us; Velorum/libebur128 at start %.2f\n", block,
      peerNs / 1000.0, first.MeanUs() * 1000.0 / peerNs);
  std::printf(
      "longest audio call while a save ran: first hour %.2f ms wall / %.2f ms CPU (%ld calls), "
      "last hour %.2f ms wall / %.2f ms CPU (%ld calls)\n",
      firstHourSaving.maxNs / 1e6, firstHourSaving.maxCpuNs / 1e6, firstHourSaving.blocks,
      lastHourSaving.maxNs / 1e6, lastHourSaving.maxCpuNs / 1e6, lastHourSaving.blocks);
  std::printf("longest audio call of the whole run: %.2f ms wall\n", worstNs / 1e6);
  std::printf(
      "longest plug-in lock hold by a state call: %.0f us wall, %.0f us CPU; largest history slice %.0f "
      "entries\n",
      Query(h, velorum::kQueryReading, velorum::kReadingStateHoldMaxUs),
      Query(h, velorum::kQueryReading, velorum::kReadingStateHoldMaxCpuUs),
      Query(h, velorum::kQueryReading, velorum::kReadingSnapshotSlice));
  std::printf("state size at %.0f h: %.2f MB (%.2f MB per hour); peak RSS %.0f MB; saves %ld\n", hours,
              static_cast<double>(chunk.size()) / 1e6, static_cast<double>(chunk.size()) / 1e6 / hours,
              PeakRssMb(), saves.load());
  return 0;
}
