#pragma once
// The chunk list of a WAV, BWF, RF64 or BW64 file, read without decoding the
// audio: where each chunk lies, whether it comes before or after the audio
// data, and the sample format from "fmt " (with the channel mask of
// WAVE_FORMAT_EXTENSIBLE). The normaliser copies the chunks that a gain
// change leaves valid from here into the file it writes, byte for byte.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace velorum {

using ChunkId = std::array<char, 4>;

struct RiffChunk {
  ChunkId id{};
  uint64_t offset = 0;  // of the payload in the file
  uint64_t size = 0;    // of the payload, without the pad byte
  bool afterData = false;
};

struct WavFormatInfo {
  uint16_t formatTag = 0;  // 1 PCM, 3 float, 0xFFFE extensible
  uint16_t channels = 0;
  uint32_t sampleRate = 0;
  uint16_t bitsPerSample = 0;
  bool extensible = false;
  bool isFloat = false;      // IEEE float samples (plain or extensible)
  bool isPcm = false;        // integer PCM samples (plain or extensible)
  uint32_t channelMask = 0;  // extensible only
  std::vector<uint8_t> raw;  // the whole "fmt " payload
};

struct WavStructure {
  bool rf64 = false;  // "RF64" or "BW64" with a ds64 chunk
  WavFormatInfo format;
  std::vector<RiffChunk> chunks;  // every chunk in file order, "fmt " and "data" included
};

// False when the file is no RIFF/RF64/BW64 WAVE file or has no "fmt " or
// "data" chunk. Chunks that claim to run past the end of the file are left
// out (a file cut in transfer keeps what is whole).
bool ReadWavStructure(const std::string& path, WavStructure& out);

// The payload of one chunk; false when it can't be read whole.
bool ReadChunkPayload(const std::string& path, const RiffChunk& chunk, std::vector<uint8_t>& payload);

// True for the chunks that a change of gain or a rewrite of the audio makes
// wrong or that the writer makes itself: "fmt ", "data", "fact", "ds64",
// padding ("JUNK", "junk", "PAD ", "FLLR"), peak values ("PEAK", "levl") and
// checksums of the audio ("md5 ", "MD5 ").
bool ChunkInvalidatedByGain(const ChunkId& id);

inline ChunkId MakeChunkId(const char* text) {
  return {text[0], text[1], text[2], text[3]};
}

}  // namespace velorum
