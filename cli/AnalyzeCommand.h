#pragma once
// "velorum analyze [options] FILE...": measures each file (or one multi-mono
// set) with the engine, prints the text summary or one JSON line per file,
// writes the requested exports, and checks against a preset.
#include <string>
#include <vector>

namespace velorum {

struct AnalyzeOptions {
    std::vector<std::string> inputs;
    bool json = false;
    std::string csvPath;
    std::string dolbyCsvPath;
    std::string summaryPath;
    double interval = 1.0;
    bool eco = false;
    bool multiMono = false;
    bool strict = false;
    int layout = -1;                 // -1: from the file
    int stream = -1;                 // --stream N (0-based); -1: mono streams together, else the first
    std::string presetName;          // empty: none (the default preset is named in the summary)
    bool dialogue = false;
    bool lkfs = false;
    double tolerance = 1.0;
    double fps = 0.0;
    bool dropFrame = false;          // drop-frame time codes at 29.97 / 59.94
    int jobs = 0;                    // 0: all cores
    bool yes = false;                // replace existing export files without asking
};

// Parses the options after "analyze"; false with `error` set on a bad option.
bool ParseAnalyzeOptions(const std::vector<std::string>& args, AnalyzeOptions& options, std::string& error);

// Runs the command; returns the exit status (0 ok, 1 a preset check failed,
// 2 a file could not be measured or an export could not be written).
int RunAnalyze(const AnalyzeOptions& options);

// Index of a layout given by display name, short form ("5.1", "7.1.4"),
// channel list ("L R C LFE Ls Rs") or table index; -1 when none matches.
int FindLayout(const std::string& name);

// Files of a folder (recursively) whose extension names an audio or video
// format; plain files are returned as they are.
std::vector<std::string> ExpandInputs(const std::vector<std::string>& inputs);

} // namespace velorum
