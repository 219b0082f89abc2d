// The meter's internal audio source: calibration signals played on the front
// channels on demand, each at -23 LUFS when the same signal runs on both
// front channels.
//   kSine:  a 1 kHz sine, -23 dBFS peak per channel.
//   kNoise: the EBU reference listening signal, pink noise band-limited to
//           500 Hz - 2 kHz; a 4 s loop made once per sample rate and scaled
//           by measuring it with the meter's own engine.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

namespace velorum {

class CalibrationSource {
 public:
  enum Signal : int { kOff = 0, kSine = 1, kNoise = 2 };
  static constexpr double kTargetLufs = -23.0;

  // Chooses the signal; building the noise loop may take a few milliseconds,
  // so call this outside the audio callback (it is cheap when nothing changes).
  void Select(int signal, double sampleRate);
  int Signal() const { return mSignal.load(std::memory_order_relaxed); }
  bool Active() const { return Signal() != kOff; }

  // Audio thread: the next `frames` samples of the signal.
  void Fill(double* out, int frames);

 private:
  void BuildNoise(double sampleRate);

  std::atomic<int> mSignal{kOff};
  double mRate = 0.0;
  double mPhase = 0.0;
  double mPhaseStep = 0.0;
  std::vector<float> mNoise;
  double mNoiseRate = 0.0;
  size_t mNoisePos = 0;
};

}  // namespace velorum
