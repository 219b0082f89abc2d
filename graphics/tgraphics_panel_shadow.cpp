#include "graphics/tgraphics_panel_shadow.h"

void tgraphics_panel_shadow::draw(tgraphics& g) const {
  cairo_t* cr = g.context();
  cairo_path_t* panel = cairo_copy_path(cr);
  if (cairo_status(cr) != CAIRO_STATUS_SUCCESS || panel->status != CAIRO_STATUS_SUCCESS) {
    cairo_path_destroy(panel);
    return;
  }
  g.save();
  g.new_path();

  // The shadow shape, offset and softened by stroking the copy of the path at
  // decreasing widths, each adding a little coverage towards the centre.
  g.push_group();
  g.translate(offset_x, offset_y);
  cairo_append_path(cr, panel);
  g.set_line_style(1.0, CAIRO_LINE_CAP_ROUND, CAIRO_LINE_JOIN_ROUND);
  const int steps = softness > 0.0 ? 6 : 0;
  for (int i = steps; i >= 1; --i) {
    g.set_color(color.r, color.g, color.b, color.a / (steps + 1));
    g.set_line_width(softness * 2.0 * i / steps);
    g.stroke_preserve();
  }
  g.set_color(color.r, color.g, color.b, steps > 0 ? color.a / (steps + 1) : color.a);
  g.fill_preserve();
  g.new_path();
  g.pop_group_to_source();

  // Clip the panel itself out, so the shadow darkens only around it.
  g.rectangle(-1e5, -1e5, 2e5, 2e5);
  cairo_append_path(cr, panel);
  g.set_fill_rule(CAIRO_FILL_RULE_EVEN_ODD);
  cairo_clip(cr);
  g.paint_with_alpha(alpha);
  g.restore();

  g.new_path();
  cairo_append_path(cr, panel);
  cairo_path_destroy(panel);
}
