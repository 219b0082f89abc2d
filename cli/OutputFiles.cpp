#include "cli/OutputFiles.h"

#include "export/ExportWriter.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <unistd.h>

namespace velorum {

bool ReplacePolicy::ask(const std::string& path)
{
    if (yes_)
        return true;
    if (!isatty(STDIN_FILENO) || !isatty(STDERR_FILENO))
        return false;
    std::fprintf(stderr, "%s\n%s [y/N] ", path.c_str(), kReplaceQuestion);
    std::fflush(stderr);
    std::string answer;
    if (!std::getline(std::cin, answer))
        return false;
    return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

std::string OutputFiles::NameFor(const std::string& base, const std::string& input, size_t count, const char* suffix)
{
    namespace fs = std::filesystem;
    if (base.empty())
        return base;
    std::error_code ec;
    const std::string stem = fs::path(input).stem().string();
    if (fs::is_directory(base, ec))
        return (fs::path(base) / (stem + suffix)).string();
    if (count <= 1)
        return base;
    const fs::path p(base);
    return (p.parent_path() / (p.stem().string() + "." + stem + p.extension().string())).string();
}

OutputFiles OutputFiles::For(const std::string& csv, const std::string& dolbyCsv, const std::string& summary,
                             const std::string& input, size_t count)
{
    OutputFiles f;
    f.csv = NameFor(csv, input, count, ".csv");
    f.dolbyCsv = NameFor(dolbyCsv, input, count, ".dolby.csv");
    f.summary = NameFor(summary, input, count, ".txt");
    return f;
}

void OutputFiles::confirm(ReplacePolicy& policy)
{
    for (const std::string* path : {&csv, &dolbyCsv, &summary}) {
        std::error_code ec;
        if (!path->empty() && std::filesystem::exists(*path, ec) && !replace.count(*path))
            replace[*path] = policy.ask(*path);
    }
}

bool OutputFiles::mayReplace(const std::string& path) const
{
    const auto it = replace.find(path);
    return it != replace.end() && it->second;
}

} // namespace velorum
