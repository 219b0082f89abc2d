#include "ui/HistoryGpuCache.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace velorum::ui {
namespace {

constexpr double kStep10 = 0.01, kStep100 = 0.1;
constexpr size_t kSlice = 65536;  // entries read per hold of the engine mutex

double Factor(int level) {
  return std::pow(4.0, level);
}

}  // namespace

void HistoryGpuCache::Reset(tg_gl_plot& gl) {
  for (int s = 0; s < kCurves * kLevels; ++s) gl.clear(s);
  mPending = {};
  mDone10 = mDone100 = 0;
}

void HistoryGpuCache::Push(tg_gl_plot& gl, int curve, int level, float value) {
  mBatch[size_t(curve)][size_t(level)].push_back(value);
  if (level + 1 >= kLevels) return;
  // Coarser levels: the maximum of four (the integrated curve keeps the last).
  Level& up = mPending[size_t(curve)][size_t(level + 1)];
  if (curve == kIntegrated)
    up.value = value;
  else if (value > tg_gl_gap)
    up.value = std::max(up.value, value);
  if (++up.count == 4) {
    const float v = up.value;
    up = {};
    Push(gl, curve, level + 1, v);
  }
}

void HistoryGpuCache::Sync(tg_gl_plot& gl, const LoudnessEngine& engine) {
  std::unique_lock<EngineMutex> lock(engine.Mutex());
  const MeasurementHistory& h = engine.History();
  auto sizes = [&h](size_t& n10, size_t& n100) {
    n10 = std::min({h.momentary.size(), h.shortTerm.size(), h.truePeak.size(), h.stepFlags.size()});
    n100 = std::min(h.integrated.size(), h.blockFlags.size());
  };
  size_t n10 = 0, n100 = 0;
  sizes(n10, n100);
  // Another history (a file shown, a reset) starts the copy again.
  if (&gl != mPlot || &h != mSource || n10 < mDone10 || n100 < mDone100) {
    mPlot = &gl;
    mSource = &h;
    Reset(gl);
  }
  while (mDone10 < n10 || mDone100 < n100) {
    const size_t end10 = std::min(n10, mDone10 + kSlice), end100 = std::min(n100, mDone100 + kSlice / 10);
    for (size_t i = mDone10; i < end10; ++i) {
      const bool measured = h.stepFlags[i] == kFlagMeasured;
      const float values[3] = {h.momentary[i], h.shortTerm[i], h.truePeak[i]};
      const int curves[3] = {kMomentary, kShortTerm, kTruePeak};
      for (int c = 0; c < 3; ++c)
        Push(gl, curves[c], 0, measured && values[c] > -119.9f ? values[c] : tg_gl_gap);
    }
    for (size_t b = mDone100; b < end100; ++b)
      Push(gl, kIntegrated, 0,
           h.blockFlags[b] == kFlagMeasured && h.integrated[b] > -119.9f ? h.integrated[b] : tg_gl_gap);
    mDone10 = end10;
    mDone100 = end100;
    // Let the audio thread in, then upload what was read outside the lock.
    lock.unlock();
    for (int c = 0; c < kCurves; ++c)
      for (int l = 0; l < kLevels; ++l) {
        std::vector<float>& batch = mBatch[size_t(c)][size_t(l)];
        gl.append(c * kLevels + l, batch.data(), batch.size());
        batch.clear();
      }
    lock.lock();
    sizes(n10, n100);
    if (n10 < mDone10 || n100 < mDone100) return;  // reset meanwhile: again at the next frame
  }
}

HistoryGpuCache::Range HistoryGpuCache::RangeFor(int curve, double start, double seconds,
                                                 double pixels) const {
  const double unit = curve == kIntegrated ? kStep100 : kStep10;
  const double perPixel = seconds / std::max(1.0, pixels);
  int level = 0;
  while (level + 1 < kLevels && unit * Factor(level + 1) <= perPixel) ++level;
  Range r;
  r.series = curve * kLevels + level;
  r.step = unit * Factor(level);
  // The integrated value belongs to the end of its block, the others to their middle.
  r.base = curve == kIntegrated ? r.step : 0.5 * r.step;
  const double first = std::floor((start - r.base) / r.step) - 1.0;
  const double last = std::ceil((start + seconds - r.base) / r.step) + 1.0;
  r.first = size_t(std::max(0.0, first));
  r.count = last > double(r.first) ? size_t(last - double(r.first)) + 1 : 0;
  return r;
}

}  // namespace velorum::ui
