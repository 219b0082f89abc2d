#include "ui/UiFormat.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "export/Timecode.h"

namespace velorum::ui {

const FpsItem kFpsItems[kFpsCount] = {
    {"23.976", 23.976, 24, false},   {"24", 24.0, 24, false},       {"25", 25.0, 25, false},
    {"29.97 NDF", 29.97, 30, false}, {"30", 30.0, 30, false},       {"47.95", 47.95, 48, false},
    {"48", 48.0, 48, false},         {"50", 50.0, 50, false},       {"59.94 NDF", 59.94, 60, false},
    {"60", 60.0, 60, false},         {"29.97 DF", 29.97, 30, true}, {"59.94 DF", 59.94, 60, true},
};
const int kFpsMenuOrder[kFpsCount] = {0, 1, 2, 3, 10, 4, 5, 6, 7, 8, 11, 9};

namespace {
std::string OneDecimal(double v, bool sign) {
  char buf[64];
  if (sign)
    std::snprintf(buf, sizeof buf, "%+.1f", v);
  else
    std::snprintf(buf, sizeof buf, "%.1f", v);
  return buf;
}
}  // namespace

std::string FormatLoudness(double lufs) {
  if (!std::isfinite(lufs) || lufs <= -119.95) return "-inf";
  std::string s = OneDecimal(lufs, false);
  return s == "-0.0" ? "0.0" : s;
}

std::string FormatRelative(double lufs, double target) {
  if (!std::isfinite(lufs) || lufs <= -119.95) return "-";
  std::string s = OneDecimal(lufs - target, true);
  if (s == "-0.0") s = "+0.0";
  return s + " LU";
}

std::string FormatDecimal(double v) {
  if (!std::isfinite(v)) return "-";
  std::string s = OneDecimal(v, false);
  return s == "-0.0" ? "0.0" : s;
}

std::string FormatElapsed(double seconds, bool fine) {
  if (!std::isfinite(seconds) || seconds < 0.0) seconds = 0.0;
  const auto tenths = static_cast<long long>(std::floor(seconds * 10.0 + 1e-6));
  const long long whole = tenths / 10;
  const long long h = whole / 3600, m = (whole / 60) % 60, s = whole % 60;
  char buf[64];
  if (fine)
    std::snprintf(buf, sizeof buf, "%lld:%02lld:%02lld.%lld", h, m, s, tenths % 10);
  else if (h > 0)
    std::snprintf(buf, sizeof buf, "%lld:%02lld:%02lld", h, m, s);
  else
    std::snprintf(buf, sizeof buf, "%lld:%02lld", m, s);
  return buf;
}

std::string FormatTimecode(double seconds, int fpsIndex) {
  if (fpsIndex < 0 || fpsIndex >= kFpsCount) fpsIndex = kDefaultFpsIndex;
  if (!std::isfinite(seconds) || seconds < 0.0) seconds = 0.0;
  seconds = std::min(seconds, 1e9);  // about 31 years; beyond is hostile input
  const FpsItem& item = kFpsItems[fpsIndex];
  // Frames pass at the real rate, as in the exports (at 29.97 NDF an hour of
  // programme reads 00:59:56:12); the label wraps at 100 hours.
  const long long nominal = item.nominal;
  const long long perTenMinutes = 600 * nominal - (item.dropFrame ? 9 * (nominal / 15) : 0);
  const long long frames = FrameAtSeconds(seconds, item.rate) % (600 * perTenMinutes);
  return TimecodeOfFrame(frames, item.nominal, item.dropFrame);
}

std::string FormatTimeOfDay(double seconds) {
  if (!std::isfinite(seconds)) seconds = 0.0;
  auto whole = static_cast<long long>(std::floor(seconds));
  whole %= 86400;
  if (whole < 0) whole += 86400;
  char buf[32];
  std::snprintf(buf, sizeof buf, "%02lld:%02lld:%02lld", whole / 3600, (whole / 60) % 60, whole % 60);
  return buf;
}

std::string FormatAxisTime(double seconds, int histogramMode, int fpsIndex, double systemStartSeconds,
                           bool fine) {
  switch (histogramMode) {
    case 1:
      return FormatTimecode(seconds, fpsIndex);
    case 2:
      return FormatTimeOfDay(systemStartSeconds + seconds);
    default:
      return FormatElapsed(seconds, fine);
  }
}

}  // namespace velorum::ui
