#include "export/WavNormalizer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "analysis/AudioFileReader.h"
#include "analysis/OfflineAnalysis.h"
#include "analysis/Utf8Path.h"
#include "engine/LoudnessEngine.h"
#include "export/DeliverableWriter.h"
#include "export/ExportWriter.h"
#include "export/InterSamplePeak.h"
#include "export/TempFileRegistry.h"
#include "export/TruePeakLimiter.h"

namespace velorum {
namespace {

constexpr int kBlock = 16384;
constexpr int kAttempts = 6;
// How close the limiter brings the copy to its target before it is kept.
constexpr double kLimitedTolerance = 0.04;
// Room left below the ceiling for what the source's 4x measurement misses.
constexpr double kCeilingMargin = 0.05;
constexpr double kLimiterMargin = 0.1;

std::string DbText(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f", std::round(value * 10.0) / 10.0);
  return buffer;
}

double ToDb(double linear) {
  return linear > 1e-6 ? 20.0 * std::log10(linear) : -120.0;
}

// Measures a file with the offline analysis; the readings are those of its
// final result.
struct Measured {
  bool ok = false;
  std::string message;
  LoudnessResult result;
  OfflineAnalysis::FileInfo info;
};

Measured Measure(const std::string& path, bool eco, const std::function<void(int)>& progress) {
  Measured m;
  LoudnessEngine engine;
  engine.SetEcoMode(eco);
  engine.SetDialogueEnabled(false);  // the gain follows the level-gated loudness
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request job;
  job.paths = {path};
  job.blockFrames = kBlock;
  if (progress) {
    // The worker measures; this thread passes its progress on for display.
    if (!analysis.start(job)) return m;
    while (analysis.running()) {
      progress(analysis.progress());
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    analysis.wait();
  } else {
    analysis.run(job);
  }
  if (analysis.state() != OfflineAnalysis::Done) {
    m.message = analysis.message();
    return m;
  }
  m.ok = true;
  m.result = engine.Result();
  m.info = analysis.fileInfo();
  return m;
}

class Normalizer {
 public:
  Normalizer(const NormalizeRequest& request, NormalizeResult& result) : mRequest(request), mResult(result) {}
  bool Run();

 private:
  void Progress(int value);
  bool Fail(const std::string& message, const std::string& file);
  bool Prepare(const Measured& source);
  // One pass: decode, gain, limit, write the temporary file, measure it.
  bool Render(double gainDb, double thresholdDb, Measured& written, double& peakDb);
  bool Adjust(const Measured& written, double peakDb, double& gainDb, double& thresholdDb, int attempt);

  const NormalizeRequest& mRequest;
  NormalizeResult& mResult;
  int mProgress = 0;
  int mPass = 0;
  int mPasses = 1;
  std::string mTemp;
  DeliverablePlan mPlan;
  std::unique_ptr<DeliverableWriter> mWriter;
  double mLastGain = 0.0;
  double mLastIntegrated = 0.0;
};

void Normalizer::Progress(int value) {
  value = std::clamp(value, 0, 100);
  if (value <= mProgress || !mRequest.progress) return;
  mProgress = value;
  mRequest.progress(value);
}

bool Normalizer::Fail(const std::string& message, const std::string& file) {
  mResult.ok = false;
  mResult.message = message;
  mResult.messageFile = file;
  return false;
}

bool Normalizer::Prepare(const Measured& source) {
  const Container sourceContainer = SniffContainer(mRequest.input);
  const Container container = mRequest.wavOutput ? Container::Wav : OutputContainerFor(sourceContainer);
  mResult.container = container;
  mResult.convertedToWav = container == Container::Wav && sourceContainer != Container::Wav;
  if (!ExtensionFits(container, mRequest.output))
    return Fail(std::string("The copy is written as ") + ContainerName(container) +
                    " and its name must end in " +
                    (container == Container::Wav    ? ".wav, .bwf or .rf64"
                     : container == Container::Flac ? ".flac"
                                                    : ".aif or .aiff") +
                    ".",
                mRequest.output);
  {
    // Closed again at once: on Windows the in-use test below would find this
    // handle when the copy replaces its own source.
    AudioFileReader reader;
    if (!reader.open(mRequest.input)) return Fail("The file could not be opened.", mRequest.input);
  }
  SourceFacts facts{mRequest.input,
                    static_cast<int>(source.info.channels),
                    source.info.sampleRate,
                    source.info.frames,
                    source.info.bitsPerSample,
                    source.info.timeReference};
  std::string error;
  const bool bigFile = NeedsRf64(facts.frames, facts.channels, mRequest.floatOutput ? 4 : 3);
  if (!PlanDeliverable(facts, container, mRequest.floatOutput, mRequest.forceRf64 || bigFile,
                       "Normalized to " + DbText(mRequest.targetLufs) + " LUFS", mPlan, error))
    return Fail(error, mRequest.output);
  mResult.bits = mPlan.format.bits;
  mResult.floatSamples = mPlan.format.isFloat;
  if (PathExistsUtf8(mRequest.output)) {
    if (mRequest.confirmReplace && !mRequest.confirmReplace(kReplaceQuestion))
      return Fail("The existing file was kept.", mRequest.output);
    if (FileInUse(mRequest.output)) return Fail(kInUseMessage, mRequest.output);
  }
  return true;
}

bool Normalizer::Render(double gainDb, double thresholdDb, Measured& written, double& peakDb) {
  AudioFileReader reader;
  if (!reader.open(mRequest.input) || !reader.prepare(kBlock))
    return Fail("The file could not be opened.", mRequest.input);
  const int channels = static_cast<int>(reader.channels());
  mWriter = std::make_unique<DeliverableWriter>();
  if (!mWriter->Open(mTemp, mPlan)) return Fail(kCouldNotCreateMessage, mRequest.output);
  const bool limit = mRequest.limit && std::isfinite(thresholdDb);
  TruePeakLimiter limiter(channels, reader.sampleRate(), thresholdDb);
  InterSamplePeak detector(channels);
  const auto gain = static_cast<float>(std::pow(10.0, gainDb / 20.0));
  std::vector<float> block, limited, peaks;
  float peak = 0.0f;
  bool ok = true;
  // What is written is also run through the 8x peak detector.
  auto detect = [&](const std::vector<float>& frames) {
    const int n = static_cast<int>(frames.size() / static_cast<size_t>(channels));
    peaks.resize(static_cast<size_t>(n));
    detector.Process(frames.data(), n, peaks.data());
    for (float p : peaks) peak = std::max(peak, p);
    return n;
  };
  auto write = [&](const std::vector<float>& frames) {
    ok = ok && mWriter->Write(frames.data(), detect(frames));
  };
  for (;;) {
    if (!reader.readBlock()) {
      reader.close();
      mWriter->Close();
      return Fail("The file could not be read to its end.", mRequest.input);
    }
    const int frames = reader.framesRead();
    if (frames <= 0) break;
    block.assign(reader.buffer(),
                 reader.buffer() + static_cast<size_t>(frames) * static_cast<size_t>(channels));
    for (float& v : block) v = std::isfinite(v) ? v * gain : 0.0f;
    if (limit) {
      limited.clear();
      limiter.Process(block.data(), frames, limited);
      write(limited);
    } else {
      write(block);
    }
    if (!ok) break;
    Progress(40 + (60 * (mPass * 100 + reader.progress() / 2)) / (mPasses * 100));
  }
  if (limit && ok) {
    limited.clear();
    limiter.Finish(limited);
    write(limited);
  }
  // The detector's last frames: what its latency still holds.
  const std::vector<float> tail(static_cast<size_t>(InterSamplePeak::kLatency * channels), 0.0f);
  detect(tail);
  // The source is done with: on Windows an open file can't be replaced, and
  // the output may be the source itself.
  reader.close();
  if (!mWriter->Close() || !ok) return Fail(kCouldNotCreateMessage, mRequest.output);
  mResult.rf64 = mWriter->Rf64();
  mResult.limiterReductionDb = limit ? limiter.MaxReductionDb() : 0.0;
  written = Measure(mTemp, mRequest.ecoTruePeak, nullptr);
  if (!written.ok)
    return Fail("The written file could not be measured again: " + written.message, mRequest.output);
  peakDb = std::max(written.result.truePeakMax, ToDb(peak));
  return true;
}

bool Normalizer::Adjust(const Measured& written, double peakDb, double& gainDb, double& thresholdDb,
                        int attempt) {
  const double ceiling = mRequest.truePeakMax;
  bool again = false;
  if (peakDb > ceiling) {
    // Quantisation or the gain's own ripple lifted a peak: a little lower.
    if (std::isfinite(thresholdDb))
      thresholdDb -= peakDb - ceiling + 0.01;
    else
      gainDb -= peakDb - ceiling + 0.01;
    again = true;
  }
  if (std::isfinite(thresholdDb)) {
    const double error = mRequest.targetLufs - written.result.integrated;
    // The limiter takes back part of every added dB: the slope of the last two passes.
    double slope = 1.0;
    if (attempt > 0 && std::fabs(gainDb - mLastGain) > 1e-6)
      slope = std::clamp((written.result.integrated - mLastIntegrated) / (gainDb - mLastGain), 0.05, 1.0);
    mLastGain = gainDb;
    mLastIntegrated = written.result.integrated;
    if (std::fabs(error) > kLimitedTolerance) {
      gainDb += error / slope;
      again = true;
    }
  }
  return again;
}

bool Normalizer::Run() {
  const Measured source = Measure(
      mRequest.input, mRequest.ecoTruePeak,
      mRequest.progress ? std::function<void(int)>([this](int p) { Progress(p * 40 / 100); }) : nullptr);
  if (!source.ok)
    return Fail(source.message.empty() ? "The file could not be opened." : source.message, mRequest.input);
  mResult.sourceIntegrated = source.result.integrated;
  mResult.sourceTruePeak = source.result.truePeakMax;
  if (!(source.result.integrated > -70.0))
    return Fail("The file has no measurable loudness (below -70 LUFS); it can't be normalized.",
                mRequest.input);
  if (!Prepare(source)) return false;

  const double ceiling = mRequest.truePeakMax;
  const double wanted = mRequest.targetLufs - source.result.integrated;
  double gainDb = wanted;
  double thresholdDb = std::numeric_limits<double>::infinity();
  if (source.result.truePeakMax + wanted > ceiling - kCeilingMargin) {
    if (mRequest.limit)
      thresholdDb = ceiling - kLimiterMargin;
    else
      gainDb = ceiling - kCeilingMargin - source.result.truePeakMax;
  }
  mPasses = std::isfinite(thresholdDb) ? 3 : 1;
  mTemp = TemporaryNameFor(mRequest.output);
  const TempFileGuard guard(mTemp);
  Measured written;
  double peakDb = -120.0;
  for (int attempt = 0;; ++attempt) {
    mPass = std::min(attempt, mPasses - 1);
    if (!Render(gainDb, thresholdDb, written, peakDb)) {
      RemoveFileUtf8(mTemp);
      return false;
    }
    if (attempt + 1 >= kAttempts || !Adjust(written, peakDb, gainDb, thresholdDb, attempt)) break;
  }
  const LoudnessResult& r = written.result;
  const BextLoudness loudness{r.integrated, r.loudnessRange, r.truePeakMax, r.momentaryMax, r.shortTermMax};
  if (!mWriter->FillBextLoudness(loudness) || !ReplaceFileUtf8(mTemp, mRequest.output)) {
    RemoveFileUtf8(mTemp);
    return Fail(kCouldNotCreateMessage, mRequest.output);
  }
  mResult.gainDb = gainDb;
  mResult.resultIntegrated = r.integrated;
  mResult.resultTruePeak = r.truePeakMax;
  mResult.resultRange = r.loudnessRange;
  mResult.resultMomentaryMax = r.momentaryMax;
  mResult.resultShortTermMax = r.shortTermMax;
  mResult.gainLowered = !std::isfinite(thresholdDb) && gainDb < wanted - 1e-9;
  mResult.shortfallLu = mResult.gainLowered ? std::max(0.0, mRequest.targetLufs - r.integrated) : 0.0;
  mResult.ok = true;
  mResult.messageFile = mRequest.output;
  if (r.truePeakMax > ceiling + 0.05) {
    mResult.truePeakWarning = true;
    mResult.message = "Warning: the true peak of the normalized file (" + DbText(r.truePeakMax) +
                      " dBTP) exceeds the maximum of " + DbText(ceiling) + " dBTP.";
  } else if (mResult.convertedToWav) {
    mResult.message = "The source's format can't be written: the normalized copy is a WAV file.";
  }
  Progress(100);
  return true;
}

}  // namespace

bool NeedsRf64(uint64_t frames, int channels, int bytesPerSample) {
  // Room kept below 4 GiB for the RIFF, fmt and bext chunks around the data.
  constexpr uint64_t kLimit = 0xFFFFFFFFull - 4096;
  if (channels <= 0 || bytesPerSample <= 0) return false;
  const uint64_t frameBytes = static_cast<uint64_t>(channels) * static_cast<uint64_t>(bytesPerSample);
  return frames > kLimit / frameBytes;
}

std::string TemporaryNameFor(const std::string& output) {
  const size_t slash = output.find_last_of("/\\");
  const size_t dot = output.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return output + ".part";
  return output.substr(0, dot) + ".part" + output.substr(dot);
}

NormalizeResult NormalizeFile(const NormalizeRequest& request) {
  NormalizeResult result;
  Normalizer(request, result).Run();
  return result;
}

}  // namespace velorum
