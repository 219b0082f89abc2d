#include "graphics/tgraphics_surface.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>

#include <cmath>

cairo_surface_t* tg_create_image_surface(double width, double height, double scale) {
  if (!(scale > 0.0) || !std::isfinite(scale)) scale = 1.0;
  const double wp = std::ceil(width * scale), hp = std::ceil(height * scale);
  const bool sane = wp >= 0.0 && hp >= 0.0 && wp <= 32767.0 && hp <= 32767.0;
  cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, sane ? static_cast<int>(wp) : -1,
                                                  sane ? static_cast<int>(hp) : -1);
  if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) cairo_surface_set_device_scale(s, scale, scale);
  return s;
}

cairo_surface_t* tg_create_svg_surface(const std::string& path, double width, double height) {
  return cairo_svg_surface_create(path.c_str(), width, height);
}

cairo_surface_t* tg_create_pdf_surface(const std::string& path, double width, double height) {
  return cairo_pdf_surface_create(path.c_str(), width, height);
}

void tg_flush_surface(cairo_surface_t* s) {
  cairo_surface_flush(s);
}

void tg_destroy_surface(cairo_surface_t* s) {
  if (!s) return;
  cairo_surface_finish(s);
  cairo_surface_destroy(s);
}

bool tg_write_png(cairo_surface_t* image, const std::string& path) {
  cairo_surface_flush(image);
  return cairo_surface_write_to_png(image, path.c_str()) == CAIRO_STATUS_SUCCESS;
}
