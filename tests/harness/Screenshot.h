// Pixels captured from a window, with the checks tests make on them and a
// small BMP writer so a run leaves a picture of what was drawn.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velorum::harness {

struct Screenshot {
  int width = 0;
  int height = 0;
  std::vector<uint32_t> pixels;  // 0x00RRGGBB, rows from the top

  static constexpr uint32_t Rgb(int r, int g, int b) {
    return (uint32_t(r & 0xff) << 16) | (uint32_t(g & 0xff) << 8) | uint32_t(b & 0xff);
  }
  size_t DistinctColours() const;
  size_t Count(uint32_t rgb) const;
  // 24-bit bottom-up BMP; false when the file cannot be written or there are no pixels.
  bool SaveBmp(const std::string& path) const;
};

}  // namespace velorum::harness
