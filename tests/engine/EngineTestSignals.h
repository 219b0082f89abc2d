// Test signals and a small driver for the loudness engine.
#pragma once

#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

#include "engine/LoudnessEngine.h"

namespace velorum::test {

// Planar multichannel buffer.
struct Signal {
  double rate = 48000.0;
  std::vector<std::vector<double>> channels;

  int Frames() const { return channels.empty() ? 0 : static_cast<int>(channels[0].size()); }
  std::vector<const double*> Pointers() const {
    std::vector<const double*> p;
    for (const auto& c : channels) p.push_back(c.data());
    return p;
  }
};

inline double DbToAmplitude(double db) {
  return std::pow(10.0, db / 20.0);
}

// Appends `seconds` of a sine (amplitude from dBFS peak) to every channel
// whose gain is non-zero; gains are per channel in dB offsets (NaN = silent).
inline void AppendSine(Signal& s, double seconds, double dbfs, double frequency = 1000.0,
                       const std::vector<double>& channelDb = {}) {
  const auto n = static_cast<std::size_t>(std::llround(seconds * s.rate));
  for (std::size_t c = 0; c < s.channels.size(); ++c) {
    double level = dbfs;
    if (c < channelDb.size()) level = channelDb[c];
    const double a = std::isnan(level) ? 0.0 : DbToAmplitude(level);
    auto& ch = s.channels[c];
    const std::size_t start = ch.size();
    ch.resize(start + n);
    for (std::size_t i = 0; i < n; ++i)
      ch[start + i] =
          a * std::sin(2.0 * std::numbers::pi * frequency * static_cast<double>(start + i) / s.rate);
  }
}

inline void AppendSilence(Signal& s, double seconds) {
  const auto n = static_cast<std::size_t>(std::llround(seconds * s.rate));
  for (auto& ch : s.channels) ch.resize(ch.size() + n, 0.0);
}

inline Signal MakeSignal(int channels, double rate = 48000.0) {
  Signal s;
  s.rate = rate;
  s.channels.resize(static_cast<std::size_t>(channels));
  return s;
}

// A configured engine for the signal's rate and channel count.
inline void Prepare(LoudnessEngine& e, const Signal& s, int layout = -1) {
  if (layout >= 0)
    e.SetLayout(layout);
  else
    e.SetChannelCount(static_cast<int>(s.channels.size()));
  e.SetSampleRate(s.rate);
  e.Reset();
}

// Feeds the whole signal in blocks of `block` frames; calls `each` after every
// block with the number of frames fed so far.
inline void Feed(LoudnessEngine& e, const Signal& s, int block = 512,
                 const std::function<void(int)>& each = nullptr) {
  auto p = s.Pointers();
  const int frames = s.Frames();
  for (int off = 0; off < frames; off += block) {
    const int n = std::min(block, frames - off);
    e.ProcessBlock(p.data(), off, n);
    if (each) each(off + n);
  }
}

// Deterministic white noise in [-1, 1).
class Noise {
 public:
  explicit Noise(unsigned seed) : state_(seed * 2654435761u + 1u) {}
  double Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<double>(state_ >> 11) / static_cast<double>(1ull << 53) * 2.0 - 1.0;
  }

 private:
  unsigned long long state_;
};

}  // namespace velorum::test
