#include "export/BextLoudness.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>

namespace velorum {

int16_t BextField(double value) {
  if (!std::isfinite(value)) return 0x7FFF;  // "not set"
  const double scaled = std::round(value * 100.0);
  return static_cast<int16_t>(std::clamp(scaled, -32767.0, 32766.0));
}

std::vector<uint8_t> BextLoudnessBytes(const BextLoudness& l) {
  std::vector<uint8_t> bytes;
  for (double v : {l.integrated, l.loudnessRange, l.truePeakMax, l.momentaryMax, l.shortTermMax}) {
    const auto u = static_cast<uint16_t>(BextField(v));
    bytes.push_back(static_cast<uint8_t>(u & 0xFF));
    bytes.push_back(static_cast<uint8_t>(u >> 8));
  }
  return bytes;
}

void SetBextLoudness(std::vector<uint8_t>& bext, const BextLoudness& loudness) {
  if (bext.size() < kBextMinimumSize) bext.resize(kBextMinimumSize, 0);
  if (bext[kBextVersionOffset] < 2 && bext[kBextVersionOffset + 1] == 0) bext[kBextVersionOffset] = 2;
  const std::vector<uint8_t> fields = BextLoudnessBytes(loudness);
  std::copy(fields.begin(), fields.end(), bext.begin() + static_cast<std::ptrdiff_t>(kBextLoudnessOffset));
}

std::vector<uint8_t> NewBext(const std::string& description, uint64_t timeReference) {
  std::vector<uint8_t> bext(kBextMinimumSize, 0);
  std::memcpy(bext.data(), description.data(), std::min<size_t>(description.size(), 256));
  std::memcpy(bext.data() + 256, "Velorum", 7);
  const std::time_t now = std::time(nullptr);
  std::tm local{};
#ifdef _WIN32
  localtime_s(&local, &now);
#else
  localtime_r(&now, &local);
#endif
  char date[16], time[16];
  std::strftime(date, sizeof date, "%Y-%m-%d", &local);
  std::strftime(time, sizeof time, "%H:%M:%S", &local);
  std::memcpy(bext.data() + 320, date, 10);
  std::memcpy(bext.data() + 330, time, 8);
  for (int i = 0; i < 8; ++i)
    bext[338 + static_cast<size_t>(i)] = static_cast<uint8_t>(timeReference >> (8 * i));
  bext[kBextVersionOffset] = 2;
  return bext;
}

BextLoudness ReadBextLoudness(const std::vector<uint8_t>& bext) {
  BextLoudness l;
  if (bext.size() < kBextLoudnessOffset + kBextLoudnessBytes) return l;
  double* fields[] = {&l.integrated, &l.loudnessRange, &l.truePeakMax, &l.momentaryMax, &l.shortTermMax};
  for (size_t i = 0; i < 5; ++i) {
    const size_t at = kBextLoudnessOffset + 2 * i;
    const auto raw = static_cast<int16_t>(static_cast<uint16_t>(bext[at] | bext[at + 1] << 8));
    *fields[i] = raw / 100.0;
  }
  return l;
}

}  // namespace velorum
