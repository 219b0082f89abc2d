#include "analysis/VorbisDecoder.h"

#include "analysis/Utf8Path.h"

// The static default callbacks of the header are not used here.
#define OV_EXCLUDE_STATIC_CALLBACKS
#include <vorbis/vorbisfile.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace velorum {
namespace {

// The last Ogg page of a complete stream carries the end-of-stream flag
// (bit 2 of the header type, the byte after "OggS" and the version).
bool lastPageEndsStream(const std::string& path) {
  std::FILE* f = OpenFileUtf8(path, "rb");
  if (!f) return false;
  std::vector<unsigned char> tail(65536 + 27);
  // 64-bit positions: a long is 32 bits on Windows, and Ogg files of
  // several hours pass 2 GB.
#ifdef _WIN32
  const auto seek = [f](int64_t at, int whence) { return _fseeki64(f, at, whence) == 0; };
  const auto tell = [f]() -> int64_t { return _ftelli64(f); };
#else
  const auto seek = [f](int64_t at, int whence) { return fseeko(f, static_cast<off_t>(at), whence) == 0; };
  const auto tell = [f]() -> int64_t { return static_cast<int64_t>(ftello(f)); };
#endif
  int64_t size = 0;
  if (seek(0, SEEK_END)) size = tell();
  const auto tailSize = static_cast<int64_t>(tail.size());
  const int64_t start = size > tailSize ? size - tailSize : 0;
  size_t got = 0;
  if (size > 0 && seek(start, SEEK_SET)) got = std::fread(tail.data(), 1, tail.size(), f);
  std::fclose(f);
  for (size_t i = got >= 6 ? got - 6 : 0; got >= 6; --i) {
    if (tail[i] == 'O' && tail[i + 1] == 'g' && tail[i + 2] == 'g' && tail[i + 3] == 'S' && tail[i + 4] == 0)
      return (tail[i + 5] & 0x04) != 0;
    if (i == 0) break;
  }
  return false;
}

// libvorbisfile reads through these callbacks, with 64-bit positions on
// every platform (the file is opened here with its UTF-8 name).
size_t readCallback(void* ptr, size_t size, size_t count, void* source) {
  return std::fread(ptr, size, count, static_cast<std::FILE*>(source));
}

int seekCallback(void* source, ogg_int64_t offset, int whence) {
  std::FILE* f = static_cast<std::FILE*>(source);
#ifdef _WIN32
  return _fseeki64(f, offset, whence);
#else
  return fseeko(f, static_cast<off_t>(offset), whence);
#endif
}

int closeCallback(void* source) {
  return std::fclose(static_cast<std::FILE*>(source));
}

long tellCallback(void* source) {
  std::FILE* f = static_cast<std::FILE*>(source);
#ifdef _WIN32
  return static_cast<long>(_ftelli64(f));
#else
  return static_cast<long>(ftello(f));
#endif
}

}  // namespace

struct VorbisDecoder::Stream {
  OggVorbis_File file{};
  bool open = false;
  int link = -1;  // the logical stream being read
  ~Stream() {
    if (open) ov_clear(&file);
  }
};

VorbisDecoder::VorbisDecoder() = default;
VorbisDecoder::~VorbisDecoder() {
  release();
}

void VorbisDecoder::release() {
  stream_.reset();
}

bool VorbisDecoder::open(const std::string& path) {
  release();
  std::FILE* file = OpenFileUtf8(path, "rb");
  if (!file) return false;
  auto stream = std::make_unique<Stream>();
  const ov_callbacks callbacks = {readCallback, seekCallback, closeCallback, tellCallback};
  // On failure the file stays ours to close.
  if (ov_open_callbacks(file, &stream->file, nullptr, 0, callbacks) != 0) {
    std::fclose(file);
    return false;
  }
  stream->open = true;
  const vorbis_info* info = ov_info(&stream->file, -1);
  const ogg_int64_t length = ov_pcm_total(&stream->file, -1);
  if (!info || info->channels <= 0 || info->rate <= 0 || length <= 0) return false;
  truncated_ = !lastPageEndsStream(path);
  format_.sampleRate = static_cast<uint32_t>(info->rate);
  format_.channels = static_cast<uint32_t>(info->channels);
  format_.totalFrames = static_cast<uint64_t>(length);
  format_.bitsPerSample = -1;
  stream_ = std::move(stream);
  return true;
}

int64_t VorbisDecoder::read(float* dst, int64_t frames) {
  if (!stream_ || frames <= 0) return 0;
  const int channels = static_cast<int>(format_.channels);
  int64_t total = 0;
  int holes = 0;
  while (total < frames) {
    float** planes = nullptr;
    const int want = static_cast<int>(std::min<int64_t>(frames - total, 4096));
    int link = 0;
    const long got = ov_read_float(&stream_->file, &planes, want, &link);
    if (got == OV_HOLE && ++holes < 1000) continue;  // a gap in the data: decoding goes on after it
    if (got <= 0) break;                             // the end, or damage it cannot pass
    // A chained stream whose later part has another channel count ends here.
    const vorbis_info* info = ov_info(&stream_->file, link);
    if (!info || info->channels != channels) break;
    for (long f = 0; f < got; ++f)
      for (int c = 0; c < channels; ++c) dst[(total + f) * channels + c] = planes[c][f];
    total += got;
  }
  return total;
}

bool VorbisDecoder::seek(uint64_t frame) {
  return stream_ && ov_pcm_seek(&stream_->file, static_cast<ogg_int64_t>(frame)) == 0;
}

}  // namespace velorum
