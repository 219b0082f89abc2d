#pragma once
// WAV, RF64, W64 and FLAC through libsndfile. The accepted container family is
// chosen at construction so that a ".wav" holding, say, MP3 data is refused
// here and left to the system decoder.
#include <sndfile.h>

#include "analysis/FrameDecoder.h"

namespace velorum {

// The coded depth of a libsndfile format in bits (4 for ADPCM, 8 for the
// companded ones); -1 for lossy or unknown formats.
int32_t SndfileCodedBits(int format);

class SndfileDecoder final : public FrameDecoder {
 public:
  enum class Accept { Wave, Flac, AnyPcm };
  explicit SndfileDecoder(Accept accept) : accept_(accept) {}
  ~SndfileDecoder() override;
  SndfileDecoder(const SndfileDecoder&) = delete;
  SndfileDecoder& operator=(const SndfileDecoder&) = delete;

  bool open(const std::string& path) override;
  int64_t read(float* dst, int64_t frames) override;
  bool seek(uint64_t frame) override;

 private:
  bool accepts(int format) const;
  Accept accept_;
  SNDFILE* file_ = nullptr;
};

}  // namespace velorum
