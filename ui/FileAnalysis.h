// Offline analysis of dropped or chosen audio files on a worker thread, into
// a measurement of the editor's own (the live meter keeps running). Where no
// decoder is built in, every file is refused with "The file could not be
// opened.".
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ui/MeterModel.h"

namespace velorum::ui {

class FileAnalysis {
 public:
  enum class State { Idle, Busy, Done, Failed, Cancelled };
  FileAnalysis();
  ~FileAnalysis();
  FileAnalysis(const FileAnalysis&) = delete;
  FileAnalysis& operator=(const FileAnalysis&) = delete;

  // Starts analysing one file (several files that form a multi-mono set are
  // analysed together); `ecoTruePeak` and `relativeGateFactor` follow the meter.
  bool Start(const std::vector<std::string>& paths, bool ecoTruePeak, double relativeGateFactor);
  State Poll() const;
  int Progress() const;
  void Cancel();
  // Waits for the worker (used when the editor goes).
  void Wait();
  // The finished measurement (once, after Done).
  std::unique_ptr<FileMeasurement> TakeResult();
  std::string Message() const { return mMessage; }
  const std::string& CurrentPath() const { return mPath; }

  struct Impl;

 private:
  std::unique_ptr<Impl> mImpl;
  std::string mMessage;
  std::string mPath;
};

// Whether this build decodes files.
bool FileAnalysisAvailable();

}  // namespace velorum::ui
