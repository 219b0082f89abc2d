#pragma once
// Loudness over time as JSON Lines (--timeline): one object per interval of
// the measurement history, at the same intervals as the CSV rows:
//   {"time":1.0,"timecode":"00:00:01.000","momentary":-23.1,"short_term":-23.4,
//    "integrated":-23.2,"true_peak":-3.5,"dialogue":false}
// time is the end of the interval in seconds of the programme; momentary,
// short-term and integrated are the values at its end, true peak the largest
// of its 10 ms steps, dialogue whether speech was detected in any of them.
#include <string>

namespace velorum {

class MeasurementHistory;

struct TimelineOptions {
  double intervalSeconds = 1.0;
  double startSeconds = 0.0;  // the programme's start time reference (time codes only)
  double fps = 0.0;           // > 0: time codes in frames at this rate
  bool dropFrame = false;
};

// Read under the engine mutex.
std::string BuildTimeline(const MeasurementHistory& history, const TimelineOptions& options);

}  // namespace velorum
