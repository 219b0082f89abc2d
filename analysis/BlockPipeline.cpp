#include "analysis/BlockPipeline.h"

#include <algorithm>
#include <cmath>

namespace velorum {

BlockPipeline::BlockPipeline(int channels, int blockFrames, int depth)
    : blocks_(static_cast<size_t>(std::max(depth, 1))) {
  for (Block& b : blocks_) {
    b.planes.assign(static_cast<size_t>(channels), std::vector<double>(static_cast<size_t>(blockFrames)));
    for (auto& plane : b.planes) b.pins.push_back(plane.data());
    free_.push_back(&b);
  }
}

BlockPipeline::Block* BlockPipeline::acquire() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return stopped_ || !free_.empty(); });
  if (stopped_) return nullptr;
  Block* b = free_.front();
  free_.pop_front();
  return b;
}

void BlockPipeline::publish(Block* block) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ready_.push_back(block);
  }
  changed_.notify_all();
}

void BlockPipeline::close(int state, int error) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    state_ = state;
    error_ = error;
  }
  changed_.notify_all();
}

BlockPipeline::Block* BlockPipeline::next() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return !ready_.empty() || closed_; });
  if (ready_.empty()) return nullptr;
  Block* b = ready_.front();
  ready_.pop_front();
  return b;
}

void BlockPipeline::release(Block* block) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    free_.push_back(block);
  }
  changed_.notify_all();
}

void BlockPipeline::stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
}

int BlockPipeline::state() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return state_;
}

int BlockPipeline::error() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return error_;
}

void BlockPipeline::deinterleave(const float* interleaved, int frames, Block& block) {
  const size_t channels = block.planes.size();
  const size_t n = static_cast<size_t>(frames);
  for (size_t c = 0; c < channels; ++c) {
    double* plane = block.planes[c].data();
    const float* in = interleaved + c;
    for (size_t f = 0; f < n; ++f) plane[f] = static_cast<double>(in[f * channels]);
  }
  block.frames = frames;
  block.nonFinite = 0;
  for (auto& plane : block.planes) block.nonFinite += silenceNonFinite(plane.data(), n);
}

int64_t silenceNonFinite(double* plane, size_t frames) {
  // The common case, all finite, is found in one pass without stores:
  // x * 0 is 0 for every finite x and NaN for NaN and the infinities.
  double probe = 0.0;
  for (size_t f = 0; f < frames; ++f) probe += plane[f] * 0.0;
  if (probe == 0.0) return 0;
  int64_t count = 0;
  for (size_t f = 0; f < frames; ++f)
    if (!std::isfinite(plane[f])) {
      plane[f] = 0.0;
      ++count;
    }
  return count;
}

}  // namespace velorum
