#pragma once
// The control model: one rectangle of the editor that draws itself with the
// drawing layer and receives the mouse, wheel, key and drop events routed to
// it by IGraphics.

#include <atomic>
#include <string>
#include <vector>

#include "graphics/IGraphicsTypes.h"

class IGraphics;
class tgraphics;

class IControl {
 public:
  explicit IControl(const IRECT& bounds) : mRECT(bounds), mMouseRECT(bounds) {}
  virtual ~IControl() = default;
  IControl(const IControl&) = delete;
  IControl& operator=(const IControl&) = delete;

  // Drawing, in editor units. The context is only valid during the call.
  virtual void Draw(tgraphics& g) = 0;

  // Bounds: the drawing rectangle and the (usually equal) mouse rectangle.
  const IRECT& GetRECT() const { return mRECT; }
  const IRECT& GetMouseRECT() const { return mMouseRECT; }
  void SetRECT(const IRECT& r) {
    mRECT = r;
    SetDirty();
  }
  void SetMouseRECT(const IRECT& r) { mMouseRECT = r; }
  void SetBounds(const IRECT& r) {
    SetRECT(r);
    mMouseRECT = r;
  }
  virtual bool IsHit(float x, float y) const { return mMouseRECT.Contains(x, y); }

  // Dirty flags: a dirty control is drawn at the next timer tick.
  void SetDirty(bool dirty = true) { mDirty = dirty; }
  bool IsDirty() const { return mDirty; }
  void Hide(bool hide) {
    if (mHidden != hide) {
      mHidden = hide;
      mDirty = true;
    }
  }
  bool IsHidden() const { return mHidden; }
  // A control that ignores the mouse lets events through to those below.
  void SetIgnoreMouse(bool ignore) { mIgnoreMouse = ignore; }
  bool IgnoresMouse() const { return mIgnoreMouse || mHidden; }

  // Mouse, wheel and keys. Positions are editor units.
  virtual void OnMouseDown(float x, float y, const IMouseMod& mod) {
    (void)x;
    (void)y;
    (void)mod;
  }
  virtual void OnMouseUp(float x, float y, const IMouseMod& mod) {
    (void)x;
    (void)y;
    (void)mod;
  }
  virtual void OnMouseDblClick(float x, float y, const IMouseMod& mod) { OnMouseDown(x, y, mod); }
  virtual void OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) {
    (void)x;
    (void)y;
    (void)dX;
    (void)dY;
    (void)mod;
  }
  virtual void OnMouseOver(float x, float y, const IMouseMod& mod) {
    (void)x;
    (void)y;
    (void)mod;
  }
  virtual void OnMouseOut() {}
  virtual void OnMouseWheel(float x, float y, const IMouseMod& mod, float d) {
    (void)x;
    (void)y;
    (void)mod;
    (void)d;
  }
  // Returns true when the control takes the key; otherwise it goes to the host.
  virtual bool OnKeyDown(float x, float y, int key) {
    (void)x;
    (void)y;
    (void)key;
    return false;
  }
  // Files dropped on the control; isDirectory runs parallel to paths.
  virtual bool OnDrop(const std::vector<std::string>& paths, const std::vector<int>& isDirectory, float x,
                      float y) {
    (void)paths;
    (void)isDirectory;
    (void)x;
    (void)y;
    return false;
  }
  // Whether the control takes drops at all (drops go to the topmost that does).
  virtual bool AcceptsDrop() const { return false; }
  // The text typed into a text entry this control opened.
  virtual void OnTextEntryCompletion(const std::string& text) { (void)text; }
  // The window was opened; the control may query the platform now.
  virtual void OnWindowOpened() {}
  // The window lost the keyboard focus (another window was activated).
  virtual void OnFocusLost() {}

  // Tooltip text; empty for none.
  void SetTooltip(const std::string& text) { mTooltip = text; }
  const std::string& GetTooltip() const { return mTooltip; }
  // The cursor shown while the pointer is over the control.
  void SetCursor(ICursor c) { mCursor = c; }
  ICursor GetCursor() const { return mCursor; }

  IGraphics* GetGUI() const { return mGraphics; }
  void SetGUI(IGraphics* g) { mGraphics = g; }

 protected:
  IRECT mRECT;
  IRECT mMouseRECT;

 private:
  std::atomic<bool> mDirty{true};  // may be set from other threads
  bool mHidden = false;
  bool mIgnoreMouse = false;
  std::string mTooltip;
  ICursor mCursor = ICursor::Arrow;
  IGraphics* mGraphics = nullptr;
};
