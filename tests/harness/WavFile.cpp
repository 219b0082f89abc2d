#include "WavFile.h"

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>

namespace velorum::harness {

namespace {

uint32_t U32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint16_t U16(const uint8_t* p) {
  return uint16_t(p[0] | p[1] << 8);
}

bool Fail(std::string* error, const char* message) {
  if (error) *error = message;
  return false;
}

void Put32(std::ofstream& f, uint32_t v) {
  const char b[4] = {char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
  f.write(b, 4);
}
void Put16(std::ofstream& f, uint16_t v) {
  const char b[2] = {char(v), char(v >> 8)};
  f.write(b, 2);
}

}  // namespace

bool ReadWav(const std::string& path, WavData& out, std::string* error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return Fail(error, "cannot open file");
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0 ||
      std::memcmp(bytes.data() + 8, "WAVE", 4) != 0) {
    return Fail(error, "not a RIFF/WAVE file");
  }
  int format = 0, channels = 0, bits = 0;
  uint32_t rate = 0;
  const uint8_t* data = nullptr;
  size_t dataSize = 0;
  size_t pos = 12;
  while (pos + 8 <= bytes.size()) {
    const uint8_t* chunk = bytes.data() + pos;
    const size_t size = U32(chunk + 4);
    const size_t body = pos + 8;
    const size_t available = bytes.size() - body;
    if (std::memcmp(chunk, "fmt ", 4) == 0 && size >= 16 && available >= 16) {
      format = U16(chunk + 8);
      channels = U16(chunk + 10);
      rate = U32(chunk + 12);
      bits = U16(chunk + 22);
      if (format == 0xFFFE && size >= 40 && available >= 40) format = U16(chunk + 32);
    } else if (std::memcmp(chunk, "data", 4) == 0) {
      data = chunk + 8;
      dataSize = size < available ? size : available;
    }
    pos = body + size + (size & 1);
  }
  if (!data || channels <= 0 || rate == 0) return Fail(error, "missing fmt or data chunk");
  if (!((format == 1 && (bits == 16 || bits == 24 || bits == 32)) ||
        (format == 3 && (bits == 32 || bits == 64)))) {
    return Fail(error, "unsupported sample format");
  }
  const size_t width = size_t(bits) / 8;
  const size_t frames = dataSize / (width * size_t(channels));
  out.channels = channels;
  out.sampleRate = rate;
  out.samples.assign(size_t(channels), std::vector<float>(frames));
  for (size_t i = 0; i < frames; ++i) {
    for (int c = 0; c < channels; ++c) {
      const uint8_t* p = data + (i * size_t(channels) + size_t(c)) * width;
      float v = 0.0f;
      if (format == 3 && bits == 32) {
        uint32_t u = U32(p);
        std::memcpy(&v, &u, 4);
      } else if (format == 3) {
        uint64_t u = uint64_t(U32(p)) | uint64_t(U32(p + 4)) << 32;
        double d = 0.0;
        std::memcpy(&d, &u, 8);
        v = static_cast<float>(d);
      } else if (bits == 16) {
        v = static_cast<float>(static_cast<int16_t>(U16(p))) / 32768.0f;
      } else if (bits == 24) {
        const int32_t s =
            static_cast<int32_t>(uint32_t(p[0]) << 8 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 24) >> 8;
        v = static_cast<float>(s) / 8388608.0f;
      } else {
        v = static_cast<float>(static_cast<double>(static_cast<int32_t>(U32(p))) / 2147483648.0);
      }
      out.samples[size_t(c)][i] = v;
    }
  }
  return true;
}

bool WriteWav(const std::string& path, const WavData& data) {
  std::ofstream f(path, std::ios::binary);
  if (!f) return false;
  const uint32_t frames = static_cast<uint32_t>(data.Frames());
  const uint32_t bytes = frames * uint32_t(data.channels) * 4;
  f.write("RIFF", 4);
  Put32(f, 36 + bytes);
  f.write("WAVEfmt ", 8);
  Put32(f, 16);
  Put16(f, 3);
  Put16(f, uint16_t(data.channels));
  Put32(f, uint32_t(data.sampleRate));
  Put32(f, uint32_t(data.sampleRate) * uint32_t(data.channels) * 4);
  Put16(f, uint16_t(data.channels * 4));
  Put16(f, 32);
  f.write("data", 4);
  Put32(f, bytes);
  for (uint32_t i = 0; i < frames; ++i) {
    for (int c = 0; c < data.channels; ++c) {
      uint32_t u = 0;
      std::memcpy(&u, &data.samples[size_t(c)][i], 4);
      Put32(f, u);
    }
  }
  return bool(f);
}

}  // namespace velorum::harness
