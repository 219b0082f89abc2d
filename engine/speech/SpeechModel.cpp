#include "engine/speech/SpeechModel.h"

#include <algorithm>
#include <cmath>

namespace velorum {

namespace {

using W = SpeechModelWeights;
constexpr int kC = W::kChannels;

// acc[o] += sum over i of m[i][o] * x[i]: the inner loop runs over the
// outputs with unit stride, which the compiler turns into vector code.
inline void MultiplyAdd(const float (*m)[kC], const float* x, int inputs, float* acc) {
  for (int i = 0; i < inputs; ++i) {
    const float v = x[i];
    const float* row = m[i];
    for (int o = 0; o < kC; ++o) acc[o] += row[o] * v;
  }
}

// The network's frame step, compiled twice below: once for the baseline
// instruction set and once for AVX2, chosen at run time. Each output is the
// same sum in the same order in both (no fused multiply-adds), so both give
// bit-identical results.
[[gnu::always_inline]] inline float FrameBody(const W& w, const float* inputs, float* state,
                                              long long frame) {
  float x[W::kInputs];
  for (int i = 0; i < W::kInputs; ++i) {
    const float v = (inputs[i] - w.mean[i]) * w.invStd[i];
    // Values far outside the training range (odd material) are clamped so
    // that one of them cannot dominate the decision.
    x[i] = std::isfinite(v) ? std::fmax(-8.0f, std::fmin(8.0f, v)) : 0.0f;
  }
  alignas(32) float h[kC];
  std::copy(w.inputBias, w.inputBias + kC, h);
  MultiplyAdd(w.input, x, W::kInputs, h);
  for (int o = 0; o < kC; ++o) h[o] = std::fmax(h[o], 0.0f);

  float* ring = state;
  for (int l = 0; l < W::kLayers; ++l) {
    const int d = W::kDilation[l];
    const int size = 2 * d + 1;
    const auto pos = [&](long long t) { return static_cast<int>(t % size) * kC; };
    std::copy(h, h + kC, ring + pos(frame));
    alignas(32) float y[kC];
    std::copy(w.convBias[l], w.convBias[l] + kC, y);
    for (int k = 0; k < W::kTaps; ++k) {
      const long long t = frame - static_cast<long long>(W::kTaps - 1 - k) * d;
      if (t < 0) continue;  // before the first frame the inputs are zero
      MultiplyAdd(w.conv[l][k], ring + pos(t), kC, y);
    }
    for (int o = 0; o < kC; ++o) h[o] += std::fmax(y[o], 0.0f);
    ring += size * kC;
  }
  float z = w.outputBias;
  for (int o = 0; o < kC; ++o) z += w.output[o] * h[o];
  if (!std::isfinite(z)) z = -30.0f;
  ring[frame % SpeechNet::kLogitFrames] = z;
  return z;
}

float FrameBaseline(const W& w, const float* inputs, float* state, long long frame) {
  return FrameBody(w, inputs, state, frame);
}

#if defined(__x86_64__) && !defined(_WIN32)
// Not on Windows: its ABI does not align the stack for 32-byte spills.
[[gnu::target("avx2")]] float FrameAvx2(const W& w, const float* inputs, float* state, long long frame) {
  return FrameBody(w, inputs, state, frame);
}

using FrameFunction = float (*)(const W&, const float*, float*, long long);
FrameFunction ChooseFrame() {
  __builtin_cpu_init();  // may run before the library's own start-up code
  return __builtin_cpu_supports("avx2") ? FrameAvx2 : FrameBaseline;
}
const FrameFunction kFrame = ChooseFrame();
#else
constexpr auto kFrame = FrameBaseline;
#endif

}  // namespace

float SpeechNet::Frame(const W& w, const float* inputs, float* state, long long frame) {
  return kFrame(w, inputs, state, frame);
}

float SpeechNet::Probability(const float* state) {
  const float* logits = state + kStateValues - kLogitFrames;
  float sum = 0.0f;
  for (int i = 0; i < kLogitFrames; ++i) sum += logits[i];
  return 1.0f / (1.0f + std::exp(-sum / kLogitFrames));
}

}  // namespace velorum
