#pragma once
// "velorum analyze [options] INPUT...": measures each input (or one
// multi-mono set) with the engine, prints the text summary or one JSON line
// per input in input order, writes the requested exports, time lines,
// graphs and the batch report, and checks against a preset.
#include "cli/AnalyzeOptions.h"

namespace velorum {

// Runs the command; returns the exit status (0 ok, 1 a preset check failed,
// 2 an input could not be measured or an output could not be written).
int RunAnalyze(const AnalyzeOptions& options);

}  // namespace velorum
