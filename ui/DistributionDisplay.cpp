#include "ui/DistributionDisplay.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "graphics/tg_gl_plot.h"
#include "ui/UiFormat.h"

namespace velorum::ui {

DistributionDisplay::DistributionDisplay(EditorHost& host, const IRECT& r, Kind kind)
    : MeterControl(host, r), mKind(kind) {
  switch (kind) {
    case Kind::Loudness:
      SetTooltip("How often each momentary loudness occurred.");
      break;
    case Kind::Dynamics:
      SetTooltip("How often each realtime dynamics value occurred.");
      break;
    case Kind::TruePeak:
      SetTooltip("How often each true-peak value occurred.");
      break;
  }
}

const Distribution& DistributionDisplay::Bins() const {
  const MeterModel& m = mHost.Model();
  switch (mKind) {
    case Kind::Loudness:
      return m.LoudnessBins();
    case Kind::Dynamics:
      return m.DynamicsBins();
    default:
      return m.TruePeakBins();
  }
}

double DistributionDisplay::Low() const {
  switch (mKind) {
    case Kind::Loudness:
      return mHost.Model().Targets().target - 36.0;
    case Kind::Dynamics:
      return 0.0;
    default:
      return -48.0;
  }
}

double DistributionDisplay::High() const {
  switch (mKind) {
    case Kind::Loudness:
      return mHost.Model().Targets().target + 18.0;
    case Kind::Dynamics:
      return 30.0;
    default:
      return 3.0;
  }
}

bool DistributionDisplay::DrawBarsAccelerated(tgraphics& g, tg_gl_plot& gl, const DRect& p,
                                              const std::vector<double>& counts, const tg_color& color) {
  const double scale = g.device_scale();
  const int w = static_cast<int>(std::lround(p.W() * scale)),
            h = static_cast<int>(std::lround(p.H() * scale));
  const double bw = double(p.W()) / double(counts.size());
  std::vector<float> rects;
  for (size_t b = 0; b < counts.size(); ++b) {
    const double bh = counts[b] / mPeak * p.H();
    if (bh <= 0.0) continue;
    const double x = double(b) * bw, width = std::max(0.5, bw - (bw > 3.0 ? 1.0 : 0.0));
    for (double v : {x, p.H() - bh, width, bh}) rects.push_back(float(v * scale));
  }
  if (!gl.begin(w, h)) return false;
  gl.rects(rects, color);
  cairo_surface_t* image = gl.end();
  if (!image) return false;
  cairo_surface_set_device_scale(image, scale, scale);
  g.draw_surface(image, p.L, p.T);
  cairo_surface_destroy(image);
  return true;
}

void DistributionDisplay::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  static const char* const kCaptions[] = {"LOUDNESS DISTRIBUTION", "DYNAMICS (PLR) DISTRIBUTION",
                                          "TRUE PEAK DISTRIBUTION"};
  DrawPanel(g, r, t, kCaptions[static_cast<int>(mKind)]);
  const DRect p{r.L + 8.0, r.T + 20.0, r.R - 8.0, r.B - 18.0};
  if (p.W() < 20. || p.H() < 10.) return;
  const Distribution& d = Bins();
  const double low = Low(), high = High();
  const int bars = std::clamp(static_cast<int>(p.W() / 3.0), 4, 240);
  const double unitsPerBar = (high - low) / bars;
  std::vector<double> counts(size_t(bars), 0.0);
  const float* bins = d.Bins();
  for (int b = 0; b < d.BinCount(); ++b) {
    const double v = d.BinLowerEdge(b) + 0.5 / d.binsPerUnit;
    if (v < low || v >= high) continue;
    counts[size_t(std::min(bars - 1, static_cast<int>((v - low) / unitsPerBar)))] += double(bins[b]);
  }
  mPeak = *std::max_element(counts.begin(), counts.end());
  const TargetWindow tw = mHost.Model().Targets();
  tg_color color = mKind == Kind::Loudness ? t.momentary : mKind == Kind::Dynamics ? t.shortTerm : t.truePeak;
  const double bw = double(p.W()) / bars;
  tg_gl_plot* gl = mPeak > 0.0 && DrawsToWindow(g) ? mHost.Accelerated() : nullptr;
  if (gl && !DrawBarsAccelerated(g, *gl, p, counts, color)) {
    mHost.AcceleratedFailed();
    gl = nullptr;
  }
  if (mPeak > 0.0 && !gl) {
    g.new_path();
    for (int b = 0; b < bars; ++b) {
      const double h = counts[size_t(b)] / mPeak * p.H();
      if (h <= 0.0) continue;
      g.rectangle(p.L + b * bw, p.B - h, std::max(0.5, bw - (bw > 3.0 ? 1.0 : 0.0)), h);
    }
    g.set_color(color);
    g.fill();
  }
  // Marker: the target or the true-peak maximum.
  double mark = -1e9;
  if (mKind == Kind::Loudness) mark = tw.target;
  if (mKind == Kind::TruePeak) mark = tw.truePeakMax;
  if (mark > low && mark < high) {
    const double x = std::round(p.L + (mark - low) / (high - low) * p.W()) + 0.5;
    g.new_path();
    g.move_to(x, p.T);
    g.line_to(x, p.B);
    g.set_line_style(1.0);
    g.set_color(mKind == Kind::TruePeak ? t.bad : t.ok);
    g.stroke();
  }
  // Axis labels.
  const double step = (high - low) > 40.0 ? 12.0 : 6.0;
  for (double v = std::ceil(low / step) * step; v <= high + 1e-9; v += step) {
    const double x = p.L + (v - low) / (high - low) * p.W();
    DrawLabel(g, std::to_string(static_cast<int>(std::lround(v))), x - 14.0, p.B + 2.0, 28.0, 14.0, 8.0,
              t.dim, tg_align::center, "OpenSans-Regular");
  }
  g.new_path();
  g.move_to(p.L, p.B + 0.5);
  g.line_to(p.R, p.B + 0.5);
  g.set_line_style(1.0);
  g.set_color(t.panelEdge);
  g.stroke();
  mWarm = mHost.Model().WarmUp();
  if (mWarm) {
    g.new_path();
    g.rectangle(p.L, p.T, p.W(), p.H());
    g.set_color(WithAlpha(t.panel, 0.7));
    g.fill();
    DrawLabel(g, "WARMING UP", p.L, p.T, p.W(), p.H(), 10.0, t.dim, tg_align::center, "OpenSans-Bold");
  }
}

}  // namespace velorum::ui
