#include "engine/DialogueGate.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "engine/ChannelLayouts.h"
#include "engine/speech/DialogueResampler.h"
#include "engine/speech/DialogueWindowPair.h"
#include "engine/speech/SpeechClassifier.h"

namespace velorum {

namespace {

constexpr double kOffset = 0.8529037030705663;  // -0.691 dB on the mean square
constexpr double kPowerFloor = 1e-12;
constexpr int kChunk = 128;  // samples per inner run of Process

double ToLufs(double power) {
  return power > DialogueGate::kGate ? 10.0 * std::log10(power) : -120.0;
}

void InsertSorted(std::vector<float>& v, float x) {
  if (v.empty() || x >= v.back()) {
    v.push_back(x);
    return;
  }
  v.insert(std::lower_bound(v.begin(), v.end(), x), x);
}

void EraseSorted(std::vector<float>& v, float x) {
  const auto it = std::lower_bound(v.begin(), v.end(), x);
  if (it != v.end() && *it == x) v.erase(it);
}

}  // namespace

DialogueGate::DialogueGate() {
  for (int d = 0; d < kMaxDialogueChannels; ++d) {
    const auto i = static_cast<std::size_t>(d);
    resampler_[i] = std::make_unique<DialogueResampler>();
    classifier_[i] = std::make_unique<SpeechClassifier>();
    windows_[i] = std::make_unique<DialogueWindowPair>();
  }
  Configure(rate_, 0, 0);
}

DialogueGate::~DialogueGate() = default;

void DialogueGate::Configure(double rate, int channels, int layout) {
  rate_ = rate;
  channels_ = std::clamp(channels, 0, kMaxChannels);
  layout_ = layout;

  // Dialogue channels: the first one or two of a mono or stereo input,
  // otherwise the layout's left, right and centre positions.
  dialogueCount_ = std::min(channels_, kMaxDialogueChannels);
  for (int d = 0; d < kMaxDialogueChannels; ++d) channel_[static_cast<std::size_t>(d)] = d;
  if (channels_ >= 3) {
    const ChannelLayout& l = LayoutAt(layout);
    const std::string_view names[kMaxDialogueChannels] = {"L", "R", "C"};
    for (int d = 0; d < kMaxDialogueChannels; ++d)
      for (int c = 0; c < std::min(l.channelCount, channels_); ++c)
        if (l.channelNames[static_cast<std::size_t>(c)] != nullptr &&
            names[d] == l.channelNames[static_cast<std::size_t>(c)])
          channel_[static_cast<std::size_t>(d)] = c;
  }
  classifierCount_ = dialogueCount_ >= 3 ? 3 : (dialogueCount_ > 0 ? 1 : 0);

  const bool usable = std::isfinite(rate) && rate > 0.0 && rate < 1e9;
  step100_ = usable ? static_cast<std::int64_t>(rate * 0.1) : 0;
  latency_ = usable ? static_cast<std::int64_t>(std::ceil(rate * 2.048)) : 0;
  latencySteps_ = step100_ > 0 ? (latency_ + step100_ - 1) / step100_ : 0;
  const int momentaryLength = usable ? static_cast<int>(std::floor(rate * 0.4)) : 1;
  const int shortTermLength = usable ? static_cast<int>(std::floor(rate * 3.0)) : 1;
  const int pending = static_cast<int>(std::max<std::int64_t>(1, std::min<std::int64_t>(step100_, 1 << 20)));
  for (int d = 0; d < kMaxDialogueChannels; ++d) {
    const auto i = static_cast<std::size_t>(d);
    if (d < classifierCount_) {
      windows_[i]->Resize(momentaryLength, shortTermLength, pending);
      resampler_[i]->Configure(usable ? rate : 0.0, SpeechClassifier::kRate);
    } else {  // unused: keep them small
      windows_[i]->Resize(1, 1, 1);
      resampler_[i]->Configure(0.0, SpeechClassifier::kRate);
    }
    classifier_[i]->Reset();
  }
  const int maxOut = resampler_[0]->MaxOutputsPerInput();
  powerScratch_.assign(kChunk, 0.0);
  monoScratch_.assign(kChunk, 0.0f);
  resampledScratch_.assign(static_cast<std::size_t>(kChunk) * static_cast<std::size_t>(std::max(1, maxOut)),
                           0.0f);
  samples_ = 0;
  if (blocks_ < 2) integrated_.store(-120.0, std::memory_order_relaxed);
}

void DialogueGate::Reset() {
  sorted_.clear();
  steps100_ = 0;
  firstIndex100_ = -1;
  blocks_ = 0;
  countedStart_ = 0;
  countedEnd_ = 0;
  speechSteps_ = 0;
  measuredSteps_ = 0;
  recount_ = true;
  samples_ = 0;
  for (int d = 0; d < kMaxDialogueChannels; ++d) {
    const auto i = static_cast<std::size_t>(d);
    classifier_[i]->Reset();
    resampler_[i]->Reset();
    windows_[i]->Clear();
  }
  integrated_.store(-120.0, std::memory_order_relaxed);
  range_.store(0.0, std::memory_order_relaxed);
  rangeLow_.store(-120.0, std::memory_order_relaxed);
  rangeHigh_.store(-120.0, std::memory_order_relaxed);
  speechContent_.store(0.0, std::memory_order_relaxed);
  momentaryPower_.store(kPowerFloor, std::memory_order_relaxed);
  shortTermPower_.store(kPowerFloor, std::memory_order_relaxed);
}

void DialogueGate::Process(const double* const* raw, int offset, int frames, const double* const* powers,
                           int channels) {
  if (!enabled_ || classifierCount_ == 0 || raw == nullptr || powers == nullptr || frames <= 0) return;
  if (channels < dialogueCount_) return;
  float* resampled = resampledScratch_.data();
  for (int done = 0; done < frames; done += kChunk) {
    const int n = std::min(kChunk, frames - done);
    if (classifierCount_ == 1) {
      // One classifier for the mono sum; one window pair for the summed power.
      double* __restrict sum = powerScratch_.data();
      float* __restrict mono = monoScratch_.data();
      const double* __restrict p0 = powers[channel_[0]] + done;
      const double* __restrict x0 = raw[channel_[0]] + offset + done;
      if (dialogueCount_ == 2) {
        const double* __restrict p1 = powers[channel_[1]] + done;
        const double* __restrict x1 = raw[channel_[1]] + offset + done;
        for (int i = 0; i < n; ++i) {
          sum[i] = p0[i] + p1[i];
          mono[i] = static_cast<float>(0.5 * (x0[i] + x1[i]));
        }
        windows_[0]->Push(sum, n);
      } else {
        for (int i = 0; i < n; ++i) mono[i] = static_cast<float>(x0[i]);
        windows_[0]->Push(p0, n);
      }
      const int k = resampler_[0]->Push(mono, n, resampled);
      classifier_[0]->Push(resampled, k);
    } else {
      for (int d = 0; d < classifierCount_; ++d) {
        const auto i = static_cast<std::size_t>(d);
        const double* p = powers[channel_[i]] + done;
        const double* x = raw[channel_[i]] + offset + done;
        float* mono = monoScratch_.data();
        for (int j = 0; j < n; ++j) mono[j] = static_cast<float>(x[j]);
        windows_[i]->Push(p, n);
        const int k = resampler_[i]->Push(mono, n, resampled);
        classifier_[i]->Push(resampled, k);
      }
    }
  }
  samples_ += frames;
}

int DialogueGate::SpeechFlag(int d) const {
  if (d < 0 || d >= dialogueCount_) return -1;
  return classifier_[static_cast<std::size_t>(classifierCount_ == 1 ? 0 : d)]->Decision();
}

bool DialogueGate::FlagsKnown() const {
  if (classifierCount_ == 0) return false;
  for (int d = 0; d < classifierCount_; ++d)
    if (classifier_[static_cast<std::size_t>(d)]->Decision() < 0) return false;
  return true;
}

std::uint8_t DialogueGate::Step10(std::int32_t index10) {
  // A step measured again (timeline mode) may change its flag: recount.
  if (index10 < countedEnd_) recount_ = true;
  if (classifierCount_ == 0) return 0;
  if (classifierCount_ == 1) return classifier_[0]->Decision() == 1 ? 1 : 0;
  if (!FlagsKnown()) return 0;
  for (int d = 0; d < classifierCount_; ++d)
    if (classifier_[static_cast<std::size_t>(d)]->Decision() == 1) return 1;
  return 0;
}

double DialogueGate::ScanIntegrated(const MeasurementHistory& h, std::int32_t start) const {
  const std::vector<float>& m = h.dialogueMomentaryPower;
  double sum = 0.0;
  std::int64_t count = 0;
  for (std::size_t i = static_cast<std::size_t>(std::max<std::int32_t>(start, 0)); i < m.size(); ++i) {
    if (m[i] > static_cast<float>(kGate)) {
      sum += static_cast<double>(m[i]);
      ++count;
    }
  }
  return count > 0 ? ToLufs(sum / static_cast<double>(count)) : -120.0;
}

void DialogueGate::UpdateRange() {
  if (sorted_.empty()) return;
  const double n = static_cast<double>(sorted_.size() - 1);
  const auto last = sorted_.size() - 1;
  const auto lowIndex = std::min(static_cast<std::size_t>(std::round(n * 0.1)), last);
  const auto highIndex = std::min(static_cast<std::size_t>(std::round(n * 0.95)), last);
  const double low = ToLufs(static_cast<double>(sorted_[lowIndex]));
  const double high = ToLufs(static_cast<double>(sorted_[highIndex]));
  rangeLow_.store(low, std::memory_order_relaxed);
  rangeHigh_.store(high, std::memory_order_relaxed);
  range_.store(high - low, std::memory_order_relaxed);
}

void DialogueGate::Step100(MeasurementHistory& h, const DialogueStep100& step) {
  using H = MeasurementHistory;
  const std::int32_t index = std::max<std::int32_t>(step.index100, 0);
  const std::int32_t start = step.start100;
  if (firstIndex100_ < 0) firstIndex100_ = index;

  // Speech-weighted powers of the block.
  double m = 0.0, s = 0.0;
  for (int d = 0; d < classifierCount_; ++d) {
    const auto i = static_cast<std::size_t>(d);
    const double mm = windows_[i]->MomentaryMeanSquare();
    const double ss = windows_[i]->ShortTermMeanSquare();
    if (classifier_[i]->Decision() == 1) {
      m += mm;
      s += ss;
    }
  }
  m *= kOffset;
  s *= kOffset;
  if (!(m >= kPowerFloor)) m = kPowerFloor;  // also catches NaN
  if (!(s >= kPowerFloor)) s = kPowerFloor;
  momentaryPower_.store(m, std::memory_order_relaxed);
  shortTermPower_.store(s, std::memory_order_relaxed);

  // Store, with the warm-up rule of the level-gated histories; here the
  // warm-up also waits for the classifier.
  const auto i = static_cast<std::size_t>(index);
  const bool stored = i < h.dialogueFlags.size();
  const bool present = step.timelineMode && stored && h.dialogueFlags[i] == kFlagMeasured && index >= start;
  const float oldS = present && i < h.dialogueShortTermPower.size() ? h.dialogueShortTermPower[i] : 0.0f;
  const std::int64_t warmUpSteps = kRangeWarmUpSteps + latencySteps_;
  const bool warmUp = step.timelineMode && firstIndex100_ >= kRangeWarmUpSteps && steps100_ < warmUpSteps;
  if (step.paused) {
    H::Write(h.dialogueMomentaryPower, start, index, H::kPowerFill, H::kPowerFill);
    H::Write(h.dialogueShortTermPower, start, index, H::kPowerFill, H::kPowerFill);
    H::Write(h.dialogueFlags, start, index, kFlagMeasured, H::kBlockFlagFill);
  } else if (warmUp && stored && h.dialogueFlags[i] == kFlagMeasured) {
    // A measured block keeps its values while the windows and the
    // classifier refill.
  } else {
    H::Write(h.dialogueMomentaryPower, start, index, static_cast<float>(m), H::kPowerFill);
    H::Write(h.dialogueShortTermPower, start, index, static_cast<float>(s), H::kPowerFill);
    H::Write(h.dialogueFlags, start, index, warmUp ? kFlagWarmUp : kFlagMeasured, H::kBlockFlagFill);
  }
  ++blocks_;

  const bool known = !step.paused && FlagsKnown() && samples_ > latency_;
  if (known && m > kGate) integrated_.store(ScanIntegrated(h, start), std::memory_order_relaxed);
  if (known && steps100_ >= warmUpSteps) {
    if (present && static_cast<double>(oldS) > kGate) EraseSorted(sorted_, oldS);
    if (s > kGate) InsertSorted(sorted_, static_cast<float>(s));
    UpdateRange();
  }
  H::Write(h.dialogueIntegrated, start, index, static_cast<float>(Integrated()), H::kLoudnessFill);
  H::Write(h.dialogueRange, start, index, static_cast<float>(Range()), H::kRangeFill);
  ++steps100_;
  UpdateSpeechContent(h);
}

void DialogueGate::UpdateSpeechContent(const MeasurementHistory& h) {
  // Measured 10 ms steps in [start10, end10) and those among them with speech.
  const std::int32_t start = std::max<std::int32_t>(h.start10, 0);
  const auto size = static_cast<std::int32_t>(std::min(h.stepFlags.size(), h.speechFlags.size()));
  const std::int32_t end = std::min(h.end10, size);
  auto count = [&](std::int32_t from, std::int32_t to, std::int64_t& speech, std::int64_t& measured) {
    for (std::int32_t k = from; k < to; ++k) {
      const auto u = static_cast<std::size_t>(k);
      if (h.stepFlags[u] != kFlagMeasured) continue;
      ++measured;
      speech += h.speechFlags[u] != 0;
    }
  };
  if (!recount_ && start == countedStart_ && end >= countedEnd_) {
    count(countedEnd_, end, speechSteps_, measuredSteps_);  // the range grew: add the new steps
  } else {
    speechSteps_ = 0;  // moved, shrunk or rewritten: count again
    measuredSteps_ = 0;
    count(start, end, speechSteps_, measuredSteps_);
  }
  countedStart_ = start;
  countedEnd_ = std::max(start, end);
  recount_ = false;
  speechContent_.store(
      measuredSteps_ > 0 ? static_cast<double>(speechSteps_) / static_cast<double>(measuredSteps_) : 0.0,
      std::memory_order_relaxed);
}

void DialogueGate::RebuildFromHistory(const MeasurementHistory& h) {
  sorted_.clear();
  const std::int32_t start = std::max<std::int32_t>(h.start100, 0);
  const std::size_t n = std::min(h.dialogueShortTermPower.size(), h.dialogueFlags.size());
  for (std::size_t i = static_cast<std::size_t>(start); i < n; ++i)
    if (h.dialogueFlags[i] == kFlagMeasured && static_cast<double>(h.dialogueShortTermPower[i]) > kGate)
      sorted_.push_back(h.dialogueShortTermPower[i]);
  std::sort(sorted_.begin(), sorted_.end());
  range_.store(0.0, std::memory_order_relaxed);
  rangeLow_.store(-120.0, std::memory_order_relaxed);
  rangeHigh_.store(-120.0, std::memory_order_relaxed);
  UpdateRange();
  integrated_.store(ScanIntegrated(h, start), std::memory_order_relaxed);
  blocks_ = static_cast<std::int64_t>(h.dialogueMomentaryPower.size());
  recount_ = true;
  UpdateSpeechContent(h);
}

void DialogueGate::SetMinDialogPercent(double percent) {
  if (std::isnan(percent)) return;
  minDialog_.store(std::clamp(percent, 0.0, 100.0), std::memory_order_relaxed);
}

double DialogueGate::GatedIntegrated(double levelGated) const {
  switch (GateMode()) {
    case DialogueGateMode::kDialOnly:
      return Integrated();
    case DialogueGateMode::kDialRelative:
      if (SpeechContent() * 100.0 >= MinDialogPercent() && Integrated() > -120.0) return Integrated();
      return levelGated;
    case DialogueGateMode::kTenLu:
      break;
  }
  return levelGated;
}

}  // namespace velorum
