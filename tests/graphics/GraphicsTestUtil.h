#pragma once
// Pixel helpers for the offscreen drawing tests.

#include <cairo.h>

#include <algorithm>
#include <cstdint>
#include <string>

struct InkBox {
  int left = 1 << 30, top = 1 << 30, right = -1, bottom = -1;  // inclusive
  long count = 0;
  bool empty() const { return count == 0; }
  int width() const { return empty() ? 0 : right - left + 1; }
  int height() const { return empty() ? 0 : bottom - top + 1; }
};

inline uint32_t PixelAt(cairo_surface_t* s, int x, int y) {
  cairo_surface_flush(s);
  const unsigned char* data = cairo_image_surface_get_data(s);
  const int stride = cairo_image_surface_get_stride(s);
  return reinterpret_cast<const uint32_t*>(data + y * stride)[x];
}

// Channels of a premultiplied ARGB32 pixel.
inline int Alpha(uint32_t p) {
  return int(p >> 24);
}
inline int Red(uint32_t p) {
  return int((p >> 16) & 0xff);
}
inline int Green(uint32_t p) {
  return int((p >> 8) & 0xff);
}
inline int Blue(uint32_t p) {
  return int(p & 0xff);
}

// The box of pixels that differ from `background`.
inline InkBox FindInk(cairo_surface_t* s, uint32_t background) {
  InkBox b;
  const int w = cairo_image_surface_get_width(s), h = cairo_image_surface_get_height(s);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      if (PixelAt(s, x, y) != background) {
        b.left = std::min(b.left, x);
        b.right = std::max(b.right, x);
        b.top = std::min(b.top, y);
        b.bottom = std::max(b.bottom, y);
        ++b.count;
      }
  return b;
}

inline std::string OutputPath(const std::string& name) {
  return std::string(VELORUM_BINARY_DIR) + "/" + name;
}
