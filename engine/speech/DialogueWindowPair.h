#pragma once
// The 400 ms and 3 s mean-square windows of one dialogue channel (or of the
// summed dialogue channels), over one shared ring of power values.
//
// Unlike the engine's per-sample running sums, the sums are brought up to
// date only when they are read (every 100 ms step):
// - Block mode, when both lengths are whole multiples of the step (every rate
//   divisible by 10): only the sum of each step's values is kept; a window's
//   sum gains the newest step's sum and loses the one of the step that left
//   it. A sample then costs one addition, and no samples are stored. (Should
//   a read come in the middle of a step, the part read so far counts as a
//   step of its own.)
// - Ring mode otherwise: the values that entered since the last read are
//   added (one sum, shared by both windows) and the ones that left each window
//   are taken away, each as one contiguous, vectorisable sum; the ring keeps
//   the short-term length plus `maxPending` values so that the values leaving
//   are still there.

#include <vector>

namespace velorum {

class DialogueWindowPair {
 public:
  // Window lengths in values (at least 1, short >= momentary); reads come at
  // least every `maxPending` values (more are handled, by an early update).
  void Resize(int momentaryLength, int shortTermLength, int maxPending);
  void Clear();

  void Push(const double* v, int n);
  // Sum of the last L values / L (also while fewer have arrived), a denormal
  // sum flushed to 0.0.
  double MomentaryMeanSquare();
  double ShortTermMeanSquare();

 private:
  void Update();
  void CloseBlock();
  double SumRange(int from, int count) const;  // ring positions, wrapping
  static double Sum(const double* v, int n);

  bool blockMode_ = false;
  std::vector<double> blocks_;  // step sums, ring of (short-term steps + 1)
  int momentaryBlocks_ = 1;
  int shortTermBlocks_ = 1;
  int blockPos_ = 0;
  double pendingSum_ = 0.0;

  std::vector<double> ring_;
  int momentaryLength_ = 1;
  int shortTermLength_ = 1;
  int capacity_ = 2;
  int maxPending_ = 1;
  int pos_ = 0;      // next write position
  int pending_ = 0;  // values written since the last update
  double momentarySum_ = 0.0;
  double shortTermSum_ = 0.0;
};

}  // namespace velorum
