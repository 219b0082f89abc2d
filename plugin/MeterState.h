// The meter's saved state (the body behind the "tffp" chunk header), written
// by LoudnessMeterPlugin::WriteState and read by ReadState. All values are
// little-endian; "text" is int32 0, int32 n, n UTF-8 bytes; "array" is int32 0,
// int32 count, the elements; "byte run" is int32 n, n bytes.
//
//  1. int32  state version (20506 for 2.5.6)
//  2. nine 64-bit values: double integrated (LUFS), loudness range (LU), range
//     low end, range high end (LUFS), PLR (LU) - the engine's results - then
//     the plug-in's double momentary maximum, short-term maximum (LUFS),
//     true-peak maximum (dBTP), integrated dialogue loudness (LUFS)
//  3. int64  samples measured since the reset (int32 before 20204)
//  4. int32  time of day of the last reset, seconds since local midnight
//  5. int32  reset counter of the display state
//  6. double sample rate
//  7. bytes 1, 0, compressed (1 = zlib), history included (graph saving mode 1,
//     or 2 with parameter 9 equal to 1); the history (HistorySerializer.h) when
//     included; text: name of the measured channel layout; double speech share
//  8. int32  transport jumps seen since the reset                (from 20200)
//  9. byte runs: measurement title, notes                         (from 20201)
// 10. array of doubles: per-channel true-peak maxima, 24 (dBTP)   (from 20300)
// 11. arrays of 16-bit units: engine set-up {layout, layout channels, eco
//     mode, momentary window ms}; dialogue {speech share x 10000} (from 20301)
// 12. text histogram mode name, int64 timeline position, int64 0, int64 0,
//     double system offset seconds, int64 system start seconds   (from 20400)
// 13. texts: shown standard's short name, its menu text, layout name; int32 56
//     and a 56-byte record: int64 measured samples, position, reset time of
//     day, reset counter, jump count, shown standard; double measurement
//     rate; int32 layout in use, int32 histogram mode; array of 32-bit
//     values: per-channel sample-peak maxima (float bits)          (from 20503)
// 14. byte   a reset is pending (reset on jump, waiting for playback) (from 20506)
// 15. int32  active A/B state (parameter 80); byte run: the stored A/B blob
//     (the first when the active state is non-zero, else the second) (from 20200)
// 16. parameter tail: int32 count A, int32 count B, int32 count C; C doubles of
//     the display state (selection start and end in seconds, zoom, scroll);
//     A doubles (parameters 0..A-1); B doubles (parameters A..A+B-1)
//
// A version above the reader's own or below 20000 is refused; a refused or
// unreadable state changes nothing but resets the measurement. A restored
// state always leaves the calibration signal off, and its counters are
// clamped far from the ends of their types.
//
// Neither call holds the plug-in lock for long: WriteState takes it for the
// small sections and copies the history a slice at a time; ReadState parses,
// decompresses and sums the history with no lock held and swaps it in.
#pragma once

#include <cstdint>

namespace velorum::state_version {
inline constexpr int32_t kOldest = 20000;
inline constexpr int32_t kHistoryHeader = 10905;
inline constexpr int32_t kJumpCounter = 20200;
inline constexpr int32_t kLongSampleCounter = 20204;
inline constexpr int32_t kTexts = 20201;
inline constexpr int32_t kChannelPeaks = 20300;
inline constexpr int32_t kEngineSetup = 20301;
inline constexpr int32_t kTransport = 20400;
inline constexpr int32_t kRecord = 20503;
inline constexpr int32_t kPendingFlag = 20506;
}  // namespace velorum::state_version
