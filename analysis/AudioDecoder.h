#pragma once
// The system media decoder family: the general decoder that gets a second
// chance at every file the library decoders refuse. AudioDecoderBase and
// AudioDecoder hold the platform-free bookkeeping; a platform class derives
// from AudioDecoder (on Linux AudioDecoderFFmpeg, over libavformat/libavcodec;
// on Windows AudioDecoderMediaFoundation, over Media Foundation's source reader).
#include "analysis/FrameDecoder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace velorum {

class AudioDecoderBase {
public:
    virtual ~AudioDecoderBase() = default;

    std::string path;            // UTF-8
    uint32_t channelCount = 0;
    uint32_t sampleRateHz = 0;
    uint64_t framesDelivered = 0;
    uint64_t readCalls = 0;
};

class AudioDecoder : public AudioDecoderBase {
public:
    AudioDecoder()
    {
        channelCount = 2;
        sampleRateHz = 44100;
    }
    int32_t bitsPerSampleNative = 16;
    int64_t streamPosition = 0;   // frames
    bool endOfStream = false;
    bool seekPending = false;
    int64_t seekTarget = 0;       // frames
    // Decoded frames that the last request could not take, interleaved.
    std::vector<float> carryOver;
    size_t carryOverRead = 0;     // samples of carryOver already handed out
};

} // namespace velorum
