#include "engine/LoudnessEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "engine/DialogueGate.h"
#include "engine/EngineCore.h"
#include "engine/FlushDenormals.h"
#include "engine/Gating.h"
#include "engine/TruePeakFilter.h"

namespace velorum {

namespace {

constexpr double kMaxRate = 1536000.0;

}  // namespace

LoudnessEngine::LoudnessEngine()
    : core_(std::make_unique<EngineCore>()), dialogue_(std::make_unique<DialogueGate>()) {
  EngineCore& c = *core_;
  std::memset(c.zeros, 0, sizeof c.zeros);
  for (int ch = 0; ch < kMaxChannels; ++ch) {
    c.powerRows[ch] = c.power[ch];
    c.pendingRows[ch] = c.pending[ch];
  }
  std::memset(c.pending, 0, sizeof c.pending);
  std::memset(c.power, 0, sizeof c.power);
  std::memset(c.total, 0, sizeof c.total);
  for (auto& h : c.peakHistory) h.Clear();
  c.bank.ClearState();
  for (int ch = 0; ch < kMaxChannels; ++ch) {
    c.channelPeak[static_cast<std::size_t>(ch)] = -120.0;
    c.channelPeakMax[static_cast<std::size_t>(ch)] = -120.0;
  }
  c.path = BestCodePath();
  c.kernels = &Kernels(c.path);
  c.sorted.reserve(4096);
  SetLayout(1);
  SetSampleRate(44100.0);
}

LoudnessEngine::~LoudnessEngine() = default;

// ---------------------------------------------------------------- configuration

void LoudnessEngine::SetSampleRate(double rate) {
  Flush();
  if (!(rate > 0.0) || !(rate <= kMaxRate)) return;  // refused: NaN, negative, absurd
  core_->rate = rate;
  RestartSignalChain();
}

double LoudnessEngine::SampleRate() const {
  return core_->rate;
}

void LoudnessEngine::RestartSignalChain() {
  Flush();
  EngineCore& c = *core_;
  c.step100 = static_cast<int>(c.rate / 10.0);
  c.step10 = static_cast<int>(c.rate / 100.0);
  c.momentary.Resize(static_cast<int>(std::floor(c.momentaryMs * c.rate * 0.001)));
  c.shortTerm.Resize(static_cast<int>(std::floor(c.rate * 3000.0 * 0.001)));
  c.peakWindow.fill(0.0);
  c.peakWrite = 0;
  c.peakMaxIndex = 0;
  c.peakMax = 0.0;
  c.peakAverage.Resize(EngineCore::kPeakWindowSteps);
  c.count10 = 0;
  c.count100 = 0;
  c.segmentSteps100 = 0;
  for (int ch = 0; ch < kMaxChannels; ++ch) {
    KWeightingFilter& f = c.filters[static_cast<std::size_t>(ch)];
    f.SetRate(c.rate);
    c.bank.b0a[ch] = f.stage1.b0;
    c.bank.b1a[ch] = f.stage1.b1;
    c.bank.b2a[ch] = f.stage1.b2;
    c.bank.a1a[ch] = f.stage1.a1;
    c.bank.a2a[ch] = f.stage1.a2;
    c.bank.b0b[ch] = f.stage2.b0;
    c.bank.b1b[ch] = f.stage2.b1;
    c.bank.b2b[ch] = f.stage2.b2;
    c.bank.a1b[ch] = f.stage2.a1;
    c.bank.a2b[ch] = f.stage2.a2;
    c.peakHistory[static_cast<std::size_t>(ch)].Clear();
  }
  c.bank.ClearState();
  c.stepPeak.fill(0.0);
  c.momentaryLufs = -120.0;
  c.shortTermLufs = -120.0;
  c.dynamics = 0.0;
  dialogue_->Configure(c.rate, c.Processed(), c.layout);
}

void LoudnessEngine::Reset() {
  EngineLock lock(mutex_);
  EngineCore& c = *core_;
  c.pendingCount = 0;  // gathered samples belong to the measurement being cleared
  for (int ch = 0; ch < kMaxChannels; ++ch) {
    c.channelPeak[static_cast<std::size_t>(ch)] = -120.0;
    c.channelPeakMax[static_cast<std::size_t>(ch)] = -120.0;
  }
  c.momentaryMax = -120.0;
  c.shortTermMax = -120.0;
  c.truePeak = -120.0;
  c.truePeakMax = -120.0;
  c.integrated = -120.0;
  c.range = 0.0;
  c.rangeLow = -120.0;
  c.rangeHigh = -120.0;
  c.plr = 0.0;
  c.momentaryPower = 0.0;
  c.shortTermPower = 0.0;
  RestartSignalChain();
  c.integratedSum = 0.0;
  c.integratedCount = 0;
  c.shortTermSum = 0.0;
  c.shortTermCount = 0;
  c.sorted.clear();
  c.partialBlocks.clear();
  c.finished = false;
  c.position = 0;
  c.measured = 0;
  c.steps10 = 0;
  c.steps100 = 0;
  c.started = false;
  c.startPosition = 0;
  c.trackedBlock = -1;
  c.trackedIncomplete = false;
  c.publishedSteps10 = 0;
  c.publishedSteps100 = 0;
  c.publishedMeasured = 0;
  c.haveResult = false;
  history_.timelineMode = c.timeline;
  history_.Clear();
  dialogue_->Reset();
}

void LoudnessEngine::SetLayout(int layoutIndex) {
  Flush();
  const ChannelLayout& l = LayoutAt(layoutIndex);
  core_->layout = l.index;
  core_->channelCount = l.channelCount;
  for (int ch = 0; ch < kMaxChannels; ++ch) core_->bank.weight[ch] = l.weights[static_cast<std::size_t>(ch)];
  dialogue_->Configure(core_->rate, core_->Processed(), core_->layout);
}

int LoudnessEngine::Layout() const {
  return core_->layout;
}

void LoudnessEngine::SetChannelCount(int channels) {
  SetLayout(LayoutForChannelCount(std::clamp(channels, 1, kMaxChannels)));
}

int LoudnessEngine::ChannelCount() const {
  return core_->channelCount;
}

void LoudnessEngine::SetChannelWeights(const double* weights, int count) {
  Flush();
  for (int ch = 0; ch < kMaxChannels; ++ch) {
    const double w = (weights != nullptr && ch < count) ? weights[ch] : 0.0;
    core_->bank.weight[ch] = std::isfinite(w) ? w : 0.0;
  }
}

double LoudnessEngine::ChannelWeight(int channel) const {
  return (channel >= 0 && channel < kMaxChannels) ? core_->bank.weight[channel] : 0.0;
}

void LoudnessEngine::SetInputCount(int inputs) {
  // The plug-in repeats its count before every block: only a change
  // reconfigures (and so restarts) the dialogue detection.
  inputs = std::clamp(inputs, 0, kMaxChannels);
  if (inputs == core_->inputCount) return;
  Flush();
  core_->inputCount = inputs;
  dialogue_->Configure(core_->rate, core_->Processed(), core_->layout);
}

int LoudnessEngine::ProcessedChannels() const {
  return core_->Processed();
}

void LoudnessEngine::SetEcoMode(bool on) {
  Flush();
  core_->eco = on;
  core_->taps = on ? kShortTapsPerPhase : kLongTapsPerPhase;
}

bool LoudnessEngine::EcoMode() const {
  return core_->eco;
}

void LoudnessEngine::SetMomentaryWindowMs(int ms) {
  Flush();
  EngineCore& c = *core_;
  c.momentaryMs = std::clamp(ms, 1, 60000);
  c.momentary.Resize(static_cast<int>(std::floor(c.momentaryMs * c.rate * 0.001)));
}

int LoudnessEngine::MomentaryWindowMs() const {
  return core_->momentaryMs;
}

void LoudnessEngine::SetRelativeGateFactor(double factor) {
  Flush();
  if (std::isfinite(factor) && factor >= 0.0) core_->relativeGate = factor;
}

double LoudnessEngine::RelativeGateFactor() const {
  return core_->relativeGate;
}

void LoudnessEngine::SetDialogueEnabled(bool on) {
  Flush();
  if (on && !core_->dialogue) {
    dialogue_->Configure(core_->rate, core_->Processed(), core_->layout);
    dialogue_->Reset();
  }
  core_->dialogue = on;
}

bool LoudnessEngine::DialogueEnabled() const {
  return core_->dialogue;
}

void LoudnessEngine::SetPaused(bool paused) {
  if (paused != core_->paused) Flush();
  core_->paused = paused;
}
bool LoudnessEngine::Paused() const {
  return core_->paused;
}

void LoudnessEngine::SetTimelineMode(bool on) {
  Flush();
  EngineLock lock(mutex_);
  core_->timeline = on;
  history_.timelineMode = on;
}

bool LoudnessEngine::TimelineMode() const {
  return core_->timeline;
}

void LoudnessEngine::SetTimelinePosition(std::int64_t samples) {
  samples = std::max<std::int64_t>(samples, 0);
  if (samples == core_->position + core_->pendingCount) return;  // where the next sample goes anyway
  Flush();
  core_->position = samples;
}

std::int64_t LoudnessEngine::TimelinePosition() const {
  return core_->position + core_->pendingCount;
}

void LoudnessEngine::MoveTimelineOrigin(std::int64_t samples) {
  Flush();
  core_->position = std::max<std::int64_t>(samples, 0);
  core_->count10 = 0;
  core_->count100 = 0;
}

bool LoudnessEngine::SetCodePath(CodePath path) {
  Flush();
  if (!CodePathSupported(path)) return false;
  core_->path = path;
  core_->kernels = &Kernels(path);
  return true;
}

CodePath LoudnessEngine::ActiveCodePath() const {
  return core_->path;
}

std::array<double, 5> LoudnessEngine::ActiveCoefficients(int channel, int stage) const {
  const KWeightingFilter& f =
      core_->filters[static_cast<std::size_t>(std::clamp(channel, 0, kMaxChannels - 1))];
  const Biquad& b = stage == 1 ? f.stage1 : f.stage2;
  return {b.a1, b.a2, b.b0, b.b1, b.b2};
}

// ---------------------------------------------------------------- readings

double LoudnessEngine::Momentary() const {
  return core_->momentaryLufs;
}
double LoudnessEngine::ShortTerm() const {
  return core_->shortTermLufs;
}
double LoudnessEngine::MomentaryMax() const {
  return core_->momentaryMax;
}
double LoudnessEngine::ShortTermMax() const {
  return core_->shortTermMax;
}
double LoudnessEngine::Integrated() const {
  return core_->integrated;
}
double LoudnessEngine::LoudnessRange() const {
  return core_->range;
}
double LoudnessEngine::LoudnessRangeLow() const {
  return core_->rangeLow;
}
double LoudnessEngine::LoudnessRangeHigh() const {
  return core_->rangeHigh;
}
double LoudnessEngine::Plr() const {
  return core_->plr;
}
double LoudnessEngine::RealtimeDynamics() const {
  return core_->dynamics;
}
double LoudnessEngine::TruePeak() const {
  return core_->truePeak;
}
double LoudnessEngine::TruePeakMax() const {
  return core_->truePeakMax;
}
double LoudnessEngine::ChannelTruePeak(int channel) const {
  return (channel >= 0 && channel < kMaxChannels)
             ? core_->channelPeak[static_cast<std::size_t>(channel)].Get()
             : -120.0;
}
double LoudnessEngine::ChannelTruePeakMax(int channel) const {
  return (channel >= 0 && channel < kMaxChannels)
             ? core_->channelPeakMax[static_cast<std::size_t>(channel)].Get()
             : -120.0;
}
double LoudnessEngine::MomentaryPower() const {
  return core_->momentaryPower;
}
double LoudnessEngine::ShortTermPower() const {
  return core_->shortTermPower;
}
std::int64_t LoudnessEngine::Steps10() const {
  return core_->publishedSteps10.load(std::memory_order_relaxed);
}
std::int64_t LoudnessEngine::Steps100() const {
  return core_->publishedSteps100.load(std::memory_order_relaxed);
}
std::int64_t LoudnessEngine::MeasuredSamples() const {
  return core_->publishedMeasured.load(std::memory_order_relaxed);
}

double LoudnessEngine::IntegratedDialogue() const {
  return core_->finished.load(std::memory_order_relaxed) ? core_->finishedDialogue.Get()
                                                         : dialogue_->Integrated();
}
double LoudnessEngine::DialogueRange() const {
  return dialogue_->Range();
}
double LoudnessEngine::DialogueRangeLow() const {
  return dialogue_->RangeLow();
}
double LoudnessEngine::DialogueRangeHigh() const {
  return dialogue_->RangeHigh();
}
double LoudnessEngine::SpeechContent() const {
  return dialogue_->SpeechContent();
}

LoudnessResult LoudnessEngine::Result() const {
  const EngineCore& c = *core_;
  LoudnessResult r;
  r.valid = c.haveResult.load(std::memory_order_relaxed);
  r.integrated = c.integrated;
  r.loudnessRange = c.range;
  r.truePeakMax = c.truePeakMax;
  r.momentaryMax = c.momentaryMax;
  r.shortTermMax = c.shortTermMax;
  r.loudnessRangeLow = c.rangeLow;
  r.loudnessRangeHigh = c.rangeHigh;
  r.plr = c.plr;
  r.measuredSamples = MeasuredSamples();
  return r;
}

// ---------------------------------------------------------------- processing

void LoudnessEngine::ProcessSample(const double* const* channels, int index) {
  if (channels == nullptr || index < 0) return;
  EngineCore& c = *core_;
  const int nch = c.Processed();
  const int k = c.pendingCount;
  for (int ch = 0; ch < nch; ++ch) c.pending[ch][k] = channels[ch] != nullptr ? channels[ch][index] : 0.0;
  c.pendingCount = k + 1;
  // Run the gathered samples at the end of a step (or a full buffer), so
  // that every reading and history entry appears at the same sample as if
  // each sample had been run on its own.
  int limit = EngineCore::kChunk;
  if (c.step10 > 0) limit = std::min(limit, c.step10 - c.count10);
  if (c.step100 > 0) limit = std::min(limit, c.step100 - c.count100);
  if (c.pendingCount >= limit)
    Flush();
  else
    c.publishedMeasured.store(c.measured + c.pendingCount, std::memory_order_relaxed);
}

void LoudnessEngine::Flush() {
  EngineCore& c = *core_;
  const int n = c.pendingCount;
  if (n == 0) return;
  c.pendingCount = 0;
  Run(c.pendingRows, 0, n);
}

void LoudnessEngine::ProcessBlock(const double* const* channels, int frames) {
  ProcessBlock(channels, 0, frames);
}

void LoudnessEngine::ProcessBlock(const double* const* channels, int offset, int frames) {
  if (channels == nullptr || frames <= 0 || offset < 0) return;
  Flush();
  Run(channels, offset, frames);
}

void LoudnessEngine::Run(const double* const* channels, int offset, int frames) {
  if (channels == nullptr || frames <= 0 || offset < 0) return;
  EngineCore& c = *core_;
  c.finished.store(false, std::memory_order_relaxed);
  const int nch = c.Processed();
  const KernelSet& k = *c.kernels;
  const TruePeakTable& table = c.eco ? ShortTruePeakTable() : LongTruePeakTable();
  const double* src[kMaxChannels];
  double* const* pw = c.powerRows;

  int done = 0;
  while (done < frames) {
    int n = std::min(frames - done, EngineCore::kChunk);
    if (c.step10 > 0) n = std::min(n, c.step10 - c.count10);
    if (c.step100 > 0) n = std::min(n, c.step100 - c.count100);
    for (int ch = 0; ch < nch; ++ch)
      src[ch] = channels[ch] != nullptr ? channels[ch] + offset + done : c.zeros;

    if (!c.started) {
      c.started = true;
      c.startPosition = c.position;
    }
    {
      FlushDenormals flush;
      // K-weighting, channel powers and their sum.
      k.kWeight(c.bank, src, nch, n, pw);
      k.sumPowers(pw, nch, n, c.total);
      // True peak of every channel, including those the weights silence.
      for (int ch = 0; ch < nch; ++ch)
        c.stepPeak[static_cast<std::size_t>(ch)] =
            k.truePeak(table, c.peakHistory[static_cast<std::size_t>(ch)], src[ch], n,
                       c.stepPeak[static_cast<std::size_t>(ch)]);
    }
    if (c.dialogue) dialogue_->Process(src, 0, n, pw, nch);
    // Sliding mean-square windows.
    SlidingWindow::PushBoth(c.momentary, c.shortTerm, c.total, n);

    const std::int64_t last = c.position + n - 1;
    c.position += n;
    c.measured += n;
    done += n;
    bool end10 = false, end100 = false;
    if (c.step10 > 0 && (c.count10 += n) == c.step10) {
      c.count10 = 0;
      end10 = true;
    }
    if (c.step100 > 0 && (c.count100 += n) == c.step100) {
      c.count100 = 0;
      end100 = true;
    }
    if (end10 || end100) EndOfStep(last, end10, end100);
  }
  c.publishedMeasured.store(c.measured, std::memory_order_relaxed);
}

}  // namespace velorum
