#pragma once
// Converts one dialogue channel from the host's rate to the speech classifier's
// rate with a short windowed-sinc polyphase filter. The filter length depends on
// the input rate (see TapsForRate); below four taps the resampler is bypassed and
// samples pass through unchanged.

#include <cstddef>
#include <vector>

namespace velorum {

class DialogueResampler {
 public:
  static constexpr int kMaxTaps = 8192;

  // Filter length used for an input rate: fixed lengths for the common rates,
  // otherwise ceil(rate / 48000 * 38) rounded down to even, at most 8192.
  static int TapsForRate(double inputRate);

  DialogueResampler() = default;
  // Sets up the filter for inputRate -> outputRate and clears the history
  // (with the rates of the previous call it only clears, without allocating).
  // Rates that are not finite or not positive leave the resampler bypassed.
  void Configure(double inputRate, double outputRate);
  // Clears the history and the output clock; the filter stays.
  void Reset();

  bool Bypassed() const { return taps_ < 4; }
  int Taps() const { return taps_; }

  // Pushes one input sample; writes the output samples that become due (0, 1 or,
  // when upsampling, more) to out and returns how many. out must hold
  // MaxOutputsPerInput() values.
  int Push(float x, float* out) { return Push(&x, 1, out); }
  int MaxOutputsPerInput() const { return maxOut_; }
  // Pushes count input samples; out must hold count * MaxOutputsPerInput().
  int Push(const float* x, int count, float* out);

 private:
  float Filter(const float* x, int phase) const;
  float FilterSymmetric(const float* x) const;
  int Pass(const float* in, int count, float* out);

  double configuredIn_ = -1.0;  // rates of the last Configure (NaN never matches)
  double configuredOut_ = -1.0;
  int taps_ = 0;
  int phases_ = 1;
  // Whole-number ratios (48 kHz -> 16 kHz) only ever use phase 0, whose
  // coefficients are symmetric about the centre tap (the last one is zero):
  // pairs of samples share one multiplication.
  bool symmetric_ = false;
  int maxOut_ = 1;
  static constexpr int kBlock = 256;  // input samples appended per pass
  std::vector<float> table_;          // phases_ rows of taps_ coefficients
  // Linear buffer: the last taps_ samples of earlier passes, then the samples
  // of the current pass. buffer_[0] is input sample number base_.
  std::vector<float> buffer_;
  int kept_ = 0;  // samples held from earlier passes
  long long base_ = 0;
  // Time of the next output in input samples: whole part and fraction.
  long long nextWhole_ = 0;
  double nextFrac_ = 0.0;
  long long stepWhole_ = 1;
  double stepFrac_ = 0.0;
};

}  // namespace velorum
