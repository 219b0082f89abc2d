#pragma once
// Time codes of the exports: "00:00:00.000" (hours, minutes, seconds and
// milliseconds) or "00:00:00:00" (hours, minutes, seconds and frames at a
// time-code rate such as 23.976, 25, 29.97 or 59.94).
//
// Frames are counted against the real clock at the real rate. Non-drop-frame
// numbering labels them at the nominal integer rate (24 for 23.976, 30 for
// 29.97, ...), so at the fractional rates the label runs slow against the
// clock. Drop-frame numbering (29.97 and 59.94 only) skips the labels ;00 and
// ;01 (;00 to ;03 at 59.94) at the start of every minute except minutes
// 00, 10, 20, ... so that the label keeps up with the clock; it is written
// with ';' before the frames: frame 1800 at 29.97 reads "00:01:00;02".
#include <string>

namespace velorum {

std::string TimecodeMillis(double seconds);
// The rate frames really pass at: the NTSC rates written 23.976, 29.97,
// 47.95 and 59.94 are 24000/1001, 30000/1001, 48000/1001 and 60000/1001
// (over an hour 29.97 itself would lose a tenth of a frame). Rates outside
// 1..1000 fps count as 25.
double ExactFrameRate(double fps);
// The number of the frame that holds this time (0 at time 0).
long long FrameAtSeconds(double seconds, double fps);
// `dropFrame` is honoured at 29.97 and 59.94 and ignored at other rates.
std::string TimecodeFrames(double seconds, double fps, bool dropFrame = false);
// Whether drop-frame numbering exists at this rate (29.97 or 59.94).
bool DropFrameRate(double fps);
// The label of the frame with number `frame` (0 at 00:00:00:00) at an integer
// rate; drop-frame numbering applies only at 30 and 60. Hours are not wrapped.
std::string TimecodeOfFrame(long long frame, int nominalRate, bool dropFrame);

}  // namespace velorum
