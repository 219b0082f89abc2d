#include "plugin/TransportTracker.h"

#include <cmath>
#include <cstdlib>
#include <ctime>

namespace velorum {

namespace {

int64_t RoundToSamples(double v) {
  if (!std::isfinite(v)) return 0;
  if (v > 9.0e18) return INT64_C(9000000000000000000);
  if (v < -9.0e18) return -INT64_C(9000000000000000000);
  return std::llround(v);
}

int64_t MusicalToSamples(double ppq, double tempo, double rate) {
  if (!(tempo > 0.0)) return 0;
  return RoundToSamples((60.0 / tempo) * rate * ppq);
}

int64_t Distance(int64_t a, int64_t b) {
  return a > b ? a - b : b - a;
}

}  // namespace

int32_t LocalTimeOfDaySeconds() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
#if defined(_WIN32)
  localtime_s(&local, &now);
#else
  localtime_r(&now, &local);
#endif
  return local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
}

void TransportTracker::Refresh(const vst::VstTimeInfo* info, const Context& context) {
  previousTempo = tempo;
  const int64_t oldPosition = samplePos < 0.0 ? -1 : RoundToSamples(samplePos);

  wasPlaying = playing;
  playing = info && (info->flags & (vst::kTransportPlaying | vst::kTransportRecording)) != 0;

  double cycleStart = 0.0, cycleEnd = 0.0;
  if (info) {
    samplePos = std::isfinite(info->samplePos) && info->samplePos > 0.0 ? info->samplePos : 0.0;
    if ((info->flags & vst::kTempoValid) && std::isfinite(info->tempo) && info->tempo > 0.0)
      tempo = info->tempo;
    if ((info->flags & vst::kPpqPosValid) && std::isfinite(info->ppqPos)) ppqPos = info->ppqPos;
    if (info->flags & vst::kCyclePosValid) {
      cycleStart = std::isfinite(info->cycleStartPos) ? info->cycleStartPos : 0.0;
      cycleEnd = std::isfinite(info->cycleEndPos) ? info->cycleEndPos : 0.0;
    }
  } else {
    samplePos = oldPosition < 0 ? 0.0 : samplePos;
  }

  const int64_t newPosition = RoundToSamples(samplePos);
  const int64_t old = oldPosition == -1 ? newPosition : oldPosition;
  int64_t allowed = (lastBlockFrames + context.frames) * 2;
  if (context.hostCode36) allowed += RoundToSamples(context.sampleRate);

  if (Distance(newPosition, old) > allowed) {
    jumped = true;
    ++jumpCount;
    if (tempo == previousTempo && info && (info->flags & vst::kCyclePosValid)) {
      const int64_t first = MusicalToSamples(cycleStart, tempo, context.sampleRate);
      const int64_t second = MusicalToSamples(cycleEnd, tempo, context.sampleRate);
      if (first != second && Distance(first, newPosition) <= allowed && Distance(second, old) <= allowed) {
        looped = true;
      }
    }
  }
  if (tempo != previousTempo) jumped = false;

  switch (mode) {
    case 3:
      jumped = looped = restart = false;
      break;
    case 0:
      if (!resetOnJump) {
        jumped = false;
      } else if (jumped) {
        restart = true;
        position = 0;
      }
      break;
    case 1:
      if (jumped) restart = true;
      if (playing && (jumped || JustStarted())) position = std::max<int64_t>(0, newPosition);
      break;
    case 2:
      if (!resetOnJump) jumped = false;
      if (JustStarted()) {
        systemOffsetSeconds = context.timeOfDaySeconds - systemStartSeconds;
        position = std::max<int64_t>(0, RoundToSamples(systemOffsetSeconds * context.sampleRate));
      }
      break;
    default:
      break;
  }
  if (mode >= 0 && mode <= 2 && resetOnJump && (jumped || JustStarted())) resetPending = true;
  lastBlockFrames = context.frames;
}

}  // namespace velorum
