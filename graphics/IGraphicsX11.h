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
  // A file dialog of the desktop: `zenity --file-selection`, or kdialog when
  // zenity is missing, run as a child process whose standard output is the
  // chosen path. "" on cancel, when neither program is installed, or when the
  // window closes while the dialog is up (the dialog is ended then).
  // Called on the window's own thread (from a click), the window stays modal
  // behind the dialog: it keeps drawing on its timer and answering the server
  // (exposes, clipboard, drops) but ignores presses, moves and keys. Other
  // threads that take GetLock() wait until the dialog is answered.
  std::string PromptForFile(bool save, const std::string& extension, const std::string& directory,
                            const std::string& fileName = {}) override;
  // Whether zenity or kdialog is on PATH (else the editor asks for a typed path).
  static bool FileDialogAvailable();
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
