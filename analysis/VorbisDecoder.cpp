#include "analysis/VorbisDecoder.h"

#define STB_VORBIS_HEADER_ONLY
#include <stb_vorbis.h>

#include <climits>

namespace velorum {

VorbisDecoder::~VorbisDecoder()
{
    if (vorbis_)
        stb_vorbis_close(vorbis_);
}

bool VorbisDecoder::open(const std::string& path)
{
    int err = 0;
    vorbis_ = stb_vorbis_open_filename(path.c_str(), &err, nullptr);
    if (!vorbis_)
        return false;
    const stb_vorbis_info info = stb_vorbis_get_info(vorbis_);
    const unsigned int length = stb_vorbis_stream_length_in_samples(vorbis_);
    if (info.channels <= 0 || info.sample_rate == 0 || length == 0) {
        stb_vorbis_close(vorbis_);
        vorbis_ = nullptr;
        return false;
    }
    stb_vorbis_seek_start(vorbis_);
    format_.sampleRate = info.sample_rate;
    format_.channels = static_cast<uint32_t>(info.channels);
    format_.totalFrames = length;
    format_.bitsPerSample = -1;
    return true;
}

int64_t VorbisDecoder::read(float* dst, int64_t frames)
{
    if (!vorbis_ || frames <= 0)
        return 0;
    const int channels = static_cast<int>(format_.channels);
    int64_t total = 0;
    while (total < frames) {
        const int64_t chunk = frames - total > INT_MAX / channels ? INT_MAX / channels : frames - total;
        const int got = stb_vorbis_get_samples_float_interleaved(
            vorbis_, channels, dst + total * channels, static_cast<int>(chunk * channels));
        if (got <= 0)
            break;
        total += got;
    }
    return total;
}

bool VorbisDecoder::seek(uint64_t frame)
{
    if (!vorbis_)
        return false;
    return frame == 0 ? stb_vorbis_seek_start(vorbis_) != 0
                      : stb_vorbis_seek(vorbis_, static_cast<unsigned int>(frame)) != 0;
}

} // namespace velorum
