#include "ui/FileAnalysis.h"

#include "analysis/OfflineAnalysis.h"

namespace velorum::ui {

struct FileAnalysis::Impl {
  std::unique_ptr<FileMeasurement> file;
  std::unique_ptr<OfflineAnalysis> driver;
};

bool FileAnalysisAvailable() {
  return true;
}

FileAnalysis::FileAnalysis() : mImpl(std::make_unique<Impl>()) {}

FileAnalysis::~FileAnalysis() {
  Cancel();
  Wait();
}

bool FileAnalysis::Start(const std::vector<std::string>& paths, bool ecoTruePeak, double relativeGateFactor) {
  if (Poll() == State::Busy || paths.empty()) return false;
  Wait();
  mMessage.clear();
  mPath = paths.front();
  mImpl->driver.reset();
  mImpl->file = std::make_unique<FileMeasurement>();
  mImpl->file->path = paths.front();
  mImpl->file->engine->SetEcoMode(ecoTruePeak);
  mImpl->file->engine->SetRelativeGateFactor(relativeGateFactor);
  mImpl->driver = std::make_unique<OfflineAnalysis>(*mImpl->file->engine);
  OfflineAnalysis::Request request;
  request.paths = paths;
  request.multiMono = paths.size() > 1;
  if (!mImpl->driver->start(request)) {
    mMessage = "The file could not be opened.";
    return false;
  }
  return true;
}

FileAnalysis::State FileAnalysis::Poll() const {
  if (!mImpl->driver) return State::Idle;
  switch (mImpl->driver->state()) {
    case OfflineAnalysis::Busy:
      return State::Busy;
    case OfflineAnalysis::Done:
      return State::Done;
    case OfflineAnalysis::Failed:
      return State::Failed;
    case OfflineAnalysis::Cancelled:
      return State::Cancelled;
    default:
      return State::Idle;
  }
}

int FileAnalysis::Progress() const {
  return mImpl->driver ? mImpl->driver->progress() : 0;
}

void FileAnalysis::Cancel() {
  if (mImpl->driver) mImpl->driver->cancel();
}

void FileAnalysis::Wait() {
  if (mImpl->driver) mImpl->driver->wait();
}

std::unique_ptr<FileMeasurement> FileAnalysis::TakeResult() {
  if (!mImpl->driver) return nullptr;
  const State s = Poll();
  if (s == State::Busy) return nullptr;
  Wait();
  if (s != State::Done) {
    mMessage = s == State::Cancelled ? std::string() : mImpl->driver->message();
    if (s == State::Failed && mMessage.empty()) mMessage = "The file could not be opened.";
    mImpl->driver.reset();
    mImpl->file.reset();
    return nullptr;
  }
  const OfflineAnalysis::FileInfo& info = mImpl->driver->fileInfo();
  std::unique_ptr<FileMeasurement> file = std::move(mImpl->file);
  file->sampleRate = info.sampleRate;
  file->channels = info.channels;
  file->frames = info.frames;
  file->bitsPerSample = info.bitsPerSample;
  file->timeReference = info.timeReference;
  file->channelNames = info.channelNames;
  file->nonFiniteSamples = info.nonFiniteSamples;
  file->complete = true;
  file->RebuildDistributions();
  mImpl->driver.reset();
  return file;
}

}  // namespace velorum::ui
