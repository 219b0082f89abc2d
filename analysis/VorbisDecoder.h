#pragma once
// Ogg Vorbis through the reference decoder, libvorbisfile.
#include <memory>

#include "analysis/FrameDecoder.h"

namespace velorum {

class VorbisDecoder final : public FrameDecoder {
 public:
  VorbisDecoder();
  ~VorbisDecoder() override;
  VorbisDecoder(const VorbisDecoder&) = delete;
  VorbisDecoder& operator=(const VorbisDecoder&) = delete;

  bool open(const std::string& path) override;
  int64_t read(float* dst, int64_t frames) override;
  bool seek(uint64_t frame) override;

 private:
  struct Stream;
  void release();
  std::unique_ptr<Stream> stream_;
};

}  // namespace velorum
