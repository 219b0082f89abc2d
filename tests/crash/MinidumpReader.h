// A small reader of the public minidump format for the crash tests: header,
// stream directory, exception stream, thread list and module list.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace velorum::test {

struct MinidumpModule {
  uint64_t base = 0;
  uint32_t size = 0;
  std::string name;  // UTF-16 read back as ASCII (other characters as '?')
};

struct Minidump {
  uint32_t exceptionCode = 0;
  uint64_t exceptionAddress = 0;
  uint32_t exceptionThread = 0;
  std::optional<uint64_t> faultingThreadPc;  // Rip of the faulting thread's context
  std::vector<MinidumpModule> modules;
};

class MinidumpReader {
 public:
  // Nothing when the file is not a minidump or a stream lies outside it.
  static std::optional<Minidump> Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = in ? std::streamoff(in.tellg()) : 0;
    std::vector<char> bytes(size_t(size > 0 ? size : 0));
    in.seekg(0);
    in.read(bytes.data(), std::streamsize(bytes.size()));
    MinidumpReader r{std::move(bytes)};
    Minidump d;
    if (r.U32(0) != 0x504d444d || (r.U32(4) & 0xffff) != 0xa793) return std::nullopt;
    const uint32_t streams = r.U32(8), directory = r.U32(12);
    bool exception = false, moduleList = false;
    for (uint32_t i = 0; i < streams && r.mOk; ++i) {
      const uint32_t at = directory + 12 * i, type = r.U32(at), rva = r.U32(at + 8);
      if (type == 6) {
        exception = true;
        d.exceptionThread = r.U32(rva);
        d.exceptionCode = r.U32(rva + 8);
        d.exceptionAddress = r.U64(rva + 24);
        const uint32_t contextRva = r.U32(rva + 8 + 152 + 4);
        d.faultingThreadPc = r.U64(contextRva + 248);
      } else if (type == 4) {
        moduleList = true;
        const uint32_t count = r.U32(rva);
        for (uint32_t m = 0; m < count && r.mOk && m < 4096; ++m) {
          const uint32_t at2 = rva + 4 + 108 * m;
          d.modules.push_back({r.U64(at2), r.U32(at2 + 8), r.String(r.U32(at2 + 20))});
        }
      }
    }
    if (!r.mOk || !exception || !moduleList) return std::nullopt;
    return d;
  }

 private:
  explicit MinidumpReader(std::vector<char> bytes) : mBytes(std::move(bytes)) {}
  template <typename T>
  T Get(uint64_t at) {
    T v = 0;
    if (at + sizeof(T) > mBytes.size()) {
      mOk = false;
      return v;
    }
    std::memcpy(&v, mBytes.data() + at, sizeof(T));
    return v;
  }
  uint32_t U32(uint64_t at) { return Get<uint32_t>(at); }
  uint64_t U64(uint64_t at) { return Get<uint64_t>(at); }
  std::string String(uint32_t rva) {
    const uint32_t bytes = U32(rva);
    std::string s;
    for (uint32_t i = 0; i + 1 < bytes + 1 && i < bytes && mOk; i += 2) {
      const uint16_t c = Get<uint16_t>(rva + 4 + i);
      s += c < 128 ? char(c) : '?';
    }
    return s;
  }

  std::vector<char> mBytes;
  bool mOk = true;
};

}  // namespace velorum::test
