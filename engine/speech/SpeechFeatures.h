#pragma once
// Frame analysis of the speech classifier. Audio at 16 kHz is cut into
// back-to-back 32 ms frames (Hann-windowed, not overlapped: the classifier has
// to stay cheap beside the engine). Each frame gives the model one input
// vector of kFrameInputs values:
//   - 32 log-mel band energies (60 Hz to 7.6 kHz) minus their mean over the
//     bands: the spectral shape, independent of the level;
//   - the same 32 log energies minus their mean over the last 32 frames
//     (1.024 s): what rises above the recent background in each band, which
//     keeps speech visible over a steady bed;
//   - the frame's log energy against its 1 s mean, the harmonicity (peak of
//     the autocorrelation of the magnitude spectrum) and the pitch it points
//     at, and the spectral flux.
// The model (SpeechModel) learns the temporal patterns over these frames.
// The same code serves the real-time classifier and the training data tool.

#include <vector>

#include "engine/speech/SpeechFft.h"

namespace velorum {

struct SpeechFeatureLayout {
  static constexpr int kRate = 16000;     // classifier rate, Hz
  static constexpr int kFrameSize = 512;  // analysis frame, samples (32 ms)
  static constexpr int kBins = kFrameSize / 2 + 1;
  static constexpr int kWindowFrames = 64;  // frames per 2.048 s
  static constexpr int kMelBands = 32;
  static constexpr int kHistoryFrames = 32;  // background mean over 1.024 s
  // Per-frame log energies kept for the background mean: the bands and the total.
  static constexpr int kLogValues = kMelBands + 1;
  enum Input {
    kShape = 0,
    kRise = kShape + kMelBands,
    kLevel = kRise + kMelBands,
    kHarmonicity,
    kPitch,
    kFlux,
    kFrameInputs
  };
};

// Turns one frame into its log energies, harmonicity, pitch and flux. Holds
// only read-only tables and scratch memory; the caller keeps the previous
// frame's magnitudes (the flux needs them), so one analyser can serve any
// number of channels in turn.
class SpeechFrameAnalyser {
 public:
  using L = SpeechFeatureLayout;
  struct Frame {
    float logEnergy[L::kLogValues];  // natural log of the mel band mean squares, then of the total
    float meanSquare;                // mean square of the frame's signal
    float harmonicity;               // 0 .. 1
    float pitch;                     // log2 of the pitch in Hz relative to 100 Hz, 0 when none
    float flux;                      // 0 .. 1
  };

  SpeechFrameAnalyser();
  // frame: kFrameSize samples, oldest first, all finite. prevMagnitude:
  // kBins values, read and then replaced by this frame's magnitudes.
  void Analyse(const float* frame, float* prevMagnitude, Frame& out);

 private:
  SpeechFft fft_;
  SpeechFft lagFft_;
  std::vector<float> window_;
  std::vector<float> windowed_;
  std::vector<float> power_;
  std::vector<float> spectrumLine_;
  std::vector<float> re_, im_;
  // Mel filter bank: per band a first bin and its triangle weights.
  std::vector<int> melFirst_, melCount_;
  std::vector<float> melWeight_;
  float energyScale_ = 1.0f;
};

// The model's input vector of the newest frame. history: ring of
// kHistoryFrames records of kLogValues log energies that includes the newest
// frame's; `filled` of them are valid (1 .. kHistoryFrames), the first ones.
void SpeechFrameInputs(const SpeechFrameAnalyser::Frame& f, const float* history, int filled, float* out);

}  // namespace velorum
