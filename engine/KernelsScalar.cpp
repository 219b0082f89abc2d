// Plain C++ variant of the hot loops; the reference for the vector ones.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/Kernels.h"

namespace velorum {

void KWeightingBank::ClearState() {
  std::memset(x1a, 0, sizeof x1a);
  std::memset(x2a, 0, sizeof x2a);
  std::memset(y1a, 0, sizeof y1a);
  std::memset(y2a, 0, sizeof y2a);
  std::memset(x1b, 0, sizeof x1b);
  std::memset(x2b, 0, sizeof x2b);
  std::memset(y1b, 0, sizeof y1b);
  std::memset(y2b, 0, sizeof y2b);
}

void TruePeakHistory::Clear() {
  std::memset(samples, 0, sizeof samples);
}

namespace kernels {

void KWeightChannels(KWeightingBank& k, const double* const* x, int first, int last, int n,
                     double* const* power) {
  for (int c = first; c < last; ++c) {
    double x1a = k.x1a[c], x2a = k.x2a[c], y1a = k.y1a[c], y2a = k.y2a[c];
    double x1b = k.x1b[c], x2b = k.x2b[c], y1b = k.y1b[c], y2b = k.y2b[c];
    const double b0a = k.b0a[c], b1a = k.b1a[c], b2a = k.b2a[c], a1a = k.a1a[c], a2a = k.a2a[c];
    const double b0b = k.b0b[c], b1b = k.b1b[c], b2b = k.b2b[c], a1b = k.a1b[c], a2b = k.a2b[c];
    const double w = k.weight[c];
    const double* in = x[c];
    double* out = power[c];
    for (int i = 0; i < n; ++i) {
      const double xi = in[i];
      const double ya = (((b0a * xi + b1a * x1a) + b2a * x2a) - a2a * y2a) - a1a * y1a;
      x2a = x1a;
      x1a = xi;
      y2a = y1a;
      y1a = ya;
      const double yb = (((b0b * ya + b1b * x1b) + b2b * x2b) - a2b * y2b) - a1b * y1b;
      x2b = x1b;
      x1b = ya;
      y2b = y1b;
      y1b = yb;
      const double v = yb * w;
      out[i] = v * v;
    }
    k.x1a[c] = x1a, k.x2a[c] = x2a, k.y1a[c] = y1a, k.y2a[c] = y2a;
    k.x1b[c] = x1b, k.x2b[c] = x2b, k.y1b[c] = y1b, k.y2b[c] = y2b;
  }
}

namespace {

void KWeightScalar(KWeightingBank& k, const double* const* x, int channels, int n, double* const* power) {
  KWeightChannels(k, x, 0, channels, n, power);
}

void SumScalar(const double* const* power, int channels, int n, double* total) {
  for (int i = 0; i < n; ++i) total[i] = 0.0;
  for (int c = 0; c < channels; ++c)
    for (int i = 0; i < n; ++i) total[i] += power[c][i];
}

inline double Larger(double v, double peak) {
  return v > peak ? v : peak;
}

// One phase of the output whose window starts at u, in the common order.
inline double Phase(const double* t, int p, const double* u, int taps) {
  double s0 = t[0 + p] * u[0], s1 = t[4 + p] * u[1], s2 = t[8 + p] * u[2], s3 = t[12 + p] * u[3];
  int k = 4;
  for (; k + 4 <= taps; k += 4) {
    s0 = s0 + t[4 * k + p] * u[k];
    s1 = s1 + t[4 * (k + 1) + p] * u[k + 1];
    s2 = s2 + t[4 * (k + 2) + p] * u[k + 2];
    s3 = s3 + t[4 * (k + 3) + p] * u[k + 3];
  }
  if (k < taps) s0 = s0 + t[4 * k + p] * u[k];
  if (k + 1 < taps) s1 = s1 + t[4 * (k + 1) + p] * u[k + 1];
  if (k + 2 < taps) s2 = s2 + t[4 * (k + 2) + p] * u[k + 2];
  return (s0 + s1) + (s2 + s3);
}

double TruePeakScalar(const TruePeakTable& t, TruePeakHistory& h, const double* x, int n, double peak) {
  return RunTruePeak(TruePeakSpanScalar, t, h, x, n, peak);
}

}  // namespace

double TruePeakSpanScalar(const TruePeakTable& t, const double* w, int m, double peak) {
  const int taps = t.taps;
  for (int j = 0; j < m; ++j) {
    const double* u = w + j + 1 - taps;
    for (int p = 0; p < 4; ++p) {
      if (p == t.delayPhase) continue;
      peak = Larger(std::fabs(Phase(t.tapMajor, p, u, taps)), peak);
    }
    if (t.delayPhase >= 0) peak = Larger(std::fabs(t.delayGain * u[t.delayTap]), peak);
    peak = Larger(std::fabs(w[j]), peak);
  }
  return peak;
}

double RunTruePeak(TruePeakSpan span, const TruePeakTable& t, TruePeakHistory& h, const double* x, int n,
                   double peak) {
  constexpr int kKeep = TruePeakHistory::kKeep;
  constexpr int kRun = 512;
  if (n <= 0) return peak;
  alignas(64) double buffer[kKeep + kRun];
  std::memcpy(buffer, h.samples, sizeof h.samples);
  while (n > 0) {
    const int m = std::min(n, kRun);
    std::memcpy(buffer + kKeep, x, sizeof(double) * static_cast<std::size_t>(m));
    peak = span(t, buffer + kKeep, m, peak);
    std::memmove(buffer, buffer + m, sizeof h.samples);
    x += m;
    n -= m;
  }
  std::memcpy(h.samples, buffer, sizeof h.samples);
  return peak;
}

const KernelSet kScalar{KWeightScalar, SumScalar, TruePeakScalar};

}  // namespace kernels
}  // namespace velorum
