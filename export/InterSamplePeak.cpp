#include "export/InterSamplePeak.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velorum {
namespace {

double BesselI0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; k < 40; ++k) {
    term *= (x / (2.0 * k)) * (x / (2.0 * k));
    sum += term;
  }
  return sum;
}

}  // namespace

InterSamplePeak::InterSamplePeak(int channels) : mChannels(channels) {
  constexpr double kBeta = 7.0;
  constexpr double kHalf = kTaps / 2.0;
  for (int k = 1; k < kFactor; ++k) {
    const double f = static_cast<double>(k) / kFactor;
    double sum = 0.0;
    for (int t = 0; t < kTaps; ++t) {
      // Distance from the interpolated point to the tap's sample.
      const double d = f + kHalf - 1.0 - t;
      const double sinc = std::sin(std::numbers::pi * d) / (std::numbers::pi * d);
      const double r = d / (kHalf + 0.5);
      const double window = BesselI0(kBeta * std::sqrt(std::max(0.0, 1.0 - r * r))) / BesselI0(kBeta);
      mPhases[static_cast<size_t>(k)][static_cast<size_t>(t)] = static_cast<float>(sinc * window);
      sum += sinc * window;
    }
    // Unity gain at DC for every point.
    for (float& c : mPhases[static_cast<size_t>(k)]) c = static_cast<float>(static_cast<double>(c) / sum);
  }
  Reset();
}

void InterSamplePeak::Reset() {
  mLines.assign(static_cast<size_t>(mChannels), std::vector<float>(kTaps, 0.0f));
}

void InterSamplePeak::Process(const float* interleaved, int frames, float* peaks) {
  if (frames <= 0) return;
  const auto n = static_cast<size_t>(frames);
  std::fill(peaks, peaks + n, 0.0f);
  mIntervals.resize(n + 1);
  constexpr size_t kHalf = kTaps / 2;
  for (int c = 0; c < mChannels; ++c) {
    std::vector<float>& line = mLines[static_cast<size_t>(c)];
    line.resize(kTaps + n);
    for (size_t i = 0; i < n; ++i)
      line[kTaps + i] = interleaved[i * static_cast<size_t>(mChannels) + static_cast<size_t>(c)];
    // Interval j lies between line[j] and line[j + 1]; its points use
    // line[j - kHalf + 1 .. j + kHalf]. Intervals kHalf - 1 .. kHalf + n - 1.
    for (size_t i = 0; i <= n; ++i) {
      const size_t j = kHalf - 1 + i;
      const float* x = line.data() + j - kHalf + 1;
      float peak = 0.0f;
      for (int k = 1; k < kFactor; ++k) {
        const float* h = mPhases[static_cast<size_t>(k)].data();
        float v = 0.0f;
        for (int t = 0; t < kTaps; ++t) v += h[t] * x[t];
        peak = std::max(peak, std::fabs(v));
      }
      mIntervals[i] = peak;
    }
    // Frame m = kHalf + i of the line: its sample and the intervals on both sides.
    for (size_t i = 0; i < n; ++i) {
      const float p = std::max({std::fabs(line[kHalf + i]), mIntervals[i], mIntervals[i + 1]});
      peaks[i] = std::max(peaks[i], p);
    }
    std::copy(line.end() - kTaps, line.end(), line.begin());
    line.resize(kTaps);
  }
}

}  // namespace velorum
