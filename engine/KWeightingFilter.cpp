#include "engine/KWeightingFilter.h"

#include <cmath>

namespace velorum {

Biquad ConvertBiquadToRate(const Biquad& r, double ft) {
  Biquad out;
  out.rate = ft;
  const double fr = r.rate;
  if (fr == ft) {
    out.a1 = r.a1;
    out.a2 = r.a2;
    out.b0 = r.b0;
    out.b1 = r.b1;
    out.b2 = r.b2;
    return out;
  }
  const double a1 = r.a1, a2 = r.a2, b0 = r.b0, b1 = r.b1, b2 = r.b2;
  const double d = (a2 + 1.0) * (a1 - 2.0) - (a2 - 1.0) * a1;
  const double kq = ((1.0 - a2) * (a1 - 2.0) - (a2 - 1.0) * (-a1 - 2.0)) / d;
  const double k2 = ((a2 + 1.0) * (-a1 - 2.0) - (1.0 - a2) * a1) / d;
  const double k = std::sqrt(k2);
  const double c = (kq + 1.0 + k2) * 0.25;
  const double gainHigh = (b0 - b1 + b2) * c;
  const double gainBand = (b0 - b2) * ((kq + 1.0 + k2) * 0.5) / kq;
  const double gainLow = (b0 + b1 + b2) * c / k2;
  const double kn = std::tan(std::atan(k) * fr / ft);
  const double kn2 = kn * kn;
  const double kqn = kn / (k / kq);
  const double den = kqn + 1.0 + kn2;
  out.a1 = 2.0 * (kn2 - 1.0) / den;
  out.a2 = (1.0 - kqn + kn2) / den;
  out.b0 = (gainHigh + gainBand * kqn + gainLow * kn2) / den;
  out.b1 = 2.0 * (gainLow * kn2 - gainHigh) / den;
  out.b2 = (gainHigh - gainBand * kqn + gainLow * kn2) / den;
  return out;
}

}  // namespace velorum
