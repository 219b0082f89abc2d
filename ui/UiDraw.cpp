#include "ui/UiDraw.h"

#include <algorithm>

#include "graphics/tgraphics_panel_shadow.h"

namespace velorum::ui {

void DrawPanel(tgraphics& g, const DRect& r, const Theme& t, const char* caption) {
  const double radius = std::min(6.0, std::min(r.W(), r.H()) / 4.0);
  g.save();
  g.new_path();
  g.rounded_rectangle(r.L + 0.5, r.T + 0.5, r.W() - 1.0, r.H() - 1.0, radius);
  tgraphics_panel_shadow shadow;
  shadow.alpha = t.dark ? 0.45 : 0.18;
  shadow.offset_y = 1.5;
  shadow.softness = 3.0;
  shadow.draw(g);
  g.set_color(t.panel);
  g.fill_preserve();
  g.set_line_style(1.0);
  g.set_color(t.panelEdge);
  g.stroke();
  g.restore();
  if (caption && r.W() > 40.0 && r.H() > 16.0)
    DrawLabel(g, caption, r.L + 8.0, r.T + 3.0, r.W() - 16.0, 14.0, 9.0, t.dim);
}

void DrawLabel(tgraphics& g, const std::string& text, double x, double y, double w, double h, double size,
               const tg_color& c, tg_align align, const char* font) {
  if (text.empty() || w <= 0.0 || h <= 0.0) return;
  // Shrink a text that would not fit rather than spill over the neighbours.
  g.set_font(font, size);
  const double width = g.text_extents(text).x_advance;
  if (width > w && width > 0.0) size = std::max(4.0, size * w / width);
  g.draw_text(text, tg_rect{x, y, w, h}, font, size, c, align, tg_valign::middle);
}

}  // namespace velorum::ui
