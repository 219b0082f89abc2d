#pragma once
// General decoder over FFmpeg's libraries: opens anything libavformat knows
// (AAC/M4A, Opus, AIFF, MXF, the audio of video files, ...) and converts the
// audio to interleaved floats with libswresample.
//
// Which audio is read: the stream chosen with setStream(); otherwise, when
// the file holds several audio streams that are all mono at one rate (the
// broadcast layout of a multichannel programme, one track per channel), all
// of them as the channels of one programme in stream order; otherwise the
// first audio stream. format().streams and format().stream tell which.
#include <memory>
#include <vector>

#include "analysis/AudioDecoder.h"

struct AVFormatContext;
struct AVPacket;

namespace velorum {

class AudioDecoderFFmpeg final : public AudioDecoder, public FrameDecoder {
 public:
  AudioDecoderFFmpeg();
  ~AudioDecoderFFmpeg() override;
  AudioDecoderFFmpeg(const AudioDecoderFFmpeg&) = delete;
  AudioDecoderFFmpeg& operator=(const AudioDecoderFFmpeg&) = delete;

  // 0-based index among the file's audio streams; -1 for the rule above.
  void setStream(int stream) { requested_ = stream; }
  // After a failed open: the chosen stream does not exist.
  bool streamMissing() const { return streamMissing_; }

  bool open(const std::string& path) override;
  int64_t read(float* dst, int64_t frames) override;
  bool seek(uint64_t frame) override;

 private:
  struct Track;
  void release();
  // Opens the file and the decoders of the chosen streams (no length yet).
  bool openStreams(const std::string& path);
  bool openTracks(const std::vector<int>& streams);
  void measureLength();
  // Decodes until at least one whole frame of every track is queued, then
  // interleaves what all tracks have into carryOver; false at the end.
  bool decodeMore();
  // Moves the next decoded frames of every track into their queues; false
  // when no track has more.
  bool receiveFrames();
  bool appendConverted(Track& track);
  void interleaveQueued();

  AVFormatContext* format_ctx_ = nullptr;
  AVPacket* packet_ = nullptr;
  std::vector<std::unique_ptr<Track>> tracks_;
  int requested_ = -1;
  bool streamMissing_ = false;
  bool inputEnded_ = false;
};

}  // namespace velorum
