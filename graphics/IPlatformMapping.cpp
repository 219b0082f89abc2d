#include "graphics/IPlatformMapping.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "graphics/IGraphicsTypes.h"

namespace iplatform {

float ScreenScaleFromDpi(double dpiX, double dpiY) {
  const double dpi = std::max(dpiX, dpiY);
  if (!(dpi > 0.0)) return 1.0f;
  return static_cast<float>(std::clamp(dpi / 96.0, 1.0, 8.0));
}

static int KeyCodeFromChar(int c) {
  if (c == ' ') return KEY_SPACE;
  if (c >= '0' && c <= '9') return KEY_DIGIT_0 + (c - '0');
  if (c >= 'A' && c <= 'Z') return KEY_ALPHA_A + (c - 'A');
  if (c >= 'a' && c <= 'z') return KEY_ALPHA_A + (c - 'a');
  return KEY_NONE;
}

int KeyCodeFromVirtualKey(int vk) {
  switch (vk) {
    case 0x26:
      return KEY_UPARROW;  // VK_UP
    case 0x28:
      return KEY_DOWNARROW;  // VK_DOWN
    case 0x25:
      return KEY_LEFTARROW;  // VK_LEFT
    case 0x27:
      return KEY_RIGHTARROW;  // VK_RIGHT
    default:
      break;
  }
  // Letter keys arrive as upper-case virtual keys whatever the shift state;
  // 0x60..0x6F are the numeric keypad, not letters.
  if (vk == 0x20 || (vk >= '0' && vk <= '9') || (vk >= 'A' && vk <= 'Z')) return KeyCodeFromChar(vk);
  return KEY_NONE;
}

int KeyCodeFromKeySym(unsigned long keysym) {
  switch (keysym) {
    case 0xff52:
    case 0xff97:
      return KEY_UPARROW;  // XK_Up, XK_KP_Up
    case 0xff54:
    case 0xff99:
      return KEY_DOWNARROW;  // XK_Down, XK_KP_Down
    case 0xff51:
    case 0xff96:
      return KEY_LEFTARROW;  // XK_Left, XK_KP_Left
    case 0xff53:
    case 0xff98:
      return KEY_RIGHTARROW;  // XK_Right, XK_KP_Right
    default:
      break;
  }
  if (keysym < 0x80) return KeyCodeFromChar(static_cast<int>(keysym));
  return KEY_NONE;
}

double XftDpiFromResources(const char* resources) {
  if (!resources) return 0.0;
  const char* p = resources;
  while ((p = std::strstr(p, "Xft.dpi")) != nullptr) {
    const bool at_line_start = p == resources || p[-1] == '\n';
    p += 7;
    if (!at_line_start) continue;
    while (*p == ' ' || *p == '\t') ++p;
    if (*p != ':') continue;
    ++p;
    char* end = nullptr;
    const double v = std::strtod(p, &end);
    if (end != p && v > 0.0 && v < 100000.0) return v;
  }
  return 0.0;
}

}  // namespace iplatform
