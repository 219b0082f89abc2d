#include "analysis/VorbisDecoder.h"

#include "analysis/Utf8Path.h"

#define STB_VORBIS_HEADER_ONLY
#include <stb_vorbis.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace velorum {
namespace {

// The last Ogg page of a complete stream carries the end-of-stream flag
// (bit 2 of the header type, the byte after "OggS" and the version).
bool lastPageEndsStream(const std::string& path)
{
    std::FILE* f = OpenFileUtf8(path, "rb");
    if (!f)
        return false;
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
    if (seek(0, SEEK_END))
        size = tell();
    const auto tailSize = static_cast<int64_t>(tail.size());
    const int64_t start = size > tailSize ? size - tailSize : 0;
    size_t got = 0;
    if (size > 0 && seek(start, SEEK_SET))
        got = std::fread(tail.data(), 1, tail.size(), f);
    std::fclose(f);
    for (size_t i = got >= 6 ? got - 6 : 0; got >= 6; --i) {
        if (tail[i] == 'O' && tail[i + 1] == 'g' && tail[i + 2] == 'g' && tail[i + 3] == 'S' && tail[i + 4] == 0)
            return (tail[i + 5] & 0x04) != 0;
        if (i == 0)
            break;
    }
    return false;
}

} // namespace

VorbisDecoder::~VorbisDecoder()
{
    if (vorbis_)
        stb_vorbis_close(vorbis_);
}

bool VorbisDecoder::open(const std::string& path)
{
    // The file is opened here (UTF-8 names on every platform) and handed over:
    // the decoder closes it, also when it refuses the stream.
    std::FILE* file = OpenFileUtf8(path, "rb");
    if (!file)
        return false;
    int err = 0;
    vorbis_ = stb_vorbis_open_file(file, 1, &err, nullptr);
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
    truncated_ = !lastPageEndsStream(path);
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
