#include "engine/speech/SpeechClassifier.h"

#include <algorithm>

#include "engine/speech/SpeechModel.h"

namespace velorum {

static_assert(SpeechFeatureLayout::kHopSize == SpeechFeatureLayout::kFrameSize,
              "frames are analysed back to back straight from the fill buffer");

SpeechClassifier::SpeechClassifier() : state_(kStateValues, 0.0f) {
  audio_ = state_.data();
  magnitude_ = audio_ + Layout::kFrameSize;
  records_ = magnitude_ + Layout::kBins;
  Reset();
}

void SpeechClassifier::Reset() {
  std::fill(state_.begin(), state_.end(), 0.0f);
  audioFill_ = 0;
  recordPos_ = 0;
  frames_ = 0;
  samples_ = 0;
  decision_ = -1;
  probability_ = 0.0f;
  meanSquare_ = 0.0f;
  recentCount_ = 0;
  recentPos_ = 0;
}

void SpeechClassifier::Push(const float* x, int count) {
  int i = 0;
  while (i < count) {
    const int run = std::min(count - i, Layout::kFrameSize - audioFill_);
    std::copy(x + i, x + i + run, audio_ + audioFill_);
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
  analyser_.Analyse(audio_, magnitude_, records_ + recordPos_ * Layout::kFrameValues);
  recordPos_ = (recordPos_ + 1 == Layout::kWindowFrames) ? 0 : recordPos_ + 1;
  ++frames_;
  if (frames_ >= Layout::kWindowFrames && (frames_ - Layout::kWindowFrames) % kDecisionFrames == 0) Decide();
}

bool SpeechClassifier::WindowFeatures(float* out) const {
  if (frames_ < Layout::kWindowFrames) return false;
  ComputeSpeechWindowFeatures(records_, recordPos_, out);
  return true;
}

void SpeechClassifier::Decide() {
  float features[Layout::kWindowFeatures];
  meanSquare_ = ComputeSpeechWindowFeatures(records_, recordPos_, features);
  // Silence (or NaN input) is no speech; otherwise ask the model.
  const float p = meanSquare_ >= kSilence ? SpeechProbability(kSpeechModelWeights, features) : 0.0f;
  recent_[recentPos_] = p;
  recentPos_ = (recentPos_ + 1) % kSmoothing;
  recentCount_ = std::min(recentCount_ + 1, kSmoothing);
  float sum = 0.0f;
  for (int i = 0; i < recentCount_; ++i) sum += recent_[i];
  probability_ = sum / static_cast<float>(recentCount_);
  decision_ = (meanSquare_ >= kSilence && probability_ >= kSpeechModelWeights.threshold) ? 1 : 0;
}

}  // namespace velorum
