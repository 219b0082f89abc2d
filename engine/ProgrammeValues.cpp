// The end-of-programme values: integrated loudness, PLR, loudness range and
// the dialogue-gated integrated value over the whole measurement, with the
// gates known once the programme has ended.
#include <algorithm>
#include <vector>

#include "engine/DialogueGate.h"
#include "engine/EngineCore.h"
#include "engine/Gating.h"
#include "engine/LoudnessEngine.h"

namespace velorum {

namespace {

// Mean of the complete gating blocks in [begin, end) above `gate` (strictly),
// in double precision; `count` receives how many passed.
double MeanAbove(const MeasurementHistory& h, const std::vector<std::int32_t>& partial, std::int32_t begin,
                 std::int32_t end, double gate, std::int32_t& count) {
  double sum = 0.0;
  count = 0;
  auto skip = std::lower_bound(partial.begin(), partial.end(), begin);
  for (std::int32_t b = begin; b < end; ++b) {
    if (skip != partial.end() && *skip == b) {
      ++skip;
      continue;
    }
    const auto i = static_cast<std::size_t>(b);
    if (h.blockFlags[i] != kFlagMeasured) continue;
    const double m = h.momentaryPower[i];
    if (m > gate) {
      sum += m;
      ++count;
    }
  }
  return count > 0 ? sum / static_cast<double>(count) : 0.0;
}

std::int32_t CompleteBlocks(const MeasurementHistory& h, const std::vector<std::int32_t>& partial,
                            std::int32_t begin, std::int32_t end) {
  std::int32_t count = 0;
  MeanAbove(h, partial, begin, end, -1.0, count);
  return count;
}

}  // namespace

ProgrammeValues LoudnessEngine::ExactProgramme() const {
  EngineLock lock(mutex_);
  const EngineCore& c = *core_;
  const MeasurementHistory& h = history_;
  ProgrammeValues v;
  const std::int32_t begin = std::max<std::int32_t>(h.start100, 0);
  const auto end = static_cast<std::int32_t>(std::min({h.Size100(), h.blockFlags.size()}));
  if (begin >= end) return v;
  v.gatingBlocks = CompleteBlocks(h, c.partialBlocks, begin, end);
  v.complete = v.gatingBlocks > 0;
  if (v.complete) {
    // Absolute gate, then the relative gate from the blocks that pass it.
    std::int32_t passed = 0;
    const double absoluteMean = MeanAbove(h, c.partialBlocks, begin, end, kAbsoluteGate, passed);
    if (passed > 0) {
      const double relative = std::max(kAbsoluteGate, absoluteMean * c.relativeGate);
      v.integrated = PowerToLufs(MeanAbove(h, c.partialBlocks, begin, end, relative, passed));
      v.plr = v.integrated > -120.0 ? std::max(0.0, c.truePeakMax.Get() - v.integrated) : 0.0;
    }
  }
  const RangeReading range = MeasureRange(begin, end);
  v.loudnessRange = range.loudnessRange;
  v.loudnessRangeLow = range.loudnessRangeLow;
  v.loudnessRangeHigh = range.loudnessRangeHigh;

  // Speech gating takes the place of the relative gate: every speech block
  // above the absolute gate counts.
  const auto dialogueEnd = static_cast<std::int32_t>(std::min(h.dialogueMomentaryPower.size(), h.Size100()));
  double sum = 0.0;
  std::int64_t count = 0;
  for (std::int32_t b = begin; b < dialogueEnd; ++b) {
    const double d = h.dialogueMomentaryPower[static_cast<std::size_t>(b)];
    if (d > kAbsoluteGate) {
      sum += d;
      ++count;
    }
  }
  v.integratedDialogue = count > 0 ? PowerToLufs(sum / static_cast<double>(count)) : dialogue_->Integrated();
  return v;
}

void LoudnessEngine::FinishProgramme() {
  Flush();
  const ProgrammeValues v = ExactProgramme();
  EngineCore& c = *core_;
  c.integrated = v.integrated;
  c.plr = v.plr;
  c.range = v.loudnessRange;
  c.rangeLow = v.loudnessRangeLow;
  c.rangeHigh = v.loudnessRangeHigh;
  c.finishedDialogue = v.integratedDialogue;
  c.finished.store(true, std::memory_order_relaxed);
}

bool LoudnessEngine::ProgrammeFinished() const {
  return core_->finished.load(std::memory_order_relaxed);
}

}  // namespace velorum
