// Mean-square window over the last L values: a ring of L + 1 entries and a
// running sum kept by one addition and one subtraction per value.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

namespace velorum {

class SlidingWindow {
 public:
  // Sizes the ring for `length` values (at least 1) and empties it.
  void Resize(int length) {
    length_ = length < 1 ? 1 : length;
    ring_.assign(static_cast<std::size_t>(length_) + 1, 0.0);
    Clear();
  }
  void Clear() {
    pos_ = 0;
    fill_ = 0;
    sum_ = 0.0;
    resum_ = false;
  }

  void Push(double v) {
    const int size = length_ + 1;
    ring_[static_cast<std::size_t>(pos_)] = v;
    if (++pos_ == size) pos_ = 0;
    double dropped = 0.0;
    if (fill_ < size) ++fill_;
    if (fill_ == size) dropped = ring_[static_cast<std::size_t>(pos_)];
    sum_ = (v + sum_) - dropped;
  }

  void Push(const double* v, int n) {
    const int size = length_ + 1;
    int i = 0;
    while (i < n && fill_ < size) Push(v[i++]);
    // Full ring: the value dropped is the one after the write position.
    double* ring = ring_.data();
    double sum = sum_;
    int pos = pos_;
    while (i < n) {
      const int run = std::min(n - i, size - 1 - pos);
      for (int j = 0; j < run; ++j) {
        const double x = v[i + j];
        ring[pos + j] = x;
        sum = (x + sum) - ring[pos + j + 1];
      }
      i += run;
      pos += run;
      if (i < n) {  // write the last slot; the oldest is then slot 0
        const double x = v[i++];
        ring[pos] = x;
        sum = (x + sum) - ring[0];
        pos = 0;
      }
    }
    sum_ = sum;
    pos_ = pos;
  }

  // Pushes the same values into two windows in one pass: the two running
  // sums are independent chains, so interleaving them halves the latency.
  // Results are exactly those of a.Push(v, n); b.Push(v, n).
  static void PushBoth(SlidingWindow& a, SlidingWindow& b, const double* v, int n) {
    const int sizeA = a.length_ + 1, sizeB = b.length_ + 1;
    int i = 0;
    while (i < n && (a.fill_ < sizeA || b.fill_ < sizeB)) {
      a.Push(v[i]);
      b.Push(v[i]);
      ++i;
    }
    double* ra = a.ring_.data();
    double* rb = b.ring_.data();
    double sa = a.sum_, sb = b.sum_;
    int pa = a.pos_, pb = b.pos_;
    while (i < n) {
      // Both rings full: the value dropped is the one after the write position.
      const int run = std::min({n - i, sizeA - 1 - pa, sizeB - 1 - pb});
      for (int j = 0; j < run; ++j) {
        const double x = v[i + j];
        ra[pa + j] = x;
        rb[pb + j] = x;
        sa = (x + sa) - ra[pa + j + 1];
        sb = (x + sb) - rb[pb + j + 1];
      }
      i += run;
      pa += run;
      pb += run;
      if (i < n && (pa == sizeA - 1 || pb == sizeB - 1)) {
        const double x = v[i++];
        ra[pa] = x;
        rb[pb] = x;
        const int na = pa + 1 == sizeA ? 0 : pa + 1;
        const int nb = pb + 1 == sizeB ? 0 : pb + 1;
        sa = (x + sa) - ra[na];
        sb = (x + sb) - rb[nb];
        pa = na;
        pb = nb;
      }
    }
    a.sum_ = sa;
    b.sum_ = sb;
    a.pos_ = pa;
    b.pos_ = pb;
  }

  // Sum / L, after flushing a denormal sum to 0.0. A sum beyond anything
  // audio can give holds a huge (but finite) value; once that value leaves
  // the window, subtracting it would leave only its rounding error, which
  // the running sum would keep for ever. So while the sum is that large,
  // and once more after, it is summed afresh from the ring.
  double MeanSquare() {
    if (resum_ || std::fabs(sum_) > kResumAbove) {
      sum_ = ExactSum();
      resum_ = sum_ > kResumAbove;
    }
    if (std::fabs(sum_) < DBL_MIN) sum_ = 0.0;
    return sum_ / static_cast<double>(length_);
  }

  int Length() const { return length_; }
  // The window holds L values.
  bool Full() const { return fill_ >= length_; }
  double Sum() const { return sum_; }

 private:
  // Far above the sum of any window of audio (24 channels at full scale
  // over 3 s at 768 kHz stay below 1e9).
  static constexpr double kResumAbove = 1e10;

  // The sum of the values in the window: the fill entries before the write
  // position, or all but the oldest slot once the ring is full.
  double ExactSum() const {
    const int size = length_ + 1;
    double sum = 0.0;
    if (fill_ < size) {
      for (int i = 0; i < pos_; ++i) sum += ring_[static_cast<std::size_t>(i)];
      if (fill_ > pos_)  // wrapped while filling
        for (int i = size - (fill_ - pos_); i < size; ++i) sum += ring_[static_cast<std::size_t>(i)];
      return sum;
    }
    for (int i = 0; i < size; ++i)
      if (i != pos_) sum += ring_[static_cast<std::size_t>(i)];
    return sum;
  }

  std::vector<double> ring_{0.0, 0.0};
  int length_ = 1;
  int pos_ = 0;
  int fill_ = 0;
  double sum_ = 0.0;
  bool resum_ = false;
};

}  // namespace velorum
