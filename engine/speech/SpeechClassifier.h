#pragma once
// Real-time speech / no-speech classifier for one dialogue channel.
//
// Audio arrives at 16 kHz (see DialogueResampler). Every 32 ms a frame is
// analysed into its model inputs (SpeechFeatures) and run through a small
// causal convolutional network (SpeechModel) that looks back about 2 s.
// Every 128 ms the mean speech probability of the last 256 ms is compared
// with the model's threshold. Decision() is -1 until 2.048 s of audio (32768
// samples) have arrived, then 1 for speech and 0 for anything else; windows
// whose 2.048 s mean square is below -70 dB re full scale are no speech.
//
// State per channel (one block of kStateValues floats): one frame of audio,
// the previous magnitudes, 1.024 s of per-frame log band energies, 2.048 s of
// frame energies and the network's layer histories -- about 4000 values, far
// fewer than the 38064 such a classifier may hold. Non-finite samples are
// taken as silence, so they leave the state once they are older than the
// classifier's memory.

#include <cstddef>
#include <vector>

#include "engine/speech/SpeechFeatures.h"
#include "engine/speech/SpeechModel.h"

namespace velorum {

class SpeechClassifier {
 public:
  using Layout = SpeechFeatureLayout;
  static constexpr int kRate = Layout::kRate;
  static constexpr long long kLatencySamples = 32768;  // ceil(16000 * 2.048)
  static constexpr int kDecisionFrames = 4;            // a decision every 128 ms
  // Mean square below which a window counts as silence (-70 dB re full scale).
  static constexpr float kSilence = 1e-7f;
  // Samples beyond +-kMaxSample (60 dB over full scale) are clamped.
  static constexpr float kMaxSample = 1000.0f;
  static constexpr std::size_t kStateValues =
      Layout::kFrameSize + Layout::kBins +
      static_cast<std::size_t>(Layout::kHistoryFrames) * Layout::kLogValues + Layout::kWindowFrames +
      SpeechNet::kStateValues;

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
  // Frames analysed since Reset, and the model inputs and logit of the
  // newest one (for the training tools).
  long long Frames() const { return frames_; }
  const float* FrameInputs() const { return inputs_; }
  float FrameLogit() const { return logit_; }

 private:
  void AnalyseFrame();
  void Decide();

  SpeechFrameAnalyser analyser_;
  // [audio | previous magnitudes | log energy history | frame energies | network]
  std::vector<float> state_;
  float* audio_ = nullptr;  // the frame being filled (frames do not overlap)
  float* magnitude_ = nullptr;
  float* logHistory_ = nullptr;
  float* energies_ = nullptr;
  float* net_ = nullptr;
  int audioFill_ = 0;
  long long frames_ = 0;
  long long samples_ = 0;
  int decision_ = -1;
  float probability_ = 0.0f;
  float meanSquare_ = 0.0f;
  float logit_ = 0.0f;
  float inputs_[Layout::kFrameInputs] = {};
};

}  // namespace velorum
