#include "cli/NormalizeCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "cli/AnalyzeCommand.h"
#include "cli/Measurement.h"
#include "cli/OutputFiles.h"
#include "cli/PresetNames.h"
#include "cli/ProgressBar.h"
#include "export/TempFileRegistry.h"
#include "export/WavNormalizer.h"
#include "presets/LoudnessStandards.h"

namespace velorum {

const char* const kNormalizeHelp =
    "  velorum normalize [options] IN OUT | IN... FOLDER\n"
    "      Write a copy of IN brought to the target loudness under the true-peak ceiling, in IN's\n"
    "      container family (WAV/BWF/RF64 with every chunk and the channel mask kept, FLAC, AIFF;\n"
    "      other formats become WAV). With several inputs or folders of them, the copies go to FOLDER.\n"
    "      --target LUFS      the loudness of the copy (-70 to 0), or\n"
    "      --preset NAME      the preset's target and true-peak maximum\n"
    "      --true-peak DBTP   the ceiling (-20 to 0; default the preset's maximum, else -1)\n"
    "      --limit            meet both with a true-peak limiter; without it the gain is lowered to\n"
    "                         the ceiling and the shortfall is reported (exit status 1)\n"
    "      --float            32-bit float samples (WAV, AIFF)      --rf64   RF64 even below 4 GB\n"
    "      --eco              eco true-peak measurement              -j N     files in parallel\n"
    "      -y, --yes          replace existing files without asking\n";

namespace {

struct Options {
  std::vector<std::string> paths;
  double target = 0.0;
  std::string presetName;
  double truePeak = 0.0;
  bool haveTarget = false, haveTruePeak = false;
  bool limit = false, floatOutput = false, rf64 = false, eco = false, yes = false;
  int jobs = 0;
};

struct Job {
  std::string input, output;
  NormalizeResult result;
  std::string refusal;  // a reason not to run (two inputs, one output name)
  int progress = 0;
};

int Usage(const std::string& error) {
  std::fprintf(stderr, "velorum: %s\nTry 'velorum --help'.\n", error.c_str());
  return 64;
}

void OnSignal(int sig) {
  RemoveRegisteredTempFiles();
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}

// Test aid: the process stops itself (SIGSTOP) once a copy is this far, so
// that a test can interrupt it at a known point of the write.
int StopAtPercent() {
  const char* text = std::getenv("VELORUM_STOP_AT_PERCENT");
  return text ? std::atoi(text) : -1;
}

// A signed value with `decimals` decimals; never "-0.0".
std::string Signed(double value, int decimals) {
  char buffer[32];
  const double shown = std::fabs(value) < 0.5 * std::pow(10.0, -decimals) ? 0.0 : value;
  std::snprintf(buffer, sizeof buffer, "%+.*f", decimals, shown);
  return buffer;
}

void PrintReport(const Job& job, double ceiling) {
  const NormalizeResult& r = job.result;
  std::string format = ContainerName(r.container);
  if (r.rf64) format = "RF64";
  format += r.floatSamples ? ", 32-bit float" : ", " + std::to_string(r.bits) + "-bit";
  std::printf("%s -> %s (%s)\n", job.input.c_str(), job.output.c_str(), format.c_str());
  std::printf("  Source: %.1f LUFS, true peak %s dBTP\n", RoundToTenth(r.sourceIntegrated),
              Signed(RoundToTenth(r.sourceTruePeak), 1).c_str());
  std::printf("  Gain: %s dB\n", Signed(r.gainDb, 2).c_str());
  if (r.limiterReductionDb > 0.0)
    std::printf("  Limiter: up to %.1f dB of gain reduction\n", r.limiterReductionDb);
  std::printf("  Result: %.1f LUFS, true peak %s dBTP, loudness range %.1f LU\n",
              RoundToTenth(r.resultIntegrated), Signed(RoundToTenth(r.resultTruePeak), 1).c_str(),
              RoundToTenth(r.resultRange));
  if (r.gainLowered && r.shortfallLu >= 0.05)
    std::printf(
        "  Target missed by %.1f LU: the gain was lowered to keep the true peak at or below %.1f dBTP "
        "(--limit meets both)\n",
        r.shortfallLu, ceiling);
  if (r.convertedToWav) std::printf("  Note: %s: %s\n", job.input.c_str(), r.message.c_str());
  std::fflush(stdout);
}

bool Parse(const std::vector<std::string>& args, Options& o, int& status) {
  CLI::App app{"velorum normalize", "velorum normalize"};
  app.add_option("paths", o.paths, "inputs, then the output file or folder")->required()->expected(2, -1);
  auto* target =
      app.add_option("--target", o.target, "target loudness (LUFS)")->check(CLI::Range(-70.0, 0.0));
  auto* preset = app.add_option("--preset", o.presetName, "loudness standard");
  auto* truePeak =
      app.add_option("--true-peak", o.truePeak, "true-peak ceiling (dBTP)")->check(CLI::Range(-20.0, 0.0));
  app.add_flag("--limit", o.limit, "true-peak limiter");
  app.add_flag("--float", o.floatOutput, "32-bit float samples");
  app.add_flag("--rf64", o.rf64, "RF64 even below 4 GB");
  app.add_flag("--eco", o.eco, "eco true-peak measurement");
  app.add_flag("-y,--yes", o.yes, "replace existing files");
  app.add_option("-j,--jobs", o.jobs, "files in parallel")->check(CLI::Range(1, 256));
  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    std::fputs(kNormalizeHelp, stdout);
    status = 0;
    return false;
  } catch (const CLI::ParseError& e) {
    status = Usage(std::string("normalize: ") + e.what());
    return false;
  }
  o.haveTarget = target->count() > 0;
  o.haveTruePeak = truePeak->count() > 0;
  if (!o.haveTarget && preset->count() == 0) {
    status = Usage("normalize needs --target LUFS or --preset NAME");
    return false;
  }
  return true;
}

// The jobs: one input to one file, or every input into a folder.
bool MakeJobs(const Options& o, std::vector<Job>& jobs, int& status) {
  namespace fs = std::filesystem;
  const std::string out = o.paths.back();
  const std::vector<std::string> inputs =
      ExpandInputs(std::vector<std::string>(o.paths.begin(), o.paths.end() - 1));
  if (inputs.empty()) {
    std::fprintf(stderr, "velorum: no audio files found\n");
    status = 2;
    return false;
  }
  std::error_code ec;
  const bool folder = fs::is_directory(fs::u8path(out), ec) || inputs.size() > 1 ||
                      (o.paths.size() == 2 && fs::is_directory(fs::u8path(o.paths.front()), ec));
  if (folder && !fs::is_directory(fs::u8path(out), ec) && !fs::create_directories(fs::u8path(out), ec)) {
    std::fprintf(stderr, "velorum: %s: the output folder could not be created\n", out.c_str());
    status = 2;
    return false;
  }
  std::map<std::string, std::string> taken;
  for (const std::string& input : inputs) {
    Job job;
    job.input = input;
    job.output = folder ? OutputNameIn(out, input, OutputContainerFor(SniffContainer(input))) : out;
    const auto [it, fresh] = taken.emplace(job.output, input);
    if (!fresh) job.refusal = "Also the copy of " + it->second + ": this input is left out.";
    jobs.push_back(std::move(job));
  }
  return true;
}

}  // namespace

int RunNormalizeCommand(const std::vector<std::string>& args) {
  Options o;
  int status = 0;
  if (!Parse(args, o, status)) return status;
  const LoudnessStandard* preset = nullptr;
  if (!o.presetName.empty()) {
    const PresetMatch match = MatchPreset(o.presetName);
    if (!match.preset) return Usage(UnknownPresetMessage(o.presetName, match));
    preset = match.preset;
  }
  const double target = o.haveTarget ? o.target : preset->target;
  const double ceiling = o.haveTruePeak ? o.truePeak : preset ? preset->truePeakMax : -1.0;
  std::vector<Job> jobs;
  if (!MakeJobs(o, jobs, status)) return status;

  // Every question about an existing file is asked before the work starts.
  ReplacePolicy policy(o.yes);
  std::map<std::string, bool> replace;
  for (const Job& job : jobs)
    if (job.refusal.empty() && std::filesystem::exists(std::filesystem::u8path(job.output)))
      replace[job.output] = policy.ask(job.output);

  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  const int stopAt = StopAtPercent();
  ProgressBar bar;
  std::mutex lock;
  std::atomic<size_t> next{0};
  size_t printed = 0;
  std::vector<bool> done(jobs.size(), false);
  int total = 0;
  auto worker = [&] {
    for (size_t i; (i = next++) < jobs.size();) {
      Job& job = jobs[i];
      if (job.refusal.empty()) {
        NormalizeRequest request;
        request.input = job.input;
        request.output = job.output;
        request.targetLufs = target;
        request.truePeakMax = ceiling;
        request.limit = o.limit;
        request.floatOutput = o.floatOutput;
        request.forceRf64 = o.rf64;
        request.ecoTruePeak = o.eco;
        request.confirmReplace = [&](const std::string&) {
          const auto answer = replace.find(job.output);  // read only: the workers share the map
          return answer != replace.end() && answer->second;
        };
        request.progress = [&](int p) {
          if (stopAt >= 0 && p >= stopAt) std::raise(SIGSTOP);
          const std::lock_guard<std::mutex> guard(lock);
          total += p - job.progress;
          job.progress = p;
          bar.update(total / (100.0 * static_cast<double>(jobs.size())),
                     std::to_string(jobs.size()) + (jobs.size() == 1 ? " file" : " files"));
        };
        job.result = NormalizeFile(request);
      }
      // The reports come out in the order of the inputs.
      const std::lock_guard<std::mutex> guard(lock);
      done[i] = true;
      for (; printed < jobs.size() && done[printed]; ++printed) {
        const Job& j = jobs[printed];
        bar.clear();
        if (!j.refusal.empty())
          std::fprintf(stderr, "velorum: %s: %s\n", j.output.c_str(), j.refusal.c_str());
        else if (!j.result.ok)
          std::fprintf(stderr, "velorum: %s: %s\n", j.result.messageFile.c_str(), j.result.message.c_str());
        else
          PrintReport(j, ceiling);
      }
    }
  };
  const int threads = std::clamp(o.jobs > 0 ? o.jobs : static_cast<int>(std::thread::hardware_concurrency()),
                                 1, static_cast<int>(jobs.size()));
  std::vector<std::thread> pool;
  for (int t = 1; t < threads; ++t) pool.emplace_back(worker);
  worker();
  for (std::thread& t : pool) t.join();
  bar.clear();

  int exit = 0;
  for (const Job& j : jobs) {
    if (!j.refusal.empty() || !j.result.ok)
      exit = 2;
    else if (exit == 0 &&
             (j.result.truePeakWarning || (j.result.gainLowered && j.result.shortfallLu >= 0.05)))
      exit = 1;
  }
  return exit;
}

}  // namespace velorum
