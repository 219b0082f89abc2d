#pragma once
// The offline analysis driver: runs one audio file, or one multi-mono set,
// through a LoudnessEngine exactly as the plug-in feeds it live audio, on a
// worker thread. Progress (0-100), state and error are atomics that the
// editor's timer or the command's progress bar poll; cancel() stops the run
// at the next block. The engine's own settings (eco mode, gate, momentary
// window) are the caller's; the driver sets the sample rate, the layout and
// the input count from the file and resets the engine before the first block.
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "analysis/AudioFileReader.h"
#include "engine/LoudnessEngine.h"

namespace velorum {

class OfflineAnalysis {
 public:
  enum State : int { Idle = 0, Done = 1, Busy = 2, Failed = 8, Cancelled = 9 };
  // Driver errors beside the reader's codes (AudioFileReader::Error).
  enum : int { ErrorSelection = 100, ErrorTruncated = 101 };

  struct Request {
    std::vector<std::string> paths;  // one file, or the files of a multi-mono set
    bool multiMono = false;
    // Layout to measure with (index into the layout table); for multi-mono
    // sets the layout the files must match ("the current channel preset").
    // kLayoutFromFileCount: chosen from the file's channel count or the set.
    // A single file whose channel count differs from a chosen layout's
    // fails with AudioFileReader::ErrorChannels.
    uint32_t layoutIndex = AudioFileReader::kLayoutFromFileCount;
    bool strict = false;
    int32_t blockFrames = 4096;
    // The audio stream to measure (0-based), or -1 for the rule: several
    // mono streams of one rate are one programme in stream order,
    // otherwise the first stream is measured.
    int stream = -1;
    // Called on the measuring thread after each block has gone through
    // the engine: the block's channels, their count, its frames and the
    // progress (0-100). Lets a caller see the samples and follow the run
    // without polling.
    std::function<void(const double* const*, int, int, int)> onBlock;
  };

  // What the summary and the exports need to know about the analysed file.
  struct FileInfo {
    std::string path;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    uint64_t frames = 0;
    int32_t bitsPerSample = -1;
    uint64_t timeReference = 0;
    int decoderKind = 0;
    int layoutIndex = 0;
    std::vector<std::string> channelNames;
    // NaN and infinite samples, measured as silence (the audio itself is
    // not altered; the normaliser writes them as they are).
    int64_t nonFiniteSamples = 0;
    int streams = 1;  // audio streams in the file
    int stream = 0;   // the stream measured; -1: all (mono streams as one programme)
    // The end-of-programme values with the final gates (the engine's
    // readings hold them too once the run is done).
    ProgrammeValues programme;
  };

  explicit OfflineAnalysis(LoudnessEngine& engine);
  ~OfflineAnalysis();
  OfflineAnalysis(const OfflineAnalysis&) = delete;
  OfflineAnalysis& operator=(const OfflineAnalysis&) = delete;

  // Starts the worker thread; false when a run is still going.
  bool start(const Request& request);
  // Runs on the calling thread; true when the whole file was measured.
  bool run(const Request& request);
  void cancel();
  // Waits for the worker started by start().
  void wait();

  int state() const { return state_.load(); }
  int error() const { return error_.load(); }
  int progress() const { return progress_.load(); }
  bool running() const { return state_.load() == Busy; }
  // Valid once the run has finished (state Done).
  const FileInfo& fileInfo() const { return info_; }
  // The user's message for the last failure ("" when none), followed by
  // its reason where the reader gave one.
  std::string message() const;
  static std::string messageFor(int error, const Request& request);
  // A short word for the last failure's kind, for machine-read reports
  // ("missing", "truncated", ...; "" when none).
  std::string reason() const;
  static const char* reasonFor(int error);

 private:
  bool finish(int state, int error);

  LoudnessEngine& engine_;
  std::thread worker_;
  Request request_;
  FileInfo info_;
  std::string detail_;
  std::atomic<bool> cancel_{false};
  std::atomic<int> state_{Idle};
  std::atomic<int> error_{0};
  std::atomic<int> progress_{0};
};

}  // namespace velorum
