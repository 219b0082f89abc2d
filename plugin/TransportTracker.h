// Follows the host transport from block to block and decides how the meter's
// timeline moves: detects jumps of the host position (and loops, when the
// musical positions confirm the jump) and applies the rules of the four
// histogram modes ("ELAPSED", "TIME CODE", "SYSTEM", "CONTINUOUS").
#pragma once

#include <cstdint>

#include "plugin/VstAbi.h"

namespace velorum {

struct TransportTracker {
  // Input of one refresh besides the host's time information.
  struct Context {
    double sampleRate = 44100.0;
    int frames = 0;
    bool hostCode36 = false;       // the host jitters: one more second is allowed
    int32_t timeOfDaySeconds = 0;  // local time of day, for "SYSTEM"
  };

  int32_t mode = 0;
  double tempo = 120.0;
  double previousTempo = 120.0;
  double samplePos = -1.0;
  double ppqPos = 0.0;
  bool playing = false;
  bool wasPlaying = false;
  bool jumped = false;
  bool looped = false;
  bool restart = false;
  bool resetOnJump = false;
  bool resetPending = false;
  int64_t position = 0;
  int32_t systemStartSeconds = 0;
  int32_t systemOffsetSeconds = 0;
  int64_t lastBlockFrames = 0;
  int32_t jumpCount = 0;  // jumps seen since the last reset

  // Reads the time information (null when the host gives none) once per block.
  void Refresh(const vst::VstTimeInfo* info, const Context& context);
  // Clears the one-block flags after the first advanced sample.
  void ClearBlockFlags() {
    jumped = false;
    looped = false;
    restart = false;
  }
  bool JustStarted() const { return playing && !wasPlaying; }
};

// Seconds since local midnight.
int32_t LocalTimeOfDaySeconds();

}  // namespace velorum
