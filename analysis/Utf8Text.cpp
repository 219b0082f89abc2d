#include "analysis/Utf8Text.h"

#include <cstdint>

namespace velorum {
namespace {

// Length of the valid sequence starting at s[i], 0 when it is not one.
size_t sequenceLength(const std::string& s, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<uint8_t>(s[k]); };
  const uint8_t c = byte(i);
  if (c < 0x80) return 1;
  size_t n = 0;
  uint32_t min = 0, code = 0;
  if ((c & 0xE0) == 0xC0) {
    n = 2;
    min = 0x80;
    code = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    n = 3;
    min = 0x800;
    code = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    n = 4;
    min = 0x10000;
    code = c & 0x07;
  } else {
    return 0;
  }
  if (i + n > s.size()) return 0;
  for (size_t k = 1; k < n; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    code = (code << 6) | (byte(i + k) & 0x3F);
  }
  if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return n;
}

}  // namespace

std::string ValidUtf8(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const size_t n = sequenceLength(text, i);
    if (n == 0) {
      out += "\xEF\xBF\xBD";
      ++i;
    } else {
      out.append(text, i, n);
      i += n;
    }
  }
  return out;
}

}  // namespace velorum
