#pragma once
// The built-in default programme of "velorum demo": 100 s of deterministic
// stereo audio at 48 kHz that behaves like a short broadcast programme —
// speech-like passages (pink noise shaped into syllables and phrases with a
// voiced buzz), a music section (a chord over a noise bed with drum hits and
// a few loud transients), silence, a quiet ambience and a fade-out. It is
// synthesised block by block, so nothing of it is held in memory whole.
#include <cstdint>

namespace velorum {

class DemoProgramme {
 public:
  static constexpr int kSampleRate = 48000;
  static constexpr int kChannels = 2;
  static constexpr double kSeconds = 100.0;
  static constexpr int64_t kFrames = static_cast<int64_t>(kSampleRate * kSeconds);

  DemoProgramme();
  // Writes up to `frames` interleaved stereo frames; returns the count (0 at the end).
  int render(float* interleaved, int frames);
  int64_t position() const { return position_; }

 private:
  double noise();
  double pink(int channel);
  double sample(int channel, double t);
  void prepareFrame(double t);

  struct Frame {
    double buzz = 0.0;
    double envelope = 0.0;
    double sine[5] = {};
    double cosine[5] = {};
    double tremolo[5] = {};
  };
  Frame frame_;

  int64_t position_ = 0;
  uint32_t seed_ = 0x9E3779B9u;
  double pinkState_[2][7] = {};
  double bandLow_[2] = {};
  double bandHigh_[2] = {};
  double drum_ = 0.0;
  double drumNoise_[2] = {};
};

}  // namespace velorum
