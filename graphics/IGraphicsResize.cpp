#include "graphics/IGraphicsResize.h"

#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>

#include "graphics/IGraphics.h"
#include "graphics/tgraphics.h"

const IGuiScaleItem kGuiScaleItems[13] = {
    {"50%", 0, 0.50f},  {"65%", 11, 0.65f}, {"75%", 1, 0.75f},   {"85%", 12, 0.85f}, {"100%", 2, 1.00f},
    {"125%", 3, 1.25f}, {"150%", 4, 1.50f}, {"175%", 5, 1.75f},  {"200%", 6, 2.00f}, {"250%", 7, 2.50f},
    {"300%", 8, 3.00f}, {"350%", 9, 3.50f}, {"400%", 10, 4.00f},
};

const char* const kGraphsRefreshRateItems[7] = {"EXTREMELY LOW", "VERY LOW",  "LOW", "NORMAL",
                                                "HIGH",          "VERY HIGH", "MAX"};

int GraphsTicksPerFrame(int index) {
  static const int ticks[7] = {32, 16, 8, 5, 3, 2, 1};
  return index >= 0 && index < 7 ? ticks[index] : ticks[3];
}

float GuiScaleForIndex(int index) {
  for (const auto& item : kGuiScaleItems)
    if (item.index == index) return item.scale;
  return 1.f;
}

int GuiScaleIndexFor(float scale) {
  for (const auto& item : kGuiScaleItems)
    if (std::fabs(item.scale - scale) < 1e-4f) return item.index;
  return -1;
}

namespace {
constexpr float kMinScale = 0.25f;
constexpr float kMaxScale = 8.f;

std::string trim(const std::string& s) {
  const auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return {};
  const auto e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}
}  // namespace

// ---------------------------------------------------------------- the file

bool IGraphicsResize::ReadScaleFile(const std::string& path, float& scale) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::string line, section;
  while (std::getline(in, line)) {
    line = trim(line);
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = trim(line.substr(1, line.size() - 2));
      continue;
    }
    const auto eq = line.find('=');
    if (section != "gui" || eq == std::string::npos || trim(line.substr(0, eq)) != "GUI Scale") continue;
    const std::string value = trim(line.substr(eq + 1));
    float v = 0.f;
    const auto res = std::from_chars(value.data(), value.data() + value.size(), v);
    if (res.ec != std::errc() || !std::isfinite(v) || v < kMinScale || v > kMaxScale) return false;
    scale = v;
    return true;
  }
  return false;
}

bool IGraphicsResize::WriteScaleFile(const std::string& path, float scale) {
  char buf[32];
  const auto res = std::to_chars(buf, buf + sizeof(buf), scale, std::chars_format::fixed, 6);
  if (res.ec != std::errc()) return false;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return false;
  out << "[gui]\nGUI Scale=" << std::string(buf, res.ptr) << "\n";
  return static_cast<bool>(out.flush());
}

// ------------------------------------------------------------------ handles

VerticalResizing::VerticalResizing(IGraphicsResize* owner, const IRECT& r) : IControl(r), mOwner(owner) {
  SetCursor(ICursor::SizeNS);
  SetTooltip(kResizeTooltip);
}

void VerticalResizing::Draw(tgraphics& g) {
  (void)g;
}

void VerticalResizing::OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) {
  (void)x;
  (void)y;
  (void)dX;
  (void)mod;
  if (IGraphics* ui = GetGUI()) mOwner->ResizeEditor(float(ui->Width()), float(ui->Height()) + dY);
}

HorisontalResizing::HorisontalResizing(IGraphicsResize* owner, const IRECT& r) : IControl(r), mOwner(owner) {
  SetCursor(ICursor::SizeWE);
  SetTooltip(kResizeTooltip);
}

void HorisontalResizing::Draw(tgraphics& g) {
  (void)g;
}

void HorisontalResizing::OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) {
  (void)x;
  (void)y;
  (void)dY;
  (void)mod;
  if (IGraphics* ui = GetGUI()) mOwner->ResizeEditor(float(ui->Width()) + dX, float(ui->Height()));
}

// ------------------------------------------------------------ the corner

static IRECT CornerRect(const IGraphics* g) {
  const float s = IGraphicsResize::kHandleSize * 2.f;
  return {float(g->Width()) - s, float(g->Height()) - s, float(g->Width()), float(g->Height())};
}

IGraphicsResize::IGraphicsResize(IGraphics* graphics, const std::string& settingsFolder)
    : IControl(CornerRect(graphics)), mGraphics(graphics), mPath(settingsFolder + "/GuiScale.ini") {
  SetCursor(ICursor::SizeNWSE);
  SetTooltip(kScaleTooltip);
  mBaseW = graphics->Width();
  mBaseH = graphics->Height();
  float stored = 1.f;
  if (ReadScaleFile(mPath, stored)) mScale = stored;
  mStoredScale = mScale;
  mGraphics->SetEditorScale(mScale);
  UpdateWindowSize();
}

void IGraphicsResize::UpdateWindowSize() {
  mWindowW = mGraphics->WindowWidth();
  mWindowH = mGraphics->WindowHeight();
}

void IGraphicsResize::SetGUIScale(float scale) {
  if (!std::isfinite(scale)) return;
  if (scale < kMinScale) scale = kMinScale;
  if (scale > kMaxScale) scale = kMaxScale;
  if (std::fabs(double(scale) - double(mStoredScale)) > 1e-7) {
    // An unwritable file still lets the new scale apply for this session.
    WriteScaleFile(mPath, scale);
    mStoredScale = scale;
  }
  mScale = scale;
  mGraphics->SetEditorScale(scale);  // resizes the window when its size changes
  UpdateWindowSize();
  Relayout();
  mGraphics->SetAllControlsDirty();
}

void IGraphicsResize::AttachHandles() {
  const float w = float(mGraphics->Width()), h = float(mGraphics->Height());
  mVertical = mGraphics->Attach<VerticalResizing>(this, IRECT(0.f, h - kHandleSize, w, h));
  mHorisontal = mGraphics->Attach<HorisontalResizing>(this, IRECT(w - kHandleSize, 0.f, w, h));
  SetResizeMode(mResizeEnabled, mDirection);
  mLayout.clear();
  for (int i = 0; i < mGraphics->NControls(); ++i) {
    IControl* c = mGraphics->GetControl(i);
    if (c != this) mLayout.push_back({c, c->GetRECT(), c->GetMouseRECT()});
  }
  mLayout.push_back({this, GetRECT(), GetMouseRECT()});
}

void IGraphicsResize::SetResizeMode(bool enabled, int direction) {
  mResizeEnabled = enabled;
  mDirection = direction ? 1 : 0;
  if (mVertical) mVertical->Hide(!enabled || mDirection != 0);
  if (mHorisontal) mHorisontal->Hide(!enabled || mDirection != 1);
}

void IGraphicsResize::Relayout() {
  // Controls are laid out in editor units, which a change of scale leaves
  // as they were at scale 1; put every recorded rectangle back.
  for (auto& e : mLayout) {
    e.control->SetRECT(e.rect);
    e.control->SetMouseRECT(e.mouseRect);
  }
}

void IGraphicsResize::ResizeEditor(float width, float height) {
  const int w = std::max(64, static_cast<int>(std::lround(width)));
  const int h = std::max(64, static_cast<int>(std::lround(height)));
  if (w == mGraphics->Width() && h == mGraphics->Height()) return;
  mGraphics->SetEditorSize(w, h);
  const float fw = float(w), fh = float(h);
  for (auto& e : mLayout) {
    if (e.control == mVertical) e.rect = e.mouseRect = IRECT(0.f, fh - kHandleSize, fw, fh);
    if (e.control == mHorisontal) e.rect = e.mouseRect = IRECT(fw - kHandleSize, 0.f, fw, fh);
    if (e.control == this) e.rect = e.mouseRect = CornerRect(mGraphics);
  }
  Relayout();
  UpdateWindowSize();
}

void IGraphicsResize::Draw(tgraphics& g) {
  // Three short diagonal grips in the corner.
  const IRECT& r = GetRECT();
  g.set_line_style(1.0, CAIRO_LINE_CAP_ROUND);
  g.set_color(0.5, 0.5, 0.5, 0.8);
  for (int i = 1; i <= 3; ++i) {
    const double d = double(r.W()) * i / 4.0, R = r.R, B = r.B;
    g.move_to(R - d, B - 1.0);
    g.line_to(R - 1.0, B - d);
  }
  g.stroke();
}

void IGraphicsResize::OnMouseDown(float x, float y, const IMouseMod& mod) {
  (void)x;
  (void)y;
  (void)mod;
  mDragW = float(mGraphics->Width());
  mDragH = float(mGraphics->Height());
}

void IGraphicsResize::OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) {
  (void)x;
  (void)y;
  if (mod.C) {
    // Smooth scaling: the diagonal movement against the editor's diagonal.
    const float base = std::hypot(float(mGraphics->Width()), float(mGraphics->Height()));
    const float grow = (dX + dY) / std::max(1.f, base);
    SetGUIScale(mScale * (1.f + grow));
    return;
  }
  if (!mResizeEnabled) return;
  mDragW += dX;
  mDragH += dY;
  ResizeEditor(mDragW, mDragH);
}
