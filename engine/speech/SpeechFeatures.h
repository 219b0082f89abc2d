#pragma once
// Feature extraction of the speech classifier. Audio at 16 kHz is cut into
// back-to-back 32 ms frames (Hann-windowed, not overlapped: the classifier
// has to stay cheap beside the engine); each frame is reduced to a few numbers
// (energy, six band energies, spectral flux, centroid, voicing and pitch, zero
// crossings). The 64 frames of the last 2.048 s are then summarised into the window
// features that the model reads: pause structure and level spread, the
// syllabic (2 to 8 Hz) modulation of three band envelopes and the regularity
// of the envelope (beats), flux statistics, voicing and pitch movement and the
// length of voiced runs (syllables against held notes), centroid and
// zero-crossing statistics and the long-term spectral shape. The same code serves the real-time classifier and the training tool.

#include <vector>

#include "engine/speech/SpeechFft.h"

namespace velorum {

struct SpeechFeatureLayout {
  static constexpr int kRate = 16000;        // classifier rate, Hz
  static constexpr int kFrameSize = 512;     // analysis frame, samples (32 ms)
  static constexpr int kHopSize = 512;       // frame advance, samples (32 ms)
  static constexpr int kBins = kFrameSize / 2 + 1;
  static constexpr int kWindowFrames = 64;   // frames per decision window (2.048 s)
  static constexpr int kBands = 6;
  // Per-frame values kept in the classifier state.
  enum Frame { kEnergy = 0, kBand0 = 1, kFlux = kBand0 + kBands, kCentroid, kVoicing, kPitchLag, kZeroCross, kFrameValues };
  static constexpr int kWindowFeatures = 35;  // inputs of the model
};

// Turns one frame into its per-frame values. Holds only read-only tables and
// scratch memory; the caller keeps the previous frame's magnitudes (the flux
// needs them), so one analyser can serve any number of channels in turn.
class SpeechFrameAnalyser {
public:
  SpeechFrameAnalyser();
  // frame: kFrameSize samples, oldest first. prevMagnitude: kBins values, read
  // and then replaced by this frame's magnitudes. out: kFrameValues values.
  void Analyse(const float* frame, float* prevMagnitude, float* out);

private:
  SpeechFft fft_;
  SpeechFft lagFft_;
  std::vector<float> window_;
  std::vector<float> windowed_;
  std::vector<float> spectrumLine_;
  std::vector<float> re_, im_;
  float energyScale_ = 1.0f;
};

// Summarises kWindowFrames per-frame records into the window features.
// frames: a ring of kWindowFrames records of kFrameValues values; oldest is the
// index of the oldest record. Returns the window's mean frame energy (mean
// square of the signal), which the classifier also uses as a silence gate.
float ComputeSpeechWindowFeatures(const float* frames, int oldest, float* out);

}  // namespace velorum
