#include "analysis/SndfileDecoder.h"

#include <cstdio>
#include <cstring>

#include "analysis/ContainerLength.h"
#include "analysis/Utf8Path.h"

namespace velorum {
namespace {

// libsndfile shortens a WAV whose data chunk runs past the end of the file to
// what is there, and notes "data : <stated> (should be <present>)" in its log.
// A stated length of 0 or about 4 GB is the mark of a streamed file, not of a
// cut one.
bool headerPromisesMore(SNDFILE* file) {
  char log[8192] = {};
  sf_command(file, SFC_GET_LOG_INFO, log, sizeof log);
  const char* line = std::strstr(log, "data : ");
  if (!line) return false;
  unsigned long long stated = 0, present = 0;
  if (std::sscanf(line, "data : %llu (should be %llu)", &stated, &present) != 2) return false;
  return stated > present && stated != 0 && stated < 0xFFFFFF00ull;
}

}  // namespace

int32_t SndfileCodedBits(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
      return 8;
    case SF_FORMAT_PCM_16:
      return 16;
    case SF_FORMAT_PCM_24:
      return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
      return 32;
    case SF_FORMAT_DOUBLE:
      return 64;
    case SF_FORMAT_IMA_ADPCM:
    case SF_FORMAT_MS_ADPCM:
      return 4;
    default:
      return -1;
  }
}

SndfileDecoder::~SndfileDecoder() {
  if (file_) sf_close(file_);
}

bool SndfileDecoder::accepts(int format) const {
  const int major = format & SF_FORMAT_TYPEMASK;
  switch (accept_) {
    case Accept::Wave:
      return major == SF_FORMAT_WAV || major == SF_FORMAT_WAVEX || major == SF_FORMAT_RF64 ||
             major == SF_FORMAT_W64;
    case Accept::Flac:
      return major == SF_FORMAT_FLAC;
    case Accept::AnyPcm:
      return major != SF_FORMAT_MPEG && major != SF_FORMAT_OGG;
  }
  return false;
}

bool SndfileDecoder::open(const std::string& path) {
  SF_INFO info;
  std::memset(&info, 0, sizeof info);
  file_ = OpenSoundFileUtf8(path, SFM_READ, &info);
  if (!file_) return false;
  if (!accepts(info.format) || info.channels <= 0 || info.samplerate <= 0 || info.frames < 0) {
    sf_close(file_);
    file_ = nullptr;
    return false;
  }
  format_.sampleRate = static_cast<uint32_t>(info.samplerate);
  format_.channels = static_cast<uint32_t>(info.channels);
  format_.totalFrames = static_cast<uint64_t>(info.frames);
  format_.bitsPerSample = SndfileCodedBits(info.format);
  // Float files read back as they are; integer files are scaled to +-1.0.
  sf_command(file_, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
  SF_BROADCAST_INFO bext;
  std::memset(&bext, 0, sizeof bext);
  truncated_ = headerPromisesMore(file_) || DataRunsPastEnd(path);
  if (sf_command(file_, SFC_GET_BROADCAST_INFO, &bext, sizeof bext) == SF_TRUE)
    format_.timeReference = (static_cast<uint64_t>(bext.time_reference_high) << 32) | bext.time_reference_low;
  return true;
}

int64_t SndfileDecoder::read(float* dst, int64_t frames) {
  if (!file_ || frames <= 0) return 0;
  const sf_count_t got = sf_readf_float(file_, dst, frames);
  return got > 0 ? got : 0;
}

bool SndfileDecoder::seek(uint64_t frame) {
  return file_ && sf_seek(file_, static_cast<sf_count_t>(frame), SEEK_SET) >= 0;
}

}  // namespace velorum
