#pragma once
// Hands decoded blocks from the thread that reads a file to the thread that
// measures it, so that decoding and measuring overlap. A fixed set of blocks
// circulates: the reader fills a free one (one double-precision buffer per
// channel, as the engine takes them) and publishes it; the measurer takes
// published blocks in order and gives them back. Allocation happens once.
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

namespace velorum {

class BlockPipeline {
 public:
  struct Block {
    std::vector<std::vector<double>> planes;
    std::vector<const double*> pins;
    int frames = 0;
    int progress = 0;
    int64_t nonFinite = 0;  // NaN and infinite samples, measured as silence
  };

  BlockPipeline(int channels, int blockFrames, int depth);

  // Reader side: a free block (waits for one), or null once stopped.
  Block* acquire();
  void publish(Block* block);
  // The reader is done; `state` and `error` describe how it ended.
  void close(int state, int error);

  // Measurer side: the next published block (waits), or null when the
  // reader has closed and every block was taken.
  Block* next();
  void release(Block* block);
  // The measurer gives up: a waiting reader gets null from acquire().
  void stop();

  int state() const;
  int error() const;

  // Splits interleaved frames into the block's per-channel buffers. NaN and
  // infinite samples enter the buffers as 0.0 (the measurement's copy only)
  // and are counted in block.nonFinite.
  static void deinterleave(const float* interleaved, int frames, Block& block);

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Block> blocks_;
  std::deque<Block*> free_;
  std::deque<Block*> ready_;
  bool closed_ = false;
  bool stopped_ = false;
  int state_ = 0;
  int error_ = 0;
};

// Sets the NaN and infinite samples of one plane to 0.0 and returns how many
// there were.
int64_t silenceNonFinite(double* plane, size_t frames);

}  // namespace velorum
