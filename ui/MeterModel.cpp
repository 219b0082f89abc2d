#include "ui/MeterModel.h"

#include <algorithm>
#include <cmath>

#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/MeterParams.h"
#include "presets/LoudnessStandards.h"

namespace velorum::ui {

FileMeasurement::FileMeasurement() : engine(std::make_unique<LoudnessEngine>()) {}

void FileMeasurement::RebuildDistributions() {
  EngineLock lock(engine->Mutex());
  loudness.Rebuild(engine->History());
  truePeak.Rebuild(engine->History());
  dynamics.Rebuild(engine->History());
}

MeterModel::MeterModel(LoudnessMeterPlugin& plugin) : mPlugin(plugin) {
  ReloadDisplayState();
}

void MeterModel::ReloadDisplayState() {
  std::vector<double> display;
  {
    SpinLockGuard guard(mPlugin.Lock());
    display = mPlugin.AuxValues();
  }
  if (display.size() >= 4 && !ShowingFile()) {
    mSelBegin = display[0];
    mSelEnd = display[1];
    mZoom = display[2] > 0.0 ? display[2] : 1.0;
    mScroll = display[3];
  }
}

MeterModel::~MeterModel() = default;

void MeterModel::ShowFile(std::unique_ptr<FileMeasurement> file) {
  mFile = std::move(file);
  mShowFile = mFile != nullptr;
  mSelBegin = mSelEnd = 0.0;
}

const LoudnessEngine& MeterModel::Engine() const {
  return ShowingFile() ? *mFile->engine : mPlugin.Engine();
}

const Distribution& MeterModel::LoudnessBins() const {
  return ShowingFile() ? static_cast<const Distribution&>(mFile->loudness) : mPlugin.LoudnessBins();
}
const Distribution& MeterModel::TruePeakBins() const {
  return ShowingFile() ? static_cast<const Distribution&>(mFile->truePeak) : mPlugin.TruePeakBins();
}
const Distribution& MeterModel::DynamicsBins() const {
  return ShowingFile() ? static_cast<const Distribution&>(mFile->dynamics) : mPlugin.DynamicsBins();
}

bool MeterModel::WarmUp() const {
  if (ShowingFile()) return mFile->engine->Steps100() < 31;
  return mPlugin.HistogramWarmUp();
}

double MeterModel::RangeIntegrated() const {
  const LoudnessEngine& e = Engine();
  const int64_t steps = e.Steps100();
  if (mCacheEngine != &e || mCacheBegin != mSelBegin || mCacheEnd != mSelEnd || mCacheSteps != steps) {
    const auto begin = static_cast<int32_t>(std::clamp(mSelBegin * 10.0, 0.0, 2.0e9));
    const auto end = static_cast<int32_t>(std::clamp(mSelEnd * 10.0, 0.0, 2.0e9));
    mCacheValue = e.MeasureRange(begin, end).integrated;
    mCacheEngine = &e;
    mCacheBegin = mSelBegin;
    mCacheEnd = mSelEnd;
    mCacheSteps = steps;
  }
  return mCacheValue;
}

MeterValues MeterModel::Read() const {
  MeterValues v;
  const LoudnessEngine& e = Engine();
  v.momentary = e.Momentary();
  v.shortTerm = e.ShortTerm();
  v.realtimeDynamics = e.RealtimeDynamics();
  v.truePeak = e.TruePeak();
  if (ShowingFile()) {
    v.integratedWhole = e.Integrated();
    v.loudnessRange = e.LoudnessRange();
    v.plr = e.Plr();
    v.momentaryMax = e.MomentaryMax();
    v.shortTermMax = e.ShortTermMax();
    v.truePeakMax = e.TruePeakMax();
    v.elapsedSeconds = mFile->sampleRate ? double(e.MeasuredSamples()) / mFile->sampleRate : 0.0;
  } else {
    const MeterReadings r = mPlugin.Readings();
    v.integratedWhole = r.integrated;
    v.loudnessRange = r.loudnessRange;
    v.plr = r.plr;
    v.momentaryMax = r.momentaryMax;
    v.shortTermMax = r.shortTermMax;
    v.truePeakMax = r.truePeakMax;
    v.elapsedSeconds = mPlugin.ParamValue(param::kElapsedSeconds);
  }
  v.rangeSelected = HasSelection();
  v.integrated = v.rangeSelected ? RangeIntegrated() : v.integratedWhole;
  v.channels = std::clamp(e.ProcessedChannels(), 0, kMaxChannels);
  if (v.channels == 0) v.channels = std::clamp(e.ChannelCount(), 1, kMaxChannels);
  const ChannelLayout& layout = LayoutAt(e.Layout());
  for (int c = 0; c < v.channels; ++c) {
    v.channelTruePeak[size_t(c)] = e.ChannelTruePeak(c);
    v.channelTruePeakMax[size_t(c)] = e.ChannelTruePeakMax(c);
    const char* name = c < layout.channelCount ? layout.channelNames[size_t(c)] : nullptr;
    v.channelNames[size_t(c)] = name && *name ? name : std::to_string(c + 1);
  }
  return v;
}

TargetWindow MeterModel::Targets() const {
  TargetWindow t;
  t.target = Param(param::kTarget);
  t.upper = Param(param::kUpper);
  t.lower = Param(param::kLower);
  t.truePeakMax = Param(param::kTruePeakMax);
  t.lkfs = Param(param::kUnitLkfs) >= 0.5;
  return t;
}

double MeterModel::Param(int index) const {
  return mPlugin.ParamValue(index);
}

void MeterModel::SetParam(int index, double value) {
  if (mPlugin.GetParam(index)) mPlugin.SetParam(index, value);
}

int MeterModel::HistogramMode() const {
  return std::clamp(static_cast<int>(std::lround(Param(param::kHistogramMode))), 0, 3);
}

std::string MeterModel::PresetShortName() const {
  // A custom preset shows its own name; settings of no known preset (a
  // deleted custom preset, an unknown index) show "CUSTOM".
  const std::string name = mPlugin.ShownPresetText(false);
  return name.empty() ? std::string("CUSTOM") : name;
}

std::string MeterModel::PresetMenuName() const {
  std::string name = mPlugin.ShownPresetText(true);
  if (name.empty()) name = "CUSTOM";
  const auto b = name.find_first_not_of(' ');
  return b == std::string::npos ? std::string() : name.substr(b);
}

void MeterModel::SetSelection(double begin, double end) {
  if (!std::isfinite(begin) || !std::isfinite(end)) begin = end = 0.0;
  if (end < begin) std::swap(begin, end);
  mSelBegin = std::max(0.0, begin);
  mSelEnd = std::max(0.0, end);
  if (ShowingFile()) return;
  // The audio thread reads the display state under the plug-in lock; the
  // write is a handful of doubles.
  SpinLockGuard guard(mPlugin.Lock());
  mPlugin.SetAuxValues({mSelBegin, mSelEnd, mZoom, mScroll});
}

void MeterModel::SetView(double zoom, double scroll) {
  mZoom = zoom;
  mScroll = scroll;
  if (ShowingFile()) return;
  SpinLockGuard guard(mPlugin.Lock());
  mPlugin.SetAuxValues({mSelBegin, mSelEnd, mZoom, mScroll});
}

void MeterModel::ResetLive() {
  mShowFile = false;
  SetSelection(0.0, 0.0);
  mPlugin.ResetMeasurement();
}

double MeterModel::SystemStartSeconds() const {
  return std::max(0.0, Param(param::kResetTimeOfDay));
}

}  // namespace velorum::ui
