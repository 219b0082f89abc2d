// One true-peak bar per channel of the layout, with a peak hold that stays
// for two seconds and the channel's maximum printed above the bar.
#pragma once

#include <array>
#include <chrono>

#include "engine/ChannelLayouts.h"
#include "ui/EditorHost.h"
#include "ui/MeterScale.h"

namespace velorum::ui {

class TruePeakMeterBar : public MeterControl {
 public:
  static constexpr double kHoldSeconds = 2.0;
  TruePeakMeterBar(EditorHost& host, const IRECT& r);
  void Draw(tgraphics& g) override;
  // Channels drawn at the last draw.
  int DrawnChannels() const { return mDrawn; }

 private:
  std::array<double, kMaxChannels> mShown{}, mHold{};
  std::array<double, kMaxChannels> mHoldAge{};
  std::chrono::steady_clock::time_point mLast{};
  int mDrawn = 0;
};

}  // namespace velorum::ui
