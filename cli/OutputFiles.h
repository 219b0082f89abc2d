#pragma once
// Names of the export files of one analysed input, and the question before an
// existing file is replaced. With one input the names are used as given. With
// several, a name that is an existing folder receives "<input name>.csv",
// "<input name>.dolby.csv" or "<input name>.txt"; any other name gets the
// input's name inserted before its extension ("report.csv" ->
// "report.take1.csv").
#include <cstddef>
#include <map>
#include <string>

namespace velorum {

// Answers "This file already exists. Do you want to replace the existing
// file?": yes with --yes; on a terminal the user is asked; otherwise no.
class ReplacePolicy {
public:
    explicit ReplacePolicy(bool yes) : yes_(yes) {}
    bool ask(const std::string& path);

private:
    bool yes_;
};

struct OutputFiles {
    std::string csv;
    std::string dolbyCsv;
    std::string summary;
    std::map<std::string, bool> replace;   // existing files and the answer

    static OutputFiles For(const std::string& csv, const std::string& dolbyCsv, const std::string& summary,
                           const std::string& input, size_t inputCount);
    static std::string NameFor(const std::string& base, const std::string& input, size_t inputCount,
                               const char* folderSuffix);
    // Asks about every existing target once.
    void confirm(ReplacePolicy& policy);
    bool mayReplace(const std::string& path) const;
};

} // namespace velorum
