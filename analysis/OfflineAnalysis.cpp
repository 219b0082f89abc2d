#include "analysis/OfflineAnalysis.h"

#include <new>

#include "analysis/BlockPipeline.h"
#include "analysis/EngineFeeder.h"
#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"

namespace velorum {

OfflineAnalysis::OfflineAnalysis(LoudnessEngine& engine) : engine_(engine) {}

OfflineAnalysis::~OfflineAnalysis() {
  cancel();
  wait();
}

bool OfflineAnalysis::start(const Request& request) {
  if (running()) return false;
  wait();
  request_ = request;
  state_.store(Busy);
  try {
    worker_ = std::thread([this] { run(request_); });
  } catch (...) {
    return finish(Failed, AudioFileReader::ErrorMemory);
  }
  return true;
}

void OfflineAnalysis::cancel() {
  cancel_.store(true);
}

void OfflineAnalysis::wait() {
  if (worker_.joinable()) worker_.join();
}

bool OfflineAnalysis::finish(int state, int error) {
  error_.store(error);
  state_.store(state);
  return state == Done;
}

bool OfflineAnalysis::run(const Request& request) {
  if (&request != &request_) request_ = request;
  cancel_.store(false);
  error_.store(0);
  progress_.store(0);
  state_.store(Busy);
  info_ = FileInfo{};
  detail_.clear();
  const size_t count = request.paths.size();
  if (count == 0 || (!request.multiMono && count != 1)) return finish(Failed, ErrorSelection);

  try {
    AudioFileReader reader;
    reader.setStream(request.stream);
    const bool opened = request.multiMono
                            ? reader.openMultiMono(request.paths, request.layoutIndex, request.strict)
                            : reader.open(request.paths.front());
    if (!opened || !reader.prepare(request.blockFrames)) {
      detail_ = reader.detail();
      return finish(Failed, reader.error());
    }

    const int channels = static_cast<int>(reader.channels());
    int layout = 0;
    if (request.multiMono)
      layout = static_cast<int>(reader.layoutIndex());
    else if (request.layoutIndex != AudioFileReader::kLayoutFromFileCount &&
             static_cast<int>(request.layoutIndex) < LayoutCount()) {
      layout = static_cast<int>(request.layoutIndex);
      // A chosen layout must have as many channels as the file.
      if (LayoutAt(layout).channelCount != channels) return finish(Failed, AudioFileReader::ErrorChannels);
    } else
      layout = LayoutForChannelCount(channels);

    info_.path = reader.path();
    info_.sampleRate = reader.sampleRate();
    info_.channels = reader.channels();
    info_.frames = reader.totalFrames();
    info_.bitsPerSample = reader.bitsPerSample();
    info_.timeReference = reader.timeReference();
    info_.decoderKind = reader.kind();
    info_.streams = reader.format().streams;
    info_.stream = reader.format().stream;
    info_.layoutIndex = layout;
    if (request.multiMono) {
      info_.channelNames = reader.channelNames();
    } else {
      const ChannelLayout& l = LayoutAt(layout);
      for (int c = 0; c < channels; ++c)
        info_.channelNames.emplace_back(c < l.channelCount ? l.channelNames[static_cast<size_t>(c)]
                                                           : std::to_string(c + 1));
    }

    EngineFeeder::configure(engine_, static_cast<double>(reader.sampleRate()), layout, channels);

    // Decoding runs on a thread of its own, a few blocks ahead of the
    // measurement; the engine sees exactly the same blocks in order.
    BlockPipeline pipe(channels, request.blockFrames, 4);
    std::thread decoder([&] {
      int state = Done, error = 0;
      std::string detail;
      try {
        for (;;) {
          if (cancel_.load()) reader.setCancel(true);
          if (!reader.readBlock()) {
            const bool cancelled = reader.state() == AudioFileReader::StateCancelled;
            state = cancelled ? Cancelled : Failed;
            error = cancelled ? 0 : reader.error();
            detail = reader.detail();
            break;
          }
          const int frames = reader.framesRead();
          if (frames <= 0) break;
          if (reader.truncated()) {
            state = Failed;
            error = ErrorTruncated;
            break;
          }
          BlockPipeline::Block* block = pipe.acquire();
          if (!block) break;
          BlockPipeline::deinterleave(reader.buffer(), frames, *block);
          block->progress = reader.progress();
          pipe.publish(block);
        }
        if (state == Done && reader.truncated()) {
          state = Failed;
          error = ErrorTruncated;
        }
      } catch (...) {
        state = Failed;
        error = AudioFileReader::ErrorMemory;
      }
      detail_ = std::move(detail);
      pipe.close(state, error);
    });
    try {
      while (BlockPipeline::Block* block = pipe.next()) {
        engine_.ProcessBlock(block->pins.data(), block->frames);
        info_.nonFiniteSamples += block->nonFinite;
        progress_.store(block->progress);
        if (request.onBlock) request.onBlock(block->pins.data(), channels, block->frames, block->progress);
        pipe.release(block);
      }
    } catch (...) {
      pipe.stop();
      decoder.join();
      throw;
    }
    decoder.join();
    if (pipe.state() != Done) return finish(pipe.state(), pipe.error());
    // The general decoder's length comes from a duration; what it
    // delivered is the programme's true length.
    if (reader.kind() == AudioFileReader::KindSystem) info_.frames = reader.framesDelivered();
    // The programme has ended: its values with the final gates.
    engine_.FinishProgramme();
    info_.programme = engine_.ExactProgramme();
    progress_.store(100);
    return finish(Done, 0);
  } catch (const std::bad_alloc&) {
    return finish(Failed, AudioFileReader::ErrorMemory);
  } catch (...) {
    return finish(Failed, AudioFileReader::ErrorOpen);
  }
}

std::string OfflineAnalysis::message() const {
  if (state_.load() != Failed) return std::string();
  const std::string message = messageFor(error_.load(), request_);
  return detail_.empty() ? message : message + " " + detail_;
}

std::string OfflineAnalysis::reason() const {
  return state_.load() == Failed ? reasonFor(error_.load()) : "";
}

const char* OfflineAnalysis::reasonFor(int error) {
  switch (error) {
    case 0:
      return "";
    case AudioFileReader::ErrorOpen:
      return "unreadable";
    case AudioFileReader::ErrorMemory:
      return "memory";
    case AudioFileReader::ErrorChannels:
      return "channels";
    case AudioFileReader::ErrorLayout:
    case AudioFileReader::ErrorNotMono:
      return "multi_mono";
    case AudioFileReader::ErrorMissing:
      return "missing";
    case AudioFileReader::ErrorDenied:
      return "permission_denied";
    case AudioFileReader::ErrorNotRegular:
      return "not_regular_file";
    case AudioFileReader::ErrorSampleRate:
      return "sample_rate";
    case AudioFileReader::ErrorNoAudio:
      return "no_audio";
    case AudioFileReader::ErrorNoStream:
      return "no_such_stream";
    case ErrorTruncated:
    case AudioFileReader::ErrorTruncated:
      return "truncated";
    default:
      return "selection";
  }
}

std::string OfflineAnalysis::messageFor(int error, const Request& request) {
  const bool chosenLayout = request.layoutIndex != AudioFileReader::kLayoutFromFileCount;
  switch (error) {
    case 0:
      return std::string();
    case AudioFileReader::ErrorOpen:
    case AudioFileReader::ErrorMemory:
      return "The file could not be opened.";
    case AudioFileReader::ErrorChannels:
      return request.multiMono ? "The multi-mono file selection is not valid."
                               : "The channel number is incorrect.";
    case AudioFileReader::ErrorLayout:
      return chosenLayout ? "The dropped files do not match the current channel preset."
                          : "The multi-mono file selection is not valid.";
    case AudioFileReader::ErrorNotMono:
      return "The multi-mono file selection is not valid.";
    case AudioFileReader::ErrorMissing:
      return "The file could not be opened. It does not exist.";
    case AudioFileReader::ErrorDenied:
      return "The file could not be opened. Permission to read it is denied.";
    case AudioFileReader::ErrorNotRegular:
      return "The file could not be opened. It is not a regular file (a folder, a pipe or a device).";
    case AudioFileReader::ErrorSampleRate:
      return "The file could not be opened.";
    case AudioFileReader::ErrorNoAudio:
      return "The file holds no audio.";
    case AudioFileReader::ErrorNoStream:
      return "The file could not be opened.";
    case AudioFileReader::ErrorTruncated:
    case ErrorTruncated:
      return "The file could not be opened. It ends before the length it states (truncated or damaged).";
    case AudioFileReader::ErrorNothingToRead:
    case ErrorSelection:
    default:
      return "The file selection is not valid.";
  }
}

}  // namespace velorum
