#pragma once
// One decoder of one audio file: reports the format and hands out interleaved
// 32-bit float frames at full scale +-1.0. Every decoding library the reader
// uses sits behind this interface; nothing here throws.
#include <cstdint>
#include <string>

namespace velorum {

struct AudioFormat {
  uint32_t sampleRate = 0;
  uint32_t channels = 0;
  uint64_t totalFrames = 0;
  int32_t bitsPerSample = -1;  // -1 when the source does not state it
  uint64_t timeReference = 0;  // samples since midnight (bext), else 0
  int streams = 1;             // audio streams in the file
  int stream = 0;              // the stream measured (0-based); -1: all of them, as one programme
};

class FrameDecoder {
 public:
  virtual ~FrameDecoder() = default;
  // Opens the file; false when the library refuses it.
  virtual bool open(const std::string& path) = 0;
  // Decodes up to `frames` frames into `dst` (frames x channels floats);
  // returns the frames delivered, 0 at the end or on a decoding failure.
  virtual int64_t read(float* dst, int64_t frames) = 0;
  // Moves to the given frame; false when the decoder cannot seek.
  virtual bool seek(uint64_t frame) = 0;
  const AudioFormat& format() const { return format_; }
  // True when the file states more audio than it holds (cut off in
  // transfer or damaged), as far as the container tells at open.
  bool truncated() const { return truncated_; }
  // True when the length is only an estimate (from a container duration or
  // a bit rate), so that a shorter stream is no sign of damage.
  bool lengthEstimated() const { return lengthEstimated_; }

 protected:
  AudioFormat format_;
  bool truncated_ = false;
  bool lengthEstimated_ = false;
};

}  // namespace velorum
