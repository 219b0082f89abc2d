#include "export/Timecode.h"

#include <cmath>
#include <cstdio>

namespace velorum {

std::string TimecodeMillis(double seconds)
{
    if (!(seconds >= 0.0))
        seconds = 0.0;
    const long long ms = std::llround(seconds * 1000.0);
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%02lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60,
                  ms / 1000 % 60, ms % 1000);
    return buffer;
}

std::string TimecodeFrames(double seconds, double fps)
{
    if (!(seconds >= 0.0))
        seconds = 0.0;
    const long long rate = fps > 1.0 ? std::llround(fps) : 25;
    // Real time to frame count at the true rate, displayed at the nominal one.
    const long long frames = static_cast<long long>(std::floor(seconds * (fps > 1.0 ? fps : 25.0) + 1e-9));
    const long long s = frames / rate;
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%02lld:%02lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60, frames % rate);
    return buffer;
}

} // namespace velorum
