#pragma once
// The text part of the drawing layer: the fonts embedded in the library, opened
// once per process through FreeType, and what is read from their tables.

#include <cairo.h>

#include <cstddef>
#include <string>
#include <vector>

struct tg_font_info {
  std::string family;  // from the "name" table
  std::string style;
  bool regular = false, bold = false, italic = false;  // style words recognised
  int units_per_em = 0;                                // "head"
  int ascender = 0, descender = 0, line_gap = 0;       // "hhea"
};

class tgraphics_text {
 public:
  // Face names of the embedded fonts: "Roboto-Regular", "OpenSans-Regular", ...
  static const std::vector<std::string>& font_names();
  // The embedded TrueType bytes of a font; false when there is no such font.
  static bool font_bytes(const std::string& name, const unsigned char*& data, std::size_t& size);
  // The process-wide cairo face of a font, made on first use; null when the
  // font is unknown or cannot be opened. The face stays owned by the layer.
  static cairo_font_face_t* face(const std::string& name);
  static bool info(const std::string& name, tg_font_info& out);
  // Releases every face (done when the last editor closes); faces are made
  // again on the next use.
  static void release_faces();
};
