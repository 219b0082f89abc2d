// The editor's colours in its two themes. A theme value of 0.5 or more selects
// the dark colours (the drawing layer's convention).
#pragma once

#include "graphics/tgraphics.h"

namespace velorum::ui {

struct Theme {
  tg_color background;  // the editor behind the panels
  tg_color panel;       // panel fill
  tg_color panelEdge;   // panel outline
  tg_color text;        // main text
  tg_color dim;         // labels, axis text
  tg_color grid;        // graph grid lines
  tg_color accent;      // selection, active buttons
  tg_color menu;        // drop-down menu fill
  tg_color menuText;    // drop-down menu text
  tg_color momentary;   // momentary curve and bar
  tg_color shortTerm;   // short-term curve and bar
  tg_color integrated;  // integrated curve
  tg_color truePeak;    // true-peak curve and bars
  tg_color ok;          // within the target window
  tg_color warn;        // close to a limit
  tg_color bad;         // outside the window / above the peak maximum
  tg_color targetBand;  // the tolerance band on the graph
  bool dark = true;

  static const Theme& Get(bool dark);
  static const Theme& ForValue(double themeValue) { return Get(themeValue >= 0.5); }
};

inline tg_color WithAlpha(tg_color c, double a) {
  c.a = a;
  return c;
}

}  // namespace velorum::ui
