#include "plugin/HistorySerializer.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace velorum {

namespace {

static_assert(std::endian::native == std::endian::little, "the state is little-endian like its hosts");

constexpr int64_t kHeaderBytes = 5 * 4 + 2;
constexpr int kArrays10 = 7, kArrays100 = 10;
constexpr int64_t kEntryBytes10 = 4 * 4 + 3;   // four float arrays, three byte arrays
constexpr int64_t kEntryBytes100 = 8 * 4 + 2;  // eight float arrays, two byte arrays
// Above this a history is compressed for speed rather than size.
constexpr int kFastLevelFrom = 8 * 1024 * 1024;

// Arrays are written at the common length of their resolution, shorter ones
// padded with their fill, so that what is read back is what is written again.
template <class T>
void PutArray(ByteChunk& c, const std::vector<T>& v, size_t n, T fill) {
  c.PutInt32(static_cast<int32_t>(n));
  const size_t have = std::min(v.size(), n);
  c.PutRaw(v.data(), have * sizeof(T));
  for (size_t i = have; i < n; ++i) c.PutRaw(&fill, sizeof(T));
}

template <class T>
int GetArray(const ByteChunk& c, int pos, std::vector<T>& v, T fill, int64_t maxCount) {
  int32_t n = 0;
  pos = c.GetInt32(n, pos);
  if (pos < 0 || n < 0 || n > maxCount || n > (c.Size() - pos) / int(sizeof(T))) return -1;
  v.resize(size_t(n));
  pos = c.GetRaw(v.data(), size_t(n) * sizeof(T), pos);
  if constexpr (std::is_floating_point_v<T>) {
    for (T& f : v) {
      if (!std::isfinite(f)) f = fill;
    }
  }
  return pos;
}

void WritePlain(const MeasurementHistory& h, ByteChunk& c) {
  using H = MeasurementHistory;
  const size_t n10 = std::max({h.momentary.size(), h.shortTerm.size(), h.truePeak.size(), h.dynamics.size(),
                               h.stepFlags.size(), h.stateFlags.size(), h.speechFlags.size()});
  const size_t n100 =
      std::max({h.momentaryPower.size(), h.shortTermPower.size(), h.integrated.size(), h.loudnessRange.size(),
                h.blockFlags.size(), h.dialogueMomentaryPower.size(), h.dialogueShortTermPower.size(),
                h.dialogueIntegrated.size(), h.dialogueRange.size(), h.dialogueFlags.size()});
  c.Reserve(size_t(c.Size()) + size_t(HistorySerializer::PlainBytes(int64_t(n10), int64_t(n100))));
  c.PutInt32(h.start10);
  c.PutInt32(h.start100);
  c.PutInt32(h.end10);
  c.PutInt32(h.end100);
  c.PutInt32(h.current100);
  c.PutByte(h.startKnown ? 1 : 0);
  c.PutByte(h.timelineMode ? 1 : 0);
  PutArray(c, h.momentary, n10, H::kLoudnessFill);
  PutArray(c, h.shortTerm, n10, H::kLoudnessFill);
  PutArray(c, h.truePeak, n10, H::kPeakFill);
  PutArray(c, h.dynamics, n10, H::kDynamicsFill);
  PutArray(c, h.stepFlags, n10, H::kStepFlagFill);
  PutArray(c, h.stateFlags, n10, H::kStateFill);
  PutArray(c, h.speechFlags, n10, H::kSpeechFill);
  PutArray(c, h.momentaryPower, n100, H::kPowerFill);
  PutArray(c, h.shortTermPower, n100, H::kPowerFill);
  PutArray(c, h.integrated, n100, H::kLoudnessFill);
  PutArray(c, h.loudnessRange, n100, H::kRangeFill);
  PutArray(c, h.blockFlags, n100, H::kBlockFlagFill);
  PutArray(c, h.dialogueMomentaryPower, n100, H::kPowerFill);
  PutArray(c, h.dialogueShortTermPower, n100, H::kPowerFill);
  PutArray(c, h.dialogueIntegrated, n100, H::kLoudnessFill);
  PutArray(c, h.dialogueRange, n100, H::kRangeFill);
  PutArray(c, h.dialogueFlags, n100, H::kBlockFlagFill);
}

// The 10 ms count a history may hold under `limits` (the 100 ms arrays hold
// a tenth of it, and one more for a block begun).
int64_t MaxSteps10(const HistoryLimits& limits, bool timeline) {
  int64_t n = std::clamp<int64_t>(limits.maxSteps10, 0, HistoryLimits::kMaxSteps10);
  // Without a time line every step is one measured: allow one second more.
  if (!timeline && limits.measuredSteps10 >= 0) n = std::min(n, limits.measuredSteps10 + 100);
  return n;
}

int ReadPlain(const ByteChunk& c, int pos, MeasurementHistory& h, const HistoryLimits& limits) {
  using H = MeasurementHistory;
  uint8_t startKnown = 0, timeline = 0;
  pos = c.GetInt32(h.start10, pos);
  pos = c.GetInt32(h.start100, pos);
  pos = c.GetInt32(h.end10, pos);
  pos = c.GetInt32(h.end100, pos);
  pos = c.GetInt32(h.current100, pos);
  pos = c.GetByte(startKnown, pos);
  pos = c.GetByte(timeline, pos);
  const int64_t max10 = MaxSteps10(limits, timeline != 0);
  const int64_t max100 = max10 / 10 + 1;
  pos = GetArray(c, pos, h.momentary, H::kLoudnessFill, max10);
  pos = GetArray(c, pos, h.shortTerm, H::kLoudnessFill, max10);
  pos = GetArray(c, pos, h.truePeak, H::kPeakFill, max10);
  pos = GetArray(c, pos, h.dynamics, H::kDynamicsFill, max10);
  pos = GetArray(c, pos, h.stepFlags, H::kStepFlagFill, max10);
  pos = GetArray(c, pos, h.stateFlags, H::kStateFill, max10);
  pos = GetArray(c, pos, h.speechFlags, H::kSpeechFill, max10);
  pos = GetArray(c, pos, h.momentaryPower, H::kPowerFill, max100);
  pos = GetArray(c, pos, h.shortTermPower, H::kPowerFill, max100);
  pos = GetArray(c, pos, h.integrated, H::kLoudnessFill, max100);
  pos = GetArray(c, pos, h.loudnessRange, H::kRangeFill, max100);
  pos = GetArray(c, pos, h.blockFlags, H::kBlockFlagFill, max100);
  pos = GetArray(c, pos, h.dialogueMomentaryPower, H::kPowerFill, max100);
  pos = GetArray(c, pos, h.dialogueShortTermPower, H::kPowerFill, max100);
  pos = GetArray(c, pos, h.dialogueIntegrated, H::kLoudnessFill, max100);
  pos = GetArray(c, pos, h.dialogueRange, H::kRangeFill, max100);
  pos = GetArray(c, pos, h.dialogueFlags, H::kBlockFlagFill, max100);
  if (pos < 0) return -1;
  h.startKnown = startKnown != 0;
  h.timelineMode = timeline != 0;
  // Powers below zero cannot come from a measurement.
  for (auto* powers :
       {&h.momentaryPower, &h.shortTermPower, &h.dialogueMomentaryPower, &h.dialogueShortTermPower}) {
    for (float& f : *powers) f = std::max(f, 0.0f);
  }
  h.Normalise();  // a hostile state may hold arrays of different lengths
  const auto size10 =
      static_cast<int32_t>(std::min<size_t>(h.Size10(), size_t(std::numeric_limits<int32_t>::max())));
  const auto size100 =
      static_cast<int32_t>(std::min<size_t>(h.Size100(), size_t(std::numeric_limits<int32_t>::max())));
  h.start10 = std::clamp(h.start10, 0, size10);
  h.start100 = std::clamp(h.start100, 0, size100);
  h.end10 = std::clamp(h.end10, 0, size10);
  h.end100 = std::clamp(h.end100, 0, size100);
  h.current100 = std::clamp(h.current100, -1, size100 - 1);
  h.replacedLoudness = h.replacedTruePeak = h.replacedDynamics = ReplacedValue{};
  return pos;
}

// Inflates the first bytes of a compressed body (the bookkeeping and the first
// array count) without inflating the rest; false when the stream is damaged.
bool PeekPlain(const std::vector<uint8_t>& packed, uint8_t* out, size_t bytes) {
  z_stream z{};
  if (inflateInit(&z) != Z_OK) return false;
  z.next_in = const_cast<Bytef*>(packed.data());
  z.avail_in = static_cast<uInt>(packed.size());
  z.next_out = out;
  z.avail_out = static_cast<uInt>(bytes);
  int r = Z_OK;
  while (z.avail_out > 0 && r == Z_OK) r = inflate(&z, Z_SYNC_FLUSH);
  inflateEnd(&z);
  return z.avail_out == 0;
}

// Refuses a compressed history whose claimed plain size does not agree with
// its own first counts and the limits.
bool PlainSizePlausible(const std::vector<uint8_t>& packed, int32_t plainSize, const HistoryLimits& limits) {
  if (plainSize < kHeaderBytes + 4) return false;
  uint8_t head[kHeaderBytes + 4];
  if (!PeekPlain(packed, head, sizeof head)) return false;
  const bool timeline = head[kHeaderBytes - 1] != 0;
  int32_t n10 = 0;
  std::memcpy(&n10, head + kHeaderBytes, 4);
  if (n10 < 0 || n10 > MaxSteps10(limits, timeline)) return false;
  const int64_t least = HistorySerializer::PlainBytes(n10, 0);
  const int64_t most = HistorySerializer::PlainBytes(n10, int64_t(n10) / 10 + 1);
  return plainSize >= least && plainSize <= most;
}

}  // namespace

int64_t HistorySerializer::PlainBytes(int64_t n10, int64_t n100) {
  return kHeaderBytes + 4 * (kArrays10 + kArrays100) + n10 * kEntryBytes10 + n100 * kEntryBytes100;
}

void HistorySerializer::Write(const MeasurementHistory& history, ByteChunk& chunk, bool compressed) {
  if (!compressed) {
    WritePlain(history, chunk);
    return;
  }
  ByteChunk plain;
  WritePlain(history, plain);
  uLongf packedSize = compressBound(static_cast<uLong>(plain.Size()));
  std::vector<uint8_t> packed(packedSize);
  const int level = plain.Size() >= kFastLevelFrom ? 1 : 6;
  if (compress2(packed.data(), &packedSize, plain.Data(), static_cast<uLong>(plain.Size()), level) != Z_OK) {
    packedSize = 0;  // cannot happen with a large enough buffer; an empty run reads as a refusal
  }
  packed.resize(packedSize);
  chunk.PutInt32(plain.Size());
  chunk.PutByteRun(packed);
}

int HistorySerializer::Read(const ByteChunk& chunk, int pos, bool compressed, MeasurementHistory& history,
                            const HistoryLimits& limits) {
  if (!compressed) return ReadPlain(chunk, pos, history, limits);
  int32_t plainSize = 0;
  std::vector<uint8_t> packed;
  pos = chunk.GetInt32(plainSize, pos);
  pos = chunk.GetByteRun(packed, pos);
  if (pos < 0 || !PlainSizePlausible(packed, plainSize, limits)) return -1;
  // zlib cannot expand more than about 1032 to 1.
  if (double(plainSize) > double(packed.size()) * 1100.0 + 1024.0) return -1;
  ByteChunk plain;
  plain.Resize(size_t(plainSize));
  uLongf outSize = static_cast<uLongf>(plainSize);
  if (uncompress(plain.Data(), &outSize, packed.data(), static_cast<uLong>(packed.size())) != Z_OK ||
      outSize != static_cast<uLongf>(plainSize)) {
    return -1;
  }
  packed = {};
  if (ReadPlain(plain, 0, history, limits) != plain.Size()) return -1;
  return pos;
}

}  // namespace velorum
