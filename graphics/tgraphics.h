#pragma once
// The drawing context every control of the editor draws with: one cairo
// context on one target surface. Coordinates are editor units; the surface's
// device scale maps them to pixels, so no control multiplies by a scale.

#include <cairo.h>

#include <string>
#include <vector>

#include "graphics/tg_array_path.h"

struct tg_color {
  double r = 0.0, g = 0.0, b = 0.0, a = 1.0;
  // Controls keep colours as four 8-bit components, alpha first.
  static tg_color from_argb(unsigned char a, unsigned char r, unsigned char g, unsigned char b) {
    return {r / 255.0, g / 255.0, b / 255.0, a / 255.0};
  }
};

struct tg_color_stop {
  double offset = 0.0;
  tg_color color;
};

enum class tg_align { left, center, right };
enum class tg_valign { top, middle, bottom };

struct tg_rect {
  double x = 0.0, y = 0.0, w = 0.0, h = 0.0;
};

struct tg_text_extents {
  double width = 0.0, height = 0.0, x_bearing = 0.0, y_bearing = 0.0, x_advance = 0.0;
};

struct tg_font_extents {
  double ascent = 0.0, descent = 0.0, height = 0.0;
};

class tgraphics {
 public:
  // Wraps a context on `surface` (a reference is taken). Width and height
  // are the target's size in editor units; the scale is set on the surface.
  tgraphics(cairo_surface_t* surface, double width, double height, double device_scale);
  ~tgraphics();
  tgraphics(const tgraphics&) = delete;
  tgraphics& operator=(const tgraphics&) = delete;

  cairo_t* context() const { return cr_; }
  cairo_surface_t* surface() const { return surface_; }
  double width() const { return width_; }
  double height() const { return height_; }
  double device_scale() const { return scale_; }
  bool ok() const;

  // state
  void save();
  void restore();
  void translate(double dx, double dy);
  void scale(double sx, double sy);
  void rotate(double radians);
  void set_matrix(const cairo_matrix_t& m);
  void clip_rect(double x, double y, double w, double h);
  void reset_clip();
  void set_operator(cairo_operator_t op);
  void set_antialias(cairo_antialias_t aa);
  void set_fill_rule(cairo_fill_rule_t rule);

  // line style, all five together before a stroke
  void set_line_style(double width, cairo_line_cap_t cap = CAIRO_LINE_CAP_BUTT,
                      cairo_line_join_t join = CAIRO_LINE_JOIN_MITER, double miter_limit = 10.0);
  void set_line_width(double width);

  // path
  void new_path();
  void new_sub_path();
  void move_to(double x, double y);
  void line_to(double x, double y);
  void curve_to(double x1, double y1, double x2, double y2, double x3, double y3);
  void close_path();
  void rectangle(double x, double y, double w, double h);
  void arc(double cx, double cy, double r, double a0, double a1);
  void arc_negative(double cx, double cy, double r, double a0, double a1);
  void rounded_rectangle(double x, double y, double w, double h, double radius);
  void array_path(const tg_array_path& path);

  // painting
  void stroke();
  void stroke_preserve();
  void fill();
  void fill_preserve();
  void paint();
  void paint_with_alpha(double alpha);

  // sources
  void set_color(const tg_color& c);
  void set_color(double r, double g, double b, double a = 1.0);
  void set_linear_gradient(double x0, double y0, double x1, double y1,
                           const std::vector<tg_color_stop>& stops);
  void set_radial_gradient(double cx0, double cy0, double r0, double cx1, double cy1, double r1,
                           const std::vector<tg_color_stop>& stops);
  // An image pattern placed at (x, y) in editor units, extended by its edge pixels.
  void set_image(cairo_surface_t* image, double x, double y, cairo_filter_t filter = CAIRO_FILTER_GOOD);

  // groups
  void push_group();
  void pop_group_to_source();

  // text
  void set_font(const std::string& face_name, double size);
  const std::string& font_name() const { return font_name_; }
  double font_size() const { return font_size_; }
  tg_text_extents text_extents(const std::string& utf8);
  tg_font_extents font_extents();
  // Measures the string, places it in the rectangle by the alignment and shows
  // it in the given font, size (editor units) and colour.
  void draw_text(const std::string& utf8, const tg_rect& rect, const std::string& face_name, double size,
                 const tg_color& color, tg_align align = tg_align::left,
                 tg_valign valign = tg_valign::middle);
  // Image mode renders each string into an image of its own and paints that
  // with the current source; direct mode shows the glyphs on the target.
  void set_text_image_mode(bool on) { text_image_mode_ = on; }
  bool text_image_mode() const { return text_image_mode_; }

  // Draws another surface at (x, y) in editor units.
  void draw_surface(cairo_surface_t* source, double x, double y, double alpha = 1.0);

 private:
  void show_text_direct(const std::string& utf8, double x, double y);
  void show_text_image(const std::string& utf8, double x, double y);

  cairo_surface_t* surface_ = nullptr;
  cairo_t* cr_ = nullptr;
  double width_ = 0.0;
  double height_ = 0.0;
  double scale_ = 1.0;
  std::string font_name_;
  double font_size_ = 12.0;
  bool text_image_mode_ = false;
};
