#include "export/Timecode.h"

#include <cmath>
#include <cstdio>

namespace velorum {

namespace {

// Beyond this (about 31 years) a time is hostile input, not a position.
constexpr double kLongestSeconds = 1e9;

double clampSeconds(double seconds) {
  if (!(seconds >= 0.0)) return 0.0;
  return seconds < kLongestSeconds ? seconds : kLongestSeconds;
}

bool dropFrameNominal(int rate) {
  return rate == 30 || rate == 60;
}

}  // namespace

std::string TimecodeMillis(double seconds) {
  seconds = clampSeconds(seconds);
  const long long ms = std::llround(seconds * 1000.0);
  char buffer[48];
  std::snprintf(buffer, sizeof buffer, "%02lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60,
                ms / 1000 % 60, ms % 1000);
  return buffer;
}

bool DropFrameRate(double fps) {
  return std::fabs(fps - 29.97) < 0.005 || std::fabs(fps - 59.94) < 0.005;
}

std::string TimecodeOfFrame(long long frame, int nominalRate, bool dropFrame) {
  if (nominalRate < 1) nominalRate = 25;
  if (frame < 0) frame = 0;
  const long long rate = nominalRate;
  const bool drop = dropFrame && dropFrameNominal(nominalRate);
  if (drop) {
    // Labels skipped per minute, frames in a minute that skips them, and
    // frames in ten minutes (nine skipping minutes and one that does not).
    const long long skipped = rate / 15;
    const long long perMinute = rate * 60 - skipped;
    const long long perTenMinutes = rate * 600 - 9 * skipped;
    const long long tens = frame / perTenMinutes, within = frame % perTenMinutes;
    long long labels = 9 * skipped * tens;
    if (within >= skipped) labels += skipped * ((within - skipped) / perMinute);
    frame += labels;
  }
  const long long s = frame / rate;
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, drop ? "%02lld:%02lld:%02lld;%02lld" : "%02lld:%02lld:%02lld:%02lld",
                s / 3600, s / 60 % 60, s % 60, frame % rate);
  return buffer;
}

double ExactFrameRate(double fps) {
  if (!(fps > 1.0 && fps <= 1000.0)) return 25.0;
  const double nominal = std::round(fps);
  const double ntsc = nominal * 1000.0 / 1001.0;
  return std::fabs(fps - ntsc) < 0.005 ? ntsc : fps;
}

long long FrameAtSeconds(double seconds, double fps) {
  // A hair of tolerance so that a time computed as n / rate lands on frame n.
  return static_cast<long long>(std::floor(clampSeconds(seconds) * ExactFrameRate(fps) + 1e-6));
}

std::string TimecodeFrames(double seconds, double fps, bool dropFrame) {
  const int nominal = static_cast<int>(std::lround(ExactFrameRate(fps)));
  return TimecodeOfFrame(FrameAtSeconds(seconds, fps), nominal, dropFrame && DropFrameRate(fps));
}

}  // namespace velorum
