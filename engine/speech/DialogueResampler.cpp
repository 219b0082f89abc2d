#include "engine/speech/DialogueResampler.h"

#include <algorithm>
#include <cmath>

namespace velorum {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Zeroth-order modified Bessel function, for the Kaiser window.
double BesselI0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; k < 40; ++k) {
    term *= (x / (2.0 * k)) * (x / (2.0 * k));
    sum += term;
    if (term < sum * 1e-12) break;
  }
  return sum;
}

}  // namespace

int DialogueResampler::TapsForRate(double inputRate) {
  if (!std::isfinite(inputRate) || inputRate <= 0.0) return 0;
  struct Entry {
    double rate;
    int taps;
  };
  static constexpr Entry kTable[] = {{192000.0, 104}, {96000.0, 76}, {88200.0, 72}, {48000.0, 38},
                                     {44100.0, 34},   {32000.0, 26}, {22050.0, 22}};
  for (const Entry& e : kTable)
    if (inputRate == e.rate) return e.taps;
  const double n = std::ceil(inputRate / 48000.0 * 38.0);
  if (n >= kMaxTaps) return kMaxTaps;
  const int taps = static_cast<int>(n);
  return taps & ~1;
}

void DialogueResampler::Configure(double inputRate, double outputRate) {
  // The same rates again (a reset): keep the filter, clear the history only.
  if (inputRate == configuredIn_ && outputRate == configuredOut_) {
    Reset();
    return;
  }
  configuredIn_ = inputRate;
  configuredOut_ = outputRate;
  taps_ = 0;
  phases_ = 1;
  maxOut_ = 1;
  symmetric_ = false;
  table_.clear();
  buffer_.clear();
  if (std::isfinite(outputRate) && outputRate > 0.0) taps_ = TapsForRate(inputRate);
  if (taps_ < 4) {
    taps_ = 0;
    Reset();
    return;
  }
  // Phases of the fractional delay: fine enough that the nearest phase is within
  // 1/512 of an input sample, fewer for very long filters to bound the table.
  phases_ = std::clamp(262144 / taps_, 1, 256);
  const double ratio = inputRate / outputRate;  // input samples per output sample
  stepWhole_ = static_cast<long long>(std::floor(ratio));
  stepFrac_ = ratio - static_cast<double>(stepWhole_);
  maxOut_ = static_cast<int>(std::ceil(1.0 / ratio)) + 1;

  // Low-pass at 40 % of the lower of the two rates, relative to the input rate:
  // the classifier looks at nothing above 8 kHz at 16 kHz, so a wide transition
  // band is acceptable and keeps the filter short.
  const double cutoff = 0.4 * std::min(inputRate, outputRate) / inputRate;  // cycles per input sample
  const double beta = 5.0;
  const double half = 0.5 * taps_;
  table_.assign(static_cast<std::size_t>(phases_) * static_cast<std::size_t>(taps_), 0.0f);
  std::vector<double> row(static_cast<std::size_t>(taps_));
  for (int p = 0; p < phases_; ++p) {
    const double frac = static_cast<double>(p) / phases_;
    double sum = 0.0;
    for (int j = 0; j < taps_; ++j) {
      // Coefficient for input sample (base - taps/2 + 1 + j) of an output at base + frac.
      const double t = frac + half - 1.0 - j;
      const double arg = 2.0 * cutoff * t;
      const double sinc = (std::fabs(arg) < 1e-12) ? 1.0 : std::sin(kPi * arg) / (kPi * arg);
      const double r = t / half;
      const double w = (std::fabs(r) >= 1.0) ? 0.0 : BesselI0(beta * std::sqrt(1.0 - r * r)) / BesselI0(beta);
      row[static_cast<std::size_t>(j)] = sinc * w;
      sum += sinc * w;
    }
    // Unity gain at DC for every phase.
    for (int j = 0; j < taps_; ++j)
      table_[static_cast<std::size_t>(p) * static_cast<std::size_t>(taps_) + static_cast<std::size_t>(j)] =
          static_cast<float>(row[static_cast<std::size_t>(j)] / sum);
  }
  buffer_.assign(static_cast<std::size_t>(taps_ + kBlock), 0.0f);
  symmetric_ = stepFrac_ == 0.0;
  Reset();
}

void DialogueResampler::Reset() {
  std::fill(buffer_.begin(), buffer_.end(), 0.0f);
  // The buffer starts with taps_ zeros standing for the silence before the
  // first sample, so that every output has a full window.
  kept_ = taps_;
  base_ = -static_cast<long long>(taps_);
  // The first output is centred on input sample 0; it becomes due once half the
  // filter has arrived after it.
  nextWhole_ = 0;
  nextFrac_ = 0.0;
}

inline float DialogueResampler::Filter(const float* x, int phase) const {
  const float* h = table_.data() + static_cast<std::size_t>(phase) * static_cast<std::size_t>(taps_);
  // Eight independent partial sums: two vector registers' worth of products
  // that do not wait for one another.
  float acc[8] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
  int j = 0;
  for (; j + 8 <= taps_; j += 8)
    for (int k = 0; k < 8; ++k) acc[k] += x[j + k] * h[j + k];
  for (; j < taps_; ++j) acc[j & 7] += x[j] * h[j];
  return ((acc[0] + acc[4]) + (acc[1] + acc[5])) + ((acc[2] + acc[6]) + (acc[3] + acc[7]));
}

inline float DialogueResampler::FilterSymmetric(const float* x) const {
  // Phase 0: h[j] == h[taps - 2 - j], centre at taps / 2 - 1, h[taps - 1] == 0.
  const float* h = table_.data();
  const int centre = taps_ / 2 - 1;
  const float* y = x + (taps_ - 2);
  float acc[8] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
  int j = 0;
  for (; j + 8 <= centre; j += 8)
    for (int k = 0; k < 8; ++k) acc[k] += (x[j + k] + y[-(j + k)]) * h[j + k];
  for (; j < centre; ++j) acc[j & 7] += (x[j] + y[-j]) * h[j];
  acc[0] += x[centre] * h[centre];
  return ((acc[0] + acc[4]) + (acc[1] + acc[5])) + ((acc[2] + acc[6]) + (acc[3] + acc[7]));
}

int DialogueResampler::Pass(const float* in, int count, float* out) {
  float* buf = buffer_.data();
  std::copy(in, in + count, buf + kept_);
  const int size = kept_ + count;
  const long long newest = base_ + size - 1;
  const int half = taps_ / 2;
  int produced = 0;
  // An output at time whole + fraction uses the inputs whole - taps/2 + 1 ..
  // whole + taps/2, so it can be made once input whole + taps/2 is here.
  if (symmetric_) {  // whole-number ratio: the fraction stays 0
    for (; nextWhole_ + half <= newest; nextWhole_ += stepWhole_)
      out[produced++] = FilterSymmetric(buf + (nextWhole_ - half + 1 - base_));
  }
  while (!symmetric_) {
    int phase = static_cast<int>(nextFrac_ * phases_ + 0.5);
    long long whole = nextWhole_;
    if (phase >= phases_) {  // the fraction rounds up to the next whole sample
      phase = 0;
      ++whole;
    }
    if (whole + half > newest) break;
    const float* x = buf + (whole - half + 1 - base_);
    out[produced++] = symmetric_ ? FilterSymmetric(x) : Filter(x, phase);
    nextFrac_ += stepFrac_;
    nextWhole_ += stepWhole_;
    if (nextFrac_ >= 1.0) {
      nextFrac_ -= 1.0;
      ++nextWhole_;
    }
  }
  // Keep the newest taps_ samples for the next pass.
  std::copy(buf + size - taps_, buf + size, buf);
  base_ += size - taps_;
  kept_ = taps_;
  return produced;
}

int DialogueResampler::Push(const float* in, int count, float* out) {
  if (taps_ < 4) {
    std::copy(in, in + count, out);
    return count;
  }
  int produced = 0;
  for (int done = 0; done < count; done += kBlock)
    produced += Pass(in + done, std::min(kBlock, count - done), out + produced);
  return produced;
}

}  // namespace velorum
