// The history graph's curves on the accelerated path: the 10 ms histories
// (momentary, short-term and true-peak maxima) and the 100 ms integrated
// history, each kept on the GPU at ten levels of detail (every level four
// times coarser than the one below), appended to as the history grows. A
// frame picks the level with one or two values per pixel, so a day of
// history draws as fast as a minute.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "engine/LoudnessEngine.h"
#include "graphics/tg_gl_plot.h"

namespace velorum::ui {

class HistoryGpuCache {
 public:
  static constexpr int kLevels = 10;
  enum Curve { kMomentary = 0, kShortTerm = 1, kIntegrated = 2, kTruePeak = 3, kCurves = 4 };

  // Brings the GPU copy up to the engine's history (under its mutex, in slices).
  void Sync(tg_gl_plot& gl, const LoudnessEngine& engine);
  // The level, first value and count of a curve for a view of `seconds`
  // from `start` over `pixels`; the x of value i is base + i * step.
  struct Range {
    int series = 0;
    size_t first = 0, count = 0;
    double base = 0.0, step = 0.0;
  };
  Range RangeFor(int curve, double start, double seconds, double pixels) const;
  size_t Uploaded10() const { return mDone10; }

 private:
  struct Level {
    float value = tg_gl_gap;
    int count = 0;
  };
  void Reset(tg_gl_plot& gl);
  void Push(tg_gl_plot& gl, int curve, int level, float value);

  const tg_gl_plot* mPlot = nullptr;
  const MeasurementHistory* mSource = nullptr;
  size_t mDone10 = 0, mDone100 = 0;
  std::array<std::array<Level, kLevels>, kCurves> mPending{};
  std::array<std::array<std::vector<float>, kLevels>, kCurves> mBatch{};
};

}  // namespace velorum::ui
