#include "cli/AnalyzeCommand.h"

#include <sndfile.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

#include "analysis/AudioFileReader.h"
#include "analysis/OfflineAnalysis.h"
#include "analysis/SndfileDecoder.h"
#include "cli/BatchReport.h"
#include "cli/JsonResult.h"
#include "cli/Measurement.h"
#include "cli/OutputFiles.h"
#include "cli/ProgressBar.h"
#include "cli/StandardInput.h"
#include "cli/Timeline.h"
#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"
#include "export/CsvExport.h"
#include "export/ExportWriter.h"
#include "presets/LoudnessStandards.h"
#include "ui/GraphImage.h"

namespace velorum {
namespace {

// One input (a file or the multi-mono set) of the run and what came of it.
struct Job {
  std::vector<std::string> paths;  // what is read
  std::string name;                // what is shown ("-" for standard input)
  std::atomic<int> progress{0};
  bool done = false;   // under Board::mutex
  std::string output;  // what goes to stdout
  std::string errors;  // what goes to stderr
  int status = 0;
  ReportRow row;
};

// Where workers announce progress and finished inputs; the main thread
// sleeps on it until there is something to draw or print.
struct Board {
  std::mutex mutex;
  std::condition_variable changed;
  bool progressed = false;

  void progress() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      progressed = true;
    }
    changed.notify_one();
  }
  void finish(Job& job) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      job.done = true;
    }
    changed.notify_one();
  }
};

const char* formatName(int kind, const std::string& path) {
  switch (kind) {
    case AudioFileReader::KindMp3:
      return "mp3";
    case AudioFileReader::KindWav:
      return "wav";
    case AudioFileReader::KindFlac:
      return "flac";
    case AudioFileReader::KindVorbis:
      return "ogg";
    case AudioFileReader::KindMultiMono:
      return "multi-mono";
    default:
      break;
  }
  (void)path;
  return "other";
}

// The coded depth of a PCM or lossless file as libsndfile sees it; -1 for
// lossy or unknown formats.
int32_t probeBits(const std::string& path) {
  SF_INFO info{};
  SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
  if (!f) return -1;
  sf_close(f);
  return SndfileCodedBits(info.format);
}

std::string extensionOf(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  if (!ext.empty()) ext.erase(0, 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

class Runner {
 public:
  Runner(const AnalyzeOptions& o, Board& board, bool progressEvents)
      : o_(o), board_(board), progressEvents_(progressEvents) {
    report_.preset = o.preset;
    report_.dialogue = o.dialogue;
    report_.unit = o.Unit();
    report_.fps = o.fps;
    report_.dropFrame = o.dropFrame;
  }
  void run(Job& job, const OutputFiles& files);

 private:
  std::string failureMessage(const OfflineAnalysis& analysis, const OfflineAnalysis::Request& request) const;
  void measured(Job& job, const OutputFiles& files, const LoudnessEngine& engine,
                const OfflineAnalysis::FileInfo& info, const SamplePeakMeter& peaks);

  const AnalyzeOptions& o_;
  Board& board_;
  bool progressEvents_;
  ReportOptions report_;
};

// Messages in the command's own words, with the counts that explain them.
std::string Runner::failureMessage(const OfflineAnalysis& analysis,
                                   const OfflineAnalysis::Request& request) const {
  const int error = analysis.error();
  const size_t files = request.paths.size();
  const std::string layout = o_.layout >= 0 ? std::string(LayoutAt(o_.layout).name) : std::string();
  const int layoutChannels = o_.layout >= 0 ? LayoutAt(o_.layout).channelCount : 0;
  if (error == AudioFileReader::ErrorChannels && !request.multiMono) {
    AudioFileReader reader;
    const int channels = reader.open(request.paths.front()) ? static_cast<int>(reader.channels()) : 0;
    if (o_.layout >= 0)
      return "the file has " + std::to_string(channels) + " channels but layout \"" + layout + "\" has " +
             std::to_string(layoutChannels);
    return "the file has " + std::to_string(channels) + " channels; 1 to 24 can be measured";
  }
  if (request.multiMono) {
    if (error == AudioFileReader::ErrorLayout && o_.layout >= 0)
      return "the " + std::to_string(files) + " files do not match layout \"" + layout + "\" (" +
             std::to_string(layoutChannels) + " channels)";
    if (error == AudioFileReader::ErrorLayout)
      return "the channel suffixes of the " + std::to_string(files) +
             " files match no layout (see velorum layouts)";
    if (error == AudioFileReader::ErrorNotMono)
      return "every file of a multi-mono set must be mono (" + std::to_string(files) + " files given)";
    if (error == AudioFileReader::ErrorChannels)
      return "the " + std::to_string(files) + " files differ in length or sample rate";
  }
  return analysis.message();
}

void Runner::run(Job& job, const OutputFiles& files) {
  auto engine = std::make_unique<LoudnessEngine>();
  engine->SetEcoMode(o_.eco);
  // The speech classifier runs only when something reads its results: the
  // dialogue lines, the Dolby CSV, the time line's dialogue flag, or a
  // preset with a dialogue target.
  engine->SetDialogueEnabled(o_.dialogue || !files[kDolbyCsvOutput].empty() ||
                             !files[kTimelineOutput].empty() || (o_.preset && o_.preset->dialTarget != 30));
  OfflineAnalysis analysis(*engine);
  OfflineAnalysis::Request request;
  request.paths = job.paths;
  request.multiMono = o_.multiMono;
  request.strict = o_.strict;
  request.blockFrames = 8192;
  request.stream = o_.stream;
  if (o_.layout >= 0) request.layoutIndex = static_cast<uint32_t>(o_.layout);
  SamplePeakMeter peaks;
  request.onBlock = [&](const double* const* channels, int count, int frames, int progress) {
    peaks.add(channels, count, frames);
    if (progressEvents_ && job.progress.exchange(progress) != progress) board_.progress();
  };
  if (!analysis.run(request)) {
    const std::string message = failureMessage(analysis, request);
    const std::string reason = analysis.reason();
    job.output = o_.json ? JsonLine(ErrorJson(job.name, message, reason)) + "\n" : std::string();
    job.errors = "velorum: " + job.name + ": " + message + "\n";
    job.status = 2;
    job.row.result = ErrorJson(job.name, message, reason);
    job.row.verdict = "ERROR";
    job.row.reasons = {message};
    return;
  }
  measured(job, files, *engine, analysis.fileInfo(), peaks);
}

void Runner::measured(Job& job, const OutputFiles& files, const LoudnessEngine& engine,
                      const OfflineAnalysis::FileInfo& info, const SamplePeakMeter& peaks) {
  Measurement m;
  m.file = job.name;
  m.files = o_.multiMono ? job.paths : std::vector<std::string>{job.name};
  m.format = info.decoderKind == AudioFileReader::KindSystem
                 ? extensionOf(job.paths.front())
                 : formatName(info.decoderKind, job.paths.front());
  if (m.format.empty()) m.format = "other";
  m.sampleRate = info.sampleRate;
  m.channels = info.channels;
  m.frames = info.frames;
  m.bitsPerSample = info.bitsPerSample;
  m.realBits = info.bitsPerSample;
  if (m.realBits <= 0)
    for (const std::string& path : job.paths)  // multi-mono sets and system-decoded PCM
      m.realBits = std::max(m.realBits, probeBits(path));
  m.timeReference = info.timeReference;
  m.channelNames = info.channelNames;
  m.readEngine(engine);
  peaks.store(m);
  m.nonFiniteSamples = info.nonFiniteSamples;
  m.streams = info.streams;
  m.stream = info.stream;
  if (info.streams > 1 && info.stream >= 0 && o_.stream < 0)
    job.errors += "velorum: " + job.name + ": warning: the file holds " + std::to_string(info.streams) +
                  " audio streams; stream 0 was measured (choose one with --stream N)\n";
  if (info.nonFiniteSamples > 0)
    job.errors += "velorum: " + job.name + ": warning: " + std::to_string(info.nonFiniteSamples) +
                  " NaN or infinite samples were measured as silence\n";

  PresetCheck check;
  if (o_.preset) {
    check = CheckAgainstPreset(m, *o_.preset, o_.tolerance);
    if (!check.pass) job.status = 1;
  }
  std::string summary, formatError;
  if (!BuildTextSummary(MakeSummaryInput(m, report_, o_.preset ? &check : nullptr), summary, &formatError)) {
    job.errors += "velorum: " + job.name + ": " + formatError + "\n";
    job.status = 2;
    return;
  }

  // What goes into each requested file, made under the engine mutex where
  // the histories are read.
  std::string content[kOutputKinds];
  content[kSummaryOutput] = summary;
  ui::TargetWindow targets;
  const LoudnessStandard* p = o_.preset ? o_.preset : FindStandard(kDefaultStandardIndex);
  targets.target = o_.preset ? check.window.target : p->target;
  targets.upper = o_.preset ? check.window.upper : p->upper;
  targets.lower = o_.preset ? check.window.lower : p->lower;
  targets.truePeakMax = p->truePeakMax;
  targets.lkfs = report_.Lkfs();
  const bool graph = !files[kGraphOutput].empty() || !o_.reportPath.empty();
  {
    EngineLock lock(engine.Mutex());
    CsvContext context;
    context.history = &engine.History();
    context.intervalSeconds = o_.interval;
    context.timecodeFps = o_.fps;
    context.dropFrame = o_.dropFrame;
    context.startSeconds = info.sampleRate ? static_cast<double>(info.timeReference) / info.sampleRate : 0.0;
    context.preset = o_.preset;
    context.lkfs = report_.Lkfs();
    context.dialogue = o_.dialogue;
    context.values = MakeSummaryInput(m, report_).values;
    context.hasWindow = o_.preset != nullptr;
    context.windowTarget = check.window.target;
    context.windowLower = check.window.lower;
    context.windowUpper = check.window.upper;
    const std::time_t now = std::time(nullptr);
    localtime_r(&now, &context.localTime);
    context.logFilePath = job.name;
    if (!files[kCsvOutput].empty()) content[kCsvOutput] = BuildPlainCsv(context);
    if (!files[kDolbyCsvOutput].empty()) content[kDolbyCsvOutput] = BuildDolbyCsv(context);
    if (!files[kTimelineOutput].empty())
      content[kTimelineOutput] =
          BuildTimeline(engine.History(), {o_.interval, context.startSeconds, o_.fps, o_.dropFrame});
  }
  if (graph) {
    char readings[200];
    std::snprintf(readings, sizeof readings,
                  "Integrated %.1f %s   Loudness Range %.1f LU   True Peak Max %.1f dBTP   Preset %s%s",
                  RoundToTenth(m.integrated), targets.lkfs ? "LKFS" : "LUFS", RoundToTenth(m.loudnessRange),
                  RoundToTenth(m.truePeakMax), PresetDisplayName(o_.preset).c_str(),
                  o_.preset ? (check.pass ? " PASS" : " FAIL") : "");
    job.row.graph = ui::CaptureGraph(engine, targets, "Velorum  -  " + job.name, readings);
    job.row.hasGraph = true;
    ui::ImageKind kind = ui::ImageKind::Png;
    if (!files[kGraphOutput].empty()) {
      ui::ImageKindForPath(files[kGraphOutput], kind);
      content[kGraphOutput] = ui::RenderGraphImage(job.row.graph, kind);
    }
  }

  InputOutcome outcome;
  outcome.check = o_.preset ? &check : nullptr;
  for (int kind = 0; kind < kOutputKinds; ++kind) {
    const std::string& path = files[kind];
    if (path.empty()) continue;
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    ExportStatus status = ExportStatus::CouldNotCreate;
    if (!content[kind].empty() || kind == kTimelineOutput)
      status =
          WriteExportFile(path, content[kind], [&](const std::string&) { return files.mayReplace(path); });
    if (status == ExportStatus::Written) {
      outcome.exports.emplace_back(OutputKindKey(kind), path);
      continue;
    }
    const std::string message = status == ExportStatus::Declined
                                    ? "already exists; kept (use -y to replace it)"
                                    : ExportStatusMessage(status);
    outcome.exportErrors.push_back({path, message});
    job.errors += "velorum: " + path + ": " + message + "\n";
    job.status = 2;
  }

  job.row.result = MeasurementJson(m, report_, outcome);
  job.row.verdict = o_.preset ? (check.pass ? "PASS" : "FAIL") : "MEASURED";
  job.row.reasons = check.details;
  for (const ExportError& e : outcome.exportErrors) job.row.reasons.push_back(e.path + ": " + e.message);
  job.output = o_.json ? JsonLine(job.row.result) + "\n" : summary;
}

std::vector<std::unique_ptr<Job>> makeJobs(const AnalyzeOptions& o, const std::vector<std::string>& inputs,
                                           const std::string& stdinPath) {
  std::vector<std::unique_ptr<Job>> jobs;
  auto add = [&](std::vector<std::string> paths, std::string name) {
    auto job = std::make_unique<Job>();
    job->paths = std::move(paths);
    job->name = std::move(name);
    jobs.push_back(std::move(job));
  };
  if (o.multiMono) {
    add(inputs, inputs.front());
    return jobs;
  }
  for (const std::string& path : inputs) add({path == "-" ? stdinPath : path}, path);
  return jobs;
}

// Writes the tally of a batch to stderr: counts, then the inputs that failed.
void printTally(const AnalyzeOptions& o, const std::vector<std::unique_ptr<Job>>& jobs) {
  size_t failed = 0, checkFailed = 0;
  std::string names;
  for (const auto& job : jobs) {
    failed += job->status == 2 ? 1 : 0;
    checkFailed += job->status == 1 ? 1 : 0;
    if (job->status != 0)
      names += "  " + std::string(job->status == 2 ? "error  " : "fail   ") + job->name +
               (job->row.reasons.empty() ? std::string() : ": " + job->row.reasons.front()) + "\n";
  }
  std::fprintf(stderr, "velorum: %zu %s: %zu measured, %zu failed", jobs.size(),
               jobs.size() == 1 ? "input" : "inputs", jobs.size() - failed, failed);
  if (o.preset)
    std::fprintf(stderr, "; %s: %zu pass, %zu fail", PresetDisplayName(o.preset).c_str(),
                 jobs.size() - failed - checkFailed, checkFailed);
  std::fprintf(stderr, "\n%s", names.c_str());
}

}  // namespace

int RunAnalyze(const AnalyzeOptions& o) {
  const std::vector<std::string> inputs = ExpandInputs(o.inputs);
  if (inputs.empty()) {
    std::fprintf(stderr, "velorum: no audio files found in %zu %s\n", o.inputs.size(),
                 o.inputs.size() == 1 ? "folder" : "folders");
    return 2;
  }
  StandardInput stdinCopy;
  if (std::find(inputs.begin(), inputs.end(), "-") != inputs.end() && !stdinCopy.save()) {
    std::fprintf(stderr, "velorum: -: standard input could not be read\n");
    return 2;
  }
  std::vector<std::unique_ptr<Job>> jobs = makeJobs(o, inputs, stdinCopy.path());

  // Output names are settled, and existing files confirmed, before any
  // work starts so that questions never interleave with progress.
  std::vector<std::string> names;
  for (const auto& job : jobs) names.push_back(job->name);
  const std::string bases[kOutputKinds] = {o.csvPath, o.dolbyCsvPath, o.summaryPath, o.timelinePath,
                                           o.graphPath};
  std::vector<OutputFiles> files = PlanOutputFiles(bases, names);
  ReplacePolicy policy(o.yes);
  for (OutputFiles& f : files) f.confirm(policy);
  bool reportMayReplace = true;
  std::error_code ec;
  if (!o.reportPath.empty() && std::filesystem::exists(o.reportPath, ec))
    reportMayReplace = policy.ask(o.reportPath);

  ProgressBar bar(!o.quiet);
  Board board;
  Runner runner(o, board, bar.enabled());
  unsigned cores = std::thread::hardware_concurrency();
  const size_t workers =
      std::min<size_t>(jobs.size(), o.jobs > 0 ? static_cast<size_t>(o.jobs) : (cores ? cores : 2));
  std::atomic<size_t> next{0};
  std::vector<std::thread> pool;
  for (size_t w = 0; w < workers; ++w)
    pool.emplace_back([&] {
      for (size_t i = next++; i < jobs.size(); i = next++) {
        runner.run(*jobs[i], files[i]);
        board.finish(*jobs[i]);
      }
    });

  // Results are printed in input order as soon as they are ready; between
  // them the thread sleeps until a worker reports progress or a result.
  int status = 0;
  const bool several = jobs.size() > 1 && !o.json;
  std::unique_lock<std::mutex> lock(board.mutex);
  for (size_t printed = 0; printed < jobs.size();) {
    board.changed.wait(lock, [&] { return board.progressed || jobs[printed]->done; });
    board.progressed = false;
    while (printed < jobs.size() && jobs[printed]->done) {
      Job& job = *jobs[printed];
      lock.unlock();
      bar.clear();
      if (several) std::printf("%s==> %s <==\n", printed ? "\n" : "", job.name.c_str());
      std::fputs(job.output.c_str(), stdout);
      std::fflush(stdout);
      std::fputs(job.errors.c_str(), stderr);
      status = std::max(status, job.status);
      ++printed;
      lock.lock();
    }
    if (printed == jobs.size() || !bar.enabled()) continue;
    double sum = 0.0;
    size_t done = 0;
    for (const auto& job : jobs) {
      sum += job->done ? 1.0 : job->progress.load() / 100.0;
      done += job->done ? 1 : 0;
    }
    lock.unlock();
    bar.update(
        sum / static_cast<double>(jobs.size()),
        std::to_string(done) + "/" + std::to_string(jobs.size()) + (jobs.size() == 1 ? " input" : " inputs"));
    lock.lock();
  }
  lock.unlock();
  for (std::thread& t : pool) t.join();
  bar.clear();

  if (jobs.size() > 1 && !o.quiet) printTally(o, jobs);
  if (!o.reportPath.empty()) {
    std::vector<ReportRow> rows;
    for (const auto& job : jobs) rows.push_back(std::move(job->row));
    ReportKind kind = ReportKind::Csv;
    ReportKindForPath(o.reportPath, kind);
    const std::string text = BuildReport(kind, rows, "Velorum loudness report");
    const ExportStatus written =
        text.empty()
            ? ExportStatus::CouldNotCreate
            : WriteExportFile(o.reportPath, text, [&](const std::string&) { return reportMayReplace; });
    if (written != ExportStatus::Written) {
      std::fprintf(stderr, "velorum: %s: %s\n", o.reportPath.c_str(),
                   written == ExportStatus::Declined ? "already exists; kept (use -y to replace it)"
                                                     : ExportStatusMessage(written));
      status = 2;
    }
  }
  return status;
}

}  // namespace velorum
