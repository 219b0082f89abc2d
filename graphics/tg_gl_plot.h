#pragma once
// The accelerated path of the graphs: an offscreen OpenGL 3.2 core-profile
// context that draws data series and bars into a multisampled framebuffer and
// hands the pixels back as a cairo image, which the controls then paint with
// tgraphics like any other image. The series live in GPU buffers that grow
// by appending, so a graph uploads only what is new since its last frame.
//
// Everything may fail (no display, no GL 3.2, a driver error mid-session):
// create() then returns null, end() returns null, and the caller draws the
// same frame with cairo. Each frame makes the context current on the calling
// thread and releases it again, so a plot may be drawn from any one thread
// at a time and destroyed from any thread.

#include <cairo.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "graphics/tgraphics.h"

// Where series data lands: data x from x0 to x1 and data y from y0 (bottom)
// to y1 (top) span the frame.
struct tg_gl_view {
  double x0 = 0.0, x1 = 1.0, y0 = 0.0, y1 = 1.0;
};

// A value below this marks a gap in a series (nothing is drawn to or from it).
inline constexpr float tg_gl_gap = -1e30f;

class tg_gl_plot {
 public:
  // Failures that tests can force: at start, or at the next frame (as a
  // driver that goes away mid-session would).
  enum class failure { none, start, frame };
  static void force_failure(failure f);

  // A context, or null with the reason in `why`.
  static std::unique_ptr<tg_gl_plot> create(std::string& why);
  virtual ~tg_gl_plot() = default;

  // Series of values at x = base + index * step; `series` counts from 0.
  virtual void append(int series, const float* values, size_t count) = 0;
  virtual void clear(int series) = 0;
  virtual size_t size(int series) const = 0;

  // One frame of w x h pixels, transparent; false when GL failed.
  virtual bool begin(int width, int height) = 0;
  // A line through values [first, first + count) of a series, `width` pixels wide.
  virtual void line(int series, size_t first, size_t count, double base, double step, const tg_gl_view& view,
                    const tg_color& color, double width) = 0;
  // The area between the series and the data value `floor`.
  virtual void area(int series, size_t first, size_t count, double base, double step, const tg_gl_view& view,
                    double floor, const tg_color& color) = 0;
  // Rectangles in pixels from the frame's top-left corner: x, y, w, h each.
  virtual void rects(const std::vector<float>& xywh, const tg_color& color) = 0;
  // The frame as an ARGB32 image surface (the caller destroys it), or null.
  virtual cairo_surface_t* end() = 0;
  // What the driver calls itself ("llvmpipe ...", "Mesa Intel ...").
  virtual std::string renderer() const = 0;
};
