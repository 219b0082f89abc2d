#include "cli/AnalyzeCommand.h"

#include "analysis/OfflineAnalysis.h"
#include "cli/Measurement.h"
#include "cli/OutputFiles.h"
#include "cli/ProgressBar.h"
#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"
#include "export/CsvExport.h"
#include "export/ExportWriter.h"
#include "export/Timecode.h"
#include "presets/LoudnessStandards.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

namespace velorum {
namespace {

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

bool parseNumber(const std::string& text, double& value)
{
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0' && std::isfinite(value);
}

// One file (or the multi-mono set) of the run and what came of it.
struct Job {
    std::vector<std::string> paths;
    std::string name;
    std::atomic<int> progress{0};
    std::atomic<bool> done{false};
    std::string output;      // what goes to stdout
    std::string errors;      // what goes to stderr
    int status = 0;
};

class Runner {
public:
    Runner(const AnalyzeOptions& o, const LoudnessStandard* preset) : o_(o), preset_(preset) {}
    void run(Job& job, const OutputFiles& files);

private:
    const AnalyzeOptions& o_;
    const LoudnessStandard* preset_;
};

void Runner::run(Job& job, const OutputFiles& files)
{
    auto engine = std::make_unique<LoudnessEngine>();
    engine->SetEcoMode(o_.eco);
    // The speech classifier runs only when something reads its results: the
    // dialogue lines, the Dolby CSV, or a preset with a dialogue target.
    engine->SetDialogueEnabled(o_.dialogue || !files.dolbyCsv.empty() || (preset_ && preset_->dialTarget != 30));
    OfflineAnalysis analysis(*engine);
    OfflineAnalysis::Request request;
    request.paths = job.paths;
    request.multiMono = o_.multiMono;
    request.strict = o_.strict;
    request.blockFrames = 8192;
    request.stream = o_.stream;
    if (o_.layout >= 0)
        request.layoutIndex = static_cast<uint32_t>(o_.layout);

    std::atomic<bool> finished{false};
    std::thread watcher([&] {
        while (!finished.load()) {
            job.progress.store(analysis.progress());
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    });
    const bool ok = analysis.run(request);
    finished.store(true);
    watcher.join();
    job.progress.store(100);

    if (!ok) {
        const std::string message = analysis.message();
        if (o_.json)
            job.output = MakeJsonError(job.name, message, analysis.reason()) + "\n";
        else
            job.errors = "velorum: " + job.name + ": " + message + "\n";
        job.status = 2;
        return;
    }

    const OfflineAnalysis::FileInfo& info = analysis.fileInfo();
    Measurement m;
    m.file = job.name;
    m.sampleRate = info.sampleRate;
    m.channels = info.channels;
    m.frames = info.frames;
    m.bitsPerSample = info.bitsPerSample;
    m.timeReference = info.timeReference;
    m.channelNames = info.channelNames;
    m.readEngine(*engine);
    m.nonFiniteSamples = info.nonFiniteSamples;
    m.streams = info.streams;
    m.stream = info.stream;
    if (info.streams > 1 && info.stream >= 0 && o_.stream < 0)
        job.errors += "velorum: " + job.name + ": warning: the file holds " + std::to_string(info.streams) +
                      " audio streams; stream 0 was measured (choose one with --stream N)\n";
    if (info.nonFiniteSamples > 0)
        job.errors += "velorum: " + job.name + ": warning: " + std::to_string(info.nonFiniteSamples) +
                      " NaN or infinite samples were measured as silence\n";

    ReportOptions report;
    report.preset = preset_;
    report.dialogue = o_.dialogue;
    report.lkfs = o_.lkfs;
    report.fps = o_.fps;
    report.dropFrame = o_.dropFrame;
    PresetCheck check;
    if (preset_) {
        check = CheckAgainstPreset(m, *preset_, o_.tolerance);
        if (!check.pass)
            job.status = 1;
    }

    std::string summary;
    std::string formatError;
    if (!BuildTextSummary(MakeSummaryInput(m, report), summary, &formatError)) {
        job.errors += "velorum: " + job.name + ": " + formatError + "\n";
        job.status = 2;
        return;
    }

    auto write = [&](const std::string& path, const std::string& content) {
        if (path.empty())
            return;
        const ExportStatus status = WriteExportFile(path, content, [&](const std::string&) {
            return files.mayReplace(path);
        });
        if (status == ExportStatus::Written)
            return;
        const char* message = status == ExportStatus::Declined ? kReplaceQuestion : ExportStatusMessage(status);
        job.errors += "velorum: " + path + ": " + message + (status == ExportStatus::Declined ? " (kept)" : "") + "\n";
        job.status = 2;
    };
    if (!files.csv.empty() || !files.dolbyCsv.empty()) {
        CsvContext context;
        context.intervalSeconds = o_.interval;
        context.timecodeFps = o_.fps;
        context.dropFrame = o_.dropFrame;
        context.startSeconds = info.sampleRate ? static_cast<double>(info.timeReference) / info.sampleRate : 0.0;
        context.preset = preset_;
        context.lkfs = report.lkfs || (preset_ && preset_->lkfs);
        context.dialogue = o_.dialogue;
        context.values = MakeSummaryInput(m, report).values;
        const std::time_t now = std::time(nullptr);
        localtime_r(&now, &context.localTime);
        context.logFilePath = job.name;
        std::string csv, dolby;
        {
            EngineLock lock(engine->Mutex());
            context.history = &engine->History();
            if (!files.csv.empty())
                csv = BuildPlainCsv(context);
            if (!files.dolbyCsv.empty())
                dolby = BuildDolbyCsv(context);
        }
        write(files.csv, csv);
        write(files.dolbyCsv, dolby);
    }
    write(files.summary, summary);

    if (o_.json) {
        job.output = MakeJsonLine(m, report, preset_ ? &check : nullptr) + "\n";
    } else {
        job.output = summary;
        if (preset_) {
            job.output += "\nPreset Check (" + PresetDisplayName(preset_) + "): " + (check.pass ? "PASS" : "FAIL") + "\n";
            for (const std::string& d : check.details)
                job.output += "  " + d + "\n";
        }
    }
}

} // namespace

int FindLayout(const std::string& name)
{
    if (name.empty())
        return -1;
    const int exact = LayoutByName(name);
    if (exact >= 0)
        return exact;
    double index = 0.0;
    if (parseNumber(name, index) && name.find('.') == std::string::npos) {
        const int i = static_cast<int>(index);
        return i >= 0 && i < LayoutCount() ? i : -1;
    }
    const std::string wanted = lower(name);
    for (int i = 0; i < LayoutCount(); ++i) {
        const std::string full = lower(LayoutAt(i).name);
        const size_t paren = full.find(" (");
        const std::string head = full.substr(0, paren);
        const std::string channels =
            paren == std::string::npos ? std::string() : full.substr(paren + 2, full.size() - paren - 3);
        if (wanted == head || wanted == channels || wanted == head + " " + channels)
            return i;
    }
    if (wanted == "mono")
        return LayoutForChannelCount(1);
    if (wanted == "stereo")
        return LayoutForChannelCount(2);
    return -1;
}

std::vector<std::string> ExpandInputs(const std::vector<std::string>& inputs)
{
    static const std::set<std::string> audio = {
        "wav", "bwf", "rf64", "w64", "flac", "mp3", "mp2", "ogg", "oga", "opus", "m4a", "aac", "mp4", "m4v",
        "mov", "mkv", "mka", "webm", "aif", "aiff", "aifc", "caf", "wma", "wmv", "ac3", "ec3", "eac3", "mxf",
        "avi", "mpg", "mpeg", "ts", "m2ts", "dts", "wv", "ape", "tta", "au", "snd"};
    std::vector<std::string> out;
    for (const std::string& input : inputs) {
        std::error_code ec;
        if (!std::filesystem::is_directory(input, ec)) {
            out.push_back(input);
            continue;
        }
        std::vector<std::string> found;
        for (auto it = std::filesystem::recursive_directory_iterator(
                 input, std::filesystem::directory_options::skip_permission_denied, ec);
             !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
            const std::filesystem::path& p = it->path();
            const std::string file = p.filename().string();
            if (file.empty() || file[0] == '.' || !it->is_regular_file(ec))
                continue;
            std::string ext = lower(p.extension().string());
            if (!ext.empty() && audio.count(ext.substr(1)))
                found.push_back(p.string());
        }
        std::sort(found.begin(), found.end());
        out.insert(out.end(), found.begin(), found.end());
    }
    return out;
}

bool ParseAnalyzeOptions(const std::vector<std::string>& args, AnalyzeOptions& o, std::string& error)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= args.size()) {
                error = "option " + a + " needs a value";
                return false;
            }
            out = args[++i];
            return true;
        };
        auto numberValue = [&](double& out) {
            std::string text;
            if (!value(text))
                return false;
            if (!parseNumber(text, out)) {
                error = "option " + a + " needs a number, not \"" + text + "\"";
                return false;
            }
            return true;
        };
        std::string text;
        double number = 0.0;
        if (a == "--json") o.json = true;
        else if (a == "--eco") o.eco = true;
        else if (a == "--multi-mono") o.multiMono = true;
        else if (a == "--strict") o.strict = true;
        else if (a == "--dialogue") o.dialogue = true;
        else if (a == "--lkfs") o.lkfs = true;
        else if (a == "-y" || a == "--yes") o.yes = true;
        else if (a == "--csv") { if (!value(o.csvPath)) return false; }
        else if (a == "--dolby-csv") { if (!value(o.dolbyCsvPath)) return false; }
        else if (a == "--summary") { if (!value(o.summaryPath)) return false; }
        else if (a == "--preset") { if (!value(o.presetName)) return false; }
        else if (a == "--interval") {
            if (!numberValue(o.interval)) return false;
            if (o.interval < 0.01 || o.interval > 86400.0) {
                error = "--interval must be between 0.01 and 86400 seconds";
                return false;
            }
        } else if (a == "--tolerance") {
            if (!numberValue(o.tolerance)) return false;
            if (o.tolerance < 0.0) { error = "--tolerance must not be negative"; return false; }
        } else if (a == "--fps") {
            if (!numberValue(o.fps)) return false;
            if (o.fps < 1.0 || o.fps > 240.0) { error = "--fps must be between 1 and 240"; return false; }
        } else if (a == "--drop-frame") {
            o.dropFrame = true;
        } else if (a == "-j" || a == "--jobs") {
            if (!numberValue(number)) return false;
            if (number < 1.0 || number > 1024.0) { error = "-j needs a count from 1 to 1024"; return false; }
            o.jobs = static_cast<int>(number);
        } else if (a.rfind("-j", 0) == 0 && a.size() > 2 && parseNumber(a.substr(2), number) && number >= 1.0) {
            o.jobs = static_cast<int>(number);
        } else if (a == "--stream") {
            if (!numberValue(number)) return false;
            if (number < 0.0 || number > 1e6 || number != std::floor(number)) {
                error = "--stream needs a stream number from 0";
                return false;
            }
            o.stream = static_cast<int>(number);
        } else if (a == "--layout") {
            if (!value(text)) return false;
            o.layout = FindLayout(text);
            if (o.layout < 0) {
                error = "unknown layout \"" + text + "\" (see velorum layouts)";
                return false;
            }
        } else if (a == "--") {
            o.inputs.insert(o.inputs.end(), args.begin() + static_cast<std::ptrdiff_t>(i + 1), args.end());
            break;
        } else if (a.size() > 1 && a[0] == '-') {
            error = "unknown option " + a;
            return false;
        } else {
            o.inputs.push_back(a);
        }
    }
    if (o.inputs.empty()) {
        error = "no input files";
        return false;
    }
    if (!o.presetName.empty() && !FindStandardByName(o.presetName)) {
        error = "unknown preset \"" + o.presetName + "\" (see velorum presets)";
        return false;
    }
    if (o.dropFrame && !DropFrameRate(o.fps)) {
        error = "--drop-frame needs --fps 29.97 or 59.94";
        return false;
    }
    return true;
}

int RunAnalyze(const AnalyzeOptions& o)
{
    const LoudnessStandard* preset = o.presetName.empty() ? nullptr : FindStandardByName(o.presetName);
    const std::vector<std::string> inputs = ExpandInputs(o.inputs);
    if (inputs.empty()) {
        std::fprintf(stderr, "velorum: no audio files found\n");
        return 2;
    }
    std::vector<std::unique_ptr<Job>> jobs;
    if (o.multiMono) {
        auto job = std::make_unique<Job>();
        job->paths = inputs;
        job->name = inputs.front();
        jobs.push_back(std::move(job));
    } else {
        for (const std::string& path : inputs) {
            auto job = std::make_unique<Job>();
            job->paths = {path};
            job->name = path;
            jobs.push_back(std::move(job));
        }
    }

    // Output names are settled, and existing files confirmed, before any
    // work starts so that questions never interleave with progress.
    std::vector<OutputFiles> files;
    for (const auto& job : jobs)
        files.push_back(OutputFiles::For(o.csvPath, o.dolbyCsvPath, o.summaryPath, job->name, jobs.size()));
    ReplacePolicy policy(o.yes);
    for (OutputFiles& f : files)
        f.confirm(policy);

    unsigned cores = std::thread::hardware_concurrency();
    if (cores == 0)
        cores = 2;
    const size_t workers = std::min<size_t>(jobs.size(), o.jobs > 0 ? static_cast<size_t>(o.jobs) : cores);
    Runner runner(o, preset);
    std::atomic<size_t> next{0};
    std::vector<std::thread> pool;
    for (size_t w = 0; w < workers; ++w)
        pool.emplace_back([&] {
            for (size_t i = next++; i < jobs.size(); i = next++) {
                runner.run(*jobs[i], files[i]);
                jobs[i]->done.store(true);
            }
        });

    ProgressBar bar;
    int status = 0;
    size_t printed = 0;
    const bool several = jobs.size() > 1 && !o.json;
    while (printed < jobs.size()) {
        while (printed < jobs.size() && jobs[printed]->done.load()) {
            Job& job = *jobs[printed];
            bar.clear();
            if (several)
                std::printf("%s==> %s <==\n", printed ? "\n" : "", job.name.c_str());
            std::fputs(job.output.c_str(), stdout);
            std::fflush(stdout);
            std::fputs(job.errors.c_str(), stderr);
            status = std::max(status, job.status);
            ++printed;
        }
        if (printed == jobs.size())
            break;
        double sum = 0.0;
        size_t done = 0;
        for (const auto& job : jobs) {
            sum += job->done.load() ? 1.0 : job->progress.load() / 100.0;
            done += job->done.load() ? 1 : 0;
        }
        bar.update(sum / static_cast<double>(jobs.size()),
                   std::to_string(done) + "/" + std::to_string(jobs.size()) + (jobs.size() == 1 ? " file" : " files"));
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
    }
    for (std::thread& t : pool)
        t.join();
    bar.clear();
    if (jobs.size() > 1) {
        size_t failed = 0, checkFailed = 0;
        for (const auto& job : jobs) {
            failed += job->status == 2 ? 1 : 0;
            checkFailed += job->status == 1 ? 1 : 0;
        }
        std::fprintf(stderr, "velorum: %zu files: %zu measured, %zu failed", jobs.size(), jobs.size() - failed, failed);
        if (preset)
            std::fprintf(stderr, "; %s: %zu pass, %zu fail", PresetDisplayName(preset).c_str(),
                         jobs.size() - failed - checkFailed, checkFailed);
        std::fprintf(stderr, "\n");
    }
    return status;
}

} // namespace velorum
