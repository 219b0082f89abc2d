#include "export/SndfileWriter.h"

#include <cstring>
#include <string>
#include <vector>

#include "analysis/Utf8Path.h"

namespace velorum {
namespace {

constexpr int kStrings[] = {SF_STR_TITLE,       SF_STR_COPYRIGHT, SF_STR_SOFTWARE, SF_STR_ARTIST,
                            SF_STR_COMMENT,     SF_STR_DATE,      SF_STR_ALBUM,    SF_STR_LICENSE,
                            SF_STR_TRACKNUMBER, SF_STR_GENRE};

int Subtype(Container container, int bits, bool isFloat) {
  if (container == Container::Aiff && isFloat) return SF_FORMAT_FLOAT;
  if (bits <= 16) return SF_FORMAT_PCM_16;
  if (bits == 32 && container == Container::Aiff) return SF_FORMAT_PCM_32;
  return SF_FORMAT_PCM_24;
}

}  // namespace

SndfileWriter::~SndfileWriter() {
  if (mFile) sf_close(mFile);
}

bool SndfileWriter::Open(const std::string& path, Container container, int channels, int sampleRate, int bits,
                         bool isFloat, const std::string& source) {
  SF_INFO info{};
  info.samplerate = sampleRate;
  info.channels = channels;
  info.format =
      (container == Container::Flac ? SF_FORMAT_FLAC : SF_FORMAT_AIFF) | Subtype(container, bits, isFloat);
  mFile = OpenSoundFileUtf8(path, SFM_WRITE, &info);
  if (!mFile) return false;
  sf_command(mFile, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  SF_INFO sourceInfo{};
  SNDFILE* in = source.empty() ? nullptr : OpenSoundFileUtf8(source, SFM_READ, &sourceInfo);
  if (in) {
    // Tags must be set before the first sample is written.
    for (int id : kStrings)
      if (const char* text = sf_get_string(in, id)) sf_set_string(mFile, id, text);
    std::vector<int> map(static_cast<size_t>(channels));
    if (sourceInfo.channels == channels && sf_command(in, SFC_GET_CHANNEL_MAP_INFO, map.data(),
                                                      static_cast<int>(map.size() * sizeof(int))) == SF_TRUE)
      sf_command(mFile, SFC_SET_CHANNEL_MAP_INFO, map.data(), static_cast<int>(map.size() * sizeof(int)));
    sf_close(in);
  }
  return true;
}

bool SndfileWriter::Write(const float* interleaved, int frames) {
  if (!mFile || mFailed) return false;
  if (frames > 0 && sf_writef_float(mFile, interleaved, frames) != frames) mFailed = true;
  return !mFailed;
}

bool SndfileWriter::Close() {
  if (!mFile) return false;
  const bool closed = sf_close(mFile) == 0;
  mFile = nullptr;
  return closed && !mFailed;
}

}  // namespace velorum
