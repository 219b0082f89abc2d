#pragma once
// The text summary of a measurement, built as one text in memory:
//
//   Velorum 2 - V2.5.6
//
//   14:03:11 11/21/2026
//   File Duration: 1m 1s
//   File Samplerate: 48000Hz
//   File Bitrate: 24
//
//   Channel Size: 2
//
//   Channel Layout:
//
//   1. L
//   2. R
//
//   Timecode Start: 00:00:00:00
//   Timecode End: 00:01:01:00
//
//   Preset Name: EBU R128
//
//   Integrated = -23.0 LUFS
//   ...
//
// Each value is rounded half away from zero to one decimal.
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace velorum {

struct SummaryValues {
  // False for a programme shorter than one complete 400 ms gating block:
  // the integrated and PLR lines say so in words.
  bool integratedMeasured = true;
  double integrated = -120.0;
  double loudnessRange = 0.0;
  double plr = 0.0;
  double momentaryMax = -120.0;
  double shortTermMax = -120.0;
  double truePeakMax = -120.0;
  bool dialogue = false;  // print the dialogue-gated lines
  double integratedDialogue = -120.0;
  double loudnessRangeDialogue = 0.0;
  double speechContentPercent = 0.0;
  // NaN and infinite samples of an analysed file, measured as silence; a
  // line of its own when not 0.
  int64_t nonFiniteSamples = 0;
};

struct SummaryInput {
  uint32_t versionWord = 0;  // 0xMMmmpp
  std::tm localTime{};       // time of the export
  bool fromFile = false;
  uint64_t fileFrames = 0;
  uint32_t fileSampleRate = 0;
  int32_t fileBitsPerSample = -1;  // no "File Bitrate" line unless above 0
  uint32_t channels = 0;
  std::vector<std::string> channelNames;
  std::string timecodeStart;
  std::string timecodeEnd;
  std::string presetName;
  SummaryValues values;
  bool lkfs = false;  // unit "LKFS" instead of "LUFS"
  // Lines added after the value lines, behind an empty line (the command's
  // "File Name: " and preset check); each is ended by "\n".
  std::vector<std::string> notes;
};

// The summary text; false (and `error` = "Error during formatting.") when a
// number cannot be formatted.
bool BuildTextSummary(const SummaryInput& input, std::string& text, std::string* error = nullptr);

// "59s", "1m 1s", "2m", "1h", "1h 0m": the short duration form of a length in
// seconds (truncated to whole seconds).
std::string ShortDuration(double seconds);

// Rounds half away from zero to one decimal (on value x 10).
double RoundToTenth(double value);

}  // namespace velorum
