#pragma once
// The loudness fields of a Broadcast Wave "bext" chunk, version 2:
// LoudnessValue, LoudnessRange, MaxTruePeakLevel, MaxMomentaryLoudness and
// MaxShortTermLoudness, each a little-endian 16-bit integer of the value
// times 100, after the 64-byte UMID. Every other byte of the chunk is kept.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velorum {

struct BextLoudness {
  double integrated = -120.0;    // LUFS
  double loudnessRange = 0.0;    // LU
  double truePeakMax = -120.0;   // dBTP
  double momentaryMax = -120.0;  // LUFS
  double shortTermMax = -120.0;  // LUFS
};

inline constexpr size_t kBextVersionOffset = 346;
inline constexpr size_t kBextLoudnessOffset = 412;
inline constexpr size_t kBextLoudnessBytes = 10;
inline constexpr size_t kBextMinimumSize = 602;  // the fixed part, before the coding history

// A value as the chunk stores it: value x 100, rounded, limited to 16 bits.
int16_t BextField(double value);

// Raises the version to 2 (a shorter chunk is first filled up to the fixed
// part) and writes the five fields.
void SetBextLoudness(std::vector<uint8_t>& bext, const BextLoudness& loudness);

// The ten bytes of the fields, as SetBextLoudness writes them.
std::vector<uint8_t> BextLoudnessBytes(const BextLoudness& loudness);

// A new version-2 chunk for a file that had none: the description, the
// originator "Velorum", today's date and time, the time reference.
std::vector<uint8_t> NewBext(const std::string& description, uint64_t timeReference);

// Reads the five fields back from a chunk (tests, reports).
BextLoudness ReadBextLoudness(const std::vector<uint8_t>& bext);

}  // namespace velorum
