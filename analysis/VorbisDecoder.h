#pragma once
// Ogg Vorbis through stb_vorbis (Debian's libstb).
#include "analysis/FrameDecoder.h"

struct stb_vorbis;

namespace velorum {

class VorbisDecoder final : public FrameDecoder {
public:
    VorbisDecoder() = default;
    ~VorbisDecoder() override;
    VorbisDecoder(const VorbisDecoder&) = delete;
    VorbisDecoder& operator=(const VorbisDecoder&) = delete;

    bool open(const std::string& path) override;
    int64_t read(float* dst, int64_t frames) override;
    bool seek(uint64_t frame) override;

private:
    stb_vorbis* vorbis_ = nullptr;
};

} // namespace velorum
