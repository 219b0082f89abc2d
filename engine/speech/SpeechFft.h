#pragma once
// Small real FFT for the speech classifier's frame analysis: a radix-2 complex
// FFT of half the size with the usual split step for real input. Real and
// imaginary parts are kept in separate arrays so that the butterflies of a
// stage run as plain, vectorisable float loops.

#include <vector>

namespace velorum {

class SpeechFft {
 public:
  explicit SpeechFft(int size);  // size: power of two, at least 8
  int Size() const { return n_; }

  // Spectrum of n real samples: n / 2 + 1 bins (DC to Nyquist), unnormalised,
  // real parts to re and imaginary parts to im.
  void Forward(const float* in, float* re, float* im);

 private:
  int n_;
  int half_;
  std::vector<int> bitrev_;
  std::vector<float> twRe_, twIm_;        // per stage, contiguous: stage of length len holds len / 2 twiddles
  std::vector<float> splitRe_, splitIm_;  // e^(-2 pi i k / n), k <= half
  std::vector<float> zr_, zi_;            // scratch, half values each
};

}  // namespace velorum
