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
#pragma once

#include "history/MeasurementHistory.h"
#include "plugin/ByteChunk.h"

namespace velorum {

class HistorySerializer {
 public:
  static void Write(const MeasurementHistory& history, ByteChunk& chunk, bool compressed);
  static int Read(const ByteChunk& chunk, int pos, bool compressed, MeasurementHistory& history);
};

}  // namespace velorum
