// Text forms of the editor: loudness values, LU offsets, time-axis labels in
// the histogram mode's units, and time codes at the "TIME CODE FPS" rates.
#pragma once

#include <string>

namespace velorum::ui {

inline constexpr const char* kOpenGLTooltip =
    "Enable hardware acceleration using OpenGL 3.2 for improved performance. Note: hardware performance may "
    "vary "
    "depending on your device.";

// "TIME CODE FPS": label and the rate's nominal frame count per second. The
// index of an item is what the settings store, so items are only ever
// appended; the menu shows them in kFpsMenuOrder (drop-frame beside its
// non-drop sibling).
struct FpsItem {
  const char* label;
  double rate;     // frames per second as shown
  int nominal;     // frames counted per second in the time code
  bool dropFrame;  // drop-frame numbering ("00:01:00;02")
};
inline constexpr int kFpsCount = 12;
extern const FpsItem kFpsItems[kFpsCount];
extern const int kFpsMenuOrder[kFpsCount];
inline constexpr int kDefaultFpsIndex = 2;  // "25"

// "-23.0", or "-inf" at the floor; one decimal.
std::string FormatLoudness(double lufs);
// "+1.2 LU" relative to a target; "-" at the floor.
std::string FormatRelative(double lufs, double target);
// "12.3" with one decimal.
std::string FormatDecimal(double v);
// "1:02:03" / "2:03" (elapsed) or "0:00:05.5" with tenths when `fine`.
std::string FormatElapsed(double seconds, bool fine);
// "hh:mm:ss:ff" at a rate of the list: non-drop rates count the nominal
// frames per second of the clock; the drop-frame rates count frames at the
// real rate and read "hh:mm:ss;ff". Hours wrap at 100.
std::string FormatTimecode(double seconds, int fpsIndex);
// Time of day "hh:mm:ss" from seconds since midnight (wraps at 24 h).
std::string FormatTimeOfDay(double seconds);
// A label of the graph's time axis in the units of the histogram mode
// (0 elapsed, 1 time code, 2 system time, 3 continuous).
std::string FormatAxisTime(double seconds, int histogramMode, int fpsIndex, double systemStartSeconds,
                           bool fine);

// "LUFS" or "LKFS".
inline const char* UnitText(bool lkfs) {
  return lkfs ? "LKFS" : "LUFS";
}

}  // namespace velorum::ui
