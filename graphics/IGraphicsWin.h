#pragma once
// The editor window on Windows: one child window inside the host's parent
// window, redrawn from a 6 ms window timer, with the platform's mouse, wheel,
// keyboard, paint and drop messages turned into calls on IGraphics.

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// clang-format off
#include <windows.h>
#include <cairo.h>
// clang-format on

#include <string>

#include "graphics/IGraphics.h"

class IDropTargetH;

class IGraphicsWin : public IGraphics {
 public:
  // One entry of the process-wide font cache.
  struct Font {
    HFONT hfont = nullptr;
    cairo_font_face_t* face = nullptr;
    double scale = 1.0;
  };

  IGraphicsWin(HINSTANCE instance, int width, int height, int fps);
  ~IGraphicsWin() override;

  void* OpenWindow(void* parent) override;
  void CloseWindow() override;
  bool WindowIsOpen() const override { return mPlugWnd != nullptr; }
  void* GetWindow() const override { return mPlugWnd; }
  void HideMouseCursor() override;
  void ShowMouseCursor() override;
  bool GetTextFromClipboard(std::string& text) override;
  bool SetTextInClipboard(const std::string& text) override;
  void ResizeWindow(int width, int height) override;
  void CreateTextEntry(IControl* control, const IRECT& r, const std::string& text, const std::string& font,
                       float size) override;
  bool IsTextEntryOpen() const override { return mTextEntryWnd != nullptr; }
  bool TooltipShown() const { return mTooltipShown; }
  // The back buffer is a device-independent bitmap; a device-dependent one
  // (compatible with the window's device context) can be chosen instead.
  void UseDeviceDependentBitmap(bool on) { mUseDDB = on; }

  std::string PromptForFile(bool save, const std::string& extension, const std::string& directory,
                            const std::string& fileName = {}) override;
  std::string PromptForFolder(const std::string& title) override;
  bool PromptForColor(unsigned& argb) override;
  bool OpenFolderWithItem(const std::string& path) override;
  bool OpenURL(const std::string& url) override;

  // Registers an embedded TrueType font with the platform for this process.
  static bool LoadFontFromMemory(const std::string& name, const void* data, size_t size);
  // The font at a scale from the process-wide cache, made on a miss; null
  // when the platform cannot make it.
  static Font* GetCachedFont(const std::string& name, double scale);
  // The cache key: the name with "-%.1fx" of the scale appended.
  static std::string FontCacheKey(const std::string& name, double scale);
  // Editors open in this process (the window class is registered while > 0).
  static int OpenEditorCount();
  // The screen scale for a window: its monitor's DPI / 96, clamped to 1..8.
  static float ScreenScaleForWindow(HWND parent);

  static std::string Utf8FromWide(const wchar_t* text);
  static std::wstring WideFromUtf8(const std::string& text);

  LRESULT WndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);

 protected:
  cairo_surface_t* CreateBackBuffer(int width, int height) override;

 private:
  static LRESULT CALLBACK StaticWndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
  static LRESULT GuardedWndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
  static LRESULT CALLBACK EditProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
  IMouseMod Mods(WPARAM wParam) const;
  void ToUnits(LPARAM lParam, float& x, float& y) const;
  void OnTimer();
  void OnPaint();
  void ShowTooltip();
  void HideTooltip();
  void CloseEdit(bool commit);
  void ApplyCursor();

  HINSTANCE mHInstance;
  HWND mParentWnd = nullptr;
  HWND mPlugWnd = nullptr;
  HWND mTooltipWnd = nullptr;
  HWND mTextEntryWnd = nullptr;
  HFONT mTextEntryFont = nullptr;
  WNDPROC mDefEditProc = nullptr;
  IControl* mEditControl = nullptr;
  IDropTargetH* mDropTarget = nullptr;
  bool mCursorHidden = false;
  int mHiddenX = 0, mHiddenY = 0;
  bool mTooltipShown = false;
  bool mTooltipsActive = false;
  int mLastOver = -1;
  float mLastX = 0.f, mLastY = 0.f;
  RECT mLastRect{};  // position of the last window, for a reopened one
  bool mHadWindow = false;
  bool mUseDDB = false;
};
