#include "ui/Theme.h"

namespace velorum::ui {
namespace {

tg_color Rgb(int r, int g, int b) {
  return tg_color::from_argb(255, static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                             static_cast<unsigned char>(b));
}

Theme MakeDark() {
  Theme t;
  t.background = Rgb(24, 25, 27);
  t.panel = Rgb(37, 39, 42);
  t.panelEdge = Rgb(58, 61, 66);
  t.text = Rgb(235, 236, 238);
  t.dim = Rgb(140, 146, 154);
  t.grid = Rgb(62, 66, 72);
  t.accent = Rgb(64, 156, 255);
  t.menu = Rgb(49, 51, 53);
  t.menuText = Rgb(250, 250, 250);
  t.momentary = Rgb(92, 190, 255);
  t.shortTerm = Rgb(255, 196, 64);
  t.integrated = Rgb(250, 250, 250);
  t.truePeak = Rgb(255, 92, 120);
  t.ok = Rgb(76, 217, 100);
  t.warn = Rgb(255, 196, 64);
  t.bad = Rgb(255, 69, 58);
  t.targetBand = tg_color::from_argb(48, 76, 217, 100);
  t.dark = true;
  return t;
}

Theme MakeWhite() {
  Theme t;
  t.background = Rgb(232, 234, 237);
  t.panel = Rgb(250, 250, 250);
  t.panelEdge = Rgb(204, 208, 214);
  t.text = Rgb(29, 31, 35);
  t.dim = Rgb(104, 110, 118);
  t.grid = Rgb(218, 222, 228);
  t.accent = Rgb(0, 110, 230);
  t.menu = Rgb(250, 250, 250);
  t.menuText = Rgb(29, 31, 35);
  t.momentary = Rgb(0, 122, 204);
  t.shortTerm = Rgb(214, 128, 0);
  t.integrated = Rgb(29, 31, 35);
  t.truePeak = Rgb(214, 36, 72);
  t.ok = Rgb(28, 160, 60);
  t.warn = Rgb(214, 128, 0);
  t.bad = Rgb(214, 36, 36);
  t.targetBand = tg_color::from_argb(44, 28, 160, 60);
  t.dark = false;
  return t;
}

}  // namespace

const Theme& Theme::Get(bool dark) {
  static const Theme kDark = MakeDark();
  static const Theme kWhite = MakeWhite();
  return dark ? kDark : kWhite;
}

}  // namespace velorum::ui
