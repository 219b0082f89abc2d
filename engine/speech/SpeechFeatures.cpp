#include "engine/speech/SpeechFeatures.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace velorum {

namespace {

using L = SpeechFeatureLayout;

constexpr double kPi = 3.14159265358979323846;
// Bins of the 512-point spectrum at 16 kHz (31.25 Hz apart) bounding the six
// bands 62.5-250, 250-500, 500-1000, 1000-2000, 2000-4000, 4000-7500 Hz.
constexpr int kBandEdge[L::kBands + 1] = {2, 8, 16, 32, 64, 128, 240};
// The voicing autocorrelation is the 256-point transform of the magnitude
// spectrum up to 4 kHz, so its lags count in 1/8000 s.
constexpr int kLagSize = 256;
constexpr int kLagRate = 8000;
constexpr int kPitchBins = 128;  // harmonics up to 4 kHz
constexpr int kMinLag = 16;      // 500 Hz
constexpr int kMaxLag = 100;     // 80 Hz
constexpr float kVoicedThreshold = 0.45f;
// Modulation spectrum of the 64-frame envelopes: frames come at 31.25 Hz, so
// bin k is k * 0.488 Hz up to 15.1 Hz; bins 4 to 16 cover the syllable rate
// (2 to 8 Hz).
constexpr int kSyllableLo = 4;
constexpr int kSyllableHi = 16;

// Only the syllable-rate bins are computed as a DFT; the energy of all bins
// 1 .. n/2 - 1 follows from Parseval's relation.
constexpr int kSyllableBins = kSyllableHi - kSyllableLo + 1;

struct ModulationTable {
  std::array<float, L::kWindowFrames> hann{};
  std::array<float, kSyllableBins * L::kWindowFrames> cosTab{};
  std::array<float, kSyllableBins * L::kWindowFrames> sinTab{};
  ModulationTable() {
    for (int f = 0; f < L::kWindowFrames; ++f)
      hann[static_cast<std::size_t>(f)] = static_cast<float>(0.5 - 0.5 * std::cos(2.0 * kPi * (f + 0.5) / L::kWindowFrames));
    for (int k = 0; k < kSyllableBins; ++k)
      for (int f = 0; f < L::kWindowFrames; ++f) {
        const double ph = 2.0 * kPi * (k + kSyllableLo) * f / L::kWindowFrames;
        cosTab[static_cast<std::size_t>(k * L::kWindowFrames + f)] = static_cast<float>(std::cos(ph));
        sinTab[static_cast<std::size_t>(k * L::kWindowFrames + f)] = static_cast<float>(std::sin(ph));
      }
  }
};

const ModulationTable& Modulation() {
  static const ModulationTable table;
  return table;
}

// Share of an envelope's modulation energy at the syllable rate, and its depth
// relative to the envelope's mean.
void ModulationFeatures(const float* env, float* ratio, float* depth) {
  constexpr int n = L::kWindowFrames;
  const ModulationTable& t = Modulation();
  float mean = 0.0f;
  for (int f = 0; f < n; ++f) mean += env[f];
  mean /= n;
  std::array<float, n> x{};
  float energy = 0.0f, dc = 0.0f, nyquist = 0.0f;
  for (int f = 0; f < n; ++f) {
    const float v = (env[f] - mean) * t.hann[static_cast<std::size_t>(f)];
    x[static_cast<std::size_t>(f)] = v;
    energy += v * v;
    dc += v;
    nyquist += (f & 1) ? -v : v;
  }
  // Sum of |X_k|^2 over k = 1 .. n/2 - 1: half of all bins but DC and Nyquist.
  const float total = 0.5f * (static_cast<float>(n) * energy - dc * dc - nyquist * nyquist);
  float syllable = 0.0f;
  for (int k = 0; k < kSyllableBins; ++k) {
    const float* c = t.cosTab.data() + k * n;
    const float* s = t.sinTab.data() + k * n;
    float re = 0.0f, im = 0.0f;
    for (int f = 0; f < n; ++f) {
      re += x[static_cast<std::size_t>(f)] * c[f];
      im += x[static_cast<std::size_t>(f)] * s[f];
    }
    syllable += re * re + im * im;
  }
  *ratio = syllable / (std::max(total, syllable) + 1e-20f);
  *depth = std::sqrt(syllable) / (mean * n + 1e-12f);
}

struct MeanStd {
  double sum = 0.0, sq = 0.0;
  int n = 0;
  void Add(double v) { sum += v; sq += v * v; ++n; }
  float Mean() const { return n > 0 ? static_cast<float>(sum / n) : 0.0f; }
  float Std() const {
    if (n < 2) return 0.0f;
    const double m = sum / n;
    return static_cast<float>(std::sqrt(std::max(0.0, sq / n - m * m)));
  }
};

}  // namespace

SpeechFrameAnalyser::SpeechFrameAnalyser()
    : fft_(L::kFrameSize),
      lagFft_(kLagSize),
      window_(L::kFrameSize),
      windowed_(L::kFrameSize),
      spectrumLine_(kLagSize),
      re_(L::kBins),
      im_(L::kBins) {
  double sumSq = 0.0;
  for (int i = 0; i < L::kFrameSize; ++i) {
    const double w = 0.5 - 0.5 * std::cos(2.0 * kPi * (i + 0.5) / L::kFrameSize);
    window_[static_cast<std::size_t>(i)] = static_cast<float>(w);
    sumSq += w * w;
  }
  // Two one-sided power bins per frequency, divided by N * sum(w^2): the band
  // energies come out as the mean square of the signal in that band.
  energyScale_ = static_cast<float>(2.0 / (L::kFrameSize * sumSq));
}

void SpeechFrameAnalyser::Analyse(const float* frame, float* prevMagnitude, float* out) {
  float mean = 0.0f;
  for (int i = 0; i < L::kFrameSize; ++i) mean += frame[i];
  mean /= L::kFrameSize;
  for (int i = 0; i < L::kFrameSize; ++i)
    windowed_[static_cast<std::size_t>(i)] = (frame[i] - mean) * window_[static_cast<std::size_t>(i)];
  fft_.Forward(windowed_.data(), re_.data(), im_.data());

  // Band energies, centroid and flux of the magnitudes.
  float total = 0.0f, moment = 0.0f, fluxNum = 0.0f, fluxDen = 0.0f;
  for (int b = 0; b < L::kBands; ++b) {
    float band = 0.0f;
    for (int k = kBandEdge[b]; k < kBandEdge[b + 1]; ++k) {
      const float zr = re_[static_cast<std::size_t>(k)], zi = im_[static_cast<std::size_t>(k)];
      const float p = zr * zr + zi * zi;
      const float m = std::sqrt(p);
      const float d = m - prevMagnitude[k];
      fluxNum += d * d;
      fluxDen += p + prevMagnitude[k] * prevMagnitude[k];
      prevMagnitude[k] = m;
      band += p;
      moment += p * static_cast<float>(k);
    }
    out[L::kBand0 + b] = band * energyScale_;
    total += band;
  }
  out[L::kEnergy] = total * energyScale_;
  out[L::kFlux] = fluxNum / (fluxDen + 1e-20f);
  out[L::kCentroid] = total > 0.0f ? moment / total / static_cast<float>(L::kBins - 1) : 0.0f;

  // Voicing: normalised autocorrelation of the compressed (magnitude) spectrum
  // below 4 kHz, computed as the transform of the even spectrum line.
  std::fill(spectrumLine_.begin(), spectrumLine_.end(), 0.0f);
  for (int k = kBandEdge[0]; k < kPitchBins; ++k) {
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
      if (r > best && r >= re_[static_cast<std::size_t>(lag - 1)] && r >= re_[static_cast<std::size_t>(lag + 1)]) {
        best = r;
        bestLag = lag;
      }
    }
    best /= r0;
  }
  out[L::kVoicing] = best;
  out[L::kPitchLag] = static_cast<float>(bestLag);

  // Zero crossings of the newest hop (mean removed).
  int crossings = 0;
  const float* hop = frame + (L::kFrameSize - L::kHopSize);
  bool prevPositive = hop[0] >= mean;
  for (int i = 1; i < L::kHopSize; ++i) {
    const bool positive = hop[i] >= mean;
    crossings += positive != prevPositive;
    prevPositive = positive;
  }
  out[L::kZeroCross] = static_cast<float>(crossings) / L::kHopSize;
}

float ComputeSpeechWindowFeatures(const float* frames, int oldest, float* out) {
  constexpr int n = L::kWindowFrames;
  constexpr int fv = L::kFrameValues;
  auto rec = [&](int f) { return frames + ((oldest + f) % n) * fv; };

  double energySum = 0.0;
  for (int f = 0; f < n; ++f) energySum += static_cast<double>(rec(f)[L::kEnergy]);
  const float meanEnergy = static_cast<float>(energySum / n) + 1e-12f;

  std::array<float, n> envAll{}, envLow{}, envHigh{};
  int low = 0, veryLow = 0;
  MeanStd logEnergy, flux, voicing, centroid, zcr, logPitch, highShare;
  int voicedCount = 0, activeCount = 0, transitions = 0, pairs = 0, steadyPairs = 0;
  double pitchMove = 0.0;
  std::array<double, L::kBands> bandSum{};
  bool prevVoiced = false;
  float prevPitch = 0.0f;
  int run = 0, longestVoiced = 0, voicedRuns = 0, activeRun = 0, longestActive = 0;
  std::array<float, n> logE{};
  for (int f = 0; f < n; ++f) {
    const float* r = rec(f);
    const float e = r[L::kEnergy];
    envAll[static_cast<std::size_t>(f)] = std::sqrt(e);
    envLow[static_cast<std::size_t>(f)] = std::sqrt(r[L::kBand0 + 1] + r[L::kBand0 + 2] + r[L::kBand0 + 3]);
    envHigh[static_cast<std::size_t>(f)] = std::sqrt(r[L::kBand0 + 4] + r[L::kBand0 + 5]);
    low += e < 0.5f * meanEnergy;
    veryLow += e < 0.05f * meanEnergy;
    logE[static_cast<std::size_t>(f)] = std::log10(e + 1e-3f * meanEnergy);
    logEnergy.Add(logE[static_cast<std::size_t>(f)]);
    flux.Add(r[L::kFlux]);
    zcr.Add(r[L::kZeroCross]);
    for (int b = 0; b < L::kBands; ++b) bandSum[static_cast<std::size_t>(b)] += static_cast<double>(r[L::kBand0 + b]);
    const bool active = e > 0.05f * meanEnergy;
    bool voiced = false;
    if (active) {
      ++activeCount;
      voicing.Add(r[L::kVoicing]);
      centroid.Add(r[L::kCentroid]);
      highShare.Add(std::log10((r[L::kBand0 + 4] + r[L::kBand0 + 5]) / (e + 1e-20f) + 1e-4f));
      voiced = r[L::kVoicing] > kVoicedThreshold && r[L::kPitchLag] > 0.0f;
    }
    if (voiced) {
      ++voicedCount;
      const float pitch = std::log2(static_cast<float>(kLagRate) / r[L::kPitchLag]);
      logPitch.Add(pitch);
      if (prevVoiced) {
        const float d = std::fabs(pitch - prevPitch);
        pitchMove += static_cast<double>(std::min(d, 1.0f));
        steadyPairs += d < 0.015f;
        ++pairs;
      }
      prevPitch = pitch;
    }
    if (f > 0 && voiced != prevVoiced) ++transitions;
    if (voiced) {
      if (!prevVoiced) ++voicedRuns;
      longestVoiced = std::max(longestVoiced, ++run);
    } else {
      run = 0;
    }
    activeRun = active ? activeRun + 1 : 0;
    longestActive = std::max(longestActive, activeRun);
    prevVoiced = voiced;
  }
  int highZcr = 0;
  const float zcrMean = zcr.Mean();
  for (int f = 0; f < n; ++f) highZcr += rec(f)[L::kZeroCross] > 1.5f * zcrMean;

  int i = 0;
  out[i++] = static_cast<float>(low) / n;
  out[i++] = logEnergy.Std();
  out[i++] = static_cast<float>(veryLow) / n;
  ModulationFeatures(envAll.data(), &out[i], &out[i + 1]);
  i += 2;
  ModulationFeatures(envLow.data(), &out[i], &out[i + 1]);
  i += 2;
  ModulationFeatures(envHigh.data(), &out[i], &out[i + 1]);
  i += 2;
  out[i++] = flux.Mean();
  out[i++] = flux.Std();
  out[i++] = voicing.Mean();
  out[i++] = activeCount > 0 ? static_cast<float>(voicedCount) / static_cast<float>(activeCount) : 0.0f;
  out[i++] = static_cast<float>(transitions) / n;
  out[i++] = logPitch.Std();
  out[i++] = pairs > 0 ? static_cast<float>(pitchMove / pairs) : 0.0f;
  out[i++] = pairs > 0 ? static_cast<float>(steadyPairs) / static_cast<float>(pairs) : 0.0f;
  out[i++] = centroid.Mean();
  out[i++] = centroid.Std();
  out[i++] = zcrMean;
  out[i++] = zcr.Std();
  out[i++] = static_cast<float>(highZcr) / n;
  for (int b = 0; b < L::kBands; ++b)
    out[i++] = static_cast<float>(std::log10(bandSum[static_cast<std::size_t>(b)] / (energySum + 1e-20) + 1e-6));
  out[i++] = highShare.Std();
  // Level spread: 10th and 90th percentile of the frame levels about their mean.
  std::array<float, n> sortedE = logE;
  std::nth_element(sortedE.begin(), sortedE.begin() + n / 10, sortedE.end());
  out[i++] = sortedE[n / 10] - logEnergy.Mean();
  std::nth_element(sortedE.begin(), sortedE.begin() + n * 9 / 10, sortedE.end());
  out[i++] = sortedE[n * 9 / 10] - logEnergy.Mean();
  // Voiced runs: syllables are short, held notes long.
  out[i++] = static_cast<float>(longestVoiced) / n;
  out[i++] = voicedRuns > 0 ? static_cast<float>(voicedCount) / static_cast<float>(voicedRuns) / n : 0.0f;
  out[i++] = static_cast<float>(longestActive) / n;
  // Envelope regularity: the strongest normalised autocorrelation of the
  // level envelope at lags of 0.25 to 1 s (a beat gives a clear peak).
  {
    float mean = 0.0f;
    for (float v : envAll) mean += v;
    mean /= n;
    float r0 = 0.0f;
    for (float v : envAll) r0 += (v - mean) * (v - mean);
    float best = 0.0f;
    for (int lag = 8; lag <= 32 && r0 > 0.0f; ++lag) {
      float r = 0.0f;
      for (int f = 0; f + lag < n; ++f)
        r += (envAll[static_cast<std::size_t>(f)] - mean) * (envAll[static_cast<std::size_t>(f + lag)] - mean);
      best = std::max(best, r / r0 * static_cast<float>(n) / static_cast<float>(n - lag));
    }
    out[i++] = best;
  }
  return static_cast<float>(energySum / n);
}

}  // namespace velorum
