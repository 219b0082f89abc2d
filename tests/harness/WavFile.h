// Minimal WAV reading and writing for the host harness: PCM 16/24/32-bit and
// IEEE float 32/64-bit, plain or WAVE_FORMAT_EXTENSIBLE, into per-channel floats.
#pragma once

#include <string>
#include <vector>

namespace velorum::harness {

struct WavData {
  int channels = 0;
  double sampleRate = 0.0;
  std::vector<std::vector<float>> samples;  // [channel][frame]
  size_t Frames() const { return samples.empty() ? 0 : samples[0].size(); }
};

// Returns false (with a message in `error`) when the file cannot be read.
bool ReadWav(const std::string& path, WavData& out, std::string* error = nullptr);
// Writes 32-bit float samples.
bool WriteWav(const std::string& path, const WavData& data);

}  // namespace velorum::harness
