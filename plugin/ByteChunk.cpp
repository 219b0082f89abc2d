#include "plugin/ByteChunk.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace velorum {

void ByteChunk::Assign(const void* data, size_t bytes) {
  const auto* p = static_cast<const uint8_t*>(data);
  mBytes.assign(p, p + bytes);
}

void ByteChunk::PutRaw(const void* data, size_t bytes) {
  const auto* p = static_cast<const uint8_t*>(data);
  mBytes.insert(mBytes.end(), p, p + bytes);
}

void ByteChunk::PutDouble(double v) {
  PutLE(std::bit_cast<uint64_t>(v));
}
void ByteChunk::PutFloat(float v) {
  PutLE(std::bit_cast<uint32_t>(v));
}

void ByteChunk::PutText(const std::string& text) {
  PutInt32(0);
  PutInt32(static_cast<int32_t>(text.size()));
  PutRaw(text.data(), text.size());
}

void ByteChunk::PutDoubleArray(std::span<const double> values) {
  PutInt32(0);
  PutInt32(static_cast<int32_t>(values.size()));
  for (double v : values) PutDouble(v);
}

void ByteChunk::PutU16Array(std::span<const uint16_t> values) {
  PutInt32(0);
  PutInt32(static_cast<int32_t>(values.size()));
  for (uint16_t v : values) PutLE(v);
}

void ByteChunk::PutU32Array(std::span<const uint32_t> values) {
  PutInt32(0);
  PutInt32(static_cast<int32_t>(values.size()));
  for (uint32_t v : values) PutLE(v);
}

void ByteChunk::PutByteRun(std::span<const uint8_t> bytes) {
  PutInt32(static_cast<int32_t>(bytes.size()));
  PutRaw(bytes.data(), bytes.size());
}

int ByteChunk::GetRaw(void* out, size_t bytes, int pos) const {
  if (!Fits(pos, bytes)) return -1;
  if (bytes > 0) std::memcpy(out, mBytes.data() + pos, bytes);
  return pos + static_cast<int>(bytes);
}

int ByteChunk::GetByte(uint8_t& v, int pos) const {
  return GetLE(v, pos);
}
int ByteChunk::GetUInt32(uint32_t& v, int pos) const {
  return GetLE(v, pos);
}

int ByteChunk::GetInt32(int32_t& v, int pos) const {
  uint32_t u = 0;
  pos = GetLE(u, pos);
  if (pos >= 0) v = static_cast<int32_t>(u);
  return pos;
}

int ByteChunk::GetInt64(int64_t& v, int pos) const {
  uint64_t u = 0;
  pos = GetLE(u, pos);
  if (pos >= 0) v = static_cast<int64_t>(u);
  return pos;
}

int ByteChunk::GetDouble(double& v, int pos) const {
  uint64_t u = 0;
  pos = GetLE(u, pos);
  if (pos >= 0) v = std::bit_cast<double>(u);
  return pos;
}

int ByteChunk::GetFloat(float& v, int pos) const {
  uint32_t u = 0;
  pos = GetLE(u, pos);
  if (pos >= 0) v = std::bit_cast<float>(u);
  return pos;
}

int ByteChunk::GetArrayHeader(size_t& count, size_t width, int pos) const {
  int32_t ignored = 0, n = 0;
  pos = GetInt32(ignored, pos);
  pos = GetInt32(n, pos);
  if (pos < 0 || n < 0 || !Fits(pos, size_t(n) * width)) return -1;
  count = size_t(n);
  return pos;
}

int ByteChunk::GetText(std::string& text, int pos) const {
  size_t n = 0;
  pos = GetArrayHeader(n, 1, pos);
  if (pos < 0) return -1;
  text.assign(reinterpret_cast<const char*>(mBytes.data()) + pos, n);
  return pos + static_cast<int>(n);
}

int ByteChunk::GetDoubleArray(std::vector<double>& values, int pos) const {
  size_t n = 0;
  pos = GetArrayHeader(n, 8, pos);
  if (pos < 0) return -1;
  values.resize(n);
  for (double& v : values) pos = GetDouble(v, pos);
  return pos;
}

int ByteChunk::GetU16Array(std::vector<uint16_t>& values, int pos) const {
  size_t n = 0;
  pos = GetArrayHeader(n, 2, pos);
  if (pos < 0) return -1;
  values.resize(n);
  for (uint16_t& v : values) pos = GetLE(v, pos);
  return pos;
}

int ByteChunk::GetU32Array(std::vector<uint32_t>& values, int pos) const {
  size_t n = 0;
  pos = GetArrayHeader(n, 4, pos);
  if (pos < 0) return -1;
  values.resize(n);
  for (uint32_t& v : values) pos = GetLE(v, pos);
  return pos;
}

int ByteChunk::GetByteRun(std::vector<uint8_t>& bytes, int pos) const {
  int32_t n = 0;
  pos = GetInt32(n, pos);
  if (pos < 0 || n < 0 || !Fits(pos, size_t(n))) return -1;
  bytes.assign(mBytes.begin() + pos, mBytes.begin() + pos + n);
  return pos + n;
}

}  // namespace velorum
