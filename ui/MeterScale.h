// The vertical dB scale shared by the meter bars: value to y and the tick marks.
#pragma once

#include <algorithm>

#include "graphics/IGraphicsTypes.h"
#include "graphics/tgraphics.h"
#include "ui/EditorHost.h"
#include "ui/Theme.h"

namespace velorum::ui {

struct MeterScale {
  double low = -60.0, high = 0.0;
  double Y(const DRect& r, double v) const {
    const double f = std::clamp((v - low) / (high - low), 0.0, 1.0);
    return r.B - f * r.H();
  }
  // Tick labels every `step` dB at the left of `r`.
  void DrawTicks(tgraphics& g, const DRect& r, double step, const Theme& t, double labelWidth) const;
};

}  // namespace velorum::ui
