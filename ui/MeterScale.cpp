#include "ui/MeterScale.h"

#include <cmath>
#include <string>

#include "ui/EditorHost.h"

namespace velorum::ui {

void MeterScale::DrawTicks(tgraphics& g, const DRect& r, double step, const Theme& t,
                           double labelWidth) const {
  const double pxPerDb = r.H() / (high - low);
  while (step * pxPerDb < 14.0 && step < 60.0) step *= 2.0;
  for (double v = std::ceil(low / step) * step; v <= high + 1e-9; v += step) {
    const double y = Y(r, v);
    g.new_path();
    g.move_to(r.L + labelWidth, std::round(y) + 0.5);
    g.line_to(r.R, std::round(y) + 0.5);
    g.set_line_style(1.0);
    g.set_color(t.grid);
    g.stroke();
    DrawLabel(g, std::to_string(static_cast<int>(std::lround(v))), r.L, y - 6.0, labelWidth - 3.0, 12.0, 8.5,
              t.dim, tg_align::right, "OpenSans-Regular");
  }
}

}  // namespace velorum::ui
