#include "ui/ToolButton.h"

namespace velorum::ui {

ToolButton::ToolButton(EditorHost& host, const IRECT& r, std::function<std::string()> text,
                       std::function<void()> action, std::function<bool()> on, bool dropDown)
    : MeterControl(host, r),
      mText(std::move(text)),
      mAction(std::move(action)),
      mOn(std::move(on)),
      mDropDown(dropDown) {
  SetCursor(ICursor::Hand);
}

void ToolButton::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  const bool on = mOn && mOn();
  g.new_path();
  g.rounded_rectangle(r.L + 1.0, r.T + 1.0, r.W() - 2.0, r.H() - 2.0, 4.0);
  g.set_color(on ? t.accent : (mHover ? t.panelEdge : t.panel));
  g.fill_preserve();
  g.set_line_style(1.0);
  g.set_color(t.panelEdge);
  g.stroke();
  const tg_color fg = on ? tg_color{1.0, 1.0, 1.0, 1.0} : t.text;
  const double arrow = mDropDown ? 12.0 : 0.0;
  DrawLabel(g, mText ? mText() : std::string(), r.L + 6.0, r.T, r.W() - 12.0 - arrow, r.H(),
            std::min(11.0, r.H() * 0.45), fg, mDropDown ? tg_align::left : tg_align::center);
  if (mDropDown) {
    const double cx = r.R - 10.0, cy = r.T + r.H() / 2.0;
    g.new_path();
    g.move_to(cx - 3.5, cy - 2.0);
    g.line_to(cx + 3.5, cy - 2.0);
    g.line_to(cx, cy + 2.5);
    g.close_path();
    g.set_color(t.dim);
    g.fill();
  }
}

void ToolButton::OnMouseDown(float, float, const IMouseMod& mod) {
  if (mod.L && mAction) mAction();
  SetDirty();
}

void ToolButton::OnMouseOver(float, float, const IMouseMod&) {
  if (!mHover) {
    mHover = true;
    SetDirty();
  }
}

void ToolButton::OnMouseOut() {
  mHover = false;
  SetDirty();
}

}  // namespace velorum::ui
