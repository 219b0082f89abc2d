#include "export/RiffChunks.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "analysis/Utf8Path.h"

namespace velorum {
namespace {

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

uint32_t Le32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
uint16_t Le16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] | p[1] << 8);
}
uint64_t Le64(const uint8_t* p) {
  return Le32(p) | static_cast<uint64_t>(Le32(p + 4)) << 32;
}

bool Seek(std::FILE* f, uint64_t offset) {
#ifdef _WIN32
  return _fseeki64(f, static_cast<__int64>(offset), SEEK_SET) == 0;
#else
  return fseeko(f, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}

uint64_t FileSize(std::FILE* f) {
#ifdef _WIN32
  if (_fseeki64(f, 0, SEEK_END) != 0) return 0;
  return static_cast<uint64_t>(_ftelli64(f));
#else
  if (fseeko(f, 0, SEEK_END) != 0) return 0;
  return static_cast<uint64_t>(ftello(f));
#endif
}

bool ParseFormat(const std::vector<uint8_t>& raw, WavFormatInfo& f) {
  if (raw.size() < 16) return false;
  f.raw = raw;
  f.formatTag = Le16(raw.data());
  f.channels = Le16(raw.data() + 2);
  f.sampleRate = Le32(raw.data() + 4);
  f.bitsPerSample = Le16(raw.data() + 14);
  uint16_t sub = f.formatTag;
  if (f.formatTag == 0xFFFE && raw.size() >= 40) {
    f.extensible = true;
    f.channelMask = Le32(raw.data() + 20);
    sub = Le16(raw.data() + 24);  // the first two bytes of the sub-format GUID
  }
  f.isPcm = sub == 1;
  f.isFloat = sub == 3;
  return f.channels > 0 && f.sampleRate > 0;
}

}  // namespace

bool ChunkInvalidatedByGain(const ChunkId& id) {
  static const char* const kDropped[] = {"fmt ", "data", "fact", "ds64", "JUNK", "junk",
                                         "PAD ", "FLLR", "PEAK", "levl", "md5 ", "MD5 "};
  for (const char* d : kDropped)
    if (std::memcmp(id.data(), d, 4) == 0) return true;
  return false;
}

bool ReadWavStructure(const std::string& path, WavStructure& out) {
  out = WavStructure{};
  File file(OpenFileUtf8(path, "rb"));
  if (!file) return false;
  const uint64_t fileSize = FileSize(file.get());
  uint8_t header[12];
  if (!Seek(file.get(), 0) || std::fread(header, 1, 12, file.get()) != 12) return false;
  const bool riff = std::memcmp(header, "RIFF", 4) == 0;
  out.rf64 = std::memcmp(header, "RF64", 4) == 0 || std::memcmp(header, "BW64", 4) == 0;
  if ((!riff && !out.rf64) || std::memcmp(header + 8, "WAVE", 4) != 0) return false;

  uint64_t dataSize64 = 0;
  bool haveFormat = false, haveData = false;
  uint64_t pos = 12;
  while (pos + 8 <= fileSize) {
    uint8_t head[8];
    if (!Seek(file.get(), pos) || std::fread(head, 1, 8, file.get()) != 8) break;
    RiffChunk chunk;
    std::memcpy(chunk.id.data(), head, 4);
    chunk.offset = pos + 8;
    chunk.size = Le32(head + 4);
    const bool isData = std::memcmp(head, "data", 4) == 0;
    if (isData && out.rf64 && chunk.size == 0xFFFFFFFFu && dataSize64 != 0) chunk.size = dataSize64;
    if (std::memcmp(head, "ds64", 4) == 0 && chunk.size >= 24) {
      uint8_t ds[24];
      if (std::fread(ds, 1, 24, file.get()) == 24) dataSize64 = Le64(ds + 8);
    }
    if (isData) {
      // The audio may be cut short; it still marks where "after" begins.
      chunk.size = std::min(chunk.size, fileSize - chunk.offset);
      haveData = true;
    } else if (chunk.offset + chunk.size > fileSize) {
      break;  // a chunk cut off at the end of the file
    }
    chunk.afterData = haveData && !isData;
    if (std::memcmp(head, "fmt ", 4) == 0 && !haveFormat && chunk.size <= 4096) {
      std::vector<uint8_t> raw(static_cast<size_t>(chunk.size));
      if (std::fread(raw.data(), 1, raw.size(), file.get()) == raw.size())
        haveFormat = ParseFormat(raw, out.format);
    }
    out.chunks.push_back(chunk);
    pos = chunk.offset + chunk.size + (chunk.size & 1);
  }
  return haveFormat && haveData;
}

bool ReadChunkPayload(const std::string& path, const RiffChunk& chunk, std::vector<uint8_t>& payload) {
  File file(OpenFileUtf8(path, "rb"));
  if (!file || !Seek(file.get(), chunk.offset)) return false;
  try {
    payload.resize(static_cast<size_t>(chunk.size));
  } catch (...) {
    return false;
  }
  return std::fread(payload.data(), 1, payload.size(), file.get()) == payload.size();
}

}  // namespace velorum
