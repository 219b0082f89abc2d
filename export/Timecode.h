#pragma once
// Time codes of the exports: "00:00:00.000" (hours, minutes, seconds and
// milliseconds) or "00:00:00:00" (hours, minutes, seconds and frames at a
// time-code rate such as 23.976, 25, 29.97 NDF, 47.95 or 59.94 NDF; drop-frame
// counting is not used, frames are counted at the nominal integer rate).
#include <string>

namespace velorum {

std::string TimecodeMillis(double seconds);
std::string TimecodeFrames(double seconds, double fps);

} // namespace velorum
