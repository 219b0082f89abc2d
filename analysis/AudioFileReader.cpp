#include "analysis/AudioFileReader.h"

#ifdef _WIN32
#include "analysis/AudioDecoderMediaFoundation.h"
#else
#include "analysis/AudioDecoderFFmpeg.h"
#endif
#include <algorithm>
#include <cctype>
#include <new>

#include "analysis/ChannelFileMatcher.h"
#include "analysis/ContainerLength.h"
#include "analysis/Mp3Decoder.h"
#include "analysis/SndfileDecoder.h"
#include "analysis/Utf8Path.h"
#include "analysis/VorbisDecoder.h"

namespace velorum {

AudioFileReader::AudioFileReader() = default;
AudioFileReader::~AudioFileReader() {
  close();
}

bool AudioFileReader::supportedChannelCount(uint32_t channels) {
  return (channels >= 1 && channels <= 16) || channels == 24;
}

bool AudioFileReader::fail(int error, int state) {
  decoder_.reset();
  channelDecoders_.clear();
  channelBuffers_.clear();
  kind_ = KindNone;
  if (error != ErrorNone) error_.exchange(error);
  state_.exchange(state);
  return false;
}

bool AudioFileReader::failWith(int error, std::string detail) {
  detail_ = std::move(detail);
  return fail(error);
}

bool AudioFileReader::checkAccess(const std::string& path) {
  switch (CheckFileUtf8(path)) {
    case FileAccess::Readable:
      return true;
    case FileAccess::Missing:
      return failWith(ErrorMissing, "");
    case FileAccess::Denied:
      return failWith(ErrorDenied, "");
    case FileAccess::NotRegular:
      return failWith(ErrorNotRegular, "");
  }
  return false;
}

bool AudioFileReader::checkFormat(const AudioFormat& f) {
  if (f.sampleRate < kMinSampleRate || f.sampleRate > kMaxSampleRate)
    return failWith(ErrorSampleRate, "Its sample rate of " + std::to_string(f.sampleRate) +
                                         " Hz is outside 8000 to 768000 Hz.");
  if (f.totalFrames == 0) return failWith(ErrorNoAudio, "");
  return true;
}

void AudioFileReader::close() {
  decoder_.reset();
  channelDecoders_.clear();
  channelBuffers_.clear();
  std::vector<float>().swap(buffer_);
  kind_ = KindNone;
  framesRead_ = 0;
  position_ = 0;
  delivered_ = 0;
  ended_ = false;
  containerCut_ = false;
}

bool AudioFileReader::refuseUnreadable() {
  if (DataRunsPastEnd(path_)) return failWith(ErrorTruncated, "");
  return failWith(ErrorOpen, "No decoder recognises its contents, or it is damaged.");
}

bool AudioFileReader::openWithSystemDecoder() {
#ifdef _WIN32
  // Media Foundation's reader decodes the first audio stream only.
  if (stream_ > 0) return failWith(ErrorNoStream, "Only the first audio stream can be chosen in this build.");
  auto system = std::make_unique<AudioDecoderMediaFoundation>();
  if (!system->open(path_)) return refuseUnreadable();
#else
  auto system = std::make_unique<AudioDecoderFFmpeg>();
  system->setStream(stream_);
  if (!system->open(path_)) {
    if (system->streamMissing())
      return failWith(ErrorNoStream, "It holds " + std::to_string(system->format().streams) +
                                         " audio stream(s); there is no stream " + std::to_string(stream_) +
                                         " (streams count from 0).");
    return refuseUnreadable();
  }
#endif
  decoder_ = std::move(system);
  kind_ = KindSystem;
  return true;
}

bool AudioFileReader::open(const std::string& path) {
  close();
  error_.exchange(ErrorNone);
  state_.exchange(StateBusy);
  cancel_.store(false);
  format_ = AudioFormat{};
  detail_.clear();
  channelPaths_.clear();
  channelNames_.clear();
  path_ = path;
  if (!checkAccess(path)) return false;
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of("/\\");
  extension_.clear();
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
    extension_ = path.substr(dot + 1);
  std::transform(extension_.begin(), extension_.end(), extension_.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });

  std::unique_ptr<FrameDecoder> library;
  int kind = KindNone;
  if (extension_ == "mp3") {
    library = std::make_unique<Mp3Decoder>();
    kind = KindMp3;
  } else if (extension_ == "wav") {
    library = std::make_unique<SndfileDecoder>(SndfileDecoder::Accept::Wave);
    kind = KindWav;
  } else if (extension_ == "flac") {
    library = std::make_unique<SndfileDecoder>(SndfileDecoder::Accept::Flac);
    kind = KindFlac;
  } else if (extension_ == "ogg") {
    library = std::make_unique<VorbisDecoder>();
    kind = KindVorbis;
  }
  // The library decoders read single-stream files: a stream other than the
  // first is looked for by the system decoder.
  if (library && stream_ <= 0 && library->open(path)) {
    decoder_ = std::move(library);
    kind_ = kind;
  } else {
    library.reset();
    // The system decoder gets a second chance at every file.
    if (!openWithSystemDecoder()) return false;
  }
  format_ = decoder_->format();
  // Whichever decoder took it, a RIFF, RF64 or AIFF file whose data chunk
  // states more than the file holds is cut off.
  containerCut_ = DataRunsPastEnd(path);
  if (!checkFormat(format_)) return false;
  if (!supportedChannelCount(format_.channels)) return fail(ErrorChannels);
  return true;
}

bool AudioFileReader::openMultiMono(const std::vector<std::string>& paths, uint32_t layoutIndex,
                                    bool strict) {
  close();
  error_.exchange(ErrorNone);
  state_.exchange(StateBusy);
  cancel_.store(false);
  format_ = AudioFormat{};
  detail_.clear();
  kind_ = KindMultiMono;
  channelPaths_.clear();
  channelNames_.clear();
  const uint32_t count = static_cast<uint32_t>(paths.size());
  format_.channels = count;
  if (!supportedChannelCount(count)) return fail(ErrorChannels);

  const ChannelFileMatch match = matchChannelFiles(paths, layoutIndex, strict);
  if (!match.ok || match.paths.empty() || match.paths.size() != match.names.size()) return fail(ErrorLayout);
  for (const std::string& p : match.paths)
    if (p.empty()) return fail(ErrorOpen);  // a channel left without a file
  channelPaths_ = match.paths;
  channelNames_ = match.names;
  layoutIndex_ = match.layoutIndex;
  path_ = channelPaths_.front();
  const size_t dot = path_.find_last_of('.');
  extension_ = dot == std::string::npos ? std::string() : path_.substr(dot + 1);
  std::transform(extension_.begin(), extension_.end(), extension_.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });

  int32_t bits = -1;
  for (size_t i = 0; i < channelPaths_.size(); ++i) {
    if (!checkAccess(channelPaths_[i])) return false;
    auto decoder = std::make_unique<SndfileDecoder>(SndfileDecoder::Accept::AnyPcm);
    if (!decoder->open(channelPaths_[i]))
      return failWith(ErrorOpen, "No decoder recognises its contents, or it is damaged.");
    const AudioFormat& f = decoder->format();
    if (!checkFormat(f)) return false;
    if (i > 0 && (f.totalFrames != format_.totalFrames || f.sampleRate != format_.sampleRate))
      return fail(ErrorChannels);
    if (f.channels != 1) return fail(ErrorNotMono);
    if (i == 0) {
      format_.totalFrames = f.totalFrames;
      format_.sampleRate = f.sampleRate;
    }
    bits = std::max(bits, f.bitsPerSample);
    if (f.timeReference != 0) format_.timeReference = f.timeReference;
    channelDecoders_.push_back(std::move(decoder));
  }
  // A set states no single bit depth: like the system decoder it reports
  // -1 (so the summary prints no "File Bitrate" line); the largest depth of
  // its files stays available to the normaliser.
  format_.channels = count;
  format_.bitsPerSample = -1;
  setBits_ = bits;
  return true;
}

bool AudioFileReader::prepare(int32_t blockFrames) {
  const bool open = kind_ == KindMultiMono ? !channelDecoders_.empty() : decoder_ != nullptr;
  if (!open || format_.totalFrames == 0 || blockFrames <= 0) return fail(ErrorNothingToRead);
  blockFrames_ = blockFrames;
  try {
    buffer_.assign(static_cast<size_t>(blockFrames) * format_.channels, 0.0f);
    channelBuffers_.clear();
    if (kind_ == KindMultiMono)
      channelBuffers_.assign(format_.channels, std::vector<float>(static_cast<size_t>(blockFrames), 0.0f));
  } catch (const std::bad_alloc&) {
    std::vector<float>().swap(buffer_);
    channelBuffers_.clear();
    return fail(ErrorMemory);
  }
  position_ = 0;
  framesRead_ = 0;
  delivered_ = 0;
  ended_ = false;
  progress_.exchange(0);
  return true;
}

bool AudioFileReader::readBlock() {
  if (cancel_.load()) {
    state_.exchange(StateCancelled);
    return false;
  }
  if (buffer_.empty() || blockFrames_ <= 0) return fail(ErrorNothingToRead);
  const int64_t total = static_cast<int64_t>(format_.totalFrames);
  int64_t wanted = blockFrames_;
  // A length that is only an estimate does not cut the audio short: such a
  // stream is read until its decoder ends.
  const bool openEnded = kind_ == KindSystem && decoder_ && decoder_->lengthEstimated();
  if (!openEnded && position_ + blockFrames_ >= total) wanted = std::max<int64_t>(total - position_, 0);

  int64_t got = 0;
  if (wanted > 0) {
    if (kind_ == KindMultiMono) {
      got = wanted;
      for (size_t c = 0; c < channelDecoders_.size(); ++c)
        got = std::min(got, channelDecoders_[c]->read(channelBuffers_[c].data(), wanted));
      const size_t channels = channelDecoders_.size();
      for (int64_t f = 0; f < got; ++f)
        for (size_t c = 0; c < channels; ++c)
          buffer_[static_cast<size_t>(f) * channels + c] = channelBuffers_[c][static_cast<size_t>(f)];
    } else if (decoder_) {
      got = decoder_->read(buffer_.data(), wanted);
    }
  }
  // A short block is padded with silence.
  std::fill(buffer_.begin() + static_cast<std::ptrdiff_t>(got * format_.channels), buffer_.end(), 0.0f);
  framesRead_ = static_cast<int32_t>(got);

  if (position_ == 0 && got == 0)
    return failWith(ErrorOpen, "No audio could be decoded from it; it is damaged or cut off.");
  delivered_ += static_cast<uint64_t>(got);
  if (got < wanted || wanted == 0) ended_ = true;
  if (got > 0) {
    position_ += blockFrames_;
    const double pct =
        total > 0 ? static_cast<double>(position_) / static_cast<double>(total) * 100.0 : 100.0;
    progress_.exchange(pct > 100.0 ? 100 : static_cast<int>(pct));
    return true;
  }
  progress_.exchange(100);
  return true;
}

bool AudioFileReader::rewind() {
  bool ok = true;
  if (kind_ == KindMultiMono) {
    for (auto& d : channelDecoders_) ok = d->seek(0) && ok;
  } else if (decoder_) {
    ok = decoder_->seek(0);
  } else {
    ok = false;
  }
  position_ = 0;
  framesRead_ = 0;
  delivered_ = 0;
  ended_ = false;
  return ok;
}

bool AudioFileReader::truncated() const {
  if (containerCut_ || (decoder_ && decoder_->truncated())) return true;
  for (const auto& d : channelDecoders_)
    if (d->truncated()) return true;
  if (!ended_ || delivered_ >= format_.totalFrames) return false;
  const uint64_t missing = format_.totalFrames - delivered_;
  if (kind_ == KindSystem)
    return !decoder_->lengthEstimated() && missing > format_.sampleRate && missing > format_.totalFrames / 50;
  return true;
}

}  // namespace velorum
