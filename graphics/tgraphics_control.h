#pragma once
// The base of the editor's controls that draw with tgraphics: a control with
// the theme it draws in. A theme value of 0.5 or more selects the dark colours.

#include "graphics/IControl.h"
#include "graphics/tgraphics.h"

class tgraphics_control : public IControl {
 public:
  using IControl::IControl;

  void SetTheme(double theme) {
    if (theme != mTheme) {
      mTheme = theme;
      SetDirty();
    }
  }
  double GetTheme() const { return mTheme; }
  bool IsDark() const { return mTheme >= 0.5; }
  // Picks between the dark and the white colour of a pair.
  const tg_color& ThemeColor(const tg_color& dark, const tg_color& white) const {
    return IsDark() ? dark : white;
  }

 private:
  double mTheme = 1.0;
};
