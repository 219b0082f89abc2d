#include "graphics/IGraphics.h"

#include <cmath>

#include "graphics/tgraphics.h"
#include "graphics/tgraphics_surface.h"

IGraphics::IGraphics(int width, int height, int fps)
    : mWidth(width > 0 ? width : 1), mHeight(height > 0 ? height : 1), mFPS(fps > 0 ? fps : 60) {}

IGraphics::~IGraphics() {
  ReleaseBackBuffer();
}

int IGraphics::WindowWidth() const {
  return static_cast<int>(std::lround(mWidth * double(DrawScale())));
}
int IGraphics::WindowHeight() const {
  return static_cast<int>(std::lround(mHeight * double(DrawScale())));
}

void IGraphics::SetScreenScale(float scale) {
  std::lock_guard<std::recursive_mutex> lock(mLock);
  mScreenScale = scale > 0.f && std::isfinite(scale) ? scale : 1.f;
  SetAllControlsDirty();
}

void IGraphics::SetEditorScale(float scale) {
  if (!(scale > 0.f) || !std::isfinite(scale)) return;
  std::lock_guard<std::recursive_mutex> lock(mLock);
  const int oldW = WindowWidth(), oldH = WindowHeight();
  mEditorScale = scale;
  if (WindowIsOpen() && (WindowWidth() != oldW || WindowHeight() != oldH))
    ResizeWindow(WindowWidth(), WindowHeight());
  SetAllControlsDirty();
}

void IGraphics::SetEditorSize(int width, int height) {
  if (width <= 0 || height <= 0) return;
  std::lock_guard<std::recursive_mutex> lock(mLock);
  const int oldW = WindowWidth(), oldH = WindowHeight();
  mWidth = width;
  mHeight = height;
  if (WindowIsOpen() && (WindowWidth() != oldW || WindowHeight() != oldH))
    ResizeWindow(WindowWidth(), WindowHeight());
  SetAllControlsDirty();
}

int IGraphics::AttachControl(std::unique_ptr<IControl> control) {
  if (!control) return -1;
  control->SetGUI(this);
  control->SetDirty();
  mControls.push_back(std::move(control));
  return NControls() - 1;
}

IControl* IGraphics::GetControl(int index) const {
  return index >= 0 && index < NControls() ? mControls[static_cast<size_t>(index)].get() : nullptr;
}

void IGraphics::SetAllControlsDirty() {
  for (auto& c : mControls) c->SetDirty();
}

void IGraphics::NotifyWindowOpened() {
  for (auto& c : mControls) c->OnWindowOpened();
  SetAllControlsDirty();
}

int IGraphics::FindControl(float x, float y) const {
  for (int i = NControls() - 1; i >= 0; --i) {
    const IControl* c = mControls[static_cast<size_t>(i)].get();
    if (!c->IgnoresMouse() && c->IsHit(x, y)) return i;
  }
  return -1;
}

void IGraphics::OnMouseDown(float x, float y, const IMouseMod& mod) {
  if (mTextEntryOwner) {
    if (!mTextEntryRect.Contains(x, y)) CloseTextEntry(true);
    return;
  }
  mMouseCapture = FindControl(x, y);
  if (IControl* c = GetControl(mMouseCapture)) c->OnMouseDown(x, y, mod);
}

void IGraphics::OnMouseUp(float x, float y, const IMouseMod& mod) {
  IControl* c = GetControl(mMouseCapture);
  mMouseCapture = -1;
  if (c) c->OnMouseUp(x, y, mod);
}

void IGraphics::OnMouseDblClick(float x, float y, const IMouseMod& mod) {
  if (mTextEntryOwner) return;
  mMouseCapture = FindControl(x, y);
  if (IControl* c = GetControl(mMouseCapture)) c->OnMouseDblClick(x, y, mod);
}

void IGraphics::OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) {
  if (IControl* c = GetControl(mMouseCapture)) c->OnMouseDrag(x, y, dX, dY, mod);
}

bool IGraphics::OnMouseOver(float x, float y, const IMouseMod& mod) {
  const int over = FindControl(x, y);
  const bool changed = over != mMouseOver;
  if (changed) {
    if (IControl* old = GetControl(mMouseOver)) old->OnMouseOut();
    mMouseOver = over;
  }
  if (IControl* c = GetControl(over)) c->OnMouseOver(x, y, mod);
  return changed;
}

void IGraphics::OnMouseOut() {
  if (IControl* c = GetControl(mMouseOver)) c->OnMouseOut();
  mMouseOver = -1;
}

void IGraphics::OnFocusLost() {
  for (auto& c : mControls) c->OnFocusLost();
}

void IGraphics::OnMouseWheel(float x, float y, const IMouseMod& mod, float d) {
  if (mTextEntryOwner) return;
  if (IControl* c = GetControl(FindControl(x, y))) c->OnMouseWheel(x, y, mod, d);
}

bool IGraphics::OnKeyDown(float x, float y, int key) {
  if (key == KEY_NONE) return false;
  // The control under the pointer first, then every other one from the top.
  const int over = FindControl(x, y);
  if (IControl* c = GetControl(over); c && c->OnKeyDown(x, y, key)) return true;
  for (int i = NControls() - 1; i >= 0; --i) {
    IControl* c = mControls[static_cast<size_t>(i)].get();
    if (i != over && !c->IsHidden() && c->OnKeyDown(x, y, key)) return true;
  }
  return false;
}

bool IGraphics::OnDrop(const std::vector<std::string>& paths, const std::vector<int>& isDirectory, float x,
                       float y) {
  if (paths.empty() || paths.size() != isDirectory.size()) return false;
  for (int i = NControls() - 1; i >= 0; --i) {
    IControl* c = mControls[static_cast<size_t>(i)].get();
    if (!c->IsHidden() && c->AcceptsDrop() && c->IsHit(x, y)) return c->OnDrop(paths, isDirectory, x, y);
  }
  for (int i = NControls() - 1; i >= 0; --i) {
    IControl* c = mControls[static_cast<size_t>(i)].get();
    if (!c->IsHidden() && c->AcceptsDrop()) return c->OnDrop(paths, isDirectory, x, y);
  }
  return false;
}

std::string IGraphics::GetTooltipAt(int controlIndex) const {
  const IControl* c = GetControl(controlIndex);
  return c ? c->GetTooltip() : std::string();
}

ICursor IGraphics::GetCursorAt(int controlIndex) const {
  const IControl* c = GetControl(controlIndex);
  return c ? c->GetCursor() : ICursor::Arrow;
}

void IGraphics::CreateTextEntry(IControl* control, const IRECT& r, const std::string& text,
                                const std::string& font, float size) {
  if (mTextEntryOwner) CloseTextEntry(false);
  mTextEntryOwner = control;
  mTextEntryRect = r;
  mTextEntryText = text;
  mTextEntryFont = font;
  mTextEntrySize = size;
  if (control) control->SetDirty();
}

void IGraphics::OnTextEntryChar(const std::string& utf8) {
  if (!mTextEntryOwner) return;
  mTextEntryText += utf8;
  mTextEntryOwner->SetDirty();
}

void IGraphics::OnTextEntryBackspace() {
  if (!mTextEntryOwner || mTextEntryText.empty()) return;
  // Drop one UTF-8 sequence.
  size_t n = mTextEntryText.size() - 1;
  while (n > 0 && (static_cast<unsigned char>(mTextEntryText[n]) & 0xC0) == 0x80) --n;
  mTextEntryText.erase(n);
  mTextEntryOwner->SetDirty();
}

void IGraphics::CloseTextEntry(bool commit) {
  IControl* owner = mTextEntryOwner;
  if (!owner) return;
  mTextEntryOwner = nullptr;
  const std::string text = mTextEntryText;
  mTextEntryText.clear();
  SetAllControlsDirty();
  if (commit) owner->OnTextEntryCompletion(text);
}

void IGraphics::DrawTextEntry(tgraphics& g) {
  if (!mTextEntryOwner) return;
  const IRECT& r = mTextEntryRect;
  g.save();
  g.new_path();
  g.rectangle(r.L, r.T, r.W(), r.H());
  g.set_color(1, 1, 1, 1);
  g.fill_preserve();
  g.set_line_style(1.0);
  g.set_color(0.2, 0.4, 0.8, 1);
  g.stroke();
  g.draw_text(mTextEntryText + "|", {double(r.L) + 3.0, double(r.T), double(r.W()) - 6.0, double(r.H())},
              mTextEntryFont, mTextEntrySize, {0, 0, 0, 1});
  g.restore();
}

bool IGraphics::IsDirty(IRECT& r) const {
  IRECT u;
  for (const auto& c : mControls)
    if (c->IsDirty()) u = u.Union(c->GetRECT());
  r = u.Intersect(IRECT(0.f, 0.f, float(mWidth), float(mHeight)));
  return !r.Empty();
}

cairo_surface_t* IGraphics::CreateBackBuffer(int width, int height) {
  return cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
}

void IGraphics::ReleaseBackBuffer() {
  if (mBackBuffer) cairo_surface_destroy(mBackBuffer);
  mBackBuffer = nullptr;
  mBackWidth = mBackHeight = 0;
}

void IGraphics::DrawControls(tgraphics& g, const IRECT& r, bool markClean) {
  g.save();
  g.clip_rect(r.L, r.T, r.W(), r.H());
  for (auto& c : mControls) {
    if (!c->IsHidden() && c->GetRECT().Intersects(r)) {
      g.save();
      g.new_path();
      c->Draw(g);
      g.restore();
      if (markClean) c->SetDirty(false);
    } else if (markClean && c->IsHidden() && c->GetRECT().Intersects(r)) {
      c->SetDirty(false);
    }
  }
  DrawTextEntry(g);
  g.restore();
}

void IGraphics::Draw(const IRECT& r) {
  const int w = WindowWidth(), h = WindowHeight();
  if (!mBackBuffer || mBackWidth != w || mBackHeight != h) {
    ReleaseBackBuffer();
    mBackBuffer = CreateBackBuffer(w, h);
    if (cairo_surface_status(mBackBuffer) != CAIRO_STATUS_SUCCESS) {
      ReleaseBackBuffer();
      return;
    }
    mBackWidth = w;
    mBackHeight = h;
  }
  tgraphics g(mBackBuffer, mWidth, mHeight, DrawScale());
  DrawControls(g, r.Outset());
  cairo_surface_flush(mBackBuffer);
}

bool IGraphics::ExportPng(const std::string& path, double scale) {
  std::lock_guard<std::recursive_mutex> lock(mLock);
  cairo_surface_t* s = tg_create_image_surface(mWidth, mHeight, scale);
  bool ok = cairo_surface_status(s) == CAIRO_STATUS_SUCCESS;
  if (ok) {
    {
      tgraphics g(s, mWidth, mHeight, scale);
      DrawControls(g, IRECT(0.f, 0.f, float(mWidth), float(mHeight)), false);
    }
    ok = tg_write_png(s, path);
  }
  cairo_surface_destroy(s);
  return ok;
}

static bool ExportVector(IGraphics& ui, cairo_surface_t* s) {
  bool ok = cairo_surface_status(s) == CAIRO_STATUS_SUCCESS;
  if (ok) {
    tgraphics g(s, ui.Width(), ui.Height(), 1.0);
    ui.DrawControls(g, IRECT(0.f, 0.f, float(ui.Width()), float(ui.Height())), false);
  }
  cairo_surface_finish(s);
  ok = ok && cairo_surface_status(s) == CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(s);
  return ok;
}

bool IGraphics::ExportSvg(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(mLock);
  return ExportVector(*this, tg_create_svg_surface(path, mWidth, mHeight));
}

bool IGraphics::ExportPdf(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(mLock);
  return ExportVector(*this, tg_create_pdf_surface(path, mWidth, mHeight));
}
