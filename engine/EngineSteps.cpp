// What the engine does at the end of every 10 ms and 100 ms step: readings,
// true-peak and realtime-dynamics bookkeeping, gating and the history writes;
// plus the recomputation of the gated values from a restored history.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

#include "engine/DialogueGate.h"
#include "engine/EngineCore.h"
#include "engine/Gating.h"
#include "engine/LoudnessEngine.h"

namespace velorum {

namespace {

double PeakToDb(double peak) {
  return peak > 1e-6 ? 20.0 * std::log10(peak) : -120.0;
}

std::int32_t ToIndex(std::int64_t v) {
  if (v < 0 || v > std::numeric_limits<std::int32_t>::max()) return 0;
  return static_cast<std::int32_t>(v);
}

// A power as the 32-bit history keeps it: a finite value beyond the float
// range is kept as the largest float, never as infinity.
float Stored(double power) {
  return static_cast<float>(std::min(power, static_cast<double>(FLT_MAX)));
}

// Keeps the ascending list of blocks whose momentary window was not full
// when they were last written.
void NotePartialBlock(std::vector<std::int32_t>& partial, std::int32_t index, bool isPartial) {
  auto it = std::lower_bound(partial.begin(), partial.end(), index);
  const bool listed = it != partial.end() && *it == index;
  if (isPartial && !listed) partial.insert(it, index);
  if (!isPartial && listed) partial.erase(it);
}

template <class T>
T At(const std::vector<T>& h, std::int32_t i, T fill) {
  return (i >= 0 && static_cast<std::size_t>(i) < h.size()) ? h[static_cast<std::size_t>(i)] : fill;
}

}  // namespace

void LoudnessEngine::EndOfStep(std::int64_t last, bool end10, bool end100) {
  EngineCore& c = *core_;
  const double m = c.momentary.MeanSquare() * kOffsetFactor;
  const double s = c.shortTerm.MeanSquare() * kOffsetFactor;
  c.momentaryPower = m;
  c.shortTermPower = s;
  EngineLock lock(mutex_);
  if (end10) {
    Step10(last, m, s);
    ++c.steps10;
    c.publishedSteps10.store(c.steps10, std::memory_order_relaxed);
  }
  if (end100) {
    Step100(last, m, s);
    ++c.steps100;
    ++c.segmentSteps100;
    c.publishedSteps100.store(c.steps100, std::memory_order_relaxed);
    c.haveResult.store(true, std::memory_order_relaxed);
  }
}

void LoudnessEngine::Step10(std::int64_t last, double m, double s) {
  EngineCore& c = *core_;
  MeasurementHistory& h = history_;

  // Momentary and short-term loudness and their maxima.
  const double momentary = PowerToLufs(m);
  const double shortTerm = PowerToLufs(s);
  c.momentaryLufs = momentary;
  c.shortTermLufs = shortTerm;
  if (!c.paused) {
    if (momentary > c.momentaryMax) c.momentaryMax = momentary;
    if (shortTerm > c.shortTermMax) c.shortTermMax = shortTerm;
  }

  // True peak per channel and overall.
  double p = 0.0;
  for (std::size_t ch = 0; ch < static_cast<std::size_t>(kMaxChannels); ++ch) {
    const double peak = c.stepPeak[ch];
    const double db = PeakToDb(peak);
    c.channelPeak[ch] = db;
    if (!c.paused && db > c.channelPeakMax[ch]) c.channelPeakMax[ch] = db;
    if (peak > p) p = peak;
  }
  const double truePeak = PeakToDb(p);
  c.truePeak = truePeak;
  if (!c.paused && truePeak > c.truePeakMax) c.truePeakMax = truePeak;

  // Realtime dynamics: the 1.5 s peak maximum averaged over 1.5 s, against
  // the short-term loudness.
  const double a = std::fabs(p);
  const auto slot = static_cast<std::size_t>(c.peakWrite);
  if (!(a < c.peakMax)) {
    c.peakWindow[slot] = a;
    c.peakMax = a;
    c.peakMaxIndex = c.peakWrite;
  } else {
    const bool wasMax = c.peakWrite == c.peakMaxIndex;
    c.peakWindow[slot] = a;
    if (wasMax) {
      c.peakMax = c.peakWindow[0];
      c.peakMaxIndex = 0;
      for (int i = 1; i < EngineCore::kPeakWindowSteps; ++i)
        if (c.peakWindow[static_cast<std::size_t>(i)] >= c.peakMax) {
          c.peakMax = c.peakWindow[static_cast<std::size_t>(i)];
          c.peakMaxIndex = i;
        }
    }
  }
  if (++c.peakWrite == EngineCore::kPeakWindowSteps) c.peakWrite = 0;
  c.peakAverage.Push(c.peakMax);
  const double averagePeak = PeakToDb(c.peakAverage.MeanSquare());
  const double dynamics =
      (averagePeak > -70.0 && shortTerm > -70.0) ? std::max(0.0, averagePeak - shortTerm) : 0.0;
  c.dynamics = dynamics;
  c.stepPeak.fill(0.0);

  // History.
  const std::int32_t index = ToIndex(last / c.step10);
  const std::int32_t block = c.step100 > 0 ? ToIndex(last / c.step100) : 0;
  h.timelineMode = c.timeline;
  if (c.timeline) {
    if (!h.startKnown) {
      h.start10 = index;
      h.start100 = block;
      h.startKnown = true;
    } else if (index < h.start10) {
      h.start10 = index;
      h.start100 = std::min(h.start100, block);
    }
  } else if (!h.startKnown) {
    h.start10 = 0;
    h.start100 = 0;
    h.startKnown = true;
  }
  const bool existed = c.timeline && static_cast<std::size_t>(index) < h.Size10();
  const float oldMomentary = existed ? h.momentary[static_cast<std::size_t>(index)] : 0.0f;
  const float oldPeak = existed ? h.truePeak[static_cast<std::size_t>(index)] : 0.0f;
  const float oldDynamics = existed ? h.dynamics[static_cast<std::size_t>(index)] : 0.0f;
  const std::uint8_t oldFlag = existed ? h.stepFlags[static_cast<std::size_t>(index)] : kFlagBefore;
  if (block != c.trackedBlock) {
    c.trackedBlock = block;
    c.trackedIncomplete = false;
  }
  if (oldFlag != kFlagMeasured) c.trackedIncomplete = true;

  const std::int32_t start = h.start10;
  const bool paused = c.paused;
  using H = MeasurementHistory;
  H::Write(h.momentary, start, index, paused ? H::kLoudnessFill : static_cast<float>(momentary),
           H::kLoudnessFill);
  H::Write(h.shortTerm, start, index, paused ? H::kLoudnessFill : static_cast<float>(shortTerm),
           H::kLoudnessFill);
  H::Write(h.truePeak, start, index, paused ? H::kPeakFill : static_cast<float>(truePeak), H::kPeakFill);
  H::Write(h.dynamics, start, index, paused ? H::kDynamicsFill : static_cast<float>(dynamics),
           H::kDynamicsFill);
  H::Write(h.stepFlags, start, index, kFlagMeasured, H::kStepFlagFill);
  std::uint8_t state = 0;
  if (!c.shortTerm.Full()) state |= kStateUnsettled;
  if (paused) state |= kStatePaused;
  if (c.eco) state |= kStateEco;
  H::Write(h.stateFlags, start, index, state, H::kStateFill);
  H::Write(h.speechFlags, start, index, dialogue_->Step10(index), H::kSpeechFill);
  h.end10 = index + 1;

  // The distributions read a block's last 10 ms entry: keep what it replaced.
  if (index % 10 == 9) {
    const std::int32_t b = index / 10;
    h.replacedLoudness = {b, oldMomentary, existed};
    h.replacedTruePeak = {b, oldPeak, existed};
    h.replacedDynamics = {b, oldDynamics, existed};
  }
}

void LoudnessEngine::Step100(std::int64_t last, double m, double s) {
  EngineCore& c = *core_;
  MeasurementHistory& h = history_;
  using H = MeasurementHistory;
  const std::int32_t index = ToIndex(last / c.step100);
  if (!h.startKnown) {  // 100 ms steps without 10 ms ones (odd rates)
    h.start10 = 0;
    h.start100 = c.timeline ? index : 0;
    h.startKnown = true;
  }
  const std::int32_t start = h.start100;
  const auto i = static_cast<std::size_t>(index);
  const bool stored = i < h.Size100();
  const bool present = c.timeline && stored && h.blockFlags[i] == kFlagMeasured && index >= start;
  const double oldM = present ? static_cast<double>(h.momentaryPower[i]) : 0.0;
  const double oldS = present ? static_cast<double>(h.shortTermPower[i]) : 0.0;

  // Store the block.
  const bool warmUp =
      c.timeline && static_cast<double>(c.startPosition) >= c.rate * 3.0 && c.steps100 < kWarmUpSteps;
  if (c.paused) {
    H::Write(h.momentaryPower, start, index, H::kPowerFill, H::kPowerFill);
    H::Write(h.shortTermPower, start, index, H::kPowerFill, H::kPowerFill);
    H::Write(h.blockFlags, start, index, kFlagMeasured, H::kBlockFlagFill);
  } else if (warmUp && stored && h.blockFlags[i] == kFlagMeasured &&
             !(c.trackedBlock == index && c.trackedIncomplete)) {
    // A measured block keeps its values while the windows refill.
  } else {
    H::Write(h.momentaryPower, start, index, Stored(m), H::kPowerFill);
    H::Write(h.shortTermPower, start, index, Stored(s), H::kPowerFill);
    H::Write(h.blockFlags, start, index, warmUp ? kFlagWarmUp : kFlagMeasured, H::kBlockFlagFill);
    NotePartialBlock(c.partialBlocks, index, !c.momentary.Full());
  }

  if (!c.paused) {
    // Integrated loudness: running sum for the relative gate, full scan
    // of the block history when the new block passes it.
    if (present && oldM >= kAbsoluteGate) {
      c.integratedSum = std::max(0.0, c.integratedSum - oldM);
      c.integratedCount = std::max<std::int64_t>(0, c.integratedCount - 1);
    }
    if (m >= kAbsoluteGate) {
      c.integratedSum += m;
      c.integratedCount += 1;
      const double threshold = (c.integratedSum / static_cast<double>(c.integratedCount)) * c.relativeGate;
      if (m > threshold) {
        const double mean = GatedMean(h.momentaryPower.data(), std::max<std::int32_t>(start, 0),
                                      static_cast<std::int64_t>(h.Size100()), threshold);
        const double integrated = PowerToLufs(mean);
        c.integrated = integrated;
        c.plr = std::max(0.0, c.truePeakMax - integrated);
      }
    }
    // Loudness range, once the short-term window has had 3 s since the
    // reset and since the last restart of the signal chain (a jump), so
    // that a passage measured again replaces its blocks like for like.
    if (c.steps100 >= kWarmUpSteps && c.segmentSteps100 >= kWarmUpSteps) {
      if (present && oldS >= kAbsoluteGate) {
        c.shortTermSum = std::max(0.0, c.shortTermSum - oldS);
        c.shortTermCount = std::max<std::int64_t>(0, c.shortTermCount - 1);
        EraseSorted(c.sorted, Stored(oldS));
      }
      if (s >= kAbsoluteGate) {
        c.shortTermSum += s;
        c.shortTermCount += 1;
        InsertSorted(c.sorted, Stored(s));
        const double gate = (c.shortTermSum / static_cast<double>(c.shortTermCount)) * kRangeRelativeFactor;
        if (s >= gate) {
          const RangeEnds r = RangeOfSorted(c.sorted, gate);
          c.range = r.range;
          c.rangeLow = r.low;
          c.rangeHigh = r.high;
        }
      }
    }
  }
  H::Write(h.integrated, start, index, static_cast<float>(c.integrated.Get()), H::kLoudnessFill);
  H::Write(h.loudnessRange, start, index, static_cast<float>(c.range.Get()), H::kRangeFill);
  h.end100 = index + 1;
  h.current100 = index;

  DialogueStep100 step;
  step.index100 = index;
  step.start100 = start;
  step.samplesSinceReset = c.measured;
  step.paused = c.paused;
  step.timelineMode = c.timeline;
  dialogue_->Step100(h, step);
}

void LoudnessEngine::PrepareHistory(PreparedHistory& p) {
  MeasurementHistory& h = p.history;
  h.Normalise();
  const std::int32_t begin = std::max<std::int32_t>(h.start100, 0);
  const auto blocks = static_cast<std::int32_t>(h.Size100());

  p.integratedSum = 0.0;
  p.integratedCount = 0;
  p.shortTermSum = 0.0;
  p.shortTermCount = 0;
  p.sorted.clear();
  for (std::int32_t b = begin; b < blocks; ++b) {
    const auto i = static_cast<std::size_t>(b);
    if (h.blockFlags[i] == kFlagBefore) continue;
    const double m = h.momentaryPower[i];
    if (m >= kAbsoluteGate) {
      p.integratedSum += m;
      ++p.integratedCount;
    }
    const double s = h.shortTermPower[i];
    if (h.blockFlags[i] == kFlagMeasured && b - begin >= kWarmUpSteps && s >= kAbsoluteGate &&
        !(At(h.stateFlags, MeasurementHistory::TenMsIndexOfBlock(b), MeasurementHistory::kStateFill) &
          kStateUnsettled)) {
      p.shortTermSum += s;
      ++p.shortTermCount;
      p.sorted.push_back(static_cast<float>(s));
    }
  }
  // One sort instead of an insertion per block: a day of history holds
  // close to a million blocks.
  std::sort(p.sorted.begin(), p.sorted.end());
  double momentaryMax = -120.0, shortTermMax = -120.0, truePeakMax = -120.0;
  for (std::size_t i = static_cast<std::size_t>(std::max<std::int32_t>(h.start10, 0)); i < h.Size10(); ++i) {
    if (h.stepFlags[i] != kFlagMeasured) continue;
    momentaryMax = std::max(momentaryMax, static_cast<double>(h.momentary[i]));
    shortTermMax = std::max(shortTermMax, static_cast<double>(h.shortTerm[i]));
    truePeakMax = std::max(truePeakMax, static_cast<double>(h.truePeak[i]));
  }
  p.momentaryMax = momentaryMax;
  p.shortTermMax = shortTermMax;
  p.truePeakMax = truePeakMax;

  double integrated = -120.0;
  if (p.integratedCount > 0) {
    const double threshold = (p.integratedSum / static_cast<double>(p.integratedCount)) * p.relativeGate;
    integrated = PowerToLufs(GatedMean(h.momentaryPower.data(), begin, blocks, threshold));
  }
  p.integrated = integrated;
  p.plr = integrated > -120.0 ? std::max(0.0, truePeakMax - integrated) : 0.0;
  RangeEnds r;
  if (p.shortTermCount > 0)
    r = RangeOfSorted(p.sorted,
                      (p.shortTermSum / static_cast<double>(p.shortTermCount)) * kRangeRelativeFactor);
  p.range = r.range;
  p.rangeLow = r.low;
  p.rangeHigh = r.high;
}

void LoudnessEngine::AdoptHistory(PreparedHistory& p) {
  EngineLock lock(mutex_);
  EngineCore& c = *core_;
  if (p.relativeGate != c.relativeGate) {
    p.relativeGate = c.relativeGate;
    PrepareHistory(p);
  }
  MeasurementHistory& h = history_;
  const std::uint64_t generation = std::max(h.generation, p.history.generation) + 1;
  std::swap(h, p.history);
  h.generation = generation;  // a snapshot in progress starts again
  c.integratedSum = p.integratedSum;
  c.integratedCount = p.integratedCount;
  c.shortTermSum = p.shortTermSum;
  c.shortTermCount = p.shortTermCount;
  c.sorted.swap(p.sorted);
  c.momentaryMax = p.momentaryMax;
  c.shortTermMax = p.shortTermMax;
  c.truePeakMax = p.truePeakMax;
  c.integrated = p.integrated;
  c.plr = p.plr;
  c.range = p.range;
  c.rangeLow = p.rangeLow;
  c.rangeHigh = p.rangeHigh;

  const std::int32_t begin = std::max<std::int32_t>(h.start100, 0);
  const auto blocks = static_cast<std::int32_t>(h.Size100());
  c.steps100 = blocks - begin;
  c.steps10 = static_cast<std::int64_t>(h.Size10()) - std::max<std::int32_t>(h.start10, 0);
  c.measured = c.steps10 * c.step10;
  c.publishedSteps10 = c.steps10;
  c.publishedSteps100 = c.steps100;
  c.publishedMeasured = c.measured;
  c.haveResult = blocks > begin;
  // A restored measurement started with an empty momentary window.
  c.partialBlocks.clear();
  c.finished = false;
  if (c.step100 > 0)
    for (std::int32_t b = begin; b < blocks && (b - begin + 1) * c.step100 < c.momentary.Length(); ++b)
      c.partialBlocks.push_back(b);
  dialogue_->RebuildFromHistory(h);
}

void LoudnessEngine::RebuildFromHistory() {
  EngineLock lock(mutex_);
  PreparedHistory p;
  p.relativeGate = core_->relativeGate;
  std::swap(p.history, history_);
  PrepareHistory(p);
  AdoptHistory(p);
}

RangeReading LoudnessEngine::MeasureRange(std::int32_t begin, std::int32_t end) const {
  EngineLock lock(mutex_);
  const MeasurementHistory& h = history_;
  RangeReading r;
  const auto blocks = static_cast<std::int32_t>(h.Size100());
  begin = std::max({begin, h.start100, 0});
  end = std::min(end, blocks);
  if (begin >= end) return r;
  double sum = 0.0;
  std::int64_t count = 0;
  std::vector<float> sorted;
  double stSum = 0.0;
  for (std::int32_t b = begin; b < end; ++b) {
    const auto i = static_cast<std::size_t>(b);
    if (h.blockFlags[i] == kFlagBefore) continue;
    ++r.blocks;
    const double m = h.momentaryPower[i];
    if (m >= kAbsoluteGate) {
      sum += m;
      ++count;
    }
    const double s = h.shortTermPower[i];
    if (h.blockFlags[i] == kFlagMeasured && s >= kAbsoluteGate &&
        !(At(h.stateFlags, MeasurementHistory::TenMsIndexOfBlock(b), MeasurementHistory::kStateFill) &
          kStateUnsettled)) {
      stSum += s;
      sorted.push_back(static_cast<float>(s));
    }
  }
  if (count > 0) {
    const double threshold = (sum / static_cast<double>(count)) * core_->relativeGate;
    r.integrated = PowerToLufs(GatedMean(h.momentaryPower.data(), begin, end, threshold));
  }
  if (!sorted.empty()) {
    std::sort(sorted.begin(), sorted.end());
    const RangeEnds e =
        RangeOfSorted(sorted, (stSum / static_cast<double>(sorted.size())) * kRangeRelativeFactor);
    r.loudnessRange = e.range;
    r.loudnessRangeLow = e.low;
    r.loudnessRangeHigh = e.high;
  }
  return r;
}

}  // namespace velorum
