#include "export/CsvExport.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "export/Timecode.h"
#include "history/MeasurementHistory.h"
#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

constexpr double kLoudnessRangeLimit = 20.0;  // LU, loudness range warning
constexpr double kTargetTolerance = 1.0;      // LU around a target

__attribute__((format(printf, 1, 2))) std::string fmt(const char* f, ...) {
  char buffer[128];
  va_list args;
  va_start(args, f);
  const int n = std::vsnprintf(buffer, sizeof buffer, f, args);
  va_end(args);
  if (n < 0 || n >= static_cast<int>(sizeof buffer)) return std::string();
  return std::string(buffer, static_cast<size_t>(n));
}

std::string num(double v) {
  return fmt("%.2f", v);
}

// The "Timecode" columns and lines: frames at the chosen rate, or milliseconds.
std::string timecode(const CsvContext& c, double seconds) {
  return c.timecodeFps > 0.0 ? TimecodeFrames(seconds, c.timecodeFps, c.dropFrame) : TimecodeMillis(seconds);
}

double powerToLoudness(float power) {
  return power > 1e-12f ? 10.0 * std::log10(static_cast<double>(power)) : -120.0;
}

template <class T>
T at(const std::vector<T>& v, int64_t i, T fill) {
  return i >= 0 && static_cast<size_t>(i) < v.size() ? v[static_cast<size_t>(i)] : fill;
}

const LoudnessStandard& presetOf(const CsvContext& c) {
  static const LoudnessStandard* fallback = FindStandard(kDefaultStandardIndex);
  return c.preset ? *c.preset : *fallback;
}

// One row of either table: the 10 ms steps [begin, end) of the history.
struct Row {
  int64_t begin = 0;
  int64_t end = 0;
  double seconds = 0.0;
};

template <class Fn>
void forEachRow(const CsvContext& c, Fn fn) {
  const MeasurementHistory& h = *c.history;
  const int64_t steps = static_cast<int64_t>(h.Size10());
  const double interval = std::max(c.intervalSeconds, 0.01);
  int64_t previous = 0;
  for (int64_t k = 1; previous < steps; ++k) {
    int64_t end = std::llround(static_cast<double>(k) * interval * 100.0);
    end = std::min(std::max(end, previous + 1), steps);
    fn(Row{previous, end, static_cast<double>(end) * 0.01});
    previous = end;
  }
}

bool outsideWindow(const LoudnessStandard& p, double integrated) {
  if (integrated <= -70.0) return false;
  if (p.lower > -70) return integrated > p.upper + 1e-9 || integrated < p.lower - 1e-9;
  return std::fabs(integrated - p.target) > kTargetTolerance + 1e-9;
}

}  // namespace

std::string BuildPlainCsv(const CsvContext& c) {
  const MeasurementHistory& h = *c.history;
  const LoudnessStandard& p = presetOf(c);
  std::string target = fmt("%.1f", static_cast<double>(p.target));
  std::string plus = fmt("%.1f", static_cast<double>(p.upper - p.target));
  std::string minus = p.lower > -70 ? fmt("%.1f", static_cast<double>(p.target - p.lower)) : std::string();
  if (c.hasWindow) {
    target = fmt("%.1f", c.windowTarget);
    plus = fmt("%.1f", c.windowUpper - c.windowTarget);
    minus = fmt("%.1f", c.windowTarget - c.windowLower);
  }
  std::string out =
      "Time,Timecode,Momentary Loudness,Short Term Loudness,True Peak,Dynamic Range,Integrated,"
      "Loudness Range,Target,Tolerance Plus,Tolerance Minus\n";
  forEachRow(c, [&](const Row& r) {
    float peak = MeasurementHistory::kPeakFill;
    for (int64_t i = r.begin; i < r.end; ++i)
      peak = std::max(peak, at(h.truePeak, i, MeasurementHistory::kPeakFill));
    const int64_t last = r.end - 1;
    const int64_t block = r.end / 10 - 1;
    out += fmt("%.2f", r.seconds) + "," + timecode(c, c.startSeconds + r.seconds) + ",";
    out += num(at(h.momentary, last, MeasurementHistory::kLoudnessFill)) + ",";
    out += num(at(h.shortTerm, last, MeasurementHistory::kLoudnessFill)) + ",";
    out += num(peak) + ",";
    out += num(at(h.dynamics, last, MeasurementHistory::kDynamicsFill)) + ",";
    out += num(at(h.integrated, block, MeasurementHistory::kLoudnessFill)) + ",";
    out += num(at(h.loudnessRange, block, MeasurementHistory::kRangeFill)) + ",";
    out += target + "," + plus + "," + minus + "\n";
  });
  return out;
}

std::string BuildDolbyCsv(const CsvContext& c) {
  const MeasurementHistory& h = *c.history;
  const LoudnessStandard& p = presetOf(c);
  const double threshold = p.truePeakMax;
  const double dialTarget = p.dialTarget != 30 ? p.dialTarget : p.target;
  const bool shortTermLimit = p.maximum != 30;

  char date[32] = "", clock[32] = "";
  std::strftime(date, sizeof date, "%m/%d/%Y", &c.localTime);
  std::strftime(clock, sizeof clock, "%X", &c.localTime);
  const double duration = static_cast<double>(h.Size10()) * 0.01;

  std::string out;
  out += "Log File Path," + c.logFilePath + "\n";
  out += std::string("Date,") + date + "\n";
  out += std::string("System Time,") + clock + "\n";
  out += std::string("Preset Name,") + p.menuText + "\n";
  out += "Timecode Start," + timecode(c, c.startSeconds) + "\n";
  out += "Timecode End," + timecode(c, c.startSeconds + duration) + "\n";
  out += "Peak Count Threshold," + fmt("%.1f", threshold) + "\n";
  out += "LeqM,none\n\n";
  out +=
      "Time,Timecode,Short Term Dialogue (LKFS),Short Term All,Short Term EBU R128 (LUFS),"
      "Infinite Dialogue (LKFS),Infinite All,Integrated EBU R128 (LUFS),Loudness Range EBU R128 (LU),"
      "True Peak (dBTP),Peak Count,Dialogue Present,Warnings\n";

  int shortTermDlgRows = 0, infiniteDlgRows = 0, integratedRows = 0, peakRows = 0;
  bool speechSoFar = false;
  forEachRow(c, [&](const Row& r) {
    float peak = MeasurementHistory::kPeakFill;
    int peakCount = 0;
    bool speech = false;
    for (int64_t i = r.begin; i < r.end; ++i) {
      const float tp = at(h.truePeak, i, MeasurementHistory::kPeakFill);
      peak = std::max(peak, tp);
      if (static_cast<double>(tp) > threshold) ++peakCount;
      if (at<std::uint8_t>(h.speechFlags, i, 0) != 0) speech = true;
    }
    speechSoFar = speechSoFar || speech;
    const int64_t last = r.end - 1;
    const int64_t block = r.end / 10 - 1;
    const double shortTerm = at(h.shortTerm, last, MeasurementHistory::kLoudnessFill);
    const double shortTermDlg =
        powerToLoudness(at(h.dialogueShortTermPower, block, MeasurementHistory::kPowerFill));
    const double infiniteDlg = at(h.dialogueIntegrated, block, MeasurementHistory::kLoudnessFill);
    const double integrated = at(h.integrated, block, MeasurementHistory::kLoudnessFill);
    const double range = at(h.loudnessRange, block, MeasurementHistory::kRangeFill);

    std::string warnings;
    auto warn = [&](const char* name) {
      if (!warnings.empty()) warnings += "; ";
      warnings += name;
    };
    if (shortTermLimit && (c.dialogue ? shortTermDlg : shortTerm) > p.maximum) {
      warn("Min and Max Short Term Dialogue Warning");
      ++shortTermDlgRows;
    }
    if (c.dialogue && infiniteDlg > -70.0 && std::fabs(infiniteDlg - dialTarget) > kTargetTolerance + 1e-9) {
      warn("Infinite Dialogue Measurement Target Warning");
      ++infiniteDlgRows;
    }
    if (static_cast<double>(peak) > threshold) {
      warn("True Peak Value Warning");
      ++peakRows;
    }
    if (c.dialogue && !speechSoFar && outsideWindow(p, integrated))
      warn("Infinite Non-dialogue Measurement Target Warning");
    if (range > kLoudnessRangeLimit) warn("Loudness Range EBU R128 Warning");
    if (outsideWindow(p, integrated)) {
      warn("Integrated EBU R128 Measurement Target Warning");
      ++integratedRows;
    }
    out += fmt("%.2f", r.seconds) + "," + timecode(c, c.startSeconds + r.seconds) + ",";
    out += num(shortTermDlg) + "," + num(shortTerm) + "," + num(shortTerm) + ",";
    out += num(infiniteDlg) + "," + num(integrated) + "," + num(integrated) + "," + num(range) + ",";
    out += num(peak) + "," + std::to_string(peakCount) + "," + (speech ? "1" : "0") + ",";
    out += (warnings.empty() ? std::string("none") : warnings) + "\n";
  });

  const SummaryValues& v = c.values;
  auto rows = [](int n) { return n > 0 ? std::to_string(n) : std::string("none"); };
  out += "\n";
  out += c.dialogue ? "Note: Loudness Value and Loudness Range calculated using Dolby Dialogue Intelligence "
                      "algorithm.\n"
                    : "Note: Loudness Value and Loudness Range calculated using ITU-R BS.1770 algorithm.\n";
  if (c.dialogue) {
    out += "Measured Dialogue Loudness (Dialogue)," + fmt("%.1f LKFS", RoundToTenth(v.integratedDialogue)) +
           "\n";
    out += "Speech content," + fmt("%i percent", static_cast<int>(v.speechContentPercent)) + "\n";
  }
  out += "Measured Overall Loudness (No Dialogue)," + fmt("%.1f LKFS", RoundToTenth(v.integrated)) + "\n";
  out += "Measured EBU R128 Loudness," + fmt("%.1f LUFS", RoundToTenth(v.integrated)) + "\n";
  out += "Loudness Range EBU R128 (LU)," + fmt("%.1f", RoundToTenth(v.loudnessRange)) + "\n";
  out += "Max. Short Term Loudness," + fmt("%.1f LUFS", RoundToTenth(v.shortTermMax)) + "\n";
  out += "True peak," + fmt("%.1f dBTP", RoundToTenth(v.truePeakMax)) + "\n";
  out += "Short Term Dlg," + rows(shortTermDlgRows) + "\n";
  out += "Infinite Dlg," + rows(infiniteDlgRows) + "\n";
  out += "Integrated EBU R128," + rows(integratedRows) + "\n";
  out += "Peak," + rows(peakRows) + "\n";
  return out;
}

}  // namespace velorum
