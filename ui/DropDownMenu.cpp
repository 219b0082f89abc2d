#include "ui/DropDownMenu.h"

#include <algorithm>

#include "graphics/IGraphics.h"

namespace velorum::ui {

DropDownMenu::DropDownMenu(EditorHost& host) : MeterControl(host, IRECT()) {
  Hide(true);
}

void DropDownMenu::Open(const std::vector<MenuItem>& items, const IRECT& anchor,
                        std::function<void(int)> choose) {
  IGraphics* ui = GetGUI();
  if (!ui || items.empty()) return;
  mItems = items;
  mChoose = std::move(choose);
  mScroll = 0.f;
  mHover = -1;
  const float W = float(ui->Width()), H = float(ui->Height());
  SetBounds(IRECT(0.f, 0.f, W, H));  // catches the click that closes it
  mList = Place(mItems, anchor, W, H);
  Hide(false);
  SetDirty();
  ui->SetAllControlsDirty();
}

IRECT DropDownMenu::Place(const std::vector<MenuItem>& items, const IRECT& anchor, float W, float H) {
  float width = std::max(anchor.W(), 150.f);
  for (const MenuItem& item : items) width = std::max(width, 24.f + 6.2f * float(item.text.size()));
  width = std::min(width, W - 8.f);
  const float full = kItemHeight * float(items.size()) + 8.f;
  const float below = H - anchor.B - 4.f, above = anchor.T - 4.f;
  float top = anchor.B, height = std::min(full, below);
  if (full > below && above > below) {
    height = std::min(full, above);
    top = anchor.T - height;
  }
  height = std::max(height, std::min(full, 4.f * kItemHeight));
  top = std::clamp(top, 2.f, std::max(2.f, H - height - 2.f));
  const float left = std::clamp(anchor.L, 4.f, std::max(4.f, W - width - 4.f));
  return IRECT(left, top, left + width, top + height);
}

void DropDownMenu::Close() {
  if (IsHidden()) return;
  Hide(true);
  if (IGraphics* ui = GetGUI()) ui->SetAllControlsDirty();
}

IRECT DropDownMenu::ItemRect(size_t i) const {
  const float top = mList.T + 4.f + kItemHeight * float(i) - mScroll;
  return IRECT(mList.L + 2.f, top, mList.R - 2.f, top + kItemHeight);
}

int DropDownMenu::ItemAt(float x, float y) const {
  if (!mList.Contains(x, y)) return -1;
  for (size_t i = 0; i < mItems.size(); ++i)
    if (ItemRect(i).Contains(x, y)) return int(i);
  return -1;
}

bool DropDownMenu::Choose(int id) {
  for (const MenuItem& item : mItems) {
    if (!item.header && item.enabled && item.id == id) {
      auto choose = mChoose;
      Close();
      if (choose) choose(id);
      return true;
    }
  }
  return false;
}

void DropDownMenu::Draw(tgraphics& g) {
  const Theme& t = Colors();
  g.set_color(0.0, 0.0, 0.0, t.dark ? 0.25 : 0.10);
  const DRect all = D(GetRECT());
  g.rectangle(all.L, all.T, all.W(), all.H());
  g.fill();
  const DRect list = D(mList);
  g.new_path();
  g.rounded_rectangle(list.L, list.T, list.W(), list.H(), 4.0);
  g.set_color(t.menu);
  g.fill_preserve();
  g.set_line_style(1.0);
  g.set_color(t.panelEdge);
  g.stroke();
  g.save();
  g.clip_rect(list.L, list.T + 2.0, list.W(), list.H() - 4.0);
  for (size_t i = 0; i < mItems.size(); ++i) {
    const DRect r = D(ItemRect(i));
    if (r.B < double(mList.T) || r.T > double(mList.B)) continue;
    const MenuItem& item = mItems[i];
    if (int(i) == mHover && !item.header && item.enabled) {
      g.new_path();
      g.rectangle(r.L, r.T, r.W(), r.H());
      g.set_color(WithAlpha(t.accent, 0.85));
      g.fill();
    }
    tg_color c = item.header ? t.dim : t.menuText;
    if (!item.enabled) c = WithAlpha(c, 0.45);
    if (int(i) == mHover && !item.header && item.enabled) c = {1.0, 1.0, 1.0, 1.0};
    if (item.checked) {
      // A drawn tick: the embedded fonts carry no check-mark glyph.
      const double cy = r.T + r.H() * 0.5;
      g.new_path();
      g.move_to(r.L + 5.0, cy);
      g.line_to(r.L + 8.0, cy + 3.0);
      g.line_to(r.L + 13.0, cy - 3.5);
      g.set_line_style(1.6, CAIRO_LINE_CAP_ROUND, CAIRO_LINE_JOIN_ROUND);
      g.set_color(c);
      g.stroke();
    }
    DrawLabel(g, item.text, r.L + 18.0, r.T, r.W() - 22.0, r.H(), item.header ? 9.0 : 10.5, c, tg_align::left,
              item.header ? "OpenSans-Bold" : "OpenSans-Regular");
  }
  g.restore();
}

void DropDownMenu::OnMouseDown(float x, float y, const IMouseMod&) {
  const int i = ItemAt(x, y);
  if (i < 0) {
    if (!mList.Contains(x, y)) Close();
    return;
  }
  const MenuItem& item = mItems[size_t(i)];
  if (item.header || !item.enabled) return;
  Choose(item.id);
}

void DropDownMenu::OnMouseOver(float x, float y, const IMouseMod&) {
  const int i = ItemAt(x, y);
  if (i != mHover) {
    mHover = i;
    SetDirty();
  }
}

void DropDownMenu::OnMouseWheel(float, float, const IMouseMod&, float d) {
  const float full = kItemHeight * float(mItems.size()) + 8.f;
  mScroll = std::clamp(mScroll - d * kItemHeight * 3.f, 0.f, std::max(0.f, full - mList.H()));
  SetDirty();
}

bool DropDownMenu::OnKeyDown(float, float, int) {
  Close();
  return true;
}

}  // namespace velorum::ui
