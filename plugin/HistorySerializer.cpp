#include "plugin/HistorySerializer.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace velorum {

namespace {

constexpr int32_t kMaxPlainBytes = 512 * 1024 * 1024;

// Arrays are written at the common length of their resolution, shorter ones
// padded with their fill, so that what is read back is what is written again.
void PutFloats(ByteChunk& c, const std::vector<float>& v, size_t n, float fill) {
  c.PutInt32(static_cast<int32_t>(n));
  for (size_t i = 0; i < n; ++i) c.PutFloat(i < v.size() ? v[i] : fill);
}

void PutBytes(ByteChunk& c, const std::vector<uint8_t>& v, size_t n, uint8_t fill) {
  c.PutInt32(static_cast<int32_t>(n));
  for (size_t i = 0; i < n; ++i) c.PutByte(i < v.size() ? v[i] : fill);
}

int GetFloats(const ByteChunk& c, int pos, std::vector<float>& v, float fill) {
  int32_t n = 0;
  pos = c.GetInt32(n, pos);
  if (pos < 0 || n < 0 || n > (c.Size() - pos) / 4) return -1;
  v.resize(size_t(n));
  for (float& f : v) {
    pos = c.GetFloat(f, pos);
    if (!std::isfinite(f)) f = fill;
  }
  return pos;
}

void WritePlain(const MeasurementHistory& h, ByteChunk& c) {
  using H = MeasurementHistory;
  const size_t n10 = std::max({h.momentary.size(), h.shortTerm.size(), h.truePeak.size(), h.dynamics.size(),
                               h.stepFlags.size(), h.stateFlags.size(), h.speechFlags.size()});
  const size_t n100 = std::max({h.momentaryPower.size(), h.shortTermPower.size(), h.integrated.size(),
                                h.loudnessRange.size(), h.blockFlags.size(), h.dialogueMomentaryPower.size(),
                                h.dialogueShortTermPower.size(), h.dialogueIntegrated.size(),
                                h.dialogueRange.size(), h.dialogueFlags.size()});
  c.PutInt32(h.start10);
  c.PutInt32(h.start100);
  c.PutInt32(h.end10);
  c.PutInt32(h.end100);
  c.PutInt32(h.current100);
  c.PutByte(h.startKnown ? 1 : 0);
  c.PutByte(h.timelineMode ? 1 : 0);
  PutFloats(c, h.momentary, n10, H::kLoudnessFill);
  PutFloats(c, h.shortTerm, n10, H::kLoudnessFill);
  PutFloats(c, h.truePeak, n10, H::kPeakFill);
  PutFloats(c, h.dynamics, n10, H::kDynamicsFill);
  PutBytes(c, h.stepFlags, n10, H::kStepFlagFill);
  PutBytes(c, h.stateFlags, n10, H::kStateFill);
  PutBytes(c, h.speechFlags, n10, H::kSpeechFill);
  PutFloats(c, h.momentaryPower, n100, H::kPowerFill);
  PutFloats(c, h.shortTermPower, n100, H::kPowerFill);
  PutFloats(c, h.integrated, n100, H::kLoudnessFill);
  PutFloats(c, h.loudnessRange, n100, H::kRangeFill);
  PutBytes(c, h.blockFlags, n100, H::kBlockFlagFill);
  PutFloats(c, h.dialogueMomentaryPower, n100, H::kPowerFill);
  PutFloats(c, h.dialogueShortTermPower, n100, H::kPowerFill);
  PutFloats(c, h.dialogueIntegrated, n100, H::kLoudnessFill);
  PutFloats(c, h.dialogueRange, n100, H::kRangeFill);
  PutBytes(c, h.dialogueFlags, n100, H::kBlockFlagFill);
}

int ReadPlain(const ByteChunk& c, int pos, MeasurementHistory& h) {
  using H = MeasurementHistory;
  uint8_t startKnown = 0, timeline = 0;
  pos = c.GetInt32(h.start10, pos);
  pos = c.GetInt32(h.start100, pos);
  pos = c.GetInt32(h.end10, pos);
  pos = c.GetInt32(h.end100, pos);
  pos = c.GetInt32(h.current100, pos);
  pos = c.GetByte(startKnown, pos);
  pos = c.GetByte(timeline, pos);
  pos = GetFloats(c, pos, h.momentary, H::kLoudnessFill);
  pos = GetFloats(c, pos, h.shortTerm, H::kLoudnessFill);
  pos = GetFloats(c, pos, h.truePeak, H::kPeakFill);
  pos = GetFloats(c, pos, h.dynamics, H::kDynamicsFill);
  pos = c.GetByteRun(h.stepFlags, pos);
  pos = c.GetByteRun(h.stateFlags, pos);
  pos = c.GetByteRun(h.speechFlags, pos);
  pos = GetFloats(c, pos, h.momentaryPower, H::kPowerFill);
  pos = GetFloats(c, pos, h.shortTermPower, H::kPowerFill);
  pos = GetFloats(c, pos, h.integrated, H::kLoudnessFill);
  pos = GetFloats(c, pos, h.loudnessRange, H::kRangeFill);
  pos = c.GetByteRun(h.blockFlags, pos);
  pos = GetFloats(c, pos, h.dialogueMomentaryPower, H::kPowerFill);
  pos = GetFloats(c, pos, h.dialogueShortTermPower, H::kPowerFill);
  pos = GetFloats(c, pos, h.dialogueIntegrated, H::kLoudnessFill);
  pos = GetFloats(c, pos, h.dialogueRange, H::kRangeFill);
  pos = c.GetByteRun(h.dialogueFlags, pos);
  if (pos < 0) return -1;
  h.startKnown = startKnown != 0;
  h.timelineMode = timeline != 0;
  // Powers below zero cannot come from a measurement.
  for (auto* powers : {&h.momentaryPower, &h.shortTermPower, &h.dialogueMomentaryPower, &h.dialogueShortTermPower}) {
    for (float& f : *powers) f = std::max(f, 0.0f);
  }
  h.Normalise();  // a hostile state may hold arrays of different lengths
  const auto size10 = static_cast<int32_t>(std::min<size_t>(h.Size10(), size_t(std::numeric_limits<int32_t>::max())));
  const auto size100 = static_cast<int32_t>(std::min<size_t>(h.Size100(), size_t(std::numeric_limits<int32_t>::max())));
  h.start10 = std::clamp(h.start10, 0, size10);
  h.start100 = std::clamp(h.start100, 0, size100);
  h.end10 = std::clamp(h.end10, 0, size10);
  h.end100 = std::clamp(h.end100, 0, size100);
  h.current100 = std::clamp(h.current100, -1, size100 - 1);
  h.replacedLoudness = h.replacedTruePeak = h.replacedDynamics = ReplacedValue{};
  return pos;
}

}  // namespace

void HistorySerializer::Write(const MeasurementHistory& history, ByteChunk& chunk, bool compressed) {
  if (!compressed) {
    WritePlain(history, chunk);
    return;
  }
  ByteChunk plain;
  WritePlain(history, plain);
  uLongf packedSize = compressBound(static_cast<uLong>(plain.Size()));
  std::vector<uint8_t> packed(packedSize);
  if (compress2(packed.data(), &packedSize, plain.Data(), static_cast<uLong>(plain.Size()), 6) != Z_OK) {
    packedSize = 0;  // cannot happen with a large enough buffer; an empty run reads as a refusal
  }
  packed.resize(packedSize);
  chunk.PutInt32(plain.Size());
  chunk.PutByteRun(packed);
}

int HistorySerializer::Read(const ByteChunk& chunk, int pos, bool compressed, MeasurementHistory& history) {
  if (!compressed) return ReadPlain(chunk, pos, history);
  int32_t plainSize = 0;
  std::vector<uint8_t> packed;
  pos = chunk.GetInt32(plainSize, pos);
  pos = chunk.GetByteRun(packed, pos);
  if (pos < 0 || plainSize < 0 || plainSize > kMaxPlainBytes) return -1;
  // zlib cannot expand more than about 1032 to 1.
  if (double(plainSize) > double(packed.size()) * 1100.0 + 1024.0) return -1;
  ByteChunk plain;
  plain.Resize(size_t(plainSize));
  uLongf outSize = static_cast<uLongf>(plainSize);
  if (uncompress(plain.Data(), &outSize, packed.data(), static_cast<uLong>(packed.size())) != Z_OK ||
      outSize != static_cast<uLongf>(plainSize)) {
    return -1;
  }
  if (ReadPlain(plain, 0, history) != plain.Size()) return -1;
  return pos;
}

}  // namespace velorum
