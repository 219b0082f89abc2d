#include "cli/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace velorum {

std::string RemainingTime(double seconds) {
  const long long s = seconds > 0.0 ? static_cast<long long>(seconds) : 0;
  char buffer[48];
  if (s >= 3600)
    std::snprintf(buffer, sizeof buffer, "%ih %im", static_cast<int>(s / 3600),
                  static_cast<int>(s % 3600 / 60));
  else
    std::snprintf(buffer, sizeof buffer, "%im %is", static_cast<int>(s / 60), static_cast<int>(s % 60));
  return buffer;
}

ProgressBar::ProgressBar(bool wanted)
    : enabled_(wanted && isatty(STDERR_FILENO) != 0),
      started_(std::chrono::steady_clock::now()),
      lastDraw_() {}

void ProgressBar::update(double fraction, const std::string& label) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && now - lastDraw_ < std::chrono::milliseconds(100)) return;
  lastDraw_ = now;
  fraction = std::clamp(fraction, 0.0, 1.0);
  constexpr int width = 30;
  const int filled = static_cast<int>(fraction * width);
  std::string bar(static_cast<size_t>(filled), '#');
  bar.append(static_cast<size_t>(width - filled), '-');
  const double elapsed = std::chrono::duration<double>(now - started_).count();
  std::string left;
  if (fraction > 0.02 && elapsed > 1.0) left = "  " + RemainingTime(elapsed / fraction - elapsed) + " left";
  std::fprintf(stderr, "\r[%s] %3d%%  %s%s\033[K", bar.c_str(), static_cast<int>(fraction * 100.0),
               label.c_str(), left.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

void ProgressBar::clear() {
  if (enabled_ && drawn_) {
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn_ = false;
  }
}

}  // namespace velorum
