// A histogram of one distribution: loudness, dynamics (PLR) or true peak. The
// bins are grouped into bars that fit the width and scaled to the fullest
// bar; the target (or the true-peak maximum) is marked, and while fewer than
// 31 steps of 100 ms have been measured the view shows its warm-up state.
#pragma once

#include <vector>

#include "ui/EditorHost.h"

namespace velorum::ui {

class DistributionDisplay : public MeterControl {
 public:
  enum class Kind { Loudness, Dynamics, TruePeak };
  DistributionDisplay(EditorHost& host, const IRECT& r, Kind kind);
  void Draw(tgraphics& g) override;
  Kind GetKind() const { return mKind; }
  // The value range shown and the count of the fullest bar at the last draw.
  double Low() const;
  double High() const;
  double LastPeakCount() const { return mPeak; }
  bool ShowedWarmUp() const { return mWarm; }

 private:
  const Distribution& Bins() const;
  bool DrawBarsAccelerated(tgraphics& g, tg_gl_plot& gl, const DRect& plot, const std::vector<double>& counts,
                           const tg_color& color);
  Kind mKind;
  double mPeak = 0.0;
  bool mWarm = false;
};

}  // namespace velorum::ui
