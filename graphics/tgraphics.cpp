#include "graphics/tgraphics.h"

#include <cmath>
#include <numbers>

#include "graphics/tgraphics_text.h"

tgraphics::tgraphics(cairo_surface_t* surface, double width, double height, double device_scale)
    : surface_(cairo_surface_reference(surface)), width_(width), height_(height), scale_(device_scale) {
  if (scale_ <= 0.0 || !std::isfinite(scale_)) scale_ = 1.0;
  cairo_surface_set_device_scale(surface_, scale_, scale_);
  cr_ = cairo_create(surface_);
  cairo_set_font_size(cr_, font_size_);
}

tgraphics::~tgraphics() {
  cairo_destroy(cr_);
  cairo_surface_destroy(surface_);
}

bool tgraphics::ok() const {
  return cairo_status(cr_) == CAIRO_STATUS_SUCCESS && cairo_surface_status(surface_) == CAIRO_STATUS_SUCCESS;
}

void tgraphics::save() {
  cairo_save(cr_);
}
void tgraphics::restore() {
  cairo_restore(cr_);
}
void tgraphics::translate(double dx, double dy) {
  cairo_translate(cr_, dx, dy);
}
void tgraphics::scale(double sx, double sy) {
  cairo_scale(cr_, sx, sy);
}
void tgraphics::rotate(double radians) {
  cairo_rotate(cr_, radians);
}
void tgraphics::set_matrix(const cairo_matrix_t& m) {
  cairo_set_matrix(cr_, &m);
}
void tgraphics::clip_rect(double x, double y, double w, double h) {
  cairo_new_path(cr_);
  cairo_rectangle(cr_, x, y, w, h);
  cairo_clip(cr_);
}
void tgraphics::reset_clip() {
  cairo_reset_clip(cr_);
}
void tgraphics::set_operator(cairo_operator_t op) {
  cairo_set_operator(cr_, op);
}
void tgraphics::set_antialias(cairo_antialias_t aa) {
  cairo_set_antialias(cr_, aa);
}
void tgraphics::set_fill_rule(cairo_fill_rule_t rule) {
  cairo_set_fill_rule(cr_, rule);
}

void tgraphics::set_line_style(double width, cairo_line_cap_t cap, cairo_line_join_t join,
                               double miter_limit) {
  cairo_set_line_width(cr_, width);
  cairo_set_line_cap(cr_, cap);
  cairo_set_line_join(cr_, join);
  cairo_set_miter_limit(cr_, miter_limit);
  cairo_set_dash(cr_, nullptr, 0, 0.0);
}
void tgraphics::set_line_width(double width) {
  cairo_set_line_width(cr_, width);
}

void tgraphics::new_path() {
  cairo_new_path(cr_);
}
void tgraphics::new_sub_path() {
  cairo_new_sub_path(cr_);
}
void tgraphics::move_to(double x, double y) {
  cairo_move_to(cr_, x, y);
}
void tgraphics::line_to(double x, double y) {
  cairo_line_to(cr_, x, y);
}
void tgraphics::curve_to(double x1, double y1, double x2, double y2, double x3, double y3) {
  cairo_curve_to(cr_, x1, y1, x2, y2, x3, y3);
}
void tgraphics::close_path() {
  cairo_close_path(cr_);
}
void tgraphics::rectangle(double x, double y, double w, double h) {
  cairo_rectangle(cr_, x, y, w, h);
}
void tgraphics::arc(double cx, double cy, double r, double a0, double a1) {
  cairo_arc(cr_, cx, cy, r, a0, a1);
}
void tgraphics::arc_negative(double cx, double cy, double r, double a0, double a1) {
  cairo_arc_negative(cr_, cx, cy, r, a0, a1);
}

void tgraphics::rounded_rectangle(double x, double y, double w, double h, double radius) {
  const double r = std::fmax(0.0, std::fmin(radius, std::fmin(w, h) / 2.0));
  constexpr double q = std::numbers::pi / 2.0;
  cairo_new_sub_path(cr_);
  cairo_arc(cr_, x + w - r, y + r, r, -q, 0.0);
  cairo_arc(cr_, x + w - r, y + h - r, r, 0.0, q);
  cairo_arc(cr_, x + r, y + h - r, r, q, 2.0 * q);
  cairo_arc(cr_, x + r, y + r, r, 2.0 * q, 3.0 * q);
  cairo_close_path(cr_);
}

void tgraphics::array_path(const tg_array_path& path) {
  const auto& pts = path.points();
  if (pts.empty()) return;
  cairo_move_to(cr_, pts[0].x, pts[0].y);
  for (std::size_t i = 1; i < pts.size(); ++i) cairo_line_to(cr_, pts[i].x, pts[i].y);
  if (path.closed()) cairo_close_path(cr_);
}

void tgraphics::stroke() {
  cairo_stroke(cr_);
}
void tgraphics::stroke_preserve() {
  cairo_stroke_preserve(cr_);
}
void tgraphics::fill() {
  cairo_fill(cr_);
}
void tgraphics::fill_preserve() {
  cairo_fill_preserve(cr_);
}
void tgraphics::paint() {
  cairo_paint(cr_);
}
void tgraphics::paint_with_alpha(double alpha) {
  cairo_paint_with_alpha(cr_, alpha);
}

void tgraphics::set_color(const tg_color& c) {
  cairo_set_source_rgba(cr_, c.r, c.g, c.b, c.a);
}
void tgraphics::set_color(double r, double g, double b, double a) {
  cairo_set_source_rgba(cr_, r, g, b, a);
}

static void add_stops(cairo_pattern_t* p, const std::vector<tg_color_stop>& stops) {
  for (const auto& s : stops)
    cairo_pattern_add_color_stop_rgba(p, s.offset, s.color.r, s.color.g, s.color.b, s.color.a);
}

void tgraphics::set_linear_gradient(double x0, double y0, double x1, double y1,
                                    const std::vector<tg_color_stop>& stops) {
  cairo_pattern_t* p = cairo_pattern_create_linear(x0, y0, x1, y1);
  add_stops(p, stops);
  cairo_set_source(cr_, p);
  cairo_pattern_destroy(p);
}

void tgraphics::set_radial_gradient(double cx0, double cy0, double r0, double cx1, double cy1, double r1,
                                    const std::vector<tg_color_stop>& stops) {
  cairo_pattern_t* p = cairo_pattern_create_radial(cx0, cy0, r0, cx1, cy1, r1);
  add_stops(p, stops);
  cairo_set_source(cr_, p);
  cairo_pattern_destroy(p);
}

void tgraphics::set_image(cairo_surface_t* image, double x, double y, cairo_filter_t filter) {
  cairo_pattern_t* p = cairo_pattern_create_for_surface(image);
  cairo_matrix_t m;
  cairo_matrix_init_translate(&m, -x, -y);
  cairo_pattern_set_matrix(p, &m);
  cairo_pattern_set_filter(p, filter);
  cairo_pattern_set_extend(p, CAIRO_EXTEND_PAD);
  cairo_set_source(cr_, p);
  cairo_pattern_destroy(p);
}

void tgraphics::push_group() {
  cairo_push_group(cr_);
}
void tgraphics::pop_group_to_source() {
  cairo_pop_group_to_source(cr_);
}

void tgraphics::set_font(const std::string& face_name, double size) {
  font_name_ = face_name;
  font_size_ = size;
  cairo_font_face_t* face = tgraphics_text::face(face_name);
  if (face)
    cairo_set_font_face(cr_, face);
  else
    cairo_select_font_face(cr_, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr_, size);
}

tg_text_extents tgraphics::text_extents(const std::string& utf8) {
  cairo_text_extents_t e;
  cairo_text_extents(cr_, utf8.c_str(), &e);
  return {e.width, e.height, e.x_bearing, e.y_bearing, e.x_advance};
}

tg_font_extents tgraphics::font_extents() {
  cairo_font_extents_t e;
  cairo_font_extents(cr_, &e);
  return {e.ascent, e.descent, e.height};
}

void tgraphics::draw_text(const std::string& utf8, const tg_rect& rect, const std::string& face_name,
                          double size, const tg_color& color, tg_align align, tg_valign valign) {
  if (utf8.empty()) return;
  set_font(face_name, size);
  const tg_text_extents te = text_extents(utf8);
  const tg_font_extents fe = font_extents();
  double x = rect.x;
  if (align == tg_align::center)
    x = rect.x + (rect.w - te.x_advance) / 2.0;
  else if (align == tg_align::right)
    x = rect.x + rect.w - te.x_advance;
  double y = rect.y + fe.ascent;
  if (valign == tg_valign::middle)
    y = rect.y + (rect.h - (fe.ascent + fe.descent)) / 2.0 + fe.ascent;
  else if (valign == tg_valign::bottom)
    y = rect.y + rect.h - fe.descent;
  set_color(color);
  if (text_image_mode_)
    show_text_image(utf8, x, y);
  else
    show_text_direct(utf8, x, y);
}

void tgraphics::show_text_direct(const std::string& utf8, double x, double y) {
  cairo_move_to(cr_, x, y);
  cairo_show_text(cr_, utf8.c_str());
  cairo_new_path(cr_);
}

static bool is_raster(cairo_surface_t* s) {
  switch (cairo_surface_get_type(s)) {
    case CAIRO_SURFACE_TYPE_PDF:
    case CAIRO_SURFACE_TYPE_PS:
    case CAIRO_SURFACE_TYPE_SVG:
    case CAIRO_SURFACE_TYPE_RECORDING:
    case CAIRO_SURFACE_TYPE_SCRIPT:
      return false;
    default:
      return true;
  }
}

void tgraphics::show_text_image(const std::string& utf8, double x, double y) {
  // Vector targets keep their text as text.
  if (!is_raster(surface_)) {
    show_text_direct(utf8, x, y);
    return;
  }
  cairo_save(cr_);
  const tg_font_extents fe = font_extents();
  const tg_text_extents te = text_extents(utf8);
  const double pad = 2.0;
  const double left = std::fmin(0.0, te.x_bearing) - pad;
  const double w_units = std::fmax(te.x_advance, te.x_bearing + te.width) - left + pad;
  const double h_units = fe.ascent + fe.descent + 2.0 * pad;
  const int w_px = static_cast<int>(std::ceil(w_units * scale_));
  const int h_px = static_cast<int>(std::ceil(h_units * scale_));
  if (w_px > 0 && h_px > 0) {
    cairo_surface_t* img = cairo_surface_create_similar_image(surface_, CAIRO_FORMAT_A8, w_px, h_px);
    cairo_surface_set_device_scale(img, scale_, scale_);
    cairo_t* tc = cairo_create(img);
    cairo_set_font_face(tc, cairo_get_font_face(cr_));
    cairo_matrix_t fm;
    cairo_get_font_matrix(cr_, &fm);
    cairo_set_font_matrix(tc, &fm);
    cairo_font_options_t* fo = cairo_font_options_create();
    cairo_get_font_options(cr_, fo);
    cairo_set_font_options(tc, fo);
    cairo_font_options_destroy(fo);
    cairo_set_source_rgba(tc, 0, 0, 0, 1);
    cairo_move_to(tc, -left, pad + fe.ascent);
    cairo_show_text(tc, utf8.c_str());
    cairo_destroy(tc);
    cairo_surface_flush(img);
    // Put the image on whole device pixels so that it is not resampled.
    double ix = x + left, iy = y - fe.ascent - pad;
    cairo_user_to_device(cr_, &ix, &iy);
    ix = std::round(ix);
    iy = std::round(iy);
    cairo_device_to_user(cr_, &ix, &iy);
    cairo_mask_surface(cr_, img, ix, iy);
    cairo_surface_destroy(img);
  }
  cairo_restore(cr_);
}

void tgraphics::draw_surface(cairo_surface_t* source, double x, double y, double alpha) {
  cairo_save(cr_);
  cairo_set_source_surface(cr_, source, x, y);
  cairo_paint_with_alpha(cr_, alpha);
  cairo_restore(cr_);
}
