// velorum version [--check]: prints the version and, with --check, asks the
// update address whether a newer version exists and prints the news.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace velorum {

// Exit status: 0 (up to date or newer found), 2 the check failed, 64 bad usage.
int RunVersionCommand(const std::vector<std::string>& args, std::FILE* out = stdout, std::FILE* err = stderr);

}  // namespace velorum
