#pragma once
// Programmes and files for the normaliser's tests: synthesised music (loud
// and mastered hot, or quiet with wide dynamics), a WAV file assembled chunk
// by chunk, and libebur128's reading of a written file as the peer.
#include <ebur128.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "analysis/AudioFixtures.h"

namespace velorum::test {

// A groove at 120 bpm: kick, snare, hats, a saw bass and a chord pad, each
// channel mixed a little differently. `drive` > 0 saturates the mix (a
// mastered, loud track with peaks between the samples); `gain` scales it.
inline std::vector<float> Music(int channels, int rate, double seconds, double drive, double gain,
                                unsigned seed = 1) {
  const auto frames = static_cast<size_t>(seconds * rate);
  std::vector<float> out(frames * static_cast<size_t>(channels));
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> noise(-1.0, 1.0);
  const double chords[4][3] = {
      {220.0, 277.2, 329.6}, {196.0, 246.9, 293.7}, {174.6, 220.0, 261.6}, {196.0, 246.9, 311.1}};
  double bassPhase = 0.0, hp = 0.0, last = 0.0;
  // Two one-pole low-passes per channel at about 7 kHz: a master's top end.
  std::vector<double> lp1(static_cast<size_t>(channels)), lp2(static_cast<size_t>(channels));
  const double a = 1.0 - std::exp(-2.0 * std::numbers::pi * 7000.0 / rate);
  for (size_t i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    const double beat = std::fmod(t, 0.5), eighth = std::fmod(t, 0.25);
    const int bar = static_cast<int>(t / 2.0) % 4;
    const double kick = std::sin(2 * std::numbers::pi * (50.0 + 120.0 * std::exp(-beat * 30.0)) * beat) *
                        std::exp(-beat * 8.0);
    const double n = noise(random);
    hp = 0.6 * (hp + n - last);
    last = n;
    const bool snareBeat = std::fmod(t, 1.0) >= 0.5;
    const double snare = snareBeat ? n * std::exp(-beat * 18.0) * 0.6 : 0.0;
    const double hat = hp * std::exp(-eighth * 60.0) * 0.25;
    bassPhase += chords[bar][0] / 4.0 / rate;
    const double bass = 0.5 * (2.0 * std::fmod(bassPhase, 1.0) - 1.0);
    double pad = 0.0;
    for (double f : chords[bar])
      pad += 0.12 * std::sin(2 * std::numbers::pi * f * t) + 0.05 * std::sin(4 * std::numbers::pi * f * t);
    for (int c = 0; c < channels; ++c) {
      const double pan = c % 2 ? 0.8 : 1.0;
      double v = 0.9 * kick + snare * pan + hat * (1.8 - pan) + 0.6 * bass + pad * (0.7 + 0.1 * c);
      if (drive > 0.0) v = std::tanh(drive * v) / std::tanh(drive);
      double& s1 = lp1[static_cast<size_t>(c)];
      double& s2 = lp2[static_cast<size_t>(c)];
      s1 += a * (v - s1);
      s2 += a * (s1 - s2);
      out[i * static_cast<size_t>(channels) + static_cast<size_t>(c)] = static_cast<float>(gain * s2);
    }
  }
  return out;
}

struct PeerReading {
  double integrated = -1000.0;
  double truePeakDb = -1000.0;
};

// libebur128's integrated loudness and largest true peak of a file.
inline PeerReading Peer(const std::string& path) {
  int channels = 0, rate = 0;
  const std::vector<float> s = readBack(path, channels, rate);
  PeerReading r;
  if (channels <= 0) return r;
  ebur128_state* st = ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rate),
                                   EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK);
  if (channels == 6) ebur128_set_channel(st, 3, EBUR128_UNUSED);
  ebur128_add_frames_float(st, s.data(), s.size() / static_cast<size_t>(channels));
  ebur128_loudness_global(st, &r.integrated);
  double peak = 0.0;
  for (int c = 0; c < channels; ++c) {
    double p = 0.0;
    ebur128_true_peak(st, static_cast<unsigned>(c), &p);
    peak = std::max(peak, p);
  }
  r.truePeakDb = 20.0 * std::log10(peak);
  ebur128_destroy(&st);
  return r;
}

// A WAV file put together chunk by chunk (id and payload, in order).
struct RawChunk {
  std::string id;
  std::vector<uint8_t> payload;
};

inline void PutLe(std::vector<uint8_t>& out, uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

inline std::vector<uint8_t> Bytes(const std::string& text) {
  return {text.begin(), text.end()};
}

inline bool WriteRiff(const std::string& path, const std::vector<RawChunk>& chunks) {
  std::vector<uint8_t> body = Bytes("WAVE");
  for (const RawChunk& c : chunks) {
    body.insert(body.end(), c.id.begin(), c.id.end());
    PutLe(body, c.payload.size(), 4);
    body.insert(body.end(), c.payload.begin(), c.payload.end());
    if (c.payload.size() & 1) body.push_back(0);
  }
  std::vector<uint8_t> file = Bytes("RIFF");
  PutLe(file, body.size(), 4);
  file.insert(file.end(), body.begin(), body.end());
  std::ofstream out(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
  out.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
  return static_cast<bool>(out);
}

// 24-bit PCM samples of interleaved floats.
inline std::vector<uint8_t> Pcm24(const std::vector<float>& samples) {
  std::vector<uint8_t> out;
  for (float v : samples)
    PutLe(out,
          static_cast<uint64_t>(static_cast<int64_t>(
              std::lround(static_cast<double>(std::clamp(v, -1.0f, 0.99999f)) * 8388608.0))),
          3);
  return out;
}

// WAVE_FORMAT_EXTENSIBLE, 24-bit PCM.
inline std::vector<uint8_t> ExtensibleFormat(int channels, int rate, uint32_t mask) {
  std::vector<uint8_t> f;
  PutLe(f, 0xFFFE, 2);
  PutLe(f, static_cast<uint64_t>(channels), 2);
  PutLe(f, static_cast<uint64_t>(rate), 4);
  PutLe(f, static_cast<uint64_t>(rate * channels * 3), 4);
  PutLe(f, static_cast<uint64_t>(channels * 3), 2);
  PutLe(f, 24, 2);
  PutLe(f, 22, 2);
  PutLe(f, 24, 2);
  PutLe(f, mask, 4);
  const uint8_t guid[16] = {1, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};
  f.insert(f.end(), guid, guid + 16);
  return f;
}

// Every chunk of a WAV file, by id (the first of each), as read back raw.
inline std::vector<RawChunk> ReadRiff(const std::string& path) {
  std::ifstream in(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
  std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<RawChunk> chunks;
  for (size_t pos = 12; pos + 8 <= file.size();) {
    const uint32_t size =
        file[pos + 4] | file[pos + 5] << 8 | file[pos + 6] << 16 | static_cast<uint32_t>(file[pos + 7]) << 24;
    const size_t end = std::min(file.size(), pos + 8 + static_cast<size_t>(size));
    chunks.push_back({std::string(file.begin() + static_cast<std::ptrdiff_t>(pos),
                                  file.begin() + static_cast<std::ptrdiff_t>(pos) + 4),
                      std::vector<uint8_t>(file.begin() + static_cast<std::ptrdiff_t>(pos) + 8,
                                           file.begin() + static_cast<std::ptrdiff_t>(end))});
    pos = end + (size & 1);
  }
  return chunks;
}

inline const RawChunk* Find(const std::vector<RawChunk>& chunks, const std::string& id) {
  for (const RawChunk& c : chunks)
    if (c.id == id) return &c;
  return nullptr;
}

}  // namespace velorum::test
