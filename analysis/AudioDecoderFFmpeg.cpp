#include "analysis/AudioDecoderFFmpeg.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

namespace velorum {
namespace {

void quietLibraries()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

// The converter is built for the layout of each decoded frame; layouts whose
// order is unknown are taken as FFmpeg's default order for their count.
void usableLayout(const AVChannelLayout& in, AVChannelLayout* out)
{
    if (in.order == AV_CHANNEL_ORDER_UNSPEC || av_channel_layout_check(&in) == 0)
        av_channel_layout_default(out, in.nb_channels);
    else
        av_channel_layout_copy(out, &in);
}

} // namespace

AudioDecoderFFmpeg::~AudioDecoderFFmpeg() { release(); }

void AudioDecoderFFmpeg::release()
{
    swr_free(&swr_);
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&codec_);
    avformat_close_input(&format_ctx_);
    stream_ = -1;
    drained_ = false;
    dropCarryOver();
}

bool AudioDecoderFFmpeg::open(const std::string& filePath)
{
    quietLibraries();
    release();
    path = filePath;
    if (avformat_open_input(&format_ctx_, filePath.c_str(), nullptr, nullptr) < 0)
        return false;
    if (avformat_find_stream_info(format_ctx_, nullptr) < 0) {
        release();
        return false;
    }
    const AVCodec* decoder = nullptr;
    stream_ = av_find_best_stream(format_ctx_, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (stream_ < 0 || !decoder) {
        release();
        return false;
    }
    for (unsigned i = 0; i < format_ctx_->nb_streams; ++i)
        if (static_cast<int>(i) != stream_)
            format_ctx_->streams[i]->discard = AVDISCARD_ALL;
    AVStream* st = format_ctx_->streams[stream_];
    codec_ = avcodec_alloc_context3(decoder);
    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
    if (!codec_ || !packet_ || !frame_ || avcodec_parameters_to_context(codec_, st->codecpar) < 0 ||
        avcodec_open2(codec_, decoder, nullptr) < 0 || codec_->ch_layout.nb_channels <= 0 ||
        codec_->sample_rate <= 0) {
        release();
        return false;
    }
    channelCount = static_cast<uint32_t>(codec_->ch_layout.nb_channels);
    sampleRateHz = static_cast<uint32_t>(codec_->sample_rate);
    bitsPerSampleNative = st->codecpar->bits_per_raw_sample > 0 ? st->codecpar->bits_per_raw_sample : 16;
    streamPosition = 0;
    endOfStream = false;
    seekPending = false;

    double seconds = -1.0;
    lengthEstimated_ = format_ctx_->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
    if (st->duration != AV_NOPTS_VALUE && st->duration > 0) {
        seconds = static_cast<double>(st->duration) * av_q2d(st->time_base);
    } else if (format_ctx_->duration != AV_NOPTS_VALUE && format_ctx_->duration > 0) {
        // The container's duration: that of its longest stream, maybe video.
        seconds = static_cast<double>(format_ctx_->duration) / AV_TIME_BASE;
        lengthEstimated_ = true;
    }
    int64_t frames = 0;
    if (seconds > 0.0) {
        // The duration, in samples over all channels, truncated; then rounded
        // up to whole frames.
        const double samples = std::trunc(seconds * sampleRateHz * channelCount);
        frames = static_cast<int64_t>(std::ceil(samples / channelCount));
    } else {
        frames = countFramesToEnd([this] { return decodeMore(); });
        if (frames <= 0 || !seek(0)) {
            release();
            return false;
        }
    }
    format_.sampleRate = sampleRateHz;
    format_.channels = channelCount;
    format_.totalFrames = static_cast<uint64_t>(std::max<int64_t>(frames, 0));
    format_.bitsPerSample = -1;
    format_.timeReference = 0;
    return true;
}

bool AudioDecoderFFmpeg::appendConverted()
{
    AVChannelLayout inLayout{};
    usableLayout(frame_->ch_layout, &inLayout);
    if (!swr_) {
        AVChannelLayout outLayout{};
        if (inLayout.nb_channels == static_cast<int>(channelCount))
            av_channel_layout_copy(&outLayout, &inLayout);
        else
            av_channel_layout_default(&outLayout, static_cast<int>(channelCount));
        const int rc = swr_alloc_set_opts2(&swr_, &outLayout, AV_SAMPLE_FMT_FLT,
                                           static_cast<int>(sampleRateHz), &inLayout,
                                           static_cast<AVSampleFormat>(frame_->format),
                                           frame_->sample_rate, 0, nullptr);
        av_channel_layout_uninit(&outLayout);
        if (rc < 0 || swr_init(swr_) < 0) {
            av_channel_layout_uninit(&inLayout);
            swr_free(&swr_);
            return false;
        }
    }
    av_channel_layout_uninit(&inLayout);
    const int room = swr_get_out_samples(swr_, frame_->nb_samples);
    if (room <= 0)
        return true;
    compactCarryOver();
    const size_t old = carryOver.size();
    carryOver.resize(old + static_cast<size_t>(room) * channelCount);
    uint8_t* out = reinterpret_cast<uint8_t*>(carryOver.data() + old);
    const int got = swr_convert(swr_, &out, room, const_cast<const uint8_t**>(frame_->extended_data),
                                frame_->nb_samples);
    carryOver.resize(old + static_cast<size_t>(std::max(got, 0)) * channelCount);
    if (got < 0)
        return false;

    if (seekPending) {
        seekPending = false;
        AVStream* st = format_ctx_->streams[stream_];
        const int64_t pts = frame_->best_effort_timestamp;
        if (pts != AV_NOPTS_VALUE) {
            const int64_t start = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
            const int64_t at = av_rescale_q(pts - start, st->time_base, AVRational{1, static_cast<int>(sampleRateHz)});
            if (at < seekTarget) {
                // The packet began before the target: trim its front.
                const size_t drop = std::min(carryOver.size() - old,
                                             static_cast<size_t>(seekTarget - at) * channelCount);
                carryOver.erase(carryOver.begin() + static_cast<std::ptrdiff_t>(old),
                                carryOver.begin() + static_cast<std::ptrdiff_t>(old + drop));
            } else if (at > seekTarget) {
                // It began after the target: fill the gap with silence.
                carryOver.insert(carryOver.begin() + static_cast<std::ptrdiff_t>(old),
                                 static_cast<size_t>(at - seekTarget) * channelCount, 0.0f);
            }
        }
    }
    return true;
}

bool AudioDecoderFFmpeg::decodeMore()
{
    if (!codec_ || endOfStream)
        return false;
    for (;;) {
        const int rc = avcodec_receive_frame(codec_, frame_);
        if (rc == 0) {
            const bool ok = appendConverted();
            av_frame_unref(frame_);
            if (!ok) {
                endOfStream = true;
                return false;
            }
            return true;
        }
        if (rc != AVERROR(EAGAIN)) {
            endOfStream = true;
            return false;
        }
        if (drained_) {
            endOfStream = true;
            return false;
        }
        const int rd = av_read_frame(format_ctx_, packet_);
        if (rd < 0) {
            avcodec_send_packet(codec_, nullptr);
            drained_ = true;
            continue;
        }
        if (packet_->stream_index == stream_) {
            const int sent = avcodec_send_packet(codec_, packet_);
            // A damaged packet is skipped; the decoder goes on with the next.
            (void)sent;
        }
        av_packet_unref(packet_);
    }
}

int64_t AudioDecoderFFmpeg::read(float* dst, int64_t frames)
{
    if (!codec_)
        return 0;
    return deliverFrames(dst, frames, [this] { return decodeMore(); });
}

bool AudioDecoderFFmpeg::seek(uint64_t frame)
{
    if (!format_ctx_ || !codec_)
        return false;
    AVStream* st = format_ctx_->streams[stream_];
    const int64_t start = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
    const int64_t ts = start + av_rescale_q(static_cast<int64_t>(frame), AVRational{1, static_cast<int>(sampleRateHz)},
                                            st->time_base);
    if (av_seek_frame(format_ctx_, stream_, ts, AVSEEK_FLAG_BACKWARD) < 0 &&
        avformat_seek_file(format_ctx_, stream_, INT64_MIN, ts, ts, 0) < 0)
        return false;
    avcodec_flush_buffers(codec_);
    swr_free(&swr_);
    dropCarryOver();
    endOfStream = false;
    drained_ = false;
    seekPending = true;
    seekTarget = static_cast<int64_t>(frame);
    streamPosition = static_cast<int64_t>(frame);
    return true;
}

} // namespace velorum
