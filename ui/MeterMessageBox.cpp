#include "ui/MeterMessageBox.h"

#include <algorithm>

#include "graphics/IGraphics.h"

namespace velorum::ui {

MeterMessageBox::MeterMessageBox(EditorHost& host) : MeterControl(host, IRECT()) {
  Hide(true);
}

void MeterMessageBox::Show(const std::string& text, const std::vector<std::string>& buttons,
                           std::function<void(int)> answer) {
  IGraphics* ui = GetGUI();
  if (!ui) return;
  mText = text;
  mButtons = buttons.empty() ? std::vector<std::string>{"OK"} : buttons;
  mAnswer = std::move(answer);
  SetBounds(IRECT(0., 0., float(ui->Width()), float(ui->Height())));
  Hide(false);
  ui->SetAllControlsDirty();
}

void MeterMessageBox::Press(int index) {
  if (IsHidden()) return;
  Hide(true);
  auto answer = std::move(mAnswer);
  mAnswer = nullptr;
  if (IGraphics* ui = GetGUI()) ui->SetAllControlsDirty();
  if (answer) answer(index);
}

IRECT MeterMessageBox::BoxRect() const {
  const DRect r = D(GetRECT());
  const double w = std::min(420., r.W() - 16.), h = std::min(130., r.H() - 16.);
  const double x = r.L + (r.W() - w) / 2., y = r.T + (r.H() - h) / 2.;
  return IRECT(x, y, x + w, y + h);
}

IRECT MeterMessageBox::ButtonRect(size_t i) const {
  const DRect b = D(BoxRect());
  const double w = 80., gap = 10.;
  const double total = double(mButtons.size()) * w + double(mButtons.size() - 1) * gap;
  const double x = b.R - 14. - total + double(i) * (w + gap);
  return IRECT(x, b.B - 36., x + w, b.B - 12.);
}

namespace {
// Splits a message into lines that fit `width` at `size`.
std::vector<std::string> Wrap(tgraphics& g, const std::string& text, double width, double size) {
  std::vector<std::string> lines;
  std::string line, word;
  g.set_font("OpenSans-Regular", size);
  auto flush_word = [&] {
    if (word.empty()) return;
    const std::string trial = line.empty() ? word : line + " " + word;
    if (!line.empty() && g.text_extents(trial).x_advance > width) {
      lines.push_back(line);
      line = word;
    } else {
      line = trial;
    }
    word.clear();
  };
  for (char c : text) {
    if (c == ' ' || c == '\n') {
      flush_word();
      if (c == '\n') {
        lines.push_back(line);
        line.clear();
      }
    } else {
      word += c;
    }
  }
  flush_word();
  if (!line.empty()) lines.push_back(line);
  return lines;
}
}  // namespace

void MeterMessageBox::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.set_color(0.0, 0.0, 0.0, 0.35);
  g.rectangle(r.L, r.T, r.W(), r.H());
  g.fill();
  const DRect b = D(BoxRect());
  DrawPanel(g, b, t);
  g.save();
  g.clip_rect(b.L, b.T, b.W(), b.H());
  const std::vector<std::string> lines = Wrap(g, mText, b.W() - 28.0, 11.0);
  double y = b.T + 14.0;
  for (const std::string& line : lines) {
    DrawLabel(g, line, b.L + 14.0, y, b.W() - 28.0, 16.0, 11.0, t.text, tg_align::left, "OpenSans-Regular");
    y += 16.0;
  }
  for (size_t i = 0; i < mButtons.size(); ++i) {
    const DRect br = D(ButtonRect(i));
    g.new_path();
    g.rounded_rectangle(br.L, br.T, br.W(), br.H(), 4.0);
    g.set_color(i == 0 ? t.accent : t.panelEdge);
    g.fill();
    DrawLabel(g, mButtons[i], br.L, br.T, br.W(), br.H(), 10.5, i == 0 ? tg_color{1, 1, 1, 1} : t.text,
              tg_align::center);
  }
  g.restore();
}

void MeterMessageBox::OnMouseDown(float x, float y, const IMouseMod&) {
  for (size_t i = 0; i < mButtons.size(); ++i)
    if (ButtonRect(i).Contains(x, y)) {
      Press(int(i));
      return;
    }
}

}  // namespace velorum::ui
