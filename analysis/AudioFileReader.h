#pragma once
// Opens one audio file, or a set of mono files that together form one
// multichannel programme, reports its format and hands out its audio in blocks
// of interleaved 32-bit float frames. Runs on one worker thread; state, error
// and progress are atomics that other threads may read at any time, and
// cancel may be set from any thread. Nothing is thrown out of the reader.
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "analysis/FrameDecoder.h"

namespace velorum {

class AudioFileReader {
 public:
  enum Kind : int {
    KindNone = 0,
    KindMp3 = 1,
    KindWav = 2,
    KindFlac = 3,
    KindVorbis = 4,
    KindSystem = 5,
    KindMultiMono = 6
  };
  enum State : int { StateIdle = 0, StateBusy = 2, StateFailed = 8, StateCancelled = 9 };
  enum Error : int {
    ErrorNone = 0,
    ErrorNothingToRead = 2,
    ErrorOpen = 3,
    ErrorMemory = 4,
    ErrorChannels = 7,
    ErrorLayout = 8,
    ErrorNotMono = 9,
    // Refusals with a reason of their own.
    ErrorMissing = 10,
    ErrorDenied = 11,
    ErrorNotRegular = 12,
    ErrorSampleRate = 13,
    ErrorNoAudio = 14,
    ErrorNoStream = 15,
    ErrorTruncated = 16
  };
  // Sample rates outside this range are refused.
  static constexpr uint32_t kMinSampleRate = 8000;
  static constexpr uint32_t kMaxSampleRate = 768000;
  static constexpr uint32_t kLayoutFromFileCount = 0xFFFFFFFFu;

  AudioFileReader();
  ~AudioFileReader();
  AudioFileReader(const AudioFileReader&) = delete;
  AudioFileReader& operator=(const AudioFileReader&) = delete;

  // The audio stream that open() measures (0-based), or -1 (the default):
  // several mono streams of one rate form one programme in stream order,
  // otherwise the first stream is read.
  void setStream(int stream) { stream_ = stream; }
  bool open(const std::string& path);
  // Opens mono files as the channels of a layout (an index into the engine's
  // layout table, or kLayoutFromFileCount). With `strict`, every file name
  // must carry a channel suffix of the layout; without it, files without a
  // recognised suffix fill the remaining channels in the order given.
  bool openMultiMono(const std::vector<std::string>& paths, uint32_t layoutIndex, bool strict);
  bool prepare(int32_t blockFrames);
  bool readBlock();
  bool rewind();
  void close();

  static bool supportedChannelCount(uint32_t channels);

  int kind() const { return kind_; }
  const std::string& path() const { return path_; }
  const std::string& extension() const { return extension_; }
  uint32_t sampleRate() const { return format_.sampleRate; }
  uint32_t channels() const { return format_.channels; }
  uint64_t totalFrames() const { return format_.totalFrames; }
  int32_t bitsPerSample() const { return format_.bitsPerSample; }
  uint64_t timeReference() const { return format_.timeReference; }
  const AudioFormat& format() const { return format_; }
  // Multi-mono sets: file paths in channel order and their channel names.
  const std::vector<std::string>& channelPaths() const { return channelPaths_; }
  const std::vector<std::string>& channelNames() const { return channelNames_; }
  uint32_t layoutIndex() const { return layoutIndex_; }
  // Multi-mono sets: the largest bit depth of the files (-1 when unknown).
  int32_t largestChannelBits() const { return setBits_; }

  int32_t blockFrames() const { return blockFrames_; }
  const float* buffer() const { return buffer_.data(); }
  int32_t framesRead() const { return framesRead_; }
  // Frames delivered since prepare/rewind (without the padding).
  uint64_t framesDelivered() const { return delivered_; }
  // True when the file holds less audio than it states: the container says
  // so at open, or, once the end was reached, fewer frames came than the
  // length promised (for the system decoder, whose length is estimated
  // from the duration, only when more than 1 s and 2 % are missing, and
  // never when that duration was the container's or a bit-rate estimate).
  bool truncated() const;
  int64_t position() const { return position_; }

  // Why the last open or read failed, in words, after the user's message
  // ("" when the error code says it all). Read on the reader's thread.
  const std::string& detail() const { return detail_; }

  int state() const { return state_.load(); }
  int error() const { return error_.load(); }
  int progress() const { return progress_.load(); }
  void setCancel(bool cancel) { cancel_.store(cancel); }
  bool cancelled() const { return cancel_.load(); }

 private:
  bool fail(int error, int state = StateFailed);
  bool failWith(int error, std::string detail);
  // Refuses paths that are missing, unreadable or not regular files.
  bool checkAccess(const std::string& path);
  // Refuses a format no measurement can be made of.
  bool checkFormat(const AudioFormat& format);
  bool openWithSystemDecoder();
  // No decoder took the file: cut off, or unreadable.
  bool refuseUnreadable();

  std::string path_;
  std::string extension_;
  std::string detail_;
  int stream_ = -1;
  int kind_ = KindNone;
  std::unique_ptr<FrameDecoder> decoder_;
  std::vector<std::unique_ptr<FrameDecoder>> channelDecoders_;
  std::vector<std::vector<float>> channelBuffers_;
  AudioFormat format_;
  std::vector<std::string> channelPaths_;
  std::vector<std::string> channelNames_;
  uint32_t layoutIndex_ = kLayoutFromFileCount;
  int32_t setBits_ = -1;
  int32_t blockFrames_ = 0;
  std::vector<float> buffer_;
  int32_t framesRead_ = 0;
  int64_t position_ = 0;
  uint64_t delivered_ = 0;
  bool ended_ = false;
  bool containerCut_ = false;
  std::atomic<int> state_{StateIdle};
  std::atomic<int> error_{ErrorNone};
  std::atomic<int> progress_{0};
  std::atomic<bool> cancel_{false};
};

}  // namespace velorum
