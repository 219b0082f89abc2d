// Serialises the measurement history into the plug-in state, plainly or
// compressed with zlib.
//
// History body (all little-endian):
//   int32 start10, start100, end10, end100, current100
//   byte  startKnown, timelineMode
//   10 ms arrays:  momentary, shortTerm, truePeak, dynamics      (float arrays)
//                  stepFlags, stateFlags, speechFlags           (byte arrays)
//   100 ms arrays: momentaryPower, shortTermPower, integrated,
//                  loudnessRange                                (float arrays)
//                  blockFlags                                   (byte array)
//   dialogue:      dialogueMomentaryPower, dialogueShortTermPower,
//                  dialogueIntegrated, dialogueRange            (float arrays)
//                  dialogueFlags                                (byte array)
//   float array: int32 count, count IEEE floats; byte array: int32 count, bytes.
//   The arrays of one resolution are written at one common length, shorter
//   ones padded with their fill (the dialogue arrays may still be empty).
// Compressed form: int32 size of the plain body, then the zlib stream of it
// as a byte run (int32 length, bytes).
//
// Reading checks every count against the bytes present, replaces non-finite
// values by the array's fill and clamps the bookkeeping to the arrays, so a
// hostile state yields a consistent history or a refusal (-1), never a crash.
// A compressed history is bounded before anything is allocated: its plain
// size must be the size its own counts give (looked at by inflating the first
// bytes only), the 10 ms count at most HistoryLimits::maxSteps10 (48 hours at
// the most), and a history that does not follow a time line at most as long
// as the samples the state says were measured.
#pragma once

#include <cstdint>

#include "history/MeasurementHistory.h"
#include "plugin/ByteChunk.h"

namespace velorum {

struct HistoryLimits {
  static constexpr int64_t kMaxHours = 48;
  static constexpr int64_t kMaxSteps10 = kMaxHours * 3600 * 100;
  int64_t maxSteps10 = kMaxSteps10;
  // 10 ms steps in the samples measured, or -1 when unknown.
  int64_t measuredSteps10 = -1;
};

class HistorySerializer {
 public:
  static void Write(const MeasurementHistory& history, ByteChunk& chunk, bool compressed);
  static int Read(const ByteChunk& chunk, int pos, bool compressed, MeasurementHistory& history,
                  const HistoryLimits& limits = {});
  // Bytes of a plain body of n10 and n100 entries per array.
  static int64_t PlainBytes(int64_t n10, int64_t n100);
};

}  // namespace velorum
