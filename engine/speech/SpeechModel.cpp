#include "engine/speech/SpeechModel.h"

#include <cmath>

namespace velorum {

float SpeechProbability(const SpeechModelWeights& w, const float* features) {
  float x[SpeechModelWeights::kInputs];
  for (int i = 0; i < SpeechModelWeights::kInputs; ++i) {
    const float v = (features[i] - w.mean[i]) * w.invStd[i];
    // Features far outside the training range (odd material, NaN input) are
    // clamped so one of them cannot dominate the decision.
    x[i] = std::isfinite(v) ? std::fmax(-8.0f, std::fmin(8.0f, v)) : 0.0f;
  }
  float z = w.outputBias;
  for (int h = 0; h < SpeechModelWeights::kHidden; ++h) {
    float a = w.hiddenBias[h];
    for (int i = 0; i < SpeechModelWeights::kInputs; ++i) a += w.hidden[h][i] * x[i];
    z += w.output[h] * std::tanh(a);
  }
  return 1.0f / (1.0f + std::exp(-z));
}

}  // namespace velorum
