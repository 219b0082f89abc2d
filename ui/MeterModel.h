// What the editor shows, read from the live plug-in or from an analysed file:
// readings (atomics, read directly), histories (under the engine mutex), the
// three distributions, and the parameters (through their atomics). The
// plug-in lock is taken only for the few microseconds of a parameter write.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/LoudnessEngine.h"
#include "history/Distributions.h"
#include "ui/HistoryPlot.h"

namespace velorum {
class LoudnessMeterPlugin;
}

namespace velorum::ui {

// A measurement made from a file, with distributions of its own.
struct FileMeasurement {
  FileMeasurement();
  std::unique_ptr<LoudnessEngine> engine;
  LoudnessDistribution loudness;
  TruePeakDistribution truePeak;
  DynamicsDistribution dynamics;
  std::string path;
  uint32_t sampleRate = 0;
  uint32_t channels = 0;
  uint64_t frames = 0;
  int32_t bitsPerSample = -1;
  uint64_t timeReference = 0;
  std::vector<std::string> channelNames;
  int64_t nonFiniteSamples = 0;  // NaN/Inf samples measured as silence
  bool complete = false;
  // Recounts the distributions from the finished history.
  void RebuildDistributions();
};

struct MeterValues {
  double momentary = -120.0, shortTerm = -120.0;
  double momentaryMax = -120.0, shortTermMax = -120.0;
  double integrated = -120.0;       // as the readouts show it: the selected range's when one is selected
  double integratedWhole = -120.0;  // of the whole measurement
  double loudnessRange = 0.0;
  double plr = 0.0;
  double realtimeDynamics = 0.0;
  double truePeak = -120.0, truePeakMax = -120.0;
  int channels = 0;
  std::array<double, kMaxChannels> channelTruePeak{};
  std::array<double, kMaxChannels> channelTruePeakMax{};
  std::array<std::string, kMaxChannels> channelNames{};
  double elapsedSeconds = 0.0;
  bool rangeSelected = false;
};

class MeterModel {
 public:
  explicit MeterModel(LoudnessMeterPlugin& plugin);
  ~MeterModel();

  LoudnessMeterPlugin& Plugin() { return mPlugin; }
  const LoudnessMeterPlugin& Plugin() const { return mPlugin; }

  // ---- source ----
  bool ShowingFile() const { return mFile && mShowFile; }
  void ShowLive() { mShowFile = false; }
  void ShowFile(std::unique_ptr<FileMeasurement> file);
  FileMeasurement* File() { return mFile.get(); }
  const LoudnessEngine& Engine() const;
  const Distribution& LoudnessBins() const;
  const Distribution& TruePeakBins() const;
  const Distribution& DynamicsBins() const;
  bool WarmUp() const;

  MeterValues Read() const;
  TargetWindow Targets() const;

  // ---- parameters (atomics) ----
  double Param(int index) const;
  void SetParam(int index, double value);
  int HistogramMode() const;
  std::string PresetShortName() const;
  std::string PresetMenuName() const;  // trimmed menu text, for the summary

  // ---- the selected range of the graph, in seconds of the timeline ----
  void SetSelection(double begin, double end);
  void ClearSelection() { SetSelection(0.0, 0.0); }
  bool HasSelection() const { return mSelEnd > mSelBegin; }
  double SelectionBegin() const { return mSelBegin; }
  double SelectionEnd() const { return mSelEnd; }
  // Zoom and scroll of the graph, kept with the plug-in's display state.
  void SetView(double zoom, double scroll);

  // Takes the selection, zoom and scroll saved with the plug-in's state.
  void ReloadDisplayState();
  // A reset of the live measurement (clears the selection too).
  void ResetLive();

  // Time of day (seconds) where the system-time axis starts.
  double SystemStartSeconds() const;

 private:
  double RangeIntegrated() const;

  LoudnessMeterPlugin& mPlugin;
  std::unique_ptr<FileMeasurement> mFile;
  bool mShowFile = false;
  double mSelBegin = 0.0, mSelEnd = 0.0;
  double mZoom = 1.0, mScroll = 0.0;
  // Cache of the selected range's integrated value.
  mutable double mCacheBegin = -1.0, mCacheEnd = -1.0, mCacheValue = -120.0;
  mutable int64_t mCacheSteps = -1;
  mutable const LoudnessEngine* mCacheEngine = nullptr;
};

}  // namespace velorum::ui
