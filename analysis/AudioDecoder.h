#pragma once
// The system media decoder family: the general decoder that gets a second
// chance at every file the library decoders refuse. AudioDecoderBase and
// AudioDecoder hold the platform-free bookkeeping; a platform class derives
// from AudioDecoder (on Linux AudioDecoderFFmpeg, over libavformat/libavcodec;
// on Windows AudioDecoderMediaFoundation, over Media Foundation's source reader).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "analysis/FrameDecoder.h"

namespace velorum {

class AudioDecoderBase {
 public:
  virtual ~AudioDecoderBase() = default;

  std::string path;  // UTF-8
  uint32_t channelCount = 0;
  uint32_t sampleRateHz = 0;
  uint64_t framesDelivered = 0;
  uint64_t readCalls = 0;
};

class AudioDecoder : public AudioDecoderBase {
 public:
  AudioDecoder() {
    channelCount = 2;
    sampleRateHz = 44100;
  }
  int32_t bitsPerSampleNative = 16;
  int64_t streamPosition = 0;  // frames
  bool endOfStream = false;
  bool seekPending = false;
  int64_t seekTarget = 0;  // frames
  // Decoded frames that the last request could not take, interleaved.
  std::vector<float> carryOver;
  size_t carryOverRead = 0;  // samples of carryOver already handed out

 protected:
  // Hands out up to `frames` frames into `dst`: the carry-over store first,
  // then what each call of `decodeMore()` appends to it, until that returns
  // false (the end, or a failure). Advances the stream position and the
  // counters; an allocation failure ends the stream with what was handed
  // out standing.
  template <typename DecodeMore>
  int64_t deliverFrames(float* dst, int64_t frames, DecodeMore&& decodeMore) {
    if (!dst || frames <= 0 || channelCount == 0) return 0;
    ++readCalls;
    const size_t wanted = static_cast<size_t>(frames) * channelCount;
    size_t filled = 0;
    try {
      while (filled < wanted) {
        const size_t available = carryOver.size() - carryOverRead;
        if (available > 0) {
          const size_t take = std::min(available, wanted - filled);
          std::memcpy(dst + filled, carryOver.data() + carryOverRead, take * sizeof(float));
          carryOverRead += take;
          filled += take;
          if (carryOverRead == carryOver.size()) dropCarryOver();
          continue;
        }
        if (!decodeMore()) break;
      }
    } catch (...) {
      endOfStream = true;
    }
    const int64_t got = static_cast<int64_t>(filled / channelCount);
    streamPosition += got;
    framesDelivered += static_cast<uint64_t>(got);
    return got;
  }

  // Decodes to the end of the stream and counts the frames, handing none
  // out: for containers that state no length.
  template <typename DecodeMore>
  int64_t countFramesToEnd(DecodeMore&& decodeMore) {
    int64_t count = 0;
    while (channelCount != 0 && decodeMore()) {
      count += static_cast<int64_t>((carryOver.size() - carryOverRead) / channelCount);
      dropCarryOver();
    }
    return count;
  }

  void dropCarryOver() {
    carryOver.clear();
    carryOverRead = 0;
  }

  // Removes the samples already handed out, before more are appended.
  void compactCarryOver() {
    if (carryOverRead == 0) return;
    carryOver.erase(carryOver.begin(), carryOver.begin() + static_cast<std::ptrdiff_t>(carryOverRead));
    carryOverRead = 0;
  }
};

}  // namespace velorum
