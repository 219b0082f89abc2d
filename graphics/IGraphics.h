#pragma once
// The editor: its controls, its size in editor units, the scales that map
// units to window pixels, and the routing of the window's events to the
// controls. The platform windows (IGraphicsWin, IGraphicsX11) derive from it.
//
// Use from a plug-in editor:
//   auto g = IGraphics::Create(instance, 800, 500, 60);
//   g->AttachControl(std::make_unique<MyControl>(...));
//   void* child = g->OpenWindow(hostParent);   // effEditOpen
//   IRECT px = g->Rect();                       // effEditGetRect, pixels
//   g->CloseWindow();                           // effEditClose

#include <cairo.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "graphics/IControl.h"
#include "graphics/IGraphicsTypes.h"

class IGraphics {
 public:
  // The platform's editor: IGraphicsWin on Windows (instance is the module's
  // HINSTANCE, may be null), IGraphicsX11 elsewhere (instance unused).
  static std::unique_ptr<IGraphics> Create(void* instance, int width, int height, int fps = 60);

  IGraphics(int width, int height, int fps);
  virtual ~IGraphics();
  IGraphics(const IGraphics&) = delete;
  IGraphics& operator=(const IGraphics&) = delete;

  // Size in editor units, and in window pixels (units times the draw scale).
  int Width() const { return mWidth; }
  int Height() const { return mHeight; }
  int FPS() const { return mFPS; }
  int WindowWidth() const;
  int WindowHeight() const;
  // The window's rectangle in pixels, from (0, 0).
  IRECT Rect() const { return {0.f, 0.f, float(WindowWidth()), float(WindowHeight())}; }
  float ScreenScale() const { return mScreenScale; }
  float EditorScale() const { return mEditorScale; }
  float DrawScale() const { return mScreenScale * mEditorScale; }
  // A new editor scale: the window follows and every control is redrawn.
  void SetEditorScale(float scale);
  // A new size in editor units (the resize handles use this).
  void SetEditorSize(int width, int height);
  // Screen scale as the window found it (set by the platform on opening).
  void SetScreenScale(float scale);

  // Controls, drawn in the order attached; the last is on top.
  int AttachControl(std::unique_ptr<IControl> control);
  template <class T, class... Args>
  T* Attach(Args&&... args) {
    auto c = std::make_unique<T>(std::forward<Args>(args)...);
    T* raw = c.get();
    AttachControl(std::move(c));
    return raw;
  }
  IControl* GetControl(int index) const;
  int NControls() const { return static_cast<int>(mControls.size()); }
  void SetAllControlsDirty();
  // Held by the window while it handles events and draws (the X11 window
  // does both on a thread of its own); take it to touch controls elsewhere.
  std::recursive_mutex& GetLock() { return mLock; }

  // The window on the platform.
  virtual void* OpenWindow(void* parent) = 0;
  virtual void CloseWindow() = 0;
  virtual bool WindowIsOpen() const = 0;
  virtual void* GetWindow() const = 0;
  virtual void HideMouseCursor() = 0;
  virtual void ShowMouseCursor() = 0;
  virtual bool GetTextFromClipboard(std::string& text) = 0;
  virtual bool SetTextInClipboard(const std::string& text) = 0;
  // Resizes the window (pixels) and the host's windows around it.
  virtual void ResizeWindow(int width, int height) = 0;
  // Opens a box for typing a value over `r`; the text goes to the control's
  // OnTextEntryCompletion when the user presses Enter.
  virtual void CreateTextEntry(IControl* control, const IRECT& r, const std::string& text,
                               const std::string& font = "OpenSans-Regular", float size = 12.f);
  virtual bool IsTextEntryOpen() const { return mTextEntryOwner != nullptr; }

  // Thin calls to the platform's dialogs and shell. Paths are UTF-8; an
  // empty string means cancelled or unsupported. `fileName` is the name a save
  // dialog proposes. Dialogs don't ask about replacing an existing file: the
  // caller asks in its own words.
  virtual std::string PromptForFile(bool save, const std::string& extension, const std::string& directory,
                                    const std::string& fileName = {}) {
    (void)save;
    (void)extension;
    (void)directory;
    (void)fileName;
    return {};
  }
  virtual std::string PromptForFolder(const std::string& title) {
    (void)title;
    return {};
  }
  // Colours as 0xAARRGGBB; false when cancelled.
  virtual bool PromptForColor(unsigned& argb) {
    (void)argb;
    return false;
  }
  virtual bool OpenFolderWithItem(const std::string& path) {
    (void)path;
    return false;
  }
  virtual bool OpenURL(const std::string& url) {
    (void)url;
    return false;
  }

  // Settings that the plug-in sets before the window opens.
  void EnableTooltips(bool on) { mTooltipsEnabled = on; }
  bool TooltipsEnabled() const { return mTooltipsEnabled; }
  void EnableDragAndDrop(bool on) { mDragAndDrop = on; }
  bool DragAndDropEnabled() const { return mDragAndDrop; }

  // Events from the window, in editor units.
  void OnMouseDown(float x, float y, const IMouseMod& mod);
  void OnMouseUp(float x, float y, const IMouseMod& mod);
  void OnMouseDblClick(float x, float y, const IMouseMod& mod);
  void OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod);
  // Returns true when the control under the pointer changed.
  bool OnMouseOver(float x, float y, const IMouseMod& mod);
  void OnMouseOut();
  // The window lost the keyboard focus: every control hears of it.
  void OnFocusLost();
  void OnMouseWheel(float x, float y, const IMouseMod& mod, float d);
  // True when a control took the key.
  bool OnKeyDown(float x, float y, int key);
  // Text typed while a text entry is open; keys: Enter ends, Escape cancels.
  void OnTextEntryChar(const std::string& utf8);
  void OnTextEntryBackspace();
  void CloseTextEntry(bool commit);
  bool OnDrop(const std::vector<std::string>& paths, const std::vector<int>& isDirectory, float x, float y);
  int GetMouseOver() const { return mMouseOver; }
  std::string GetTooltipAt(int controlIndex) const;
  ICursor GetCursorAt(int controlIndex) const;
  // The control under a point, topmost first; -1 for none.
  int FindControl(float x, float y) const;

  // Painting: the union of dirty rectangles (false when nothing is dirty),
  // and drawing of a region into the back buffer.
  bool IsDirty(IRECT& r) const;
  void Draw(const IRECT& r);
  cairo_surface_t* BackBuffer() const { return mBackBuffer; }
  // Draws the region of every visible control into any context. The window
  // marks what it drew clean; exports leave the dirty flags alone.
  void DrawControls(tgraphics& g, const IRECT& r, bool markClean = true);

  // The whole editor drawn offscreen by the same controls: a PNG at a device
  // scale (pixels = units x scale), or an SVG or PDF page of Width() x
  // Height() points. False when the file cannot be written.
  bool ExportPng(const std::string& path, double scale);
  bool ExportSvg(const std::string& path);
  bool ExportPdf(const std::string& path);

 protected:
  // The back buffer of the window's pixel size; an image by default.
  virtual cairo_surface_t* CreateBackBuffer(int width, int height);
  void ReleaseBackBuffer();
  void NotifyWindowOpened();
  void DrawTextEntry(tgraphics& g);
  const IRECT& TextEntryRect() const { return mTextEntryRect; }

  float mScreenScale = 1.f;
  float mEditorScale = 1.f;
  int mWidth;
  int mHeight;
  int mFPS;
  bool mTooltipsEnabled = true;
  bool mDragAndDrop = false;

 private:
  std::recursive_mutex mLock;
  std::vector<std::unique_ptr<IControl>> mControls;
  int mMouseCapture = -1;
  int mMouseOver = -1;
  cairo_surface_t* mBackBuffer = nullptr;
  int mBackWidth = 0;
  int mBackHeight = 0;
  IControl* mTextEntryOwner = nullptr;
  IRECT mTextEntryRect;
  std::string mTextEntryText;
  std::string mTextEntryFont;
  float mTextEntrySize = 12.f;
};
