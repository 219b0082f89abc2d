#include "export/WavFileWriter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "analysis/Utf8Path.h"

namespace velorum {
namespace {

constexpr uint64_t kReserveBytes = 28;  // ds64: RIFF size, data size, sample count, table length
constexpr uint64_t kRiffLimit = 0xFFFFFFFFull;

void Le(std::vector<uint8_t>& out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

bool SeekTo(std::FILE* f, uint64_t offset) {
#ifdef _WIN32
  return _fseeki64(f, static_cast<__int64>(offset), SEEK_SET) == 0;
#else
  return fseeko(f, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}

bool PutAt(std::FILE* f, uint64_t offset, uint64_t value, int bytes) {
  std::vector<uint8_t> b;
  Le(b, value, bytes);
  return SeekTo(f, offset) && std::fwrite(b.data(), 1, b.size(), f) == b.size();
}

}  // namespace

WavFileWriter::~WavFileWriter() {
  if (mFile) std::fclose(mFile);
}

uint32_t WavFileWriter::DefaultChannelMask(int channels) {
  switch (channels) {
    case 1:
      return 0x4;
    case 2:
      return 0x3;
    case 3:
      return 0x7;
    case 4:
      return 0x33;
    case 5:
      return 0x37;
    case 6:
      return 0x3F;
    case 7:
      return 0x13F;
    case 8:
      return 0x63F;
    default:
      return 0;
  }
}

std::vector<uint8_t> WavFileWriter::MakeFormatChunk(const WavSampleFormat& f) {
  std::vector<uint8_t> out;
  const uint16_t tag = f.isFloat ? 3 : 1;
  const auto blockAlign = static_cast<uint16_t>(f.channels * f.bits / 8);
  Le(out, f.extensible ? 0xFFFE : tag, 2);
  Le(out, static_cast<uint64_t>(f.channels), 2);
  Le(out, f.sampleRate, 4);
  Le(out, static_cast<uint64_t>(f.sampleRate) * blockAlign, 4);
  Le(out, blockAlign, 2);
  Le(out, static_cast<uint64_t>(f.bits), 2);
  if (f.extensible) {
    Le(out, 22, 2);
    Le(out, static_cast<uint64_t>(f.bits), 2);  // valid bits
    Le(out, f.channelMask, 4);
    // KSDATAFORMAT_SUBTYPE_PCM / _IEEE_FLOAT: the tag, then 0000-0010-8000-00aa00389b71.
    Le(out, tag, 4);
    static const uint8_t kGuidTail[] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                        0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    out.insert(out.end(), std::begin(kGuidTail), std::end(kGuidTail));
  } else if (f.isFloat) {
    Le(out, 0, 2);
  }
  return out;
}

bool WavFileWriter::Put(const void* data, size_t size) {
  if (mFailed || std::fwrite(data, 1, size, mFile) != size) mFailed = true;
  mPosition += size;
  return !mFailed;
}

bool WavFileWriter::PutChunk(const ChunkId& id, const std::vector<uint8_t>& payload) {
  std::vector<uint8_t> head(id.begin(), id.end());
  Le(head, std::min<uint64_t>(payload.size(), kRiffLimit), 4);
  Put(head.data(), head.size());
  mOffsets.emplace_back(id, mPosition);
  Put(payload.data(), payload.size());
  if (payload.size() & 1) Put("", 1);
  return !mFailed;
}

uint64_t WavFileWriter::PayloadOffset(const ChunkId& id) const {
  for (const auto& [chunk, offset] : mOffsets)
    if (chunk == id) return offset;
  return 0;
}

bool WavFileWriter::Open(const std::string& path, const WavSampleFormat& format,
                         const std::vector<uint8_t>& fmt, const std::vector<WavChunk>& before,
                         bool forceRf64) {
  mFormat = format;
  mRf64 = forceRf64;
  mFile = OpenFileUtf8(path, "wb");
  if (!mFile) return false;
  std::setvbuf(mFile, nullptr, _IOFBF, 1 << 20);
  std::vector<uint8_t> head;
  for (char c : std::string(mRf64 ? "RF64" : "RIFF")) head.push_back(static_cast<uint8_t>(c));
  Le(head, mRf64 ? kRiffLimit : 0, 4);
  for (char c : std::string("WAVE")) head.push_back(static_cast<uint8_t>(c));
  Put(head.data(), head.size());
  mReserveOffset = mPosition + 8;
  PutChunk(MakeChunkId(mRf64 ? "ds64" : "JUNK"), std::vector<uint8_t>(kReserveBytes, 0));
  PutChunk(MakeChunkId("fmt "), fmt.empty() ? MakeFormatChunk(format) : fmt);
  if (format.isFloat) {
    PutChunk(MakeChunkId("fact"), std::vector<uint8_t>(4, 0));
    mFactOffset = mPosition - 4;
  }
  for (const WavChunk& chunk : before) PutChunk(chunk.id, chunk.payload);
  std::vector<uint8_t> data{'d', 'a', 't', 'a'};
  Le(data, mRf64 ? kRiffLimit : 0, 4);
  mDataSizeOffset = mPosition + 4;
  return Put(data.data(), data.size());
}

bool WavFileWriter::Write(const float* in, int frames) {
  if (!mFile || mFailed || frames <= 0) return !mFailed;
  const size_t n = static_cast<size_t>(frames) * static_cast<size_t>(mFormat.channels);
  const size_t width = static_cast<size_t>(mFormat.bits / 8);
  mBytes.resize(n * width);
  uint8_t* out = mBytes.data();
  if (mFormat.isFloat) {
    std::memcpy(out, in, n * sizeof(float));  // little-endian hosts only
  } else {
    const double scale = std::ldexp(1.0, mFormat.bits - 1);
    const double top = scale - 1.0;
    for (size_t i = 0; i < n; ++i) {
      const double v = std::clamp(std::nearbyint(static_cast<double>(in[i]) * scale), -scale, top);
      const auto s = static_cast<int64_t>(v);
      for (size_t b = 0; b < width; ++b) *out++ = static_cast<uint8_t>(static_cast<uint64_t>(s) >> (8 * b));
    }
  }
  mDataBytes += mBytes.size();
  return Put(mBytes.data(), mBytes.size());
}

bool WavFileWriter::Close(const std::vector<WavChunk>& after) {
  if (!mFile) return false;
  if (mDataBytes & 1) Put("", 1);
  for (const WavChunk& chunk : after) PutChunk(chunk.id, chunk.payload);
  const uint64_t total = mPosition;
  const uint64_t frames = mDataBytes / (static_cast<uint64_t>(mFormat.channels) * (mFormat.bits / 8));
  if (!mRf64 && (total - 8 > kRiffLimit || mDataBytes > kRiffLimit)) {
    // Too large for RIFF: the reservation becomes the ds64 chunk.
    mRf64 = true;
    mFailed = mFailed || !SeekTo(mFile, 0) || std::fwrite("RF64", 1, 4, mFile) != 4 ||
              !SeekTo(mFile, mReserveOffset - 8) || std::fwrite("ds64", 1, 4, mFile) != 4;
  }
  if (mRf64) {
    mFailed = mFailed || !PutAt(mFile, 4, kRiffLimit, 4) || !PutAt(mFile, mReserveOffset, total - 8, 8) ||
              !PutAt(mFile, mReserveOffset + 8, mDataBytes, 8) ||
              !PutAt(mFile, mReserveOffset + 16, frames, 8) || !PutAt(mFile, mDataSizeOffset, kRiffLimit, 4);
  } else {
    mFailed = mFailed || !PutAt(mFile, 4, total - 8, 4) || !PutAt(mFile, mDataSizeOffset, mDataBytes, 4);
  }
  if (mFactOffset) mFailed = mFailed || !PutAt(mFile, mFactOffset, std::min(frames, kRiffLimit), 4);
  const bool closed = std::fclose(mFile) == 0;
  mFile = nullptr;
  return closed && !mFailed;
}

}  // namespace velorum
