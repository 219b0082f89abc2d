#pragma once
// Pure mappings shared by the Windows and X11 windows, so that both behave
// alike and can be checked without a display.

#include <string>

namespace iplatform {

// The screen scale from a monitor's DPI: max(x, y) / 96 clamped to 1..8.
float ScreenScaleFromDpi(double dpiX, double dpiY);

// A Windows virtual-key code to a key code (KEY_NONE when it has none).
int KeyCodeFromVirtualKey(int vk);

// An X11 keysym to a key code (KEY_NONE when it has none).
int KeyCodeFromKeySym(unsigned long keysym);

// The "Xft.dpi" value of an X resource string; 0 when absent or unreadable.
double XftDpiFromResources(const char* resources);

}  // namespace iplatform
