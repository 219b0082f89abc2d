#include "cli/AnalyzeOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <set>

#include "cli/BatchReport.h"
#include "cli/PresetNames.h"
#include "engine/ChannelLayouts.h"
#include "export/Timecode.h"
#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

bool isIndex(const std::string& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

}  // namespace

void AddAnalyzeOptions(CLI::App& c, AnalyzeOptions& o) {
  c.add_option("inputs", o.inputs,
               "audio or video files, folders (searched for them) or - for standard input")
      ->required();
  c.add_flag("--json", o.json, "one JSON object per input on its own line instead of the summary");
  c.add_flag("-q,--quiet", o.quiet, "no progress bar and no tally on standard error (errors still are)");
  c.add_option("--preset", o.presetName,
               "check against a standard: menu text, short name or alias (\"EBU R128\", r128, atsc, spotify);"
               " exit status 1 when a check fails");
  c.add_option_function<double>(
       "--tolerance",
       [&o](const double& lu) {
         o.tolerance = lu;
         o.toleranceGiven = true;
       },
       "LU around the target for presets without a lower limit (default 1.0)")
      ->check(CLI::Range(0.0, 20.0));
  c.add_flag("--dialogue", o.dialogue, "add the dialogue-gated readings");
  auto* lkfs = c.add_flag("--lkfs", o.lkfs, "show loudness in LKFS (otherwise the preset's unit)");
  c.add_flag("--lufs", o.lufs, "show loudness in LUFS (otherwise the preset's unit)")->excludes(lkfs);
  c.add_option("--csv", o.csvPath, "write the plain CSV of the measurement history");
  c.add_option("--dolby-csv", o.dolbyCsvPath, "write the Dolby CSV");
  c.add_option("--summary", o.summaryPath, "write the text summary to a file");
  c.add_option("--timeline", o.timelinePath,
               "write loudness over time as JSON Lines (one object per --interval)");
  c.add_option("--graph", o.graphPath,
               "draw the loudness history as .png, .svg or .pdf (a folder: PNG files)");
  c.add_option("--report", o.reportPath, "one table of all inputs: .csv, .json, .html or .pdf (with graphs)");
  c.add_option("--interval", o.interval, "CSV and time line interval in seconds, 0.01 and up (default 1)")
      ->check(CLI::Range(0.01, 86400.0));
  c.add_option("--fps", o.fps, "time codes as 00:00:00:00 at this rate (23.976, 25, 29.97 ...)")
      ->check(CLI::Range(1.0, 240.0));
  c.add_flag("--drop-frame", o.dropFrame, "drop-frame time codes (00:00:00;00) with --fps 29.97 or 59.94");
  c.add_flag("--eco", o.eco, "eco true-peak mode (the shorter oversampling filter)");
  c.add_flag("--multi-mono", o.multiMono,
             "the inputs are the mono channels of one programme (.L .R .C .LFE ...)");
  c.add_flag("--strict", o.strict, "every multi-mono file must carry a channel suffix of the layout");
  c.add_option("--layout", o.layoutName,
               "channel layout (5.1, \"7.1.4\", \"L R C LFE Ls Rs\"; see velorum layouts)");
  c.add_option("--stream", o.stream,
               "the audio stream to measure (from 0); by default several mono streams of one rate are one "
               "programme in stream order, else the first stream")
      ->check(CLI::Range(0, 1000000));
  c.add_option("-j,--jobs", o.jobs, "inputs analysed in parallel (default: all cores)")
      ->check(CLI::Range(1, 1024));
  c.add_flag("-y,--yes", o.yes, "replace existing output files without asking");
}

std::string CheckAnalyzeOptions(AnalyzeOptions& o) {
  if (!o.presetName.empty()) {
    const PresetMatch match = MatchPreset(o.presetName);
    if (!match.preset) return UnknownPresetMessage(o.presetName, match);
    o.preset = match.preset;
  }
  if (!o.layoutName.empty() && (o.layout = FindLayout(o.layoutName)) < 0)
    return "unknown layout \"" + o.layoutName + "\" (see velorum layouts)";
  if (o.dropFrame && !DropFrameRate(o.fps)) return "--drop-frame needs --fps 29.97 or 59.94";
  if (o.strict && !o.multiMono) return "--strict applies to --multi-mono sets only";
  const long stdinCount = std::count(o.inputs.begin(), o.inputs.end(), std::string("-"));
  if (stdinCount > 1) return "standard input (-) can be read only once";
  if (stdinCount && o.multiMono) return "a multi-mono set cannot come from standard input";
  if (o.multiMono && o.inputs.size() < 2 && !std::filesystem::is_directory(o.inputs.front()))
    return "--multi-mono needs the files of the set (1 given)";
  if (o.toleranceGiven && o.preset && o.preset->lower > -70 && o.preset->dialTarget == 30)
    return "--tolerance conflicts with --preset \"" + PresetDisplayName(o.preset) +
           "\", which sets its own window";
  ui::ImageKind image;
  if (!o.graphPath.empty() && !std::filesystem::is_directory(o.graphPath) &&
      !ui::ImageKindForPath(o.graphPath, image))
    return "--graph needs a .png, .svg or .pdf name or a folder, not \"" + o.graphPath + "\"";
  ReportKind report;
  if (!o.reportPath.empty() && !ReportKindForPath(o.reportPath, report))
    return "--report needs a .csv, .json, .html or .pdf name, not \"" + o.reportPath + "\"";
  if (o.toleranceGiven && !o.preset) return "--tolerance needs --preset";
  return std::string();
}

int FindLayout(const std::string& name) {
  if (name.empty()) return -1;
  const int exact = LayoutByName(name);
  if (exact >= 0) return exact;
  if (isIndex(name)) {
    const int i = std::atoi(name.c_str());
    return i >= 0 && i < LayoutCount() ? i : -1;
  }
  const std::string wanted = lower(name);
  for (int i = 0; i < LayoutCount(); ++i) {
    const std::string full = lower(LayoutAt(i).name);
    const size_t paren = full.find(" (");
    const std::string head = full.substr(0, paren);
    const std::string channels =
        paren == std::string::npos ? std::string() : full.substr(paren + 2, full.size() - paren - 3);
    if (wanted == head || wanted == channels || wanted == head + " " + channels) return i;
  }
  if (wanted == "mono") return LayoutForChannelCount(1);
  if (wanted == "stereo") return LayoutForChannelCount(2);
  return -1;
}

std::vector<std::string> ExpandInputs(const std::vector<std::string>& inputs) {
  static const std::set<std::string> audio = {
      "wav",  "bwf", "rf64", "w64", "flac", "mp3", "mp2",  "ogg",  "oga", "opus", "m4a", "aac", "mp4",
      "m4v",  "mov", "mkv",  "mka", "webm", "aif", "aiff", "aifc", "caf", "wma",  "wmv", "ac3", "ec3",
      "eac3", "mxf", "avi",  "mpg", "mpeg", "ts",  "m2ts", "dts",  "wv",  "ape",  "tta", "au",  "snd"};
  std::vector<std::string> out;
  for (const std::string& input : inputs) {
    std::error_code ec;
    if (input == "-" || !std::filesystem::is_directory(input, ec)) {
      out.push_back(input);
      continue;
    }
    std::vector<std::string> found;
    for (auto it = std::filesystem::recursive_directory_iterator(
             input, std::filesystem::directory_options::skip_permission_denied, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
      const std::filesystem::path& p = it->path();
      const std::string file = p.filename().string();
      if (file.empty() || file[0] == '.' || !it->is_regular_file(ec)) continue;
      std::string ext = lower(p.extension().string());
      if (!ext.empty() && audio.count(ext.substr(1))) found.push_back(p.string());
    }
    std::sort(found.begin(), found.end());
    out.insert(out.end(), found.begin(), found.end());
  }
  return out;
}

}  // namespace velorum
