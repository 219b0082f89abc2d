#pragma once
// The editor window on X11: a child of the window the host passes in, with a
// Display connection and a thread of its own that handles the window's events
// and redraws dirty controls on a 6 ms timer, whether or not the host calls
// its idle hook.

#include <memory>
#include <string>

#include "graphics/IGraphics.h"

class IGraphicsX11 : public IGraphics {
public:
  IGraphicsX11(int width, int height, int fps);
  ~IGraphicsX11() override;

  // `parent` is the X window id the host gave (cast to a pointer). Returns the
  // child window's id the same way, or null.
  void* OpenWindow(void* parent) override;
  void CloseWindow() override;
  bool WindowIsOpen() const override;
  void* GetWindow() const override;
  void HideMouseCursor() override;
  void ShowMouseCursor() override;
  bool GetTextFromClipboard(std::string& text) override;
  bool SetTextInClipboard(const std::string& text) override;
  void ResizeWindow(int width, int height) override;
  // Through xdg-open.
  bool OpenFolderWithItem(const std::string& path) override;
  bool OpenURL(const std::string& url) override;
  // Whether a tooltip window is on screen now.
  bool TooltipShown() const;

  // Timer ticks so far (the redraw loop runs at 1000 / 160 ms).
  long TimerTicks() const;

  struct Impl;

private:
  std::unique_ptr<Impl> mImpl;
};
