#include "plugin/CalibrationSource.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "engine/LoudnessEngine.h"

namespace velorum {

namespace {

// A second-order section in direct form I.
struct Biquad {
  double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  double Run(double x) {
    const double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    return y;
  }
};

// Butterworth-Q high-pass or low-pass section at `frequency`.
Biquad Section(bool highPass, double frequency, double rate) {
  const double w = 2.0 * std::numbers::pi * frequency / rate;
  const double alpha = std::sin(w) / std::numbers::sqrt2;  // Q = 1/sqrt(2)
  const double c = std::cos(w);
  const double a0 = 1.0 + alpha;
  Biquad q;
  if (highPass) {
    q.b0 = (1.0 + c) / 2.0 / a0;
    q.b1 = -(1.0 + c) / a0;
    q.b2 = q.b0;
  } else {
    q.b0 = (1.0 - c) / 2.0 / a0;
    q.b1 = (1.0 - c) / a0;
    q.b2 = q.b0;
  }
  q.a1 = -2.0 * c / a0;
  q.a2 = (1.0 - alpha) / a0;
  return q;
}

}  // namespace

void CalibrationSource::Select(int signal, double sampleRate) {
  if (signal < kOff || signal > kNoise) signal = kOff;
  if (!(sampleRate > 0.0)) sampleRate = 44100.0;
  if (signal == kNoise && (mNoise.empty() || mNoiseRate != sampleRate)) BuildNoise(sampleRate);
  if (mRate != sampleRate) {
    mRate = sampleRate;
    mPhaseStep = 2.0 * std::numbers::pi * 1000.0 / sampleRate;
  }
  mSignal.store(signal, std::memory_order_relaxed);
}

void CalibrationSource::BuildNoise(double sampleRate) {
  const auto loop = static_cast<size_t>(4.0 * sampleRate);
  const auto preRoll = static_cast<size_t>(sampleRate);
  std::mt19937 random(0x56656C6F);  // fixed seed: the same loop every time
  // Pink noise by a sum of first-order filters on white noise (-3 dB/octave).
  double p0 = 0, p1 = 0, p2 = 0, p3 = 0, p4 = 0, p5 = 0, p6 = 0;
  Biquad hp1 = Section(true, 500.0, sampleRate), hp2 = hp1;
  Biquad lp1 = Section(false, 2000.0, sampleRate), lp2 = lp1;
  std::vector<double> noise(loop);
  for (size_t i = 0; i < preRoll + loop; ++i) {
    const double white = static_cast<double>(random()) / 2147483648.0 - 1.0;
    p0 = 0.99886 * p0 + white * 0.0555179;
    p1 = 0.99332 * p1 + white * 0.0750759;
    p2 = 0.96900 * p2 + white * 0.1538520;
    p3 = 0.86650 * p3 + white * 0.3104856;
    p4 = 0.55000 * p4 + white * 0.5329522;
    p5 = -0.7616 * p5 - white * 0.0168980;
    const double pink = p0 + p1 + p2 + p3 + p4 + p5 + p6 + white * 0.5362;
    p6 = white * 0.115926;
    const double band = lp2.Run(lp1.Run(hp2.Run(hp1.Run(pink))));
    if (i >= preRoll) noise[i - preRoll] = band;
  }
  // Measure the loop as it will be heard (same signal on both front channels)
  // and scale it to the target.
  LoudnessEngine engine;
  engine.SetSampleRate(sampleRate);
  engine.SetChannelCount(2);
  engine.SetInputCount(2);
  const double* channels[2] = {noise.data(), noise.data()};
  engine.ProcessBlock(channels, static_cast<int>(loop));
  const double measured = engine.Integrated();
  const double gain = measured > -100.0 ? std::pow(10.0, (kTargetLufs - measured) / 20.0) : 0.0;
  mNoise.resize(loop);
  for (size_t i = 0; i < loop; ++i) mNoise[i] = static_cast<float>(noise[i] * gain);
  mNoiseRate = sampleRate;
  mNoisePos = 0;
}

void CalibrationSource::Fill(double* out, int frames) {
  const int signal = Signal();
  if (signal == kSine) {
    const double amplitude = std::pow(10.0, kTargetLufs / 20.0);
    for (int i = 0; i < frames; ++i) {
      out[i] = amplitude * std::sin(mPhase);
      mPhase += mPhaseStep;
      if (mPhase >= 2.0 * std::numbers::pi) mPhase -= 2.0 * std::numbers::pi;
    }
  } else if (signal == kNoise && !mNoise.empty()) {
    for (int i = 0; i < frames; ++i) {
      out[i] = static_cast<double>(mNoise[mNoisePos]);
      if (++mNoisePos == mNoise.size()) mNoisePos = 0;
    }
  } else {
    std::fill(out, out + std::max(frames, 0), 0.0);
  }
}

}  // namespace velorum
