#include "analysis/BlockPipeline.h"

#include <algorithm>

namespace velorum {

BlockPipeline::BlockPipeline(int channels, int blockFrames, int depth)
    : blocks_(static_cast<size_t>(std::max(depth, 1)))
{
    for (Block& b : blocks_) {
        b.planes.assign(static_cast<size_t>(channels), std::vector<double>(static_cast<size_t>(blockFrames)));
        for (auto& plane : b.planes)
            b.pins.push_back(plane.data());
        free_.push_back(&b);
    }
}

BlockPipeline::Block* BlockPipeline::acquire()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return stopped_ || !free_.empty(); });
    if (stopped_)
        return nullptr;
    Block* b = free_.front();
    free_.pop_front();
    return b;
}

void BlockPipeline::publish(Block* block)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ready_.push_back(block);
    }
    changed_.notify_all();
}

void BlockPipeline::close(int state, int error)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
        state_ = state;
        error_ = error;
    }
    changed_.notify_all();
}

BlockPipeline::Block* BlockPipeline::next()
{
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !ready_.empty() || closed_; });
    if (ready_.empty())
        return nullptr;
    Block* b = ready_.front();
    ready_.pop_front();
    return b;
}

void BlockPipeline::release(Block* block)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        free_.push_back(block);
    }
    changed_.notify_all();
}

void BlockPipeline::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
}

int BlockPipeline::state() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return state_;
}

int BlockPipeline::error() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return error_;
}

void BlockPipeline::deinterleave(const float* interleaved, int frames, Block& block)
{
    const size_t channels = block.planes.size();
    const size_t n = static_cast<size_t>(frames);
    if (channels == 2) {
        // The common case, read once in order.
        double* left = block.planes[0].data();
        double* right = block.planes[1].data();
        for (size_t f = 0; f < n; ++f) {
            left[f] = static_cast<double>(interleaved[2 * f]);
            right[f] = static_cast<double>(interleaved[2 * f + 1]);
        }
    } else {
        for (size_t c = 0; c < channels; ++c) {
            double* plane = block.planes[c].data();
            const float* in = interleaved + c;
            for (size_t f = 0; f < n; ++f)
                plane[f] = static_cast<double>(in[f * channels]);
        }
    }
    block.frames = frames;
}

} // namespace velorum
