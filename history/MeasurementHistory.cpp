#include "history/MeasurementHistory.h"

#include <algorithm>

namespace velorum {

namespace {

template <class T>
void FillFrom(std::vector<T>& h, std::size_t from, T fill) {
  if (from < h.size()) std::fill(h.begin() + static_cast<std::ptrdiff_t>(from), h.end(), fill);
}

template <class T>
std::size_t Bytes(const std::vector<T>& h) {
  return h.capacity() * sizeof(T);
}

template <class T>
void WriteEntry(std::vector<T>& h, std::int32_t start, std::int32_t index, T value, T fill) {
  if (index < 0) index = 0;
  if (start < 0) start = 0;
  if (h.size() < static_cast<std::size_t>(start)) h.resize(static_cast<std::size_t>(start), fill);
  const auto i = static_cast<std::size_t>(index);
  if (i > h.size()) h.resize(i, fill);
  if (i == h.size())
    h.push_back(value);
  else
    h[i] = value;
}

}  // namespace

void MeasurementHistory::Write(std::vector<float>& h, std::int32_t start, std::int32_t index, float value,
                               float fill) {
  WriteEntry(h, start, index, value, fill);
}

void MeasurementHistory::Write(std::vector<std::uint8_t>& h, std::int32_t start, std::int32_t index,
                               std::uint8_t value, std::uint8_t fill) {
  WriteEntry(h, start, index, value, fill);
}

void MeasurementHistory::Resize(std::size_t count100, std::size_t count10) {
  ++generation;
  if (timelineMode) {
    const auto e10 = static_cast<std::size_t>(std::max<std::int32_t>(end10, 0));
    const auto e100 = static_cast<std::size_t>(std::max<std::int32_t>(end100, 0));
    FillFrom(momentary, e10, kLoudnessFill);
    FillFrom(shortTerm, e10, kLoudnessFill);
    FillFrom(truePeak, e10, kPeakFill);
    FillFrom(dynamics, e10, kDynamicsFill);
    FillFrom(stepFlags, e10, kStepFlagFill);
    FillFrom(stateFlags, e10, kStateFill);
    FillFrom(speechFlags, e10, kSpeechFill);
    FillFrom(momentaryPower, e100, kPowerFill);
    FillFrom(shortTermPower, e100, kPowerFill);
    FillFrom(integrated, e100, kLoudnessFill);
    FillFrom(loudnessRange, e100, kRangeFill);
    FillFrom(blockFlags, e100, kBlockFlagFill);
    FillFrom(dialogueMomentaryPower, e100, kPowerFill);
    FillFrom(dialogueShortTermPower, e100, kPowerFill);
    FillFrom(dialogueIntegrated, e100, kLoudnessFill);
    FillFrom(dialogueRange, e100, kRangeFill);
    FillFrom(dialogueFlags, e100, kBlockFlagFill);
  }
  momentary.resize(count10, kLoudnessFill);
  shortTerm.resize(count10, kLoudnessFill);
  truePeak.resize(count10, kPeakFill);
  dynamics.resize(count10, kDynamicsFill);
  stepFlags.resize(count10, kStepFlagFill);
  stateFlags.resize(count10, kStateFill);
  speechFlags.resize(count10, kSpeechFill);
  momentaryPower.resize(count100, kPowerFill);
  shortTermPower.resize(count100, kPowerFill);
  integrated.resize(count100, kLoudnessFill);
  loudnessRange.resize(count100, kRangeFill);
  blockFlags.resize(count100, kBlockFlagFill);
  dialogueMomentaryPower.resize(count100, kPowerFill);
  dialogueShortTermPower.resize(count100, kPowerFill);
  dialogueIntegrated.resize(count100, kLoudnessFill);
  dialogueRange.resize(count100, kRangeFill);
  dialogueFlags.resize(count100, kBlockFlagFill);
  end10 = std::min<std::int32_t>(end10, static_cast<std::int32_t>(count10));
  end100 = std::min<std::int32_t>(end100, static_cast<std::int32_t>(count100));
  if (current100 >= static_cast<std::int32_t>(count100)) current100 = static_cast<std::int32_t>(count100) - 1;
}

void MeasurementHistory::Clear() {
  Resize(0, 0);
  start10 = 0;
  start100 = 0;
  startKnown = false;
  end10 = 0;
  end100 = 0;
  current100 = -1;
  replacedLoudness = {};
  replacedTruePeak = {};
  replacedDynamics = {};
}

void MeasurementHistory::Normalise() {
  const std::size_t n10 = std::max({momentary.size(), shortTerm.size(), truePeak.size(), dynamics.size(),
                                    stepFlags.size(), stateFlags.size(), speechFlags.size()});
  const std::size_t n100 =
      std::max({momentaryPower.size(), shortTermPower.size(), integrated.size(), loudnessRange.size(),
                blockFlags.size(), dialogueMomentaryPower.size(), dialogueShortTermPower.size(),
                dialogueIntegrated.size(), dialogueRange.size(), dialogueFlags.size()});
  const bool timeline = timelineMode;
  timelineMode = false;
  Resize(n100, n10);
  timelineMode = timeline;
  end10 = static_cast<std::int32_t>(n10);
  end100 = static_cast<std::int32_t>(n100);
  current100 = static_cast<std::int32_t>(n100) - 1;
  start10 = std::clamp<std::int32_t>(start10, 0, end10);
  start100 = std::clamp<std::int32_t>(start100, 0, end100);
}

std::size_t MeasurementHistory::MemoryBytes() const {
  return Bytes(momentary) + Bytes(shortTerm) + Bytes(truePeak) + Bytes(dynamics) + Bytes(stepFlags) +
         Bytes(stateFlags) + Bytes(speechFlags) + Bytes(momentaryPower) + Bytes(shortTermPower) +
         Bytes(integrated) + Bytes(loudnessRange) + Bytes(blockFlags) + Bytes(dialogueMomentaryPower) +
         Bytes(dialogueShortTermPower) + Bytes(dialogueIntegrated) + Bytes(dialogueRange) +
         Bytes(dialogueFlags);
}

}  // namespace velorum
