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
#include <cstdint>
#include <cstring>
#include <mutex>

namespace velorum {
namespace {

void quietLibraries() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

// The converter is built for the layout of each decoded frame; layouts whose
// order is unknown are taken as FFmpeg's default order for their count.
void usableLayout(const AVChannelLayout& in, AVChannelLayout* out) {
  if (in.order == AV_CHANNEL_ORDER_UNSPEC || av_channel_layout_check(&in) == 0)
    av_channel_layout_default(out, in.nb_channels);
  else
    av_channel_layout_copy(out, &in);
}

}  // namespace

// One decoded audio stream: its decoder, converter and the interleaved float
// frames decoded but not yet handed on.
struct AudioDecoderFFmpeg::Track {
  int stream = -1;
  int channels = 0;
  AVCodecContext* codec = nullptr;
  SwrContext* swr = nullptr;
  AVFrame* frame = nullptr;
  std::vector<float> queue;
  size_t queueRead = 0;  // samples of queue already handed on
  bool ended = false;    // the decoder has given its last frame

  ~Track() {
    swr_free(&swr);
    av_frame_free(&frame);
    avcodec_free_context(&codec);
  }
  size_t queuedFrames() const {
    return channels > 0 ? (queue.size() - queueRead) / static_cast<size_t>(channels) : 0;
  }
  void compact() {
    queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(queueRead));
    queueRead = 0;
  }
};

AudioDecoderFFmpeg::AudioDecoderFFmpeg() = default;
AudioDecoderFFmpeg::~AudioDecoderFFmpeg() {
  release();
}

void AudioDecoderFFmpeg::release() {
  tracks_.clear();
  av_packet_free(&packet_);
  avformat_close_input(&format_ctx_);
  inputEnded_ = false;
  dropCarryOver();
}

bool AudioDecoderFFmpeg::openTracks(const std::vector<int>& streams) {
  for (int index : streams) {
    AVStream* st = format_ctx_->streams[index];
    const AVCodec* decoder = avcodec_find_decoder(st->codecpar->codec_id);
    auto track = std::make_unique<Track>();
    track->stream = index;
    track->codec = decoder ? avcodec_alloc_context3(decoder) : nullptr;
    track->frame = av_frame_alloc();
    if (!track->codec || !track->frame || avcodec_parameters_to_context(track->codec, st->codecpar) < 0 ||
        avcodec_open2(track->codec, decoder, nullptr) < 0 || track->codec->ch_layout.nb_channels <= 0 ||
        track->codec->sample_rate <= 0)
      return false;
    track->channels = track->codec->ch_layout.nb_channels;
    tracks_.push_back(std::move(track));
  }
  return !tracks_.empty();
}

bool AudioDecoderFFmpeg::open(const std::string& filePath) {
  if (!openStreams(filePath)) return false;
  measureLength();
  if (format_.totalFrames == 0) {
    release();
    return false;
  }
  return true;
}

bool AudioDecoderFFmpeg::openStreams(const std::string& filePath) {
  quietLibraries();
  release();
  streamMissing_ = false;
  format_ = AudioFormat{};
  path = filePath;
  if (avformat_open_input(&format_ctx_, filePath.c_str(), nullptr, nullptr) < 0) return false;
  if (avformat_find_stream_info(format_ctx_, nullptr) < 0) {
    release();
    return false;
  }
  std::vector<int> audio;
  for (unsigned i = 0; i < format_ctx_->nb_streams; ++i)
    if (format_ctx_->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
      audio.push_back(static_cast<int>(i));
  format_.streams = static_cast<int>(audio.size());
  if (audio.empty() || requested_ >= static_cast<int>(audio.size())) {
    streamMissing_ = !audio.empty();
    release();
    return false;
  }
  const AVCodecParameters* first = format_ctx_->streams[audio.front()]->codecpar;
  const bool allMono = audio.size() > 1 && std::all_of(audio.begin(), audio.end(), [&](int i) {
                         const AVCodecParameters* p = format_ctx_->streams[i]->codecpar;
                         return p->ch_layout.nb_channels == 1 && p->sample_rate == first->sample_rate;
                       });
  std::vector<int> chosen;
  if (requested_ >= 0) {
    chosen = {audio[static_cast<size_t>(requested_)]};
    format_.stream = requested_;
  } else if (allMono) {
    chosen = audio;
    format_.stream = -1;
  } else {
    chosen = {audio.front()};
    format_.stream = 0;
  }
  for (unsigned i = 0; i < format_ctx_->nb_streams; ++i)
    if (std::find(chosen.begin(), chosen.end(), static_cast<int>(i)) == chosen.end())
      format_ctx_->streams[i]->discard = AVDISCARD_ALL;
  packet_ = av_packet_alloc();
  if (!packet_ || !openTracks(chosen)) {
    release();
    return false;
  }
  channelCount = 0;
  for (const auto& t : tracks_) channelCount += static_cast<uint32_t>(t->channels);
  sampleRateHz = static_cast<uint32_t>(tracks_.front()->codec->sample_rate);
  const AVStream* st = format_ctx_->streams[tracks_.front()->stream];
  bitsPerSampleNative = st->codecpar->bits_per_raw_sample > 0 ? st->codecpar->bits_per_raw_sample : 16;
  streamPosition = 0;
  endOfStream = false;
  seekPending = false;
  format_.sampleRate = sampleRateHz;
  format_.channels = channelCount;
  return true;
}

void AudioDecoderFFmpeg::measureLength() {
  const AVStream* st = format_ctx_->streams[tracks_.front()->stream];
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
    if (frames <= 0 || !seek(0)) frames = 0;
  }
  format_.sampleRate = sampleRateHz;
  format_.channels = channelCount;
  format_.totalFrames = static_cast<uint64_t>(std::max<int64_t>(frames, 0));
  format_.bitsPerSample = -1;
  format_.timeReference = 0;
}

bool AudioDecoderFFmpeg::appendConverted(Track& t) {
  AVFrame* frame = t.frame;
  AVChannelLayout inLayout{};
  usableLayout(frame->ch_layout, &inLayout);
  if (!t.swr) {
    AVChannelLayout outLayout{};
    if (inLayout.nb_channels == t.channels)
      av_channel_layout_copy(&outLayout, &inLayout);
    else
      av_channel_layout_default(&outLayout, t.channels);
    const int rc =
        swr_alloc_set_opts2(&t.swr, &outLayout, AV_SAMPLE_FMT_FLT, static_cast<int>(sampleRateHz), &inLayout,
                            static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr);
    av_channel_layout_uninit(&outLayout);
    if (rc < 0 || swr_init(t.swr) < 0) {
      av_channel_layout_uninit(&inLayout);
      swr_free(&t.swr);
      return false;
    }
  }
  av_channel_layout_uninit(&inLayout);
  const int room = swr_get_out_samples(t.swr, frame->nb_samples);
  if (room <= 0) return true;
  t.compact();
  const size_t old = t.queue.size();
  const auto channels = static_cast<size_t>(t.channels);
  t.queue.resize(old + static_cast<size_t>(room) * channels);
  uint8_t* out = reinterpret_cast<uint8_t*>(t.queue.data() + old);
  const int got =
      swr_convert(t.swr, &out, room, const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
  t.queue.resize(old + static_cast<size_t>(std::max(got, 0)) * channels);
  if (got < 0) return false;

  if (seekPending && tracks_.size() == 1) {
    seekPending = false;
    AVStream* st = format_ctx_->streams[t.stream];
    const int64_t pts = frame->best_effort_timestamp;
    if (pts != AV_NOPTS_VALUE) {
      const int64_t start = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
      const int64_t at =
          av_rescale_q(pts - start, st->time_base, AVRational{1, static_cast<int>(sampleRateHz)});
      if (at < seekTarget) {
        // The packet began before the target: trim its front.
        const size_t drop = std::min(t.queue.size() - old, static_cast<size_t>(seekTarget - at) * channels);
        t.queue.erase(t.queue.begin() + static_cast<std::ptrdiff_t>(old),
                      t.queue.begin() + static_cast<std::ptrdiff_t>(old + drop));
      } else if (at > seekTarget) {
        // It began after the target: fill the gap with silence.
        t.queue.insert(t.queue.begin() + static_cast<std::ptrdiff_t>(old),
                       static_cast<size_t>(at - seekTarget) * channels, 0.0f);
      }
    }
  }
  return true;
}

bool AudioDecoderFFmpeg::receiveFrames() {
  bool any = false;
  for (auto& t : tracks_) {
    if (t->ended) continue;
    const int rc = avcodec_receive_frame(t->codec, t->frame);
    if (rc == 0) {
      const bool ok = appendConverted(*t);
      av_frame_unref(t->frame);
      if (!ok) t->ended = true;
      any = true;
    } else if (rc != AVERROR(EAGAIN) || inputEnded_) {
      t->ended = true;
    }
  }
  return any;
}

void AudioDecoderFFmpeg::interleaveQueued() {
  size_t frames = SIZE_MAX;
  for (const auto& t : tracks_) frames = std::min(frames, t->queuedFrames());
  if (frames == 0 || frames == SIZE_MAX) return;
  if (tracks_.size() == 1) {
    Track& t = *tracks_.front();
    const size_t n = frames * static_cast<size_t>(t.channels);
    compactCarryOver();
    carryOver.insert(carryOver.end(), t.queue.begin() + static_cast<std::ptrdiff_t>(t.queueRead),
                     t.queue.begin() + static_cast<std::ptrdiff_t>(t.queueRead + n));
    t.queueRead += n;
    return;
  }
  compactCarryOver();
  const size_t old = carryOver.size();
  carryOver.resize(old + frames * channelCount);
  size_t offset = 0;
  for (auto& t : tracks_) {
    const auto ch = static_cast<size_t>(t->channels);
    const float* in = t->queue.data() + t->queueRead;
    for (size_t f = 0; f < frames; ++f)
      for (size_t c = 0; c < ch; ++c) carryOver[old + f * channelCount + offset + c] = in[f * ch + c];
    t->queueRead += frames * ch;
    offset += ch;
  }
}

bool AudioDecoderFFmpeg::decodeMore() {
  if (tracks_.empty() || endOfStream) return false;
  const size_t before = carryOver.size() - carryOverRead;
  for (;;) {
    interleaveQueued();
    if (carryOver.size() - carryOverRead > before) return true;
    if (receiveFrames()) continue;
    const bool allEnded = std::all_of(tracks_.begin(), tracks_.end(), [](const auto& t) { return t->ended; });
    if (allEnded) {
      // A track that ended early is padded with silence, so that the
      // longest one is read to its end.
      size_t longest = 0;
      for (const auto& t : tracks_) longest = std::max(longest, t->queuedFrames());
      if (longest == 0) {
        endOfStream = true;
        return false;
      }
      for (auto& t : tracks_)
        t->queue.resize(t->queue.size() + (longest - t->queuedFrames()) * static_cast<size_t>(t->channels),
                        0.0f);
      continue;
    }
    if (inputEnded_) continue;  // the drained decoders give their last frames
    if (av_read_frame(format_ctx_, packet_) < 0) {
      for (auto& t : tracks_) avcodec_send_packet(t->codec, nullptr);
      inputEnded_ = true;
      continue;
    }
    for (auto& t : tracks_)
      if (packet_->stream_index == t->stream && !t->ended)
        avcodec_send_packet(t->codec, packet_);  // a damaged packet is skipped
    av_packet_unref(packet_);
  }
}

int64_t AudioDecoderFFmpeg::read(float* dst, int64_t frames) {
  if (tracks_.empty()) return 0;
  return deliverFrames(dst, frames, [this] { return decodeMore(); });
}

bool AudioDecoderFFmpeg::seek(uint64_t frame) {
  if (!format_ctx_ || tracks_.empty()) return false;
  if (tracks_.size() > 1) {
    // Several tracks: open again and decode up to the frame, so that
    // every channel stays aligned with the others.
    const AudioFormat kept = format_;
    const bool estimated = lengthEstimated_;
    if (!openStreams(path)) return false;
    format_ = kept;
    lengthEstimated_ = estimated;
    std::vector<float> scratch(4096 * static_cast<size_t>(channelCount));
    for (uint64_t left = frame; left > 0;) {
      const int64_t n = static_cast<int64_t>(std::min<uint64_t>(left, 4096));
      const int64_t got = read(scratch.data(), n);
      if (got <= 0) break;
      left -= static_cast<uint64_t>(got);
    }
    streamPosition = static_cast<int64_t>(frame);
    return true;
  }
  Track& t = *tracks_.front();
  AVStream* st = format_ctx_->streams[t.stream];
  const int64_t start = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;
  const int64_t ts = start + av_rescale_q(static_cast<int64_t>(frame),
                                          AVRational{1, static_cast<int>(sampleRateHz)}, st->time_base);
  if (av_seek_frame(format_ctx_, t.stream, ts, AVSEEK_FLAG_BACKWARD) < 0 &&
      avformat_seek_file(format_ctx_, t.stream, INT64_MIN, ts, ts, 0) < 0)
    return false;
  avcodec_flush_buffers(t.codec);
  swr_free(&t.swr);
  t.queue.clear();
  t.queueRead = 0;
  t.ended = false;
  dropCarryOver();
  endOfStream = false;
  inputEnded_ = false;
  seekPending = true;
  seekTarget = static_cast<int64_t>(frame);
  streamPosition = static_cast<int64_t>(frame);
  return true;
}

}  // namespace velorum
