#pragma once
// What the command reports about one measured programme: the engine's final
// readings, per-channel peaks, the file's format and the check against a
// preset (with the window it used). Builds the text summary input from it.
#include <cstdint>
#include <string>
#include <vector>

#include "export/CsvExport.h"
#include "export/TextSummary.h"

namespace velorum {

class LoudnessEngine;
struct LoudnessStandard;

struct ChannelPeak {
  std::string name;
  double truePeak = -120.0;    // dBTP
  double samplePeak = -120.0;  // dBFS
};

struct Measurement {
  std::string file;                // the name shown: the first file of a multi-mono set, "-" for stdin
  std::vector<std::string> files;  // every file measured (all channels of a multi-mono set)
  std::string format;              // "wav", "flac", "mp3", ... or "multi-mono"
  bool fromFile = true;
  uint32_t sampleRate = 0;
  uint32_t channels = 0;
  uint64_t frames = 0;
  int32_t bitsPerSample = -1;  // what the reader states (-1: none; the summary's "File Bitrate")
  int32_t realBits = -1;       // the coded depth of a PCM or lossless source; -1 for lossy ones
  uint64_t timeReference = 0;
  std::vector<std::string> channelNames;

  double integrated = -120.0;
  double loudnessRange = 0.0;
  double loudnessRangeLow = -120.0;
  double loudnessRangeHigh = -120.0;
  double momentaryMax = -120.0;
  double shortTermMax = -120.0;
  double truePeakMax = -120.0;
  double samplePeakMax = -120.0;
  double plr = 0.0;
  double integratedDialogue = -120.0;
  double loudnessRangeDialogue = 0.0;
  double speechContentPercent = 0.0;
  std::vector<ChannelPeak> channelPeaks;
  bool integratedMeasured = true;  // false: shorter than one 400 ms gating block
  int64_t nonFiniteSamples = 0;
  int streams = 1;              // audio streams in the file
  int stream = -1;              // the one measured (0-based), -1: all mono streams together
  uint64_t clippedSamples = 0;  // samples at or above full scale

  double DurationSeconds() const { return sampleRate ? static_cast<double>(frames) / sampleRate : 0.0; }
  // Reads the engine's final readings and per-channel true peaks.
  void readEngine(const LoudnessEngine& engine);
};

// Sample peaks and full-scale counts, fed block by block from the measuring
// thread.
class SamplePeakMeter {
 public:
  void add(const double* const* channels, int channelCount, int frames);
  // Writes the peaks (dBFS, floored like the engine's) and the count into `m`.
  void store(Measurement& m) const;

 private:
  std::vector<double> peaks_;
  uint64_t clipped_ = 0;
};

// The window a preset check used.
struct CheckWindow {
  double target = 0.0;
  double lower = 0.0, upper = 0.0;  // integrated (or dialogue-gated integrated) loudness
  double truePeakMax = 0.0;
  bool hasShortTermMax = false;
  double shortTermMax = 0.0;
  bool dialogue = false;  // the dialogue-gated value was checked
  bool lkfs = false;
};

struct PresetCheck {
  bool pass = true;
  CheckWindow window;
  std::vector<std::string> failures;  // "integrated", "true_peak", "short_term_max"
  std::vector<std::string> details;   // one human-readable line per failure
};

// Integrated loudness (dialogue-gated for the dialogue presets when speech
// was found) within the preset's window — lower..upper when it has a lower
// limit, otherwise target +- `tolerance` LU —, true peak at or below the
// preset's maximum, short-term maximum at or below the preset's maximum when
// it sets one.
PresetCheck CheckAgainstPreset(const Measurement& m, const LoudnessStandard& preset, double toleranceLu);
// "-24.0 .. -22.0 LUFS, true peak <= -1.0 dBTP[, short-term max <= -18 LUFS]"
std::string DescribeWindow(const CheckWindow& w);

enum class UnitChoice { FromPreset, Lufs, Lkfs };

struct ReportOptions {
  const LoudnessStandard* preset = nullptr;  // null: the default preset
  bool dialogue = false;
  UnitChoice unit = UnitChoice::FromPreset;
  double fps = 0.0;        // > 0: "00:00:00:00" time codes at this rate
  bool dropFrame = false;  // "00:00:00;00" at 29.97 / 59.94
  bool Lkfs() const;
};

std::string PresetDisplayName(const LoudnessStandard* preset);
// The summary input; with a check, the file name and the check's result are
// added after the summary's own lines.
SummaryInput MakeSummaryInput(const Measurement& m, const ReportOptions& options,
                              const PresetCheck* check = nullptr);
// "Preset Check (EBU R128): PASS" and the failure lines, as printed after the summary.
std::string PresetCheckText(const LoudnessStandard* preset, const PresetCheck& check);

}  // namespace velorum
