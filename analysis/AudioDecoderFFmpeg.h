#pragma once
// General decoder over FFmpeg's libraries: opens anything libavformat knows
// (AAC/M4A, Opus, AIFF, the audio of video files, ...), decodes the first audio
// stream and converts it to interleaved floats with libswresample.
#include "analysis/AudioDecoder.h"

struct AVFormatContext;
struct AVCodecContext;
struct SwrContext;
struct AVPacket;
struct AVFrame;

namespace velorum {

class AudioDecoderFFmpeg final : public AudioDecoder, public FrameDecoder {
public:
    AudioDecoderFFmpeg() = default;
    ~AudioDecoderFFmpeg() override;
    AudioDecoderFFmpeg(const AudioDecoderFFmpeg&) = delete;
    AudioDecoderFFmpeg& operator=(const AudioDecoderFFmpeg&) = delete;

    bool open(const std::string& path) override;
    int64_t read(float* dst, int64_t frames) override;
    bool seek(uint64_t frame) override;

private:
    void release();
    // Decodes the next frame into carryOver; false at the end of the stream.
    bool decodeMore();
    bool appendConverted();

    AVFormatContext* format_ctx_ = nullptr;
    AVCodecContext* codec_ = nullptr;
    SwrContext* swr_ = nullptr;
    AVPacket* packet_ = nullptr;
    AVFrame* frame_ = nullptr;
    int stream_ = -1;
    bool drained_ = false;
};

} // namespace velorum
