#include "engine/speech/SpeechClassifier.h"

#include <algorithm>
#include <cmath>

namespace velorum {

SpeechClassifier::SpeechClassifier() : state_(kStateValues, 0.0f) {
  audio_ = state_.data();
  magnitude_ = audio_ + Layout::kFrameSize;
  logHistory_ = magnitude_ + Layout::kBins;
  energies_ = logHistory_ + Layout::kHistoryFrames * Layout::kLogValues;
  net_ = energies_ + Layout::kWindowFrames;
  Reset();
}

void SpeechClassifier::Reset() {
  std::fill(state_.begin(), state_.end(), 0.0f);
  audioFill_ = 0;
  frames_ = 0;
  samples_ = 0;
  decision_ = -1;
  probability_ = 0.0f;
  meanSquare_ = 0.0f;
  logit_ = 0.0f;
}

void SpeechClassifier::Push(const float* x, int count) {
  int i = 0;
  while (i < count) {
    const int run = std::min(count - i, Layout::kFrameSize - audioFill_);
    float* dst = audio_ + audioFill_;
    // Non-finite samples count as silence; absurd levels are clamped so that
    // no energy overflows.
    for (int j = 0; j < run; ++j)
      dst[j] = std::isfinite(x[i + j]) ? std::fmax(-kMaxSample, std::fmin(kMaxSample, x[i + j])) : 0.0f;
    audioFill_ += run;
    samples_ += run;
    i += run;
    if (audioFill_ == Layout::kFrameSize) {
      audioFill_ = 0;
      AnalyseFrame();
    }
  }
}

void SpeechClassifier::AnalyseFrame() {
  SpeechFrameAnalyser::Frame f;
  analyser_.Analyse(audio_, magnitude_, f);
  const int slot = static_cast<int>(frames_ % Layout::kHistoryFrames);
  std::copy(f.logEnergy, f.logEnergy + Layout::kLogValues, logHistory_ + slot * Layout::kLogValues);
  const int filled = static_cast<int>(std::min<long long>(frames_ + 1, Layout::kHistoryFrames));
  SpeechFrameInputs(f, logHistory_, filled, inputs_);
  energies_[frames_ % Layout::kWindowFrames] = f.meanSquare;
  logit_ = SpeechNet::Frame(kSpeechModelWeights, inputs_, net_, frames_);
  ++frames_;
  if (frames_ >= Layout::kWindowFrames && (frames_ - Layout::kWindowFrames) % kDecisionFrames == 0) Decide();
}

void SpeechClassifier::Decide() {
  double sum = 0.0;
  for (int i = 0; i < Layout::kWindowFrames; ++i) sum += static_cast<double>(energies_[i]);
  meanSquare_ = static_cast<float>(sum / Layout::kWindowFrames);
  // Silence is no speech; otherwise ask the model.
  probability_ = meanSquare_ >= kSilence ? SpeechNet::Probability(net_) : 0.0f;
  decision_ = (meanSquare_ >= kSilence && probability_ >= kSpeechModelWeights.threshold) ? 1 : 0;
}

}  // namespace velorum
