#pragma once
// Offscreen targets for the drawing layer: image surfaces sized in editor
// units at a device scale (written as PNG), and SVG and PDF vector surfaces
// that the same drawing code renders into.

#include <cairo.h>

#include <string>

// An ARGB image of ceil(width * scale) x ceil(height * scale) pixels whose
// device scale is `scale`. Check with cairo_surface_status().
cairo_surface_t* tg_create_image_surface(double width, double height, double scale);
// Vector surfaces measured in points; one editor unit is one point.
cairo_surface_t* tg_create_svg_surface(const std::string& path, double width, double height);
cairo_surface_t* tg_create_pdf_surface(const std::string& path, double width, double height);
// Flushes before the pixels are read.
void tg_flush_surface(cairo_surface_t* s);
// Finishes a vector surface (writes its file) or flushes an image, then
// releases it.
void tg_destroy_surface(cairo_surface_t* s);
bool tg_write_png(cairo_surface_t* image, const std::string& path);
