#pragma once
// "velorum normalize [options] IN... OUT": writes copies of audio files
// brought to a loudness target under a true-peak ceiling (see WavNormalizer),
// one file to a file name or several (or folders of them) to an output
// folder, several at a time with -j. Ctrl-C and SIGTERM remove the
// temporary files of the copies being written.
#include <string>
#include <vector>

namespace velorum {

// The options after "normalize"; returns the exit status: 0 every copy met
// its target and ceiling, 1 a copy stays below its target (the gain was
// lowered to keep the ceiling) or above the ceiling, 2 a file could not be
// read or written, 64 bad usage.
int RunNormalizeCommand(const std::vector<std::string>& args);

// The usage lines of the command, for the program's help text.
extern const char* const kNormalizeHelp;

}  // namespace velorum
