// The editor's drawing helpers that need no window: rectangles in doubles,
// panels with their shadow and caption, and text in the editor's fonts. The
// editor's controls and the command's offscreen pictures share them.
#pragma once

#include <string>

#include "graphics/tgraphics.h"
#include "ui/Theme.h"

namespace velorum::ui {

// A rectangle in doubles for drawing (the control model keeps floats).
struct DRect {
  double L = 0.0, T = 0.0, R = 0.0, B = 0.0;
  double W() const { return R - L; }
  double H() const { return B - T; }
};

// A rounded panel with its drop shadow, and a caption in its top-left corner.
void DrawPanel(tgraphics& g, const DRect& r, const Theme& t, const char* caption = nullptr);
// Text helpers in the editor's fonts.
void DrawLabel(tgraphics& g, const std::string& text, double x, double y, double w, double h, double size,
               const tg_color& c, tg_align align = tg_align::left, const char* font = "OpenSans-SemiBold");

}  // namespace velorum::ui
