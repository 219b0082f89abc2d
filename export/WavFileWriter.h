#pragma once
// Writes a WAV file from interleaved float frames: 16-, 24- or 32-bit
// integer PCM or 32-bit float, plain or WAVE_FORMAT_EXTENSIBLE, with the
// chunks it is given before and after the audio data. A "JUNK" chunk
// reserves room at the head, so that a file whose audio outgrows the 32-bit
// sizes of RIFF becomes RF64 in place (the reservation turns into "ds64").
#include <cstdio>
#include <string>
#include <vector>

#include "export/RiffChunks.h"

namespace velorum {

struct WavSampleFormat {
  int channels = 0;
  uint32_t sampleRate = 0;
  int bits = 24;  // 16, 24 or 32
  bool isFloat = false;
  bool extensible = false;
  uint32_t channelMask = 0;
};

struct WavChunk {
  ChunkId id{};
  std::vector<uint8_t> payload;
};

class WavFileWriter {
 public:
  WavFileWriter() = default;
  ~WavFileWriter();
  WavFileWriter(const WavFileWriter&) = delete;
  WavFileWriter& operator=(const WavFileWriter&) = delete;

  // `fmt` is the "fmt " payload to write unchanged; empty: made from `format`.
  bool Open(const std::string& path, const WavSampleFormat& format, const std::vector<uint8_t>& fmt,
            const std::vector<WavChunk>& before, bool forceRf64);
  // Integer samples are rounded and limited to full scale.
  bool Write(const float* interleaved, int frames);
  // Writes the chunks that follow the audio and completes the sizes.
  bool Close(const std::vector<WavChunk>& after);

  bool Rf64() const { return mRf64; }
  // Where the payload of the first chunk `id` given to Open lies (0: none).
  uint64_t PayloadOffset(const ChunkId& id) const;

  // The "fmt " payload for a format (WAVE_FORMAT_EXTENSIBLE when asked).
  static std::vector<uint8_t> MakeFormatChunk(const WavSampleFormat& format);
  // The usual speaker mask of a channel count (0 when there is none).
  static uint32_t DefaultChannelMask(int channels);

 private:
  bool Put(const void* data, size_t size);
  bool PutChunk(const ChunkId& id, const std::vector<uint8_t>& payload);

  std::FILE* mFile = nullptr;
  WavSampleFormat mFormat;
  bool mRf64 = false;
  bool mFailed = false;
  uint64_t mPosition = 0;
  uint64_t mReserveOffset = 0;   // the JUNK / ds64 payload
  uint64_t mFactOffset = 0;      // the fact payload (float output), 0 when none
  uint64_t mDataSizeOffset = 0;  // the data chunk's size field
  uint64_t mDataBytes = 0;
  std::vector<std::pair<ChunkId, uint64_t>> mOffsets;
  std::vector<uint8_t> mBytes;
};

}  // namespace velorum
