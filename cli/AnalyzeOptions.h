#pragma once
// The options of "velorum analyze", declared on a CLI11 subcommand, and their
// checks once parsed: presets and layouts resolved, conflicting options
// refused.
#include <string>
#include <vector>

#include "cli/Measurement.h"

namespace CLI {
class App;
}

namespace velorum {

struct LoudnessStandard;

struct AnalyzeOptions {
  std::vector<std::string> inputs;  // files, folders, "-" for standard input
  bool json = false;
  bool quiet = false;
  std::string csvPath;
  std::string dolbyCsvPath;
  std::string summaryPath;
  std::string timelinePath;
  std::string graphPath;
  std::string reportPath;
  double interval = 1.0;
  bool eco = false;
  bool multiMono = false;
  bool strict = false;
  std::string layoutName;
  int layout = -1;         // -1: from the file
  int stream = -1;         // --stream N (0-based); -1: mono streams together, else the first
  std::string presetName;  // empty: none (the default preset is named in the summary)
  const LoudnessStandard* preset = nullptr;
  bool dialogue = false;
  bool lufs = false;
  bool lkfs = false;
  double tolerance = 1.0;
  bool toleranceGiven = false;
  double fps = 0.0;
  bool dropFrame = false;  // drop-frame time codes at 29.97 / 59.94
  int jobs = 0;            // 0: all cores
  bool yes = false;        // replace existing output files without asking

  UnitChoice Unit() const {
    return lkfs ? UnitChoice::Lkfs : lufs ? UnitChoice::Lufs : UnitChoice::FromPreset;
  }
};

// Declares the options on `command` (the "analyze" subcommand).
void AddAnalyzeOptions(CLI::App& command, AnalyzeOptions& options);
// Resolves names and refuses conflicts after parsing; "" when all is well,
// otherwise the message for the user.
std::string CheckAnalyzeOptions(AnalyzeOptions& options);

// Index of a layout given by display name, short form ("5.1", "7.1.4"),
// channel list ("L R C LFE Ls Rs") or table index; -1 when none matches.
int FindLayout(const std::string& name);

// Files of a folder (recursively) whose extension names an audio or video
// format; plain files (and "-") are returned as they are.
std::vector<std::string> ExpandInputs(const std::vector<std::string>& inputs);

}  // namespace velorum
