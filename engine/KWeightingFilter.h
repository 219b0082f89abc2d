// The two K-weighting stages of BS.1770-4 and their conversion to any rate.
#pragma once

#include <array>

namespace velorum {

// One biquad's coefficients, a0 normalised to 1.
struct Biquad {
  double rate = 48000.0;
  double a1 = 0.0, a2 = 0.0, b0 = 1.0, b1 = 0.0, b2 = 0.0;
};

// Reference coefficients at 48 kHz as published (stage 2's a1 and a2 keep
// their published single-precision-rounded digits).
inline constexpr Biquad kStage1Reference{48000.0,          -1.69065929318241, 0.73248077421585,
                                         1.53512485958697, -2.69169618940638, 1.19839281085285};
inline constexpr Biquad kStage2Reference{48000.0, -1.99004745483398, 0.99007225036621, 1.0, -2.0, 1.0};

// Moves a biquad designed at reference.rate to targetRate by recovering its
// analogue prototype (low, band and high gains) and re-applying the bilinear
// transform with pre-warping. Equal rates copy the coefficients unchanged.
Biquad ConvertBiquadToRate(const Biquad& reference, double targetRate);

// One channel's filter record: state and reference/active coefficients of
// both stages. The processing loops keep the running state in a
// structure-of-arrays copy (KWeightingBank) so that channels can share
// vector registers.
struct KWeightingFilter {
  std::array<double, 10> state{};  // x1 x2 y1 y2 y  of stage 1, then stage 2
  Biquad stage1Reference = kStage1Reference;
  Biquad stage1 = kStage1Reference;
  Biquad stage2Reference = kStage2Reference;
  Biquad stage2 = kStage2Reference;

  void SetRate(double rate) {
    stage1 = ConvertBiquadToRate(stage1Reference, rate);
    stage2 = ConvertBiquadToRate(stage2Reference, rate);
    stage1.rate = rate;
    stage2.rate = rate;
    state.fill(0.0);
  }
};

}  // namespace velorum
