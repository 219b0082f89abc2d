// The readouts: integrated loudness (of the selected range when one is
// selected) large, then short-term, momentary and their maxima, loudness
// range, true-peak maximum, average dynamics (PLR) and realtime dynamics.
// Loudness is shown in the unit setting ("LUFS" or "LKFS") and relative to
// the target in LU, coloured against the target window and the true-peak
// maximum of the chosen standard.
#pragma once

#include <string>
#include <vector>

#include "ui/EditorHost.h"

namespace velorum::ui {

// One line of the readouts as drawn (kept for tests and the image export).
struct ReadoutLine {
  std::string caption;
  std::string value;     // "-23.0"
  std::string unit;      // "LUFS", "LU", "dBTP"
  std::string relative;  // "+0.0 LU" or empty
  int state = 0;         // 0 neutral, 1 on target, 2 close, 3 outside
};

class LoudnessReadout : public MeterControl {
 public:
  LoudnessReadout(EditorHost& host, const IRECT& r);
  void Draw(tgraphics& g) override;
  // What the readouts show now.
  std::vector<ReadoutLine> Lines() const;

  static int IntegratedState(double lufs, const TargetWindow& t);
  static int TruePeakState(double dbtp, const TargetWindow& t);
};

}  // namespace velorum::ui
