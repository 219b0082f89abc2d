#include "engine/speech/SpeechFft.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace velorum {

namespace {
// Four floats in one register (GCC and Clang vector extension; SSE on x86-64).
// Element-wise arithmetic, so the results equal the scalar loop's bit for bit.
typedef float Float4 __attribute__((vector_size(16)));
inline Float4 Load4(const float* p) {
  Float4 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void Store4(float* p, Float4 v) {
  std::memcpy(p, &v, sizeof v);
}
}  // namespace

SpeechFft::SpeechFft(int size)
    : n_(size),
      half_(size / 2),
      zr_(static_cast<std::size_t>(size / 2)),
      zi_(static_cast<std::size_t>(size / 2)) {
  const double pi = 3.14159265358979323846;
  bitrev_.resize(static_cast<std::size_t>(half_));
  int bits = 0;
  while ((1 << bits) < half_) ++bits;
  for (int i = 0; i < half_; ++i) {
    int r = 0;
    for (int b = 0; b < bits; ++b)
      if (i & (1 << b)) r |= 1 << (bits - 1 - b);
    bitrev_[static_cast<std::size_t>(i)] = r;
  }
  for (int len = 2; len <= half_; len <<= 1)
    for (int k = 0; k < len / 2; ++k) {
      twRe_.push_back(static_cast<float>(std::cos(-2.0 * pi * k / len)));
      twIm_.push_back(static_cast<float>(std::sin(-2.0 * pi * k / len)));
    }
  for (int k = 0; k <= half_; ++k) {
    splitRe_.push_back(static_cast<float>(std::cos(-2.0 * pi * k / n_)));
    splitIm_.push_back(static_cast<float>(std::sin(-2.0 * pi * k / n_)));
  }
}

void SpeechFft::Forward(const float* in, float* re, float* im) {
  float* zr = zr_.data();
  float* zi = zi_.data();
  // Even samples as real parts, odd samples as imaginary parts, in
  // bit-reversed order.
  for (int i = 0; i < half_; ++i) {
    const int r = bitrev_[static_cast<std::size_t>(i)];
    zr[r] = in[2 * i];
    zi[r] = in[2 * i + 1];
  }
  // The first two stages together: butterflies of four with twiddles 1 and -i.
  for (int start = 0; start + 4 <= half_; start += 4) {
    float* r = zr + start;
    float* q = zi + start;
    const float s0r = r[0] + r[1], s0i = q[0] + q[1], d0r = r[0] - r[1], d0i = q[0] - q[1];
    const float s1r = r[2] + r[3], s1i = q[2] + q[3], d1r = r[2] - r[3], d1i = q[2] - q[3];
    r[0] = s0r + s1r;
    q[0] = s0i + s1i;
    r[2] = s0r - s1r;
    q[2] = s0i - s1i;
    // -i * d1 = (d1i, -d1r)
    r[1] = d0r + d1i;
    q[1] = d0i - d1r;
    r[3] = d0r - d1i;
    q[3] = d0i + d1r;
  }
  const float* twr = twRe_.data() + 3;  // past the twiddles of lengths 2 and 4
  const float* twi = twIm_.data() + 3;
  for (int len = 8; len <= half_; len <<= 1) {
    const int h = len / 2;
    for (int start = 0; start < half_; start += len) {
      float* ar = zr + start;
      float* ai = zi + start;
      float* br = zr + start + h;
      float* bi = zi + start + h;
      for (int k = 0; k < h; k += 4) {  // h >= 4 from here on
        const Float4 wr = Load4(twr + k), wi = Load4(twi + k);
        const Float4 xr = Load4(br + k), xi = Load4(bi + k);
        const Float4 yr = Load4(ar + k), yi = Load4(ai + k);
        const Float4 tr = wr * xr - wi * xi;
        const Float4 ti = wr * xi + wi * xr;
        Store4(br + k, yr - tr);
        Store4(bi + k, yi - ti);
        Store4(ar + k, yr + tr);
        Store4(ai + k, yi + ti);
      }
    }
    twr += h;
    twi += h;
  }
  // X[k] = (Z[k] + conj Z[h-k]) / 2 + e^(-2 pi i k / n) (Z[k] - conj Z[h-k]) / (2i)
  for (int k = 0; k <= half_; ++k) {
    const int a = k == half_ ? 0 : k;
    const int b = k == 0 ? 0 : half_ - k;
    const float ar = zr[a], ai = zi[a];
    const float br = zr[b], bi = -zi[b];  // conj Z[h-k]
    const float er = 0.5f * (ar + br), ei = 0.5f * (ai + bi);
    const float dr = ar - br, di = ai - bi;
    const float orr = 0.5f * di, oi = -0.5f * dr;  // (a - b) / (2i)
    re[k] = er + splitRe_[static_cast<std::size_t>(k)] * orr - splitIm_[static_cast<std::size_t>(k)] * oi;
    im[k] = ei + splitRe_[static_cast<std::size_t>(k)] * oi + splitIm_[static_cast<std::size_t>(k)] * orr;
  }
}

}  // namespace velorum
