#include "analysis/Mp3Decoder.h"

#include <mpg123.h>
#include <sys/types.h>

#include <mutex>

// Frame counts and positions pass through off_t: a 32-bit one would end an
// MP3 at 2^31 frames (12.4 hours at 48 kHz).
static_assert(sizeof(off_t) == 8, "libmpg123 needs a 64-bit off_t here");

namespace velorum {
namespace {

bool libraryReady() {
  static std::once_flag once;
  static bool ready = false;
  std::call_once(once, [] { ready = mpg123_init() == MPG123_OK; });
  return ready;
}

}  // namespace

Mp3Decoder::~Mp3Decoder() {
  release();
}

void Mp3Decoder::release() {
  if (handle_) {
    mpg123_close(handle_);
    mpg123_delete(handle_);
    handle_ = nullptr;
  }
}

bool Mp3Decoder::open(const std::string& path) {
  if (!libraryReady()) return false;
  int err = MPG123_OK;
  handle_ = mpg123_new(nullptr, &err);
  if (!handle_) return false;
  mpg123_param(handle_, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_GAPLESS, 0.0);
  // Float output at whatever rate and channel count the stream has.
  mpg123_format_none(handle_);
  for (long rate : {8000L, 11025L, 12000L, 16000L, 22050L, 24000L, 32000L, 44100L, 48000L})
    mpg123_format(handle_, rate, MPG123_MONO | MPG123_STEREO, MPG123_ENC_FLOAT_32);
  long rate = 0;
  int channels = 0, encoding = 0;
  if (mpg123_open(handle_, path.c_str()) != MPG123_OK ||
      mpg123_getformat(handle_, &rate, &channels, &encoding) != MPG123_OK || rate <= 0 || channels <= 0 ||
      encoding != MPG123_ENC_FLOAT_32) {
    release();
    return false;
  }
  mpg123_format_none(handle_);
  mpg123_format(handle_, rate, channels, MPG123_ENC_FLOAT_32);
  // The length an Info/Xing header states, before the scan replaces it.
  const off_t stated = mpg123_length(handle_);
  // One pass over the whole stream gives the exact length; then back to 0.
  if (mpg123_scan(handle_) != MPG123_OK) {
    release();
    return false;
  }
  const off_t length = mpg123_length(handle_);
  if (length < 0 || mpg123_seek(handle_, 0, SEEK_SET) < 0) {
    release();
    return false;
  }
  // A stream shorter than its header says by more than a frame was cut off.
  mpg123_frameinfo frame{};
  long frameSamples = 1152;
  if (mpg123_info(handle_, &frame) == MPG123_OK && frame.layer == 1) frameSamples = 384;
  truncated_ = stated > 0 && stated - length > frameSamples;
  format_.sampleRate = static_cast<uint32_t>(rate);
  format_.channels = static_cast<uint32_t>(channels);
  format_.totalFrames = static_cast<uint64_t>(length);
  format_.bitsPerSample = -1;
  return true;
}

int64_t Mp3Decoder::read(float* dst, int64_t frames) {
  if (!handle_ || frames <= 0) return 0;
  const size_t frameBytes = sizeof(float) * format_.channels;
  unsigned char* out = reinterpret_cast<unsigned char*>(dst);
  size_t wanted = static_cast<size_t>(frames) * frameBytes;
  size_t total = 0;
  while (total < wanted) {
    size_t done = 0;
    const int rc = mpg123_read(handle_, out + total, wanted - total, &done);
    total += done;
    if (rc == MPG123_NEW_FORMAT) {
      long rate = 0;
      int channels = 0, encoding = 0;
      mpg123_getformat(handle_, &rate, &channels, &encoding);
      if (static_cast<uint32_t>(channels) != format_.channels)
        break;  // a channel change mid-stream ends the audio here
      continue;
    }
    if (rc != MPG123_OK || done == 0) break;
  }
  return static_cast<int64_t>(total / frameBytes);
}

bool Mp3Decoder::seek(uint64_t frame) {
  return handle_ && mpg123_seek(handle_, static_cast<off_t>(frame), SEEK_SET) >= 0;
}

}  // namespace velorum
