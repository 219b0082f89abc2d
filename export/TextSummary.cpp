#include "export/TextSummary.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace velorum {
namespace {

// snprintf into a std::string; throws when the number can't be formatted. The
// buffer holds any double in "%.1f" (at most 309 digits before the point).
__attribute__((format(printf, 1, 2))) std::string format(const char* f, ...) {
  char buffer[400];
  va_list args;
  va_start(args, f);
  const int n = std::vsnprintf(buffer, sizeof buffer, f, args);
  va_end(args);
  if (n < 0 || n >= static_cast<int>(sizeof buffer)) throw std::runtime_error("Error during formatting.");
  return std::string(buffer, static_cast<size_t>(n));
}

// A value that is not a number cannot be shown: the summary fails instead.
// Every finite value, however large, is shown.
std::string tenth(double value) {
  if (!std::isfinite(value)) throw std::runtime_error("Error during formatting.");
  return format("%.1f", RoundToTenth(value));
}

constexpr const char* kTooShort = "not measured (shorter than one 400 ms gating block)";

std::string checked(const char* buffer, size_t n) {
  if (n == 0) throw std::runtime_error("Error during formatting.");
  return std::string(buffer, n);
}

// The local time of the export ("%X") and its date ("%m/%d/%Y").
std::string clockText(const std::tm& t) {
  char buffer[64];
  return checked(buffer, std::strftime(buffer, sizeof buffer, "%X", &t));
}

std::string dateText(const std::tm& t) {
  char buffer[64];
  return checked(buffer, std::strftime(buffer, sizeof buffer, "%m/%d/%Y", &t));
}

}  // namespace

double RoundToTenth(double value) {
  return std::round(value * 10.0) / 10.0;
}

std::string ShortDuration(double seconds) {
  if (!(seconds >= 0.0)) seconds = 0.0;
  const long long s = static_cast<long long>(seconds);
  if (s < 60) return format("%is", static_cast<int>(s));
  if (s >= 3600) {
    const long long h = s / 3600;
    const long long r = s - h * 3600;
    if (r == 0) return format("%ih", static_cast<int>(h));
    return format("%ih %im", static_cast<int>(h), static_cast<int>(r / 60));
  }
  const long long m = s / 60;
  const long long rest = s - 60 * m;
  if (rest == 0) return format("%im", static_cast<int>(m));
  return format("%im %is", static_cast<int>(m), static_cast<int>(rest));
}

bool BuildTextSummary(const SummaryInput& in, std::string& text, std::string* error) {
  try {
    const std::string unit = in.lkfs ? "LKFS" : "LUFS";
    std::string s;
    s += "Velorum 2 - V";
    s += format("%u.%u.%u", (in.versionWord >> 16) & 0xFFFFu, (in.versionWord >> 8) & 0xFFu,
                in.versionWord & 0xFFu);
    s += "\n\n";
    s += clockText(in.localTime) + " " + dateText(in.localTime) + "\n";
    auto layoutList = [&] {
      s += "\nChannel Layout:\n";
      for (size_t i = 0; i < in.channelNames.size(); ++i)
        s += "\n" + format("%i", static_cast<int>(i + 1)) + ". " + in.channelNames[i];
    };
    if (in.fromFile) {
      const double duration =
          in.fileSampleRate > 0 ? static_cast<double>(in.fileFrames) / in.fileSampleRate : 0.0;
      s += "File Duration: " + ShortDuration(duration) + "\n";
      s += "File Samplerate: " + format("%u", in.fileSampleRate) + "Hz\n";
      if (in.fileBitsPerSample > 0) s += "File Bitrate: " + format("%i", in.fileBitsPerSample) + "\n\n";
      s += "Channel Size: " + format("%u", in.channels) + "\n";
      layoutList();
    } else {
      s += "\nChannel Size: " + format("%u", in.channels) + "\n";
      layoutList();
    }
    s += "\n\nTimecode Start: " + in.timecodeStart + "\nTimecode End: " + in.timecodeEnd + "\n\n";
    s += "Preset Name: " + in.presetName;
    s += "\n\n";
    const SummaryValues& v = in.values;
    if (v.dialogue) {
      s += "Integrated Dial = " + tenth(v.integratedDialogue) + " " + unit + "\n";
      s += "Loudness Range Dial = " + tenth(v.loudnessRangeDialogue) + " LU\n";
      s += "Speech Content = " + format("%i", static_cast<int>(v.speechContentPercent)) + "%\n";
    }
    if (v.integratedMeasured)
      s += "Integrated = " + tenth(v.integrated) + " " + unit + "\n";
    else
      s += std::string("Integrated = ") + kTooShort + "\n";
    s += "Loudness Range = " + tenth(v.loudnessRange) + " LU\n";
    if (v.integratedMeasured)
      s += "Average Dynamics (PLR) = " + tenth(v.plr) + " LU\n";
    else
      s += std::string("Average Dynamics (PLR) = ") + kTooShort + "\n";
    s += "Momentary Max = " + tenth(v.momentaryMax) + " " + unit + "\n";
    s += "Short Term Max = " + tenth(v.shortTermMax) + " " + unit + "\n";
    s += "True Peak Max = " + tenth(v.truePeakMax) + " dBTP\n";
    if (v.nonFiniteSamples > 0)
      s += "Non-finite Samples = " + format("%lld", static_cast<long long>(v.nonFiniteSamples)) +
           " (NaN or infinite, measured as silence)\n";
    if (!in.notes.empty()) s += "\n";
    for (const std::string& note : in.notes) s += note + "\n";
    text = std::move(s);
    return true;
  } catch (const std::exception& e) {
    if (error) *error = e.what();
    return false;
  }
}

}  // namespace velorum
