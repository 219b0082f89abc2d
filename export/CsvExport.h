#pragma once
// The plain CSV of the measurement history and the "DOLBY CSV" file.
//
// Plain CSV: one header line, then one row per "CSV TIME INTERVAL" (default
// 1 s, at least 0.01 s), comma-separated, "." as the decimal point:
//
//   Time,Timecode,Momentary Loudness,Short Term Loudness,True Peak,Dynamic Range,Integrated,Loudness
//   Range,Target,Tolerance Plus,Tolerance Minus
//   1.00,00:00:01.000,-23.02,-27.14,-20.01,0.00,-120.00,0.00,-23.0,0.0,
//
//   Time                 seconds at the end of the interval ("%.2f"); the
//                        last row ends with the measurement
//   Timecode             start time reference + Time, "00:00:00.000", or
//                        "00:00:00:00" ("00:00:00;00" drop-frame) when a
//                        time-code rate is set
//   Momentary Loudness   momentary loudness at the end of the interval
//   Short Term Loudness  short-term loudness at the end of the interval
//   True Peak            largest 10 ms true peak inside the interval (dBTP)
//   Dynamic Range        realtime dynamics at the end of the interval (LU)
//   Integrated           integrated loudness so far (newest 100 ms block)
//   Loudness Range       loudness range so far (LU)
//   Target               the preset's integrated target ("%.1f")
//   Tolerance Plus       upper limit - target (LU)
//   Tolerance Minus      target - lower limit (LU); empty when the preset
//                        has no lower limit
// When the context carries the window a check actually used (the command's
// --preset with its tolerance), Target, Tolerance Plus and Tolerance Minus
// describe that window instead.
// Loudness values are LUFS/LKFS ("%.2f"), -120.00 when below the floor.
//
// Dolby CSV: a block of "label,value" lines, an empty line, the table, an
// empty line and the summary lines:
//
//   Log File Path,<file>
//   Date,11/21/2026
//   System Time,14:03:11
//   Preset Name,EBU R128
//   Timecode Start,00:00:00.000
//   Timecode End,00:01:30.000
//   Peak Count Threshold,-1.0
//   LeqM,none
//
//   Time,Timecode,Short Term Dialogue (LKFS),Short Term All,Short Term EBU R128 (LUFS),Infinite Dialogue
//   (LKFS),Infinite All,Integrated EBU R128 (LUFS),Loudness Range EBU R128 (LU),True Peak (dBTP),Peak
//   Count,Dialogue Present,Warnings
//   ...rows at the same interval...
//
//   Note: Loudness Value and Loudness Range calculated using ITU-R BS.1770 algorithm.
//   Measured Dialogue Loudness (Dialogue),-24.1 LKFS      (with dialogue gating)
//   Speech content,37 percent                             (with dialogue gating)
//   Measured Overall Loudness (No Dialogue),-23.0 LKFS
//   Measured EBU R128 Loudness,-23.0 LUFS
//   Loudness Range EBU R128 (LU),6.4
//   Max. Short Term Loudness,-17.9 LUFS
//   True peak,-1.2 dBTP
//   Short Term Dlg,none
//   Infinite Dlg,none
//   Integrated EBU R128,none
//   Peak,3
//
// Columns: "Short Term Dialogue" is the speech-gated 3 s loudness, "Short
// Term All" and "Short Term EBU R128" the BS.1770 3 s loudness of all audio
// (in LKFS and LUFS naming), "Infinite Dialogue" the dialogue-gated
// integrated loudness, "Infinite All" and "Integrated EBU R128" the
// level-gated integrated loudness. "Peak Count" counts the 10 ms steps of the
// interval whose true peak exceeds the "Peak Count Threshold" (the preset's
// true-peak maximum); "Dialogue Present" is 1 when speech was detected in the
// interval. "Warnings" lists the warnings of the row separated by "; ", or
// "none":
//   "True Peak Value Warning"            true peak above the threshold;
//   "Integrated EBU R128 Measurement Target Warning"
//                                        integrated (once above -70) outside
//                                        the preset's window: lower..upper
//                                        when the preset has a lower limit,
//                                        otherwise target +-1 LU;
//   "Infinite Dialogue Measurement Target Warning"
//                                        (dialogue gating) dialogue-gated
//                                        integrated outside dialogue target
//                                        +-1 LU (parameter 92, else target);
//   "Infinite Non-dialogue Measurement Target Warning"
//                                        (dialogue gating) no speech found so
//                                        far and the level-gated integrated
//                                        outside the window;
//   "Loudness Range EBU R128 Warning"    loudness range above 20 LU;
//   "Min and Max Short Term Dialogue Warning"
//                                        short-term (speech-gated with
//                                        dialogue gating) above the preset's
//                                        short-term maximum (parameters 33/34),
//                                        when the preset sets one.
// The summary's "Short Term Dlg", "Infinite Dlg", "Integrated EBU R128" and
// "Peak" lines count the rows that carried the short-term dialogue, infinite
// dialogue, integrated and true-peak warnings, or read "none".
#include <ctime>
#include <string>

#include "export/TextSummary.h"

namespace velorum {

class MeasurementHistory;
struct LoudnessStandard;

struct CsvContext {
  const MeasurementHistory* history = nullptr;  // read under the engine mutex
  double intervalSeconds = 1.0;                 // "CSV TIME INTERVAL"
  double startSeconds = 0.0;                    // start time reference
  double timecodeFps = 0.0;                     // > 0: time codes in frames
  bool dropFrame = false;                       // at 29.97 / 59.94
  const LoudnessStandard* preset = nullptr;     // null: the default preset
  bool lkfs = false;
  bool dialogue = false;
  SummaryValues values;    // final readings
  bool hasWindow = false;  // the checked window below replaces the preset's
  double windowTarget = 0.0, windowLower = 0.0, windowUpper = 0.0;
  std::tm localTime{};
  std::string logFilePath;
};

std::string BuildPlainCsv(const CsvContext& context);
std::string BuildDolbyCsv(const CsvContext& context);

}  // namespace velorum
