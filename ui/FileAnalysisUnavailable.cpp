// The file analysis of a build without decoders: every file is refused.
#include "ui/FileAnalysis.h"

namespace velorum::ui {

struct FileAnalysis::Impl {};

bool FileAnalysisAvailable() { return false; }

FileAnalysis::FileAnalysis() : mImpl(std::make_unique<Impl>()) {}
FileAnalysis::~FileAnalysis() = default;

bool FileAnalysis::Start(const std::vector<std::string>& paths, bool, double) {
  mPath = paths.empty() ? std::string() : paths.front();
  mMessage = "The file could not be opened.";
  return false;
}

FileAnalysis::State FileAnalysis::Poll() const { return State::Idle; }
int FileAnalysis::Progress() const { return 0; }
void FileAnalysis::Cancel() {}
void FileAnalysis::Wait() {}
std::unique_ptr<FileMeasurement> FileAnalysis::TakeResult() { return nullptr; }

}  // namespace velorum::ui
