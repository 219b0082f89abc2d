#include "engine/speech/SpeechFeatures.h"

#include <algorithm>
#include <cmath>

namespace velorum {

namespace {

using L = SpeechFeatureLayout;

constexpr double kPi = 3.14159265358979323846;
constexpr double kMelLow = 60.0;  // Hz
constexpr double kMelHigh = 7600.0;
// Floor of a band's mean square before the logarithm (-100 dB re full scale).
constexpr float kLogFloor = 1e-10f;
// The harmonicity autocorrelation is the 256-point transform of the magnitude
// spectrum up to 4 kHz, so its lags count in 1/8000 s.
constexpr int kLagSize = 256;
constexpr float kLagRate = 8000.0f;
constexpr int kPitchBins = 128;  // harmonics up to 4 kHz
constexpr int kMinLag = 16;      // 500 Hz
constexpr int kMaxLag = 100;     // 80 Hz

double HzToMel(double hz) {
  return 2595.0 * std::log10(1.0 + hz / 700.0);
}
double MelToHz(double mel) {
  return 700.0 * (std::pow(10.0, mel / 2595.0) - 1.0);
}

}  // namespace

SpeechFrameAnalyser::SpeechFrameAnalyser()
    : fft_(L::kFrameSize),
      lagFft_(kLagSize),
      window_(L::kFrameSize),
      windowed_(L::kFrameSize),
      power_(L::kBins),
      spectrumLine_(kLagSize),
      re_(L::kBins),
      im_(L::kBins) {
  double sumSq = 0.0;
  for (int i = 0; i < L::kFrameSize; ++i) {
    const double w = 0.5 - 0.5 * std::cos(2.0 * kPi * (i + 0.5) / L::kFrameSize);
    window_[static_cast<std::size_t>(i)] = static_cast<float>(w);
    sumSq += w * w;
  }
  // Two one-sided power bins per frequency, divided by N * sum(w^2): band
  // energies come out as the mean square of the signal in the band.
  energyScale_ = static_cast<float>(2.0 / (L::kFrameSize * sumSq));

  // Triangular mel filters, each normalised to unit area so that every band
  // reads a mean power density.
  const double binHz = static_cast<double>(L::kRate) / L::kFrameSize;
  const double melLo = HzToMel(kMelLow), melHi = HzToMel(kMelHigh);
  for (int b = 0; b < L::kMelBands; ++b) {
    const double lo = MelToHz(melLo + (melHi - melLo) * b / (L::kMelBands + 1));
    const double mid = MelToHz(melLo + (melHi - melLo) * (b + 1) / (L::kMelBands + 1));
    const double hi = MelToHz(melLo + (melHi - melLo) * (b + 2) / (L::kMelBands + 1));
    const int first = std::max(1, static_cast<int>(std::ceil(lo / binHz)));
    const int last = std::min(L::kBins - 2, static_cast<int>(std::floor(hi / binHz)));
    std::vector<double> w;
    for (int k = first; k <= last; ++k) {
      const double hz = k * binHz;
      w.push_back(hz <= mid ? (hz - lo) / (mid - lo) : (hi - hz) / (hi - mid));
    }
    if (w.empty()) {  // narrower than a bin: take the nearest bin
      melFirst_.push_back(static_cast<int>(std::lround(mid / binHz)));
      w.push_back(1.0);
    } else {
      melFirst_.push_back(first);
    }
    double area = 0.0;
    for (double v : w) area += v;
    for (double v : w) melWeight_.push_back(static_cast<float>(v / area));
    melCount_.push_back(static_cast<int>(w.size()));
  }
}

void SpeechFrameAnalyser::Analyse(const float* frame, float* prevMagnitude, Frame& out) {
  float mean = 0.0f;
  for (int i = 0; i < L::kFrameSize; ++i) mean += frame[i];
  mean /= L::kFrameSize;
  for (int i = 0; i < L::kFrameSize; ++i)
    windowed_[static_cast<std::size_t>(i)] = (frame[i] - mean) * window_[static_cast<std::size_t>(i)];
  fft_.Forward(windowed_.data(), re_.data(), im_.data());

  float total = 0.0f, fluxNum = 0.0f, fluxDen = 0.0f;
  for (int k = 0; k < L::kBins; ++k) {
    const auto u = static_cast<std::size_t>(k);
    const float p = re_[u] * re_[u] + im_[u] * im_[u];
    const float m = std::sqrt(p);
    const float d = m - prevMagnitude[k];
    fluxNum += d * d;
    fluxDen += p + prevMagnitude[k] * prevMagnitude[k];
    prevMagnitude[k] = m;
    power_[u] = p * energyScale_;
    total += power_[u];
  }
  out.meanSquare = total;
  out.flux = fluxNum / (fluxDen + 1e-20f);
  const float* w = melWeight_.data();
  for (int b = 0; b < L::kMelBands; ++b) {
    const float* p = power_.data() + melFirst_[static_cast<std::size_t>(b)];
    const int n = melCount_[static_cast<std::size_t>(b)];
    float band = 0.0f;
    for (int k = 0; k < n; ++k) band += w[k] * p[k];
    w += n;
    out.logEnergy[b] = std::log(band + kLogFloor);
  }
  out.logEnergy[L::kMelBands] = std::log(total + kLogFloor);

  // Harmonicity: normalised autocorrelation of the magnitude spectrum below
  // 4 kHz, computed as the transform of the even spectrum line.
  std::fill(spectrumLine_.begin(), spectrumLine_.end(), 0.0f);
  for (int k = 2; k < kPitchBins; ++k) {
    const float m = prevMagnitude[k];
    spectrumLine_[static_cast<std::size_t>(k)] = m;
    spectrumLine_[static_cast<std::size_t>(kLagSize - k)] = m;
  }
  lagFft_.Forward(spectrumLine_.data(), re_.data(), im_.data());
  const float r0 = re_[0];
  float best = 0.0f;
  int bestLag = 0;
  if (r0 > 1e-12f) {
    for (int lag = kMinLag; lag <= kMaxLag; ++lag) {
      const float r = re_[static_cast<std::size_t>(lag)];
      // Only local maxima count, so the broad main lobe near the lower lag
      // limit is not taken for a period.
      if (r > best && r >= re_[static_cast<std::size_t>(lag - 1)] &&
          r >= re_[static_cast<std::size_t>(lag + 1)]) {
        best = r;
        bestLag = lag;
      }
    }
    best /= r0;
  }
  out.harmonicity = best;
  out.pitch = bestLag > 0 ? std::log2(kLagRate / static_cast<float>(bestLag) / 100.0f) : 0.0f;
}

void SpeechFrameInputs(const SpeechFrameAnalyser::Frame& f, const float* history, int filled, float* out) {
  float mean[L::kLogValues] = {};
  for (int r = 0; r < filled; ++r)
    for (int b = 0; b < L::kLogValues; ++b) mean[b] += history[r * L::kLogValues + b];
  const float inv = 1.0f / static_cast<float>(std::max(filled, 1));
  float shape = 0.0f;
  for (int b = 0; b < L::kMelBands; ++b) shape += f.logEnergy[b];
  shape /= L::kMelBands;
  for (int b = 0; b < L::kMelBands; ++b) {
    out[L::kShape + b] = f.logEnergy[b] - shape;
    out[L::kRise + b] = f.logEnergy[b] - mean[b] * inv;
  }
  out[L::kLevel] = f.logEnergy[L::kMelBands] - mean[L::kMelBands] * inv;
  out[L::kHarmonicity] = f.harmonicity;
  out[L::kPitch] = f.pitch;
  out[L::kFlux] = f.flux;
}

}  // namespace velorum
