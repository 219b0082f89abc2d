#include "ui/LoudnessMeterBar.h"

#include <algorithm>
#include <cmath>

#include "ui/UiFormat.h"

namespace velorum::ui {

LoudnessMeterBar::LoudnessMeterBar(EditorHost& host, const IRECT& r) : MeterControl(host, r) {
  SetTooltip("Momentary (M) and short-term (S) loudness; the marks are the maxima.");
}

MeterScale LoudnessMeterBar::Scale() const {
  const TargetWindow t = mHost.Model().Targets();
  // A 54 dB window with the target two thirds up, in whole 6 dB steps.
  const double top = std::ceil((t.target + 18.0) / 6.0) * 6.0;
  return {top - 54.0, top};
}

void LoudnessMeterBar::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  DrawPanel(g, r, t);
  const MeterModel& m = mHost.Model();
  const MeterValues v = m.Read();
  const TargetWindow tw = m.Targets();
  const MeterScale s = Scale();

  // Ballistics: rise at once, fall at 24 dB/s so that the bars read calmly.
  const auto now = std::chrono::steady_clock::now();
  const double dt =
      mLast.time_since_epoch().count() ? std::chrono::duration<double>(now - mLast).count() : 1.0;
  mLast = now;
  auto follow = [&](double shown, double value) {
    return value >= shown ? value : std::max(value, shown - 24.0 * std::min(dt, 1.0));
  };
  mShownM = follow(mShownM, v.momentary);
  mShownS = follow(mShownS, v.shortTerm);

  const DRect inner{r.L + 4.0, r.T + 22.0, r.R - 4.0, r.B - 8.0};
  if (inner.H() < 20. || inner.W() < 30.) return;
  const double labelW = 22.0;
  s.DrawTicks(g, inner, 6.0, t, labelW);
  // Target window band.
  const double bandTop = s.Y(inner, tw.BandHigh()), bandBottom = s.Y(inner, tw.BandLow());
  g.new_path();
  g.rectangle(inner.L + labelW, bandTop, inner.W() - labelW, std::max(1.0, bandBottom - bandTop));
  g.set_color(t.targetBand);
  g.fill();

  const double barsW = inner.W() - labelW - 4.0, barW = std::max(4.0, barsW / 2.0 - 3.0);
  const double x0 = inner.L + labelW + 2.0;
  const struct {
    const char* name;
    double shown, maximum;
    tg_color color;
  } bars[2] = {{"M", mShownM, v.momentaryMax, t.momentary}, {"S", mShownS, v.shortTermMax, t.shortTerm}};
  for (int i = 0; i < 2; ++i) {
    const double x = x0 + i * (barW + 4.0);
    g.new_path();
    g.rectangle(x, inner.T, barW, inner.H());
    g.set_color(WithAlpha(t.grid, 0.5));
    g.fill();
    const double y = s.Y(inner, bars[i].shown);
    g.new_path();
    g.rectangle(x, y, barW, inner.B - y);
    g.set_linear_gradient(0, inner.B, 0, inner.T,
                          {{0.0, WithAlpha(bars[i].color, 0.55)}, {1.0, bars[i].color}});
    g.fill();
    if (bars[i].maximum > s.low) {
      const double my = std::round(s.Y(inner, bars[i].maximum)) + 0.5;
      g.new_path();
      g.move_to(x, my);
      g.line_to(x + barW, my);
      g.set_line_style(2.0);
      g.set_color(t.text);
      g.stroke();
    }
    DrawLabel(g, bars[i].name, x, r.T + 4.0, barW, 14.0, 9.5, t.dim, tg_align::center, "OpenSans-Bold");
  }
}

}  // namespace velorum::ui
