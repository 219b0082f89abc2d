#pragma once
// Real-time speech / no-speech classifier for one dialogue channel.
//
// Audio arrives at 16 kHz (see DialogueResampler). Every 32 ms a frame is
// analysed into a handful of values (SpeechFrameAnalyser); every 128 ms the
// last 64 frames (2.048 s) are summarised into window features and scored by
// a small perceptron (SpeechModel). Decision() is -1 until 2.048 s of audio
// (32768 samples) have arrived, then 1 for speech and 0 for anything else.
//
// State per channel: the 2.048 s view is kept as 64 per-frame records rather
// than as audio, so a channel holds 512 samples of frame audio, 257 previous
// magnitudes and 64 x 12 frame values, 1537 values in all -- far less than a
// classifier that buffers 2.048 s of audio (32768 values) plus its analysis
// state (38064 in such a design), and enough for everything the model looks at.

#include <cstddef>
#include <vector>

#include "engine/speech/SpeechFeatures.h"

namespace velorum {

class SpeechClassifier {
public:
  using Layout = SpeechFeatureLayout;
  static constexpr int kRate = Layout::kRate;
  static constexpr long long kLatencySamples = 32768;  // ceil(16000 * 2.048)
  static constexpr int kDecisionFrames = 4;            // a decision every 128 ms
  // The decision compares the mean probability of the last few windows with
  // the model's threshold, which steadies it against single odd windows.
  static constexpr int kSmoothing = 3;
  // Mean square below which a window counts as silence (-70 dB re full scale).
  static constexpr float kSilence = 1e-7f;
  static constexpr std::size_t kStateValues =
      Layout::kFrameSize + Layout::kBins + static_cast<std::size_t>(Layout::kWindowFrames) * Layout::kFrameValues;

  SpeechClassifier();
  // Clears all audio and frame state; the decision becomes unknown (-1).
  void Reset();

  // Samples at 16 kHz.
  void Push(float x) { Push(&x, 1); }
  void Push(const float* x, int count);

  // -1 unknown (less than 2.048 s seen since Reset), 0 no speech, 1 speech.
  int Decision() const { return decision_; }
  // Speech probability of the latest decision (0 while unknown).
  float Probability() const { return probability_; }
  long long SamplesPushed() const { return samples_; }
  // Mean square of the latest decision window (0 while unknown).
  float WindowMeanSquare() const { return meanSquare_; }
  // Window features of the last 64 frames (for the training tool); false
  // while fewer than 64 frames have been analysed.
  bool WindowFeatures(float* out) const;

private:
  void AnalyseFrame();
  void Decide();

  SpeechFrameAnalyser analyser_;
  // The whole per-channel state lives in one block of kStateValues floats:
  // [audio ring | previous magnitudes | frame records].
  std::vector<float> state_;
  float* audio_ = nullptr;  // the frame being filled (frames do not overlap)
  float* magnitude_ = nullptr;
  float* records_ = nullptr;
  int audioFill_ = 0;
  int recordPos_ = 0;
  long long frames_ = 0;
  long long samples_ = 0;
  int decision_ = -1;
  float probability_ = 0.0f;
  float meanSquare_ = 0.0f;
  float recent_[kSmoothing] = {};
  int recentCount_ = 0;
  int recentPos_ = 0;
};

}  // namespace velorum
