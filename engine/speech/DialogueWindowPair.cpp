#include "engine/speech/DialogueWindowPair.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace velorum {

void DialogueWindowPair::Resize(int momentaryLength, int shortTermLength, int maxPending) {
  momentaryLength_ = std::max(1, momentaryLength);
  shortTermLength_ = std::max(momentaryLength_, shortTermLength);
  maxPending_ = std::max(1, maxPending);
  blockMode_ = momentaryLength_ % maxPending_ == 0 && shortTermLength_ % maxPending_ == 0;
  if (blockMode_) {
    momentaryBlocks_ = momentaryLength_ / maxPending_;
    shortTermBlocks_ = shortTermLength_ / maxPending_;
    blocks_.assign(static_cast<std::size_t>(shortTermBlocks_) + 1, 0.0);
    ring_.clear();
    capacity_ = 0;
  } else {
    capacity_ = shortTermLength_ + maxPending_;
    ring_.assign(static_cast<std::size_t>(capacity_), 0.0);
    blocks_.clear();
  }
  Clear();
}

void DialogueWindowPair::Clear() {
  std::fill(ring_.begin(), ring_.end(), 0.0);
  std::fill(blocks_.begin(), blocks_.end(), 0.0);
  blockPos_ = 0;
  pendingSum_ = 0.0;
  pos_ = 0;
  pending_ = 0;
  momentarySum_ = 0.0;
  shortTermSum_ = 0.0;
}

double DialogueWindowPair::Sum(const double* v, int n) {
  double acc[4] = {0.0, 0.0, 0.0, 0.0};
  int i = 0;
  for (; i + 4 <= n; i += 4)
    for (int k = 0; k < 4; ++k) acc[k] += v[i + k];
  for (; i < n; ++i) acc[0] += v[i];
  return (acc[0] + acc[2]) + (acc[1] + acc[3]);
}

void DialogueWindowPair::CloseBlock() {
  // The block leaving a window of k blocks sits k places behind the new one.
  const int size = shortTermBlocks_ + 1;
  const double leftMomentary =
      blocks_[static_cast<std::size_t>((blockPos_ - momentaryBlocks_ + size) % size)];
  const double leftShortTerm =
      blocks_[static_cast<std::size_t>((blockPos_ - shortTermBlocks_ + size) % size)];
  blocks_[static_cast<std::size_t>(blockPos_)] = pendingSum_;
  momentarySum_ += pendingSum_ - leftMomentary;
  shortTermSum_ += pendingSum_ - leftShortTerm;
  blockPos_ = (blockPos_ + 1) % size;
  pendingSum_ = 0.0;
  pending_ = 0;
}

void DialogueWindowPair::Push(const double* v, int n) {
  if (blockMode_) {
    while (n > 0) {
      const int run = std::min(n, maxPending_ - pending_);
      pendingSum_ += Sum(v, run);
      pending_ += run;
      v += run;
      n -= run;
      if (pending_ == maxPending_) CloseBlock();
    }
    return;
  }
  while (n > 0) {
    if (pending_ == maxPending_) Update();
    const int run = std::min({n, maxPending_ - pending_, capacity_ - pos_});
    std::copy(v, v + run, ring_.begin() + pos_);
    pos_ += run;
    if (pos_ == capacity_) pos_ = 0;
    pending_ += run;
    v += run;
    n -= run;
  }
}

double DialogueWindowPair::SumRange(int from, int count) const {
  // Four partial sums: independent additions that the compiler may vectorise.
  double acc[4] = {0.0, 0.0, 0.0, 0.0};
  while (count > 0) {
    const int run = std::min(count, capacity_ - from);
    const double* p = ring_.data() + from;
    int i = 0;
    for (; i + 4 <= run; i += 4)
      for (int k = 0; k < 4; ++k) acc[k] += p[i + k];
    for (; i < run; ++i) acc[0] += p[i];
    count -= run;
    from = 0;
  }
  return (acc[0] + acc[2]) + (acc[1] + acc[3]);
}

void DialogueWindowPair::Update() {
  if (pending_ == 0) return;
  if (blockMode_) {
    CloseBlock();
    return;
  }
  // Newest values: [pos - pending, pos). Those that left a window of length
  // L: the `pending` values just before it, [pos - pending - L, pos - L).
  const int newFrom = (pos_ - pending_ + capacity_) % capacity_;
  const double entered = SumRange(newFrom, pending_);
  const int leftMomentary = (pos_ - pending_ - momentaryLength_ + 2 * capacity_) % capacity_;
  const int leftShortTerm = (pos_ - pending_ - shortTermLength_ + 2 * capacity_) % capacity_;
  momentarySum_ += entered - SumRange(leftMomentary, pending_);
  shortTermSum_ += entered - SumRange(leftShortTerm, pending_);
  pending_ = 0;
}

double DialogueWindowPair::MomentaryMeanSquare() {
  Update();
  if (std::fabs(momentarySum_) < DBL_MIN) momentarySum_ = 0.0;
  return momentarySum_ / static_cast<double>(momentaryLength_);
}

double DialogueWindowPair::ShortTermMeanSquare() {
  Update();
  if (std::fabs(shortTermSum_) < DBL_MIN) shortTermSum_ = 0.0;
  return shortTermSum_ / static_cast<double>(shortTermLength_);
}

}  // namespace velorum
