#include "cli/Timeline.h"

#include <algorithm>
#include <cmath>

#include "cli/JsonResult.h"
#include "export/Timecode.h"
#include "history/MeasurementHistory.h"

namespace velorum {
namespace {

template <class T>
T at(const std::vector<T>& v, int64_t i, T fill) {
  return i >= 0 && static_cast<size_t>(i) < v.size() ? v[static_cast<size_t>(i)] : fill;
}

}  // namespace

std::string BuildTimeline(const MeasurementHistory& h, const TimelineOptions& o) {
  const int64_t steps = static_cast<int64_t>(h.Size10());
  const double interval = std::max(o.intervalSeconds, 0.01);
  std::string out;
  int64_t previous = 0;
  for (int64_t k = 1; previous < steps; ++k) {
    const int64_t end = std::min(
        std::max<int64_t>(std::llround(static_cast<double>(k) * interval * 100.0), previous + 1), steps);
    float peak = MeasurementHistory::kPeakFill;
    bool speech = false;
    for (int64_t i = previous; i < end; ++i) {
      peak = std::max(peak, at(h.truePeak, i, MeasurementHistory::kPeakFill));
      speech = speech || at<std::uint8_t>(h.speechFlags, i, 0) != 0;
    }
    const double seconds = static_cast<double>(end) * 0.01;
    const double clock = o.startSeconds + seconds;
    Json row;
    row["time"] = JsonNumber(seconds);
    row["timecode"] = o.fps > 0.0 ? TimecodeFrames(clock, o.fps, o.dropFrame) : TimecodeMillis(clock);
    row["momentary"] = JsonNumber(at(h.momentary, end - 1, MeasurementHistory::kLoudnessFill));
    row["short_term"] = JsonNumber(at(h.shortTerm, end - 1, MeasurementHistory::kLoudnessFill));
    row["integrated"] = JsonNumber(at(h.integrated, end / 10 - 1, MeasurementHistory::kLoudnessFill));
    row["true_peak"] = JsonNumber(peak);
    row["dialogue"] = speech;
    out += JsonLine(row) + "\n";
    previous = end;
  }
  return out;
}

}  // namespace velorum
