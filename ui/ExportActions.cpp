#include "ui/ExportActions.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include "engine/ChannelLayouts.h"
#include "export/CsvExport.h"
#include "export/ExportWriter.h"
#include "export/TextSummary.h"
#include "export/Timecode.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/MeterParams.h"
#include "presets/LoudnessStandards.h"
#include "ui/FileAnalysis.h"
#include "ui/UiFormat.h"
#include "velorum/Version.h"

namespace velorum::ui {

bool ExportAvailable(ExportKind kind) {
  // The normalised file is made from an analysed file, so it needs the decoders.
  return kind != ExportKind::NormalizedWav || FileAnalysisAvailable();
}

const char* ExportExtension(ExportKind kind) {
  switch (kind) {
    case ExportKind::TextSummary:
      return "txt";
    case ExportKind::Csv:
    case ExportKind::DolbyCsv:
      return "csv";
    case ExportKind::Png:
      return "png";
    case ExportKind::Svg:
      return "svg";
    case ExportKind::Pdf:
      return "pdf";
    case ExportKind::NormalizedWav:
      return "wav";
  }
  return "txt";
}

namespace {

std::string Timecode(double seconds, const MeterModel& model, const UiSettings& settings) {
  if (model.HistogramMode() == kModeTimeCode) {
    const FpsItem& fps = kFpsItems[settings.fpsIndex];
    return TimecodeFrames(seconds, fps.rate, fps.dropFrame);
  }
  return TimecodeMillis(seconds);
}

SummaryValues Values(const MeterModel& model) {
  const MeterValues v = model.Read();
  SummaryValues s;
  s.integrated = v.integrated;
  const LoudnessEngine& e = model.Engine();
  s.plr = v.plr;
  if (v.rangeSelected) {
    const auto b = static_cast<int32_t>(model.SelectionBegin() * 10.0),
               en = static_cast<int32_t>(model.SelectionEnd() * 10.0);
    s.loudnessRange = e.MeasureRange(b, en).loudnessRange;
  } else {
    // The exported values are those of the programme so far with the final
    // gates, as a file analysis gives them; the live readout keeps its
    // per-step rule.
    const ProgrammeValues p = e.ExactProgramme();
    s.integratedMeasured = p.complete;
    s.integrated = p.integrated;
    s.plr = p.plr;
    s.loudnessRange = p.loudnessRange;
  }
  s.momentaryMax = v.momentaryMax;
  s.shortTermMax = v.shortTermMax;
  s.truePeakMax = v.truePeakMax;
  s.integratedDialogue = e.IntegratedDialogue();
  s.loudnessRangeDialogue = e.DialogueRange();
  s.speechContentPercent = e.SpeechContent() * 100.0;
  // The dialogue presets report the dialogue-gated values too.
  s.dialogue = model.Param(preset_param::kDialTarget) < 29.95;
  return s;
}

}  // namespace

bool BuildTextExport(MeterModel& model, const UiSettings& settings, ExportKind kind, std::string& content,
                     std::string& message) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
#ifdef _WIN32
  localtime_s(&local, &now);
#else
  localtime_r(&now, &local);
#endif
  const bool lkfs = model.Param(param::kUnitLkfs) >= 0.5;
  FileMeasurement* file = model.ShowingFile() ? model.File() : nullptr;
  if (kind == ExportKind::TextSummary) {
    SummaryInput in;
    in.versionWord = kVersionWord;
    in.localTime = local;
    const double origin = file && file->sampleRate ? double(file->timeReference) / file->sampleRate : 0.0;
    double start = origin, end = origin;
    if (file) {
      in.fromFile = true;
      in.fileFrames = file->frames;
      in.fileSampleRate = file->sampleRate;
      in.fileBitsPerSample = file->bitsPerSample;
      in.channels = file->channels;
      in.channelNames = file->channelNames;
      end = origin + (file->sampleRate ? double(file->frames) / file->sampleRate : 0.0);
    } else {
      const ChannelLayout& layout = LayoutAt(model.Engine().Layout());
      in.channels = static_cast<uint32_t>(layout.channelCount);
      for (int c = 0; c < layout.channelCount; ++c)
        in.channelNames.emplace_back(layout.channelNames[size_t(c)]);
      const LoudnessEngine& e = model.Engine();
      EngineLock lock(e.Mutex());
      end = double(e.History().Size10()) * 0.01;
    }
    if (model.HasSelection()) {
      start = std::max(start, origin + model.SelectionBegin());
      end = std::min(end, origin + model.SelectionEnd());
    }
    in.timecodeStart = Timecode(start, model, settings);
    in.timecodeEnd = Timecode(end, model, settings);
    in.presetName = model.PresetMenuName();
    in.values = Values(model);
    if (file) in.values.nonFiniteSamples = file->nonFiniteSamples;
    in.lkfs = lkfs;
    return BuildTextSummary(in, content, &message);
  }
  CsvContext context;
  context.intervalSeconds = 1.0;
  context.preset = FindStandard(model.Plugin().ShownStandard());
  context.lkfs = lkfs;
  context.values = Values(model);
  context.localTime = local;
  context.logFilePath = file ? file->path : std::string();
  context.startSeconds = file && file->sampleRate ? double(file->timeReference) / file->sampleRate : 0.0;
  if (model.HistogramMode() == kModeTimeCode) {
    context.timecodeFps = kFpsItems[settings.fpsIndex].rate;
    context.dropFrame = kFpsItems[settings.fpsIndex].dropFrame;
  }
  // A copy, so that the audio thread never waits while the rows are written.
  MeasurementHistory copy;
  {
    const LoudnessEngine& e = model.Engine();
    EngineLock lock(e.Mutex());
    copy = e.History();
  }
  context.history = &copy;
  content = kind == ExportKind::DolbyCsv ? BuildDolbyCsv(context) : BuildPlainCsv(context);
  return true;
}

std::string WriteExport(const std::string& path, const std::string& content) {
  return ExportStatusMessage(WriteExportFile(path, content, nullptr));
}

}  // namespace velorum::ui
