// Minimal RIFF/WAVE reader for the tests: 16- and 24-bit PCM, plain or
// WAVE_FORMAT_EXTENSIBLE, into planar doubles.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "EngineTestSignals.h"

namespace velorum::test {

// Returns false (and says why in `error`) on anything it does not read.
inline bool ReadWav(const std::string& path, Signal& out, std::string& error) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    error = "cannot open " + path;
    return false;
  }
  std::vector<unsigned char> d;
  unsigned char buf[65536];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) d.insert(d.end(), buf, buf + n);
  std::fclose(f);
  auto u16 = [&](std::size_t p) { return static_cast<std::uint32_t>(d[p] | d[p + 1] << 8); };
  auto u32 = [&](std::size_t p) { return u16(p) | u16(p + 2) << 16; };
  if (d.size() < 12 || std::string(d.begin(), d.begin() + 4) != "RIFF" ||
      std::string(d.begin() + 8, d.begin() + 12) != "WAVE") {
    error = "not a RIFF/WAVE file";
    return false;
  }
  std::uint32_t channels = 0, rate = 0, bits = 0, format = 0;
  std::size_t p = 12;
  while (p + 8 <= d.size()) {
    const std::string id(d.begin() + static_cast<std::ptrdiff_t>(p),
                         d.begin() + static_cast<std::ptrdiff_t>(p) + 4);
    const std::size_t size = u32(p + 4);
    const std::size_t body = p + 8;
    if (body + size > d.size()) {
      error = "truncated chunk " + id;
      return false;
    }
    if (id == "fmt " && size >= 16) {
      format = u16(body);
      channels = u16(body + 2);
      rate = u32(body + 4);
      bits = u16(body + 14);
      if (format == 0xFFFE && size >= 40) format = u16(body + 24);
    } else if (id == "data") {
      if (format != 1 || (bits != 16 && bits != 24) || channels == 0) {
        error = "unsupported format";
        return false;
      }
      const std::size_t bytes = bits / 8;
      const std::size_t frames = size / (bytes * channels);
      out.rate = rate;
      out.channels.assign(channels, std::vector<double>(frames));
      for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t c = 0; c < channels; ++c) {
          const std::size_t q = body + (i * channels + c) * bytes;
          std::int32_t v =
              bits == 16
                  ? static_cast<std::int32_t>(static_cast<std::int16_t>(u16(q))) << 16
                  : static_cast<std::int32_t>(u16(q) << 8 | static_cast<std::uint32_t>(d[q + 2]) << 24);
          out.channels[c][i] = static_cast<double>(v) / 2147483648.0;
        }
      return true;
    }
    p = body + size + (size & 1);
  }
  error = "no data chunk";
  return false;
}

}  // namespace velorum::test
