#include "cli/ComplianceSelfTest.h"

#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "analysis/OfflineAnalysis.h"
#include "engine/LoudnessEngine.h"

namespace velorum {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kRate = 48000;

enum class Reading { Integrated, MomentaryMax, ShortTermMax, LoudnessRange, TruePeakMax };

// A run of a sine: duration, frequency, peak level in dBFS per channel, phase.
struct Segment {
  double seconds;
  double dbfs[5];
};

struct Signal {
  std::string name;
  int channels = 2;
  double frequency = 1000.0;
  double phaseDegrees = 0.0;
  // Raised-cosine fade in and out at the ends of the whole signal. The
  // true-peak tones are tapered so that switching them on does not add an
  // overshoot of its own to the peaks being measured.
  double taperSeconds = 0.0;
  std::vector<Segment> segments;
  struct Check {
    Reading reading;
    const char* label;
    double expected, below, above;
  };
  std::vector<Check> checks;
};

Segment stereo(double seconds, double db) {
  return Segment{seconds, {db, db, -200, -200, -200}};
}

std::vector<Segment> repeat(int times, std::initializer_list<Segment> pattern) {
  std::vector<Segment> out;
  for (int i = 0; i < times; ++i) out.insert(out.end(), pattern.begin(), pattern.end());
  return out;
}

std::vector<Signal> signals() {
  const double tpBelow = 0.4, tpAbove = 0.2;
  std::vector<Signal> s;
  auto add = [&](std::string name, std::vector<Segment> segments, std::vector<Signal::Check> checks) {
    Signal sig;
    sig.name = std::move(name);
    sig.segments = std::move(segments);
    sig.checks = std::move(checks);
    s.push_back(std::move(sig));
    return &s.back();
  };
  add("3341-1", {stereo(20, -23)},
      {{Reading::MomentaryMax, "momentary", -23, 0.1, 0.1},
       {Reading::ShortTermMax, "short-term", -23, 0.1, 0.1},
       {Reading::Integrated, "integrated", -23, 0.1, 0.1}});
  add("3341-2", {stereo(20, -33)},
      {{Reading::MomentaryMax, "momentary", -33, 0.1, 0.1},
       {Reading::ShortTermMax, "short-term", -33, 0.1, 0.1},
       {Reading::Integrated, "integrated", -33, 0.1, 0.1}});
  add("3341-3", {stereo(10, -36), stereo(60, -23), stereo(10, -36)},
      {{Reading::Integrated, "integrated", -23, 0.1, 0.1}});
  add("3341-4", {stereo(10, -72), stereo(10, -36), stereo(60, -23), stereo(10, -36), stereo(10, -72)},
      {{Reading::Integrated, "integrated", -23, 0.1, 0.1}});
  add("3341-5", {stereo(20, -26), stereo(20.1, -20), stereo(20, -26)},
      {{Reading::Integrated, "integrated", -23, 0.1, 0.1}});
  Signal* five = add("3341-6", {Segment{20, {-28, -28, -24, -30, -30}}},
                     {{Reading::Integrated, "integrated 5.0", -23, 0.1, 0.1}});
  five->channels = 5;
  add("3341-9", repeat(20, {stereo(1.34, -20), stereo(1.66, -30)}),
      {{Reading::ShortTermMax, "short-term", -23, 0.1, 0.1}});
  add("3341-12", repeat(25, {stereo(0.18, -20), stereo(0.22, -30)}),
      {{Reading::MomentaryMax, "momentary", -23, 0.1, 0.1}});
  add("3341-10", {stereo(0.9, -400), stereo(3, -23), stereo(1, -400)},
      {{Reading::ShortTermMax, "short-term", -23, 0.1, 0.1}});
  add("3342-1", {stereo(20, -20), stereo(20, -30)}, {{Reading::LoudnessRange, "loudness range", 10, 1, 1}});
  add("3342-2", {stereo(20, -20), stereo(20, -15)}, {{Reading::LoudnessRange, "loudness range", 5, 1, 1}});
  add("3342-3", {stereo(20, -40), stereo(20, -20)}, {{Reading::LoudnessRange, "loudness range", 20, 1, 1}});
  add("3342-4", {stereo(20, -50), stereo(20, -35), stereo(20, -20), stereo(20, -35), stereo(20, -50)},
      {{Reading::LoudnessRange, "loudness range", 15, 1, 1}});
  struct Peak {
    const char* name;
    double divisor, phase, dbfs, expected;
  };
  for (const Peak& p :
       {Peak{"peak fs/4 0deg", 4, 0, -6.0206, -6.0}, Peak{"peak fs/4 45deg", 4, 45, -6.0206, -6.0},
        Peak{"peak fs/6 60deg", 6, 60, -6.0206, -6.0}, Peak{"peak fs/8 67.5deg", 8, 67.5, -6.0206, -6.0},
        Peak{"peak fs/4 45deg +3", 4, 45, 3.0103 - 1e-4, 3.0}}) {
    Signal* sig =
        add(p.name, {stereo(2, p.dbfs)}, {{Reading::TruePeakMax, "true peak", p.expected, tpBelow, tpAbove}});
    sig->frequency = kRate / p.divisor;
    sig->phaseDegrees = p.phase;
    sig->taperSeconds = 0.010;
  }
  return s;
}

bool writeSignal(const Signal& sig, const std::string& path) {
  SF_INFO info;
  std::memset(&info, 0, sizeof info);
  info.samplerate = kRate;
  info.channels = sig.channels;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  if (!f) return false;
  sf_command(f, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  std::vector<float> buffer(static_cast<size_t>(4800 * sig.channels));
  int64_t n = 0;
  const double w = 2.0 * kPi * sig.frequency / kRate;
  const double phase = sig.phaseDegrees * kPi / 180.0;
  int64_t total = 0;
  for (const Segment& seg : sig.segments) total += std::llround(seg.seconds * kRate);
  const int64_t taper = std::llround(sig.taperSeconds * kRate);
  auto gain = [&](int64_t i) {
    const int64_t edge = std::min(i, total - 1 - i);
    return edge >= taper ? 1.0
                         : 0.5 - 0.5 * std::cos(kPi * static_cast<double>(edge) / static_cast<double>(taper));
  };
  bool ok = true;
  for (const Segment& seg : sig.segments) {
    const int64_t frames = std::llround(seg.seconds * kRate);
    for (int64_t done = 0; done < frames && ok;) {
      const int64_t chunk = std::min<int64_t>(4800, frames - done);
      for (int64_t i = 0; i < chunk; ++i) {
        const double x = gain(n + i) * std::sin(w * static_cast<double>(n + i) + phase);
        for (int c = 0; c < sig.channels; ++c) {
          const double amp = std::pow(10.0, seg.dbfs[c] / 20.0);
          buffer[static_cast<size_t>(i * sig.channels + c)] =
              static_cast<float>(std::clamp(amp * x, -1.0, 1.0));
        }
      }
      ok = sf_writef_float(f, buffer.data(), chunk) == chunk;
      done += chunk;
      n += chunk;
    }
  }
  return sf_close(f) == 0 && ok;
}

double pick(const LoudnessEngine& e, Reading r) {
  switch (r) {
    case Reading::Integrated:
      return e.Integrated();
    case Reading::MomentaryMax:
      return e.MomentaryMax();
    case Reading::ShortTermMax:
      return e.ShortTermMax();
    case Reading::LoudnessRange:
      return e.LoudnessRange();
    case Reading::TruePeakMax:
      return e.TruePeakMax();
  }
  return 0.0;
}

}  // namespace

std::vector<SelfTestCase> RunComplianceSelfTest(int jobs, bool eco) {
  const std::vector<Signal> all = signals();
  std::vector<std::vector<SelfTestCase>> results(all.size());
  char pattern[] = "/tmp/velorum-selftest-XXXXXX";
  const char* folder = mkdtemp(pattern);
  std::atomic<size_t> next{0};
  auto worker = [&] {
    for (size_t i = next++; i < all.size(); i = next++) {
      const Signal& sig = all[i];
      LoudnessEngine engine;
      engine.SetEcoMode(eco);
      engine.SetDialogueEnabled(false);  // only level-gated readings are checked
      bool measured = false;
      if (folder) {
        const std::string path = std::string(folder) + "/" + std::to_string(i) + ".wav";
        if (writeSignal(sig, path)) {
          OfflineAnalysis analysis(engine);
          OfflineAnalysis::Request request;
          request.paths = {path};
          request.blockFrames = 4096;
          measured = analysis.run(request);
        }
        std::remove(path.c_str());
      }
      for (const Signal::Check& check : sig.checks) {
        SelfTestCase c;
        c.name = sig.name + " " + check.label;
        c.unit = check.reading == Reading::LoudnessRange ? "LU"
                 : check.reading == Reading::TruePeakMax ? "dBTP"
                                                         : "LUFS";
        c.expected = check.expected;
        c.below = check.below;
        c.above = check.above;
        c.measured = measured;
        c.reading = measured ? pick(engine, check.reading) : 0.0;
        c.pass =
            measured && c.reading >= c.expected - c.below - 1e-9 && c.reading <= c.expected + c.above + 1e-9;
        results[i].push_back(c);
      }
    }
  };
  const size_t threads =
      std::max<size_t>(1, std::min<size_t>(all.size(), static_cast<size_t>(std::max(jobs, 1))));
  std::vector<std::thread> pool;
  for (size_t t = 0; t < threads; ++t) pool.emplace_back(worker);
  for (std::thread& t : pool) t.join();
  if (folder) std::filesystem::remove_all(folder);
  std::vector<SelfTestCase> cases;
  for (auto& r : results) cases.insert(cases.end(), r.begin(), r.end());
  return cases;
}

int PrintSelfTest(const std::vector<SelfTestCase>& cases) {
  int failed = 0;
  std::printf("%-32s %-22s %-14s %s\n", "Case", "Expected", "Reading", "Verdict");
  for (const SelfTestCase& c : cases) {
    char expected[64], reading[64];
    if (c.below == c.above)
      std::snprintf(expected, sizeof expected, "%.1f +-%.1f %s", c.expected, c.above, c.unit.c_str());
    else
      std::snprintf(expected, sizeof expected, "%.1f +%.1f/-%.1f %s", c.expected, c.above, c.below,
                    c.unit.c_str());
    if (c.measured)
      std::snprintf(reading, sizeof reading, "%.2f", c.reading);
    else
      std::snprintf(reading, sizeof reading, "%s", "not measured");
    std::printf("%-32s %-22s %-14s %s\n", c.name.c_str(), expected, reading, c.pass ? "PASS" : "FAIL");
    failed += c.pass ? 0 : 1;
  }
  std::printf("\n%d of %d cases passed.\n", static_cast<int>(cases.size()) - failed,
              static_cast<int>(cases.size()));
  return failed == 0 ? 0 : 1;
}

}  // namespace velorum
