#include "cli/Measurement.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "engine/LoudnessEngine.h"
#include "export/Timecode.h"
#include "presets/LoudnessStandards.h"
#include "velorum/Version.h"

namespace velorum {
namespace {

__attribute__((format(printf, 1, 2))) std::string fmt(const char* f, ...) {
  char buffer[200];
  va_list args;
  va_start(args, f);
  const int n = std::vsnprintf(buffer, sizeof buffer, f, args);
  va_end(args);
  return n < 0 ? std::string() : std::string(buffer);
}

std::string trimmed(const char* text) {
  std::string s = text ? text : "";
  const size_t a = s.find_first_not_of(' ');
  const size_t b = s.find_last_not_of(' ');
  return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

double peakDb(double linear) {
  return linear > 1e-6 ? 20.0 * std::log10(linear) : LoudnessEngine::kPeakFloor;
}

}  // namespace

void Measurement::readEngine(const LoudnessEngine& engine) {
  integrated = engine.Integrated();
  loudnessRange = engine.LoudnessRange();
  loudnessRangeLow = engine.LoudnessRangeLow();
  loudnessRangeHigh = engine.LoudnessRangeHigh();
  momentaryMax = engine.MomentaryMax();
  shortTermMax = engine.ShortTermMax();
  truePeakMax = engine.TruePeakMax();
  plr = engine.Plr();
  integratedDialogue = engine.IntegratedDialogue();
  loudnessRangeDialogue = engine.DialogueRange();
  speechContentPercent = engine.SpeechContent() * 100.0;
  // A finished programme reads its values with the final gates; one
  // shorter than a gating block has no integrated value.
  if (engine.ProgrammeFinished()) integratedMeasured = engine.ExactProgramme().complete;
  channelPeaks.resize(channels);
  for (uint32_t c = 0; c < channels; ++c) {
    channelPeaks[c].name = c < channelNames.size() ? channelNames[c] : std::to_string(c + 1);
    channelPeaks[c].truePeak = engine.ChannelTruePeakMax(static_cast<int>(c));
  }
}

void SamplePeakMeter::add(const double* const* channels, int channelCount, int frames) {
  if (peaks_.size() < static_cast<size_t>(channelCount))
    peaks_.resize(static_cast<size_t>(channelCount), 0.0);
  for (int c = 0; c < channelCount; ++c) {
    double peak = peaks_[static_cast<size_t>(c)];
    uint64_t clipped = 0;
    for (int i = 0; i < frames; ++i) {
      const double v = std::fabs(channels[c][i]);
      peak = std::max(peak, v);  // NaN never wins the comparison
      clipped += v >= 1.0 ? 1 : 0;
    }
    peaks_[static_cast<size_t>(c)] = peak;
    clipped_ += clipped;
  }
}

void SamplePeakMeter::store(Measurement& m) const {
  m.clippedSamples = clipped_;
  m.samplePeakMax = LoudnessEngine::kPeakFloor;
  if (m.channelPeaks.size() < peaks_.size()) m.channelPeaks.resize(peaks_.size());
  for (size_t c = 0; c < peaks_.size(); ++c) {
    m.channelPeaks[c].samplePeak = peakDb(peaks_[c]);
    m.samplePeakMax = std::max(m.samplePeakMax, m.channelPeaks[c].samplePeak);
  }
}

PresetCheck CheckAgainstPreset(const Measurement& m, const LoudnessStandard& p, double tolerance) {
  PresetCheck check;
  CheckWindow& w = check.window;
  w.dialogue = p.dialTarget != 30 && m.integratedDialogue > -70.0;
  w.lkfs = p.lkfs;
  const double value = w.dialogue ? m.integratedDialogue : m.integrated;
  w.target = w.dialogue ? p.dialTarget : p.target;
  w.lower = w.target - tolerance;
  w.upper = w.target + tolerance;
  if (!w.dialogue && p.lower > -70) {
    w.lower = p.lower;
    w.upper = p.upper;
  }
  w.truePeakMax = p.truePeakMax;
  w.hasShortTermMax = p.maximum != 30;
  w.shortTermMax = p.maximum;
  auto fail = [&](const char* key, std::string detail) {
    check.pass = false;
    check.failures.emplace_back(key);
    check.details.push_back(std::move(detail));
  };
  const char* unit = p.lkfs ? "LKFS" : "LUFS";
  if (!(value >= w.lower - 1e-9 && value <= w.upper + 1e-9))
    fail("integrated", fmt("integrated %s%.1f %s is outside %.1f .. %.1f %s", w.dialogue ? "dialogue " : "",
                           RoundToTenth(value), unit, w.lower, w.upper, unit));
  if (m.truePeakMax > p.truePeakMax + 1e-9)
    fail("true_peak",
         fmt("true peak %.1f dBTP is above %.1f dBTP", RoundToTenth(m.truePeakMax), p.truePeakMax));
  if (w.hasShortTermMax && m.shortTermMax > p.maximum + 1e-9)
    fail("short_term_max",
         fmt("short-term max %.1f %s is above %d %s", RoundToTenth(m.shortTermMax), unit, p.maximum, unit));
  return check;
}

std::string DescribeWindow(const CheckWindow& w) {
  const char* unit = w.lkfs ? "LKFS" : "LUFS";
  std::string s = fmt("%s%.1f .. %.1f %s, true peak <= %.1f dBTP", w.dialogue ? "dialogue " : "", w.lower,
                      w.upper, unit, w.truePeakMax);
  if (w.hasShortTermMax) s += fmt(", short-term max <= %.1f %s", w.shortTermMax, unit);
  return s;
}

bool ReportOptions::Lkfs() const {
  if (unit != UnitChoice::FromPreset) return unit == UnitChoice::Lkfs;
  const LoudnessStandard* p = preset ? preset : FindStandard(kDefaultStandardIndex);
  return p && p->lkfs;
}

std::string PresetDisplayName(const LoudnessStandard* preset) {
  if (!preset) preset = FindStandard(kDefaultStandardIndex);
  return preset ? trimmed(preset->menuText) : std::string("DEFAULT");
}

std::string PresetCheckText(const LoudnessStandard* preset, const PresetCheck& check) {
  std::string s = "Preset Window: " + DescribeWindow(check.window) + "\n";
  s += "Preset Check (" + PresetDisplayName(preset) + "): " + (check.pass ? "PASS" : "FAIL");
  for (const std::string& d : check.details) s += "\n  " + d;
  return s;
}

SummaryInput MakeSummaryInput(const Measurement& m, const ReportOptions& o, const PresetCheck* check) {
  SummaryInput in;
  in.versionWord = kVersionWord;
  const std::time_t now = std::time(nullptr);
  localtime_r(&now, &in.localTime);
  in.fromFile = m.fromFile;
  in.fileFrames = m.frames;
  in.fileSampleRate = m.sampleRate;
  in.fileBitsPerSample = m.bitsPerSample;
  in.channels = m.channels;
  in.channelNames = m.channelNames;
  const double start = m.sampleRate ? static_cast<double>(m.timeReference) / m.sampleRate : 0.0;
  const double end = start + m.DurationSeconds();
  in.timecodeStart = o.fps > 0.0 ? TimecodeFrames(start, o.fps, o.dropFrame) : TimecodeMillis(start);
  in.timecodeEnd = o.fps > 0.0 ? TimecodeFrames(end, o.fps, o.dropFrame) : TimecodeMillis(end);
  in.presetName = PresetDisplayName(o.preset);
  in.lkfs = o.Lkfs();
  SummaryValues& v = in.values;
  v.integratedMeasured = m.integratedMeasured;
  v.integrated = m.integrated;
  v.nonFiniteSamples = m.nonFiniteSamples;
  v.loudnessRange = m.loudnessRange;
  v.plr = m.plr;
  v.momentaryMax = m.momentaryMax;
  v.shortTermMax = m.shortTermMax;
  v.truePeakMax = m.truePeakMax;
  v.dialogue = o.dialogue;
  v.integratedDialogue = m.integratedDialogue;
  v.loudnessRangeDialogue = m.loudnessRangeDialogue;
  v.speechContentPercent = m.speechContentPercent;
  if (m.fromFile) {
    for (size_t i = 0; i < m.files.size() || i == 0; ++i)
      in.notes.push_back("File Name: " + (i < m.files.size() ? m.files[i] : m.file));
  }
  if (check && o.preset) in.notes.push_back(PresetCheckText(o.preset, *check));
  return in;
}

}  // namespace velorum
