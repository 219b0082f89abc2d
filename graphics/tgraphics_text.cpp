#include "graphics/tgraphics_text.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_SFNT_NAMES_H
#include FT_TRUETYPE_IDS_H
#include FT_TRUETYPE_TABLES_H
#include <cairo-ft.h>

#include <map>
#include <mutex>

#include "graphics/tg_embedded_fonts.h"

namespace {

std::mutex& font_lock() {
  static std::mutex m;
  return m;
}

FT_Library library() {  // called under the font lock
  static FT_Library lib = nullptr;
  if (!lib && FT_Init_FreeType(&lib) != 0) lib = nullptr;
  return lib;
}

std::map<std::string, cairo_font_face_t*>& faces() {
  static std::map<std::string, cairo_font_face_t*> f;
  return f;
}

const cairo_user_data_key_t kFtFaceKey{};

void done_ft_face(void* p) {
  FT_Done_Face(static_cast<FT_Face>(p));
}

FT_Face open_ft_face(const std::string& name) {
  const unsigned char* data = nullptr;
  std::size_t size = 0;
  FT_Library lib = library();
  if (!lib || !tg_embedded::find(name.c_str(), data, size)) return nullptr;
  FT_Face face = nullptr;
  if (FT_New_Memory_Face(lib, data, static_cast<FT_Long>(size), 0, &face) != 0) return nullptr;
  return face;
}

// A name-table string as plain text: UTF-16BE from the Windows platform or
// Mac Roman, both reduced to their ASCII part, which face names use.
std::string sfnt_string(const FT_SfntName& n) {
  std::string s;
  if (n.platform_id == TT_PLATFORM_MICROSOFT || n.platform_id == TT_PLATFORM_APPLE_UNICODE) {
    for (FT_UInt i = 0; i + 1 < n.string_len; i += 2) {
      const unsigned cp = (unsigned{n.string[i]} << 8) | n.string[i + 1];
      s.push_back(cp < 128 ? static_cast<char>(cp) : '?');
    }
  } else {
    for (FT_UInt i = 0; i < n.string_len; ++i) s.push_back(static_cast<char>(n.string[i]));
  }
  return s;
}

void read_names(FT_Face face, tg_font_info& out) {
  const FT_UInt count = FT_Get_Sfnt_Name_Count(face);
  for (FT_UInt i = 0; i < count; ++i) {
    FT_SfntName n;
    if (FT_Get_Sfnt_Name(face, i, &n) != 0) continue;
    const bool preferred = n.platform_id == TT_PLATFORM_MICROSOFT;
    if (n.name_id == TT_NAME_ID_FONT_FAMILY && (out.family.empty() || preferred)) out.family = sfnt_string(n);
    if (n.name_id == TT_NAME_ID_FONT_SUBFAMILY && (out.style.empty() || preferred))
      out.style = sfnt_string(n);
  }
}

}  // namespace

const std::vector<std::string>& tgraphics_text::font_names() {
  static const std::vector<std::string> names(tg_embedded::kFontNames,
                                              tg_embedded::kFontNames + tg_embedded::kFontCount);
  return names;
}

bool tgraphics_text::font_bytes(const std::string& name, const unsigned char*& data, std::size_t& size) {
  return tg_embedded::find(name.c_str(), data, size);
}

cairo_font_face_t* tgraphics_text::face(const std::string& name) {
  std::lock_guard<std::mutex> lock(font_lock());
  auto& f = faces();
  auto it = f.find(name);
  if (it != f.end()) return it->second;
  FT_Face ft = open_ft_face(name);
  if (!ft) return nullptr;
  cairo_font_face_t* cf = cairo_ft_font_face_create_for_ft_face(ft, 0);
  if (cairo_font_face_status(cf) != CAIRO_STATUS_SUCCESS ||
      cairo_font_face_set_user_data(cf, &kFtFaceKey, ft, done_ft_face) != CAIRO_STATUS_SUCCESS) {
    cairo_font_face_destroy(cf);
    FT_Done_Face(ft);
    return nullptr;
  }
  f.emplace(name, cf);
  return cf;
}

bool tgraphics_text::info(const std::string& name, tg_font_info& out) {
  std::lock_guard<std::mutex> lock(font_lock());
  FT_Face ft = open_ft_face(name);
  if (!ft) return false;
  out = tg_font_info{};
  read_names(ft, out);
  if (auto* head = static_cast<TT_Header*>(FT_Get_Sfnt_Table(ft, FT_SFNT_HEAD)))
    out.units_per_em = head->Units_Per_EM;
  if (auto* hhea = static_cast<TT_HoriHeader*>(FT_Get_Sfnt_Table(ft, FT_SFNT_HHEA))) {
    out.ascender = hhea->Ascender;
    out.descender = hhea->Descender;
    out.line_gap = hhea->Line_Gap;
  }
  out.regular = out.style.find("Regular") != std::string::npos;
  out.bold = out.style.find("Bold") != std::string::npos;
  out.italic = out.style.find("Italic") != std::string::npos;
  FT_Done_Face(ft);
  return true;
}

void tgraphics_text::release_faces() {
  std::lock_guard<std::mutex> lock(font_lock());
  // A face still referenced by a live context or cairo's own cache closes its
  // FreeType face when the last reference goes.
  for (auto& [name, cf] : faces()) cairo_font_face_destroy(cf);
  faces().clear();
}
