#include "Screenshot.h"

#include <algorithm>
#include <fstream>

namespace velorum::harness {

size_t Screenshot::DistinctColours() const {
  std::vector<uint32_t> sorted(pixels);
  std::sort(sorted.begin(), sorted.end());
  return static_cast<size_t>(std::unique(sorted.begin(), sorted.end()) - sorted.begin());
}

size_t Screenshot::Count(uint32_t rgb) const {
  return static_cast<size_t>(std::count(pixels.begin(), pixels.end(), rgb));
}

namespace {
void Put16(std::vector<uint8_t>& out, uint32_t v) {
  out.push_back(uint8_t(v));
  out.push_back(uint8_t(v >> 8));
}
void Put32(std::vector<uint8_t>& out, uint32_t v) {
  Put16(out, v & 0xffff);
  Put16(out, v >> 16);
}
}  // namespace

bool Screenshot::SaveBmp(const std::string& path) const {
  if (width <= 0 || height <= 0 || pixels.size() != size_t(width) * size_t(height)) return false;
  const uint32_t stride = (uint32_t(width) * 3 + 3) & ~3u;
  const uint32_t imageSize = stride * uint32_t(height);
  std::vector<uint8_t> out;
  out.reserve(54 + imageSize);
  out.push_back('B');
  out.push_back('M');
  Put32(out, 54 + imageSize);
  Put32(out, 0);
  Put32(out, 54);
  Put32(out, 40);  // BITMAPINFOHEADER
  Put32(out, uint32_t(width));
  Put32(out, uint32_t(height));
  Put16(out, 1);
  Put16(out, 24);
  Put32(out, 0);
  Put32(out, imageSize);
  Put32(out, 2835);  // 72 dpi
  Put32(out, 2835);
  Put32(out, 0);
  Put32(out, 0);
  for (int y = height - 1; y >= 0; --y) {
    const uint32_t* row = pixels.data() + size_t(y) * size_t(width);
    for (int x = 0; x < width; ++x) {
      out.push_back(uint8_t(row[x]));
      out.push_back(uint8_t(row[x] >> 8));
      out.push_back(uint8_t(row[x] >> 16));
    }
    for (uint32_t pad = uint32_t(width) * 3; pad < stride; ++pad) out.push_back(0);
  }
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(out.data()), static_cast<std::streamsize>(out.size()));
  return static_cast<bool>(file);
}

}  // namespace velorum::harness
