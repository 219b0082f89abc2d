#pragma once
// Names of the files written for each analysed input, settled for the whole
// run before any work starts so that no two ever collide, and the question
// before an existing file is replaced.
//
// With one input a name is used as given; a name that is an existing folder
// receives "<input's file name><suffix>" ("prog.wav.csv"). With several
// inputs each is known by its path below the folder all inputs share
// ("a/prog.wav", "prog.flac"): a folder receives that structure mirrored
// ("out/a/prog.wav.csv"), and a plain name gets it inserted before its
// extension ("report.csv" -> "report.a_prog.wav.csv"). Names that still
// coincide (with each other or with an input) get "-2", "-3" ... before the
// extension.
#include <cstddef>
#include <map>
#include <string>
#include <vector>

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

// The kinds of per-input output, in the order of OutputFiles::paths.
enum OutputKind { kCsvOutput, kDolbyCsvOutput, kSummaryOutput, kTimelineOutput, kGraphOutput, kOutputKinds };

// The JSON key of a kind ("csv", "dolby_csv", "summary", "timeline", "graph").
const char* OutputKindKey(int kind);

struct OutputFiles {
  std::string paths[kOutputKinds];
  std::map<std::string, bool> replace;  // existing files and the answer

  const std::string& operator[](int kind) const { return paths[kind]; }
  // Asks about every existing target once.
  void confirm(ReplacePolicy& policy);
  bool mayReplace(const std::string& path) const;
};

// `bases[kind]` is what the user gave (empty: no such output); `inputs` the
// first path of each analysed input ("-" for standard input).
std::vector<OutputFiles> PlanOutputFiles(const std::string (&bases)[kOutputKinds],
                                         const std::vector<std::string>& inputs);

// The path of an input below the folder all inputs share ("a/prog.wav").
std::vector<std::string> RelativeInputNames(const std::vector<std::string>& inputs);

}  // namespace velorum
