#include "ui/TruePeakMeterBar.h"

#include <algorithm>
#include <cmath>

#include "ui/UiFormat.h"

namespace velorum::ui {

TruePeakMeterBar::TruePeakMeterBar(EditorHost& host, const IRECT& r) : MeterControl(host, r) {
  mShown.fill(-120.0);
  mHold.fill(-120.0);
  SetTooltip(
      "True peak of every channel (dBTP) with a two-second peak hold; the number is the channel's maximum.");
}

void TruePeakMeterBar::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  DrawPanel(g, r, t);
  const MeterModel& m = mHost.Model();
  const MeterValues v = m.Read();
  const TargetWindow tw = m.Targets();
  const MeterScale s{-60.0, 3.0};
  const auto now = std::chrono::steady_clock::now();
  const double dt = mLast.time_since_epoch().count()
                        ? std::min(1.0, std::chrono::duration<double>(now - mLast).count())
                        : 1.0;
  mLast = now;

  const DRect inner{r.L + 4.0, r.T + 34.0, r.R - 4.0, r.B - 8.0};
  const int n = std::max(1, v.channels);
  mDrawn = n;
  if (inner.H() < 20. || inner.W() < 20.) return;
  const double labelW = 22.0;
  s.DrawTicks(g, inner, 6.0, t, labelW);
  const double limitY = std::round(s.Y(inner, tw.truePeakMax)) + 0.5;
  const double barsX = inner.L + labelW + 2.0, barsW = inner.W() - labelW - 2.0;
  const double slot = barsW / n, barW = std::max(1.0, slot - (slot > 6.0 ? 2.0 : 0.5));
  for (int c = 0; c < n; ++c) {
    const size_t i = size_t(c);
    const bool showFile = m.ShowingFile();
    const double value = showFile ? v.channelTruePeakMax[i] : v.channelTruePeak[i];
    mShown[i] = value >= mShown[i] ? value : std::max(value, mShown[i] - 20.0 * dt);
    mHoldAge[i] += dt;
    if (value >= mHold[i] || mHoldAge[i] > kHoldSeconds) {
      mHold[i] = value;
      mHoldAge[i] = 0.0;
    }
    const double x = barsX + c * slot;
    g.new_path();
    g.rectangle(x, inner.T, barW, inner.H());
    g.set_color(WithAlpha(t.grid, 0.5));
    g.fill();
    const double y = s.Y(inner, mShown[i]);
    const bool over = mShown[i] > tw.truePeakMax;
    g.new_path();
    g.rectangle(x, y, barW, inner.B - y);
    g.set_color(over ? t.bad : t.truePeak);
    g.fill();
    if (mHold[i] > s.low) {
      const double hy = std::round(s.Y(inner, mHold[i])) + 0.5;
      g.new_path();
      g.move_to(x, hy);
      g.line_to(x + barW, hy);
      g.set_line_style(2.0);
      g.set_color(mHold[i] > tw.truePeakMax ? t.bad : t.text);
      g.stroke();
    }
    if (slot >= 14.0) {
      const double maxV = v.channelTruePeakMax[i];
      DrawLabel(g, v.channelNames[i], x - 2.0, r.T + 4.0, barW + 4.0, 13.0, 8.5, t.dim, tg_align::center,
                "OpenSans-Bold");
      DrawLabel(g, maxV > -119.95 ? FormatDecimal(maxV) : "-", x - 2.0, r.T + 18.0, barW + 4.0, 13.0, 8.0,
                maxV > tw.truePeakMax ? t.bad : t.text, tg_align::center, "OpenSans-Regular");
    }
  }
  // The true-peak maximum of the standard.
  g.new_path();
  g.move_to(barsX, limitY);
  g.line_to(inner.R, limitY);
  g.set_line_style(1.0);
  g.set_color(WithAlpha(t.bad, 0.8));
  g.stroke();
  if (slot < 14.0)
    DrawLabel(g, "TP", r.L, r.T + 4.0, r.W(), 14.0, 9.5, t.dim, tg_align::center, "OpenSans-Bold");
}

}  // namespace velorum::ui
