#pragma once
// General decoder of the Windows build over Media Foundation's source reader:
// opens whatever the system's media decoders know (AAC/M4A, WMA, ALAC, the
// audio of video files, ...), decodes the first audio stream and hands it out
// as interleaved floats.
//
// Media Foundation is loaded at run time, so the plug-in carries no import of
// it and still loads on Windows editions that lack it; there every file is
// refused. An object initialises COM (apartment-threaded) and Media Foundation on
// the thread that opens a file and shuts both down again on destruction, which
// must therefore happen on that same thread; reads and seeks may come from
// another thread while the opening one keeps the object.
#include <cstdint>
#include <string>
#include <vector>

#include "analysis/AudioDecoder.h"

struct IMFSourceReader;
struct IMFMediaType;

namespace velorum {

class AudioDecoderMediaFoundation final : public AudioDecoder, public FrameDecoder {
 public:
  AudioDecoderMediaFoundation() = default;
  ~AudioDecoderMediaFoundation() override;
  AudioDecoderMediaFoundation(const AudioDecoderMediaFoundation&) = delete;
  AudioDecoderMediaFoundation& operator=(const AudioDecoderMediaFoundation&) = delete;

  bool open(const std::string& path) override;
  int64_t read(float* dst, int64_t frames) override;
  bool seek(uint64_t frame) override;

  // True when this Windows has Media Foundation's platform and source reader
  // libraries; without them open() always returns false.
  static bool available();

 private:
  // How the decoded samples arrive: 32-bit floats; 16-bit integers when the
  // system's decoder refuses floats; integers of the source's own width
  // when it refuses both (lossless decoders of 24-bit audio may).
  enum class Output { Float32, Int16, Int24, Int32 };

  void release();
  bool openReader();
  bool configureStream();
  bool readCurrentType();
  // Decodes the next media sample into carryOver; false when this call
  // cannot get more audio (end of stream, a failure, repeated type changes).
  bool decodeMore();
  bool appendSample(const uint8_t* bytes, size_t byteCount, int64_t timestamp);

  IMFSourceReader* sourceReader_ = nullptr;
  IMFMediaType* currentMediaType_ = nullptr;
  // The bytes of the media sample being converted.
  std::vector<int16_t> sampleBuffer_;
  size_t sampleBufferSize_ = 0;  // 16-bit units in use
  int64_t totalDuration_ = 0;    // 100 ns units, 0 when unknown
  int64_t firstTimestamp_ = 0;   // 100 ns units, of the stream's first sample
  bool firstTimestampKnown_ = false;
  wchar_t widePath_[508] = {};  // 1016 bytes, NUL-terminated
  Output output_ = Output::Float32;
  uint32_t bytesPerFrame_ = 0;
  bool comInitialized_ = false;
  bool mediaFoundationStarted_ = false;
};

}  // namespace velorum
