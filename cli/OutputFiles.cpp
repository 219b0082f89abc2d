#include "cli/OutputFiles.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <set>

#include "export/ExportWriter.h"

namespace velorum {

namespace fs = std::filesystem;

namespace {

const char* const kFolderSuffix[kOutputKinds] = {".csv", ".dolby.csv", ".txt", ".jsonl", ".png"};

fs::path absoluteParent(const std::string& input) {
  std::error_code ec;
  fs::path p = fs::absolute(fs::path(input), ec).lexically_normal();
  return p.parent_path();
}

// "report.csv" -> "report-2.csv"
std::string numbered(const std::string& path, int n) {
  const fs::path p(path);
  std::string name = p.filename().string();
  const std::string ext = p.extension().string();
  name = name.substr(0, name.size() - ext.size()) + "-" + std::to_string(n) + ext;
  return (p.parent_path() / name).string();
}

std::string key(const std::string& path) {
  std::error_code ec;
  return fs::weakly_canonical(fs::absolute(path, ec), ec).string();
}

}  // namespace

const char* OutputKindKey(int kind) {
  static const char* const keys[kOutputKinds] = {"csv", "dolby_csv", "summary", "timeline", "graph"};
  return kind >= 0 && kind < kOutputKinds ? keys[kind] : "";
}

bool ReplacePolicy::ask(const std::string& path) {
  if (yes_) return true;
  if (!isatty(STDIN_FILENO) || !isatty(STDERR_FILENO)) return false;
  std::fprintf(stderr, "%s already exists. Replace it? [y/N] ", path.c_str());
  std::fflush(stderr);
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

std::vector<std::string> RelativeInputNames(const std::vector<std::string>& inputs) {
  std::vector<std::string> names(inputs.size());
  fs::path common;
  bool first = true;
  for (const std::string& input : inputs) {
    if (input == "-") continue;
    const fs::path parent = absoluteParent(input);
    if (first) {
      common = parent;
      first = false;
      continue;
    }
    fs::path shared;
    for (auto a = common.begin(), b = parent.begin(); a != common.end() && b != parent.end() && *a == *b;
         ++a, ++b)
      shared /= *a;
    common = shared;
  }
  for (size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i] == "-") {
      names[i] = "stdin";
      continue;
    }
    std::error_code ec;
    const fs::path full = fs::absolute(fs::path(inputs[i]), ec).lexically_normal();
    names[i] = full.lexically_relative(common).generic_string();
    if (names[i].empty() || names[i].rfind("..", 0) == 0) names[i] = full.filename().string();
  }
  return names;
}

std::vector<OutputFiles> PlanOutputFiles(const std::string (&bases)[kOutputKinds],
                                         const std::vector<std::string>& inputs) {
  std::vector<OutputFiles> plan(inputs.size());
  const std::vector<std::string> names =
      inputs.size() > 1 ? RelativeInputNames(inputs) : std::vector<std::string>();
  std::set<std::string> taken;
  for (const std::string& input : inputs)
    if (input != "-") taken.insert(key(input));
  for (int kind = 0; kind < kOutputKinds; ++kind) {
    const std::string& base = bases[kind];
    if (base.empty()) continue;
    std::error_code ec;
    const bool folder = fs::is_directory(base, ec);
    for (size_t i = 0; i < inputs.size(); ++i) {
      std::string path;
      if (inputs.size() == 1) {
        const std::string file = inputs[i] == "-" ? "stdin" : fs::path(inputs[i]).filename().string();
        path = folder ? (fs::path(base) / (file + kFolderSuffix[kind])).string() : base;
      } else if (folder) {
        path = (fs::path(base) / (names[i] + kFolderSuffix[kind])).string();
      } else {
        std::string flat = names[i];
        std::replace(flat.begin(), flat.end(), '/', '_');
        const fs::path p(base);
        path = (p.parent_path() / (p.stem().string() + "." + flat + p.extension().string())).string();
      }
      std::string unique = path;
      for (int n = 2; taken.count(key(unique)); ++n) unique = numbered(path, n);
      taken.insert(key(unique));
      plan[i].paths[kind] = unique;
    }
  }
  return plan;
}

void OutputFiles::confirm(ReplacePolicy& policy) {
  for (const std::string& path : paths) {
    std::error_code ec;
    if (!path.empty() && fs::exists(path, ec) && !replace.count(path)) replace[path] = policy.ask(path);
  }
}

bool OutputFiles::mayReplace(const std::string& path) const {
  const auto it = replace.find(path);
  return it != replace.end() && it->second;
}

}  // namespace velorum
