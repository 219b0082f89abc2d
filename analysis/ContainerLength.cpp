#include "analysis/ContainerLength.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "analysis/Utf8Path.h"

namespace velorum {
namespace {

uint32_t le32(const unsigned char* p) {
  return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
uint32_t be32(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
}
uint64_t le64(const unsigned char* p) {
  return le32(p) | (static_cast<uint64_t>(le32(p + 4)) << 32);
}

bool streamedSize(uint64_t size) {
  return size == 0 || size == 0xFFFFFFFFull || size == ~0ull;
}

// Walks the chunks of the header that was read and returns the end of the
// sample data as the header states it (0 when it cannot tell; past the end
// when `h` is the whole file and its chunks end before a data chunk).
uint64_t statedDataEnd(const std::vector<unsigned char>& h, bool wholeFile) {
  if (h.size() < 12) return 0;
  const bool riff = std::memcmp(h.data(), "RIFF", 4) == 0 && std::memcmp(h.data() + 8, "WAVE", 4) == 0;
  const bool rf64 = (std::memcmp(h.data(), "RF64", 4) == 0 || std::memcmp(h.data(), "BW64", 4) == 0) &&
                    std::memcmp(h.data() + 8, "WAVE", 4) == 0;
  const bool aiff = std::memcmp(h.data(), "FORM", 4) == 0 &&
                    (std::memcmp(h.data() + 8, "AIFF", 4) == 0 || std::memcmp(h.data() + 8, "AIFC", 4) == 0);
  if (!riff && !rf64 && !aiff) return 0;
  uint64_t ds64Data = 0;
  for (size_t at = 12; at + 8 <= h.size();) {
    const unsigned char* c = h.data() + at;
    uint64_t size = aiff ? be32(c + 4) : le32(c + 4);
    if (rf64 && std::memcmp(c, "ds64", 4) == 0 && at + 24 <= h.size()) ds64Data = le64(c + 16);
    const bool data = aiff ? std::memcmp(c, "SSND", 4) == 0 : std::memcmp(c, "data", 4) == 0;
    if (data) {
      if (rf64 && size == 0xFFFFFFFFull) size = ds64Data;
      return streamedSize(size) ? 0 : at + 8 + size;
    }
    at += 8 + size + (size & 1);
  }
  // The chunks run past the end before any data chunk: cut in the header.
  return wholeFile ? h.size() + 1 : 0;
}

}  // namespace

bool DataRunsPastEnd(const std::string& path) {
  std::FILE* f = OpenFileUtf8(path, "rb");
  if (!f) return false;
  std::vector<unsigned char> header(1 << 16);
  header.resize(std::fread(header.data(), 1, header.size(), f));
#ifdef _WIN32
  const bool sized = _fseeki64(f, 0, SEEK_END) == 0;
  const int64_t size = sized ? _ftelli64(f) : -1;
#else
  const bool sized = fseeko(f, 0, SEEK_END) == 0;
  const int64_t size = sized ? static_cast<int64_t>(ftello(f)) : -1;
#endif
  std::fclose(f);
  const uint64_t end = statedDataEnd(header, size >= 0 && static_cast<uint64_t>(size) == header.size());
  return end > 0 && size >= 0 && end > static_cast<uint64_t>(size);
}

}  // namespace velorum
