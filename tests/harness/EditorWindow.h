// The plug-in's editor opened the way a Windows host opens it: a top-level
// host window of our own class, effEditOpen with its HWND, the window fitted
// to the size effEditGetRect reports, then a message loop that lets the editor's timer paint. Tests
// drive mouse and key messages into the editor's child window and capture
// what it drew. Windows builds only (under wine in the cross build).
#pragma once

#if defined(_WIN32)

#include <memory>
#include <string>
#include <vector>

#include "Screenshot.h"
#include "VstHost.h"

namespace velorum::harness {

class EditorWindow {
 public:
  // Opens the editor of `plugin` in a new host window; null with a reason when
  // the plug-in has no editor or no child window appeared.
  static std::unique_ptr<EditorWindow> Open(HostedPlugin& plugin, std::string* error = nullptr);
  ~EditorWindow();  // effEditClose, then the host window goes
  EditorWindow(const EditorWindow&) = delete;
  EditorWindow& operator=(const EditorWindow&) = delete;

  // The size effEditGetRect reports now (the editor may resize itself).
  int Width() const;
  int Height() const;
  void* HostHandle() const { return mTop; }
  void* EditorHandle() const { return mEditor; }

  // Dispatches the thread's messages and calls effEditIdle, for `milliseconds`.
  void Pump(int milliseconds);
  // A left click at a pixel of the editor's client area.
  void Click(int x, int y);
  // A key press and release (virtual-key code) sent to the editor.
  void Key(unsigned virtualKey);
  // Keys that arrived at the host window (the editor passes on what it does not use).
  const std::vector<unsigned>& HostKeys() const { return mHostKeys; }

  // The editor's client area as it is on screen.
  Screenshot Capture() const;
  // Pumps until the capture holds `colour` and at least `minColours` colours;
  // false after `timeoutMs`. The last capture is left in `shot`.
  bool WaitForPaint(uint32_t colour, size_t minColours, int timeoutMs, Screenshot* shot);

 private:
  explicit EditorWindow(HostedPlugin& plugin) : mPlugin(plugin) {}
  friend struct HostWindowClass;

  HostedPlugin& mPlugin;
  void* mTop = nullptr;
  void* mEditor = nullptr;
  bool mOpened = false;
  std::vector<unsigned> mHostKeys;
};

}  // namespace velorum::harness

#endif
