#pragma once
// MPEG audio (layers I-III) through libmpg123, decoded to 32-bit floats.
#include "analysis/FrameDecoder.h"

struct mpg123_handle_struct;

namespace velorum {

class Mp3Decoder final : public FrameDecoder {
 public:
  Mp3Decoder() = default;
  ~Mp3Decoder() override;
  Mp3Decoder(const Mp3Decoder&) = delete;
  Mp3Decoder& operator=(const Mp3Decoder&) = delete;

  bool open(const std::string& path) override;
  int64_t read(float* dst, int64_t frames) override;
  bool seek(uint64_t frame) override;

 private:
  void release();
  mpg123_handle_struct* handle_ = nullptr;
};

}  // namespace velorum
