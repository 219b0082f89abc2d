// A growable little-endian byte buffer: values are appended at the end and
// read back at a position. Every read returns the position after the value,
// or -1 when the value would run past the end (or the position is already
// -1), so a chain of reads stops at the first failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace velorum {

class ByteChunk {
 public:
  void Clear() { mBytes.clear(); }
  void Reserve(size_t bytes) { mBytes.reserve(bytes); }
  int Size() const { return static_cast<int>(mBytes.size()); }
  const uint8_t* Data() const { return mBytes.data(); }
  uint8_t* Data() { return mBytes.data(); }
  std::span<const uint8_t> Bytes() const { return mBytes; }
  void Assign(const void* data, size_t bytes);
  void Resize(size_t bytes) { mBytes.resize(bytes); }
  size_t Capacity() const { return mBytes.capacity(); }

  void PutRaw(const void* data, size_t bytes);
  void PutByte(uint8_t v) { mBytes.push_back(v); }
  void PutInt32(int32_t v) { PutLE(static_cast<uint32_t>(v)); }
  void PutInt64(int64_t v) { PutLE(static_cast<uint64_t>(v)); }
  void PutUInt32(uint32_t v) { PutLE(v); }
  void PutDouble(double v);
  void PutFloat(float v);
  // Text: int32 0, int32 byte count, the bytes (no terminator).
  void PutText(const std::string& text);
  // Arrays: int32 0, int32 element count, the elements.
  void PutDoubleArray(std::span<const double> values);
  void PutU16Array(std::span<const uint16_t> values);
  void PutU32Array(std::span<const uint32_t> values);
  // Byte run: int32 length, the bytes.
  void PutByteRun(std::span<const uint8_t> bytes);

  int GetRaw(void* out, size_t bytes, int pos) const;
  int GetByte(uint8_t& v, int pos) const;
  int GetInt32(int32_t& v, int pos) const;
  int GetUInt32(uint32_t& v, int pos) const;
  int GetInt64(int64_t& v, int pos) const;
  int GetDouble(double& v, int pos) const;
  int GetFloat(float& v, int pos) const;
  int GetText(std::string& text, int pos) const;
  int GetDoubleArray(std::vector<double>& values, int pos) const;
  int GetU16Array(std::vector<uint16_t>& values, int pos) const;
  int GetU32Array(std::vector<uint32_t>& values, int pos) const;
  int GetByteRun(std::vector<uint8_t>& bytes, int pos) const;

 private:
  template <typename U>
  void PutLE(U v) {
    for (size_t i = 0; i < sizeof(U); ++i) mBytes.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }
  template <typename U>
  int GetLE(U& v, int pos) const {
    if (!Fits(pos, sizeof(U))) return -1;
    U r = 0;
    for (size_t i = 0; i < sizeof(U); ++i) r |= static_cast<U>(mBytes[size_t(pos) + i]) << (8 * i);
    v = r;
    return pos + static_cast<int>(sizeof(U));
  }
  bool Fits(int pos, size_t bytes) const {
    return pos >= 0 && size_t(pos) <= mBytes.size() && bytes <= mBytes.size() - size_t(pos);
  }
  // Reads an array header (int32 0, int32 count) and checks that count
  // elements of `width` bytes follow; returns the position of the first.
  int GetArrayHeader(size_t& count, size_t width, int pos) const;

  std::vector<uint8_t> mBytes;
};

}  // namespace velorum
