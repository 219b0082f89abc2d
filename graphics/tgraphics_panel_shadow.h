#pragma once
// The drop shadow under the editor's panels. Build the panel's path on the
// context, call draw(), then fill the panel: the path is there again.

#include "graphics/tgraphics.h"

class tgraphics_panel_shadow {
 public:
  tg_color color{0.0, 0.0, 0.0, 1.0};
  double alpha = 0.5;     // applied when the group is painted
  double offset_x = 0.0;  // editor units
  double offset_y = 2.0;
  double softness = 4.0;  // width of the soft edge, editor units

  // Draws the shadow of the current path outside the panel. The graphics state
  // is restored afterwards and the panel's path is the current path again.
  void draw(tgraphics& g) const;
};
