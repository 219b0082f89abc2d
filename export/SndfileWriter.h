#pragma once
// Writes a FLAC or AIFF file through libsndfile from interleaved float
// frames, with the source's text tags (title, artist, comment, date, ...)
// and, where the source states one, its channel map.
#include <sndfile.h>

#include <string>

#include "export/DeliverableFormat.h"

namespace velorum {

class SndfileWriter {
 public:
  SndfileWriter() = default;
  ~SndfileWriter();
  SndfileWriter(const SndfileWriter&) = delete;
  SndfileWriter& operator=(const SndfileWriter&) = delete;

  // `bits`: 16 or 24 (FLAC), 16, 24, 32 or float (AIFF, `isFloat`).
  // `source` is read for its tags and channel map (may be empty).
  bool Open(const std::string& path, Container container, int channels, int sampleRate, int bits,
            bool isFloat, const std::string& source);
  bool Write(const float* interleaved, int frames);
  bool Close();

 private:
  SNDFILE* mFile = nullptr;
  bool mFailed = false;
};

}  // namespace velorum
