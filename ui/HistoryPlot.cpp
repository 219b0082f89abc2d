#include "ui/HistoryPlot.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

#include "engine/LoudnessEngine.h"

namespace velorum::ui {
namespace {

constexpr double kStep10 = 0.01;  // seconds per 10 ms entry
constexpr double kAxisW = 30.0, kAxisH = 16.0, kScrollH = 7.0, kLegendH = 18.0;
const char* const kCurveNames[kPlotCurves] = {"MOMENTARY", "SHORT TERM", "INTEGRATED", "TRUE PEAK"};
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A tick step of the time axis that leaves at least `minSeconds` between labels.
double TimeStep(double minSeconds) {
  static constexpr double kSteps[] = {0.1, 0.2, 0.5, 1,   2,    5,    10,   15,    30,    60,
                                      120, 300, 600, 900, 1800, 3600, 7200, 14400, 28800, 86400};
  for (double s : kSteps)
    if (s >= minSeconds) return s;
  return 86400.0 * std::ceil(minSeconds / 86400.0);
}

double XAt(const DRect& p, const PlotColumns& c, double seconds) {
  return p.L + (seconds - c.viewStart) / c.viewLength * p.W();
}

void DrawGridAndTargets(tgraphics& g, const DRect& r, const DRect& p, const Theme& t, const TargetWindow& tw,
                        double low, double high) {
  g.set_line_style(1.0);
  for (double v = low; v <= high + 1e-9; v += 6.0) {
    const double y = std::round(PlotValueY(p, low, high, v)) + 0.5;
    g.new_path();
    g.move_to(p.L, y);
    g.line_to(p.R, y);
    g.set_color(t.grid);
    g.stroke();
    DrawLabel(g, std::to_string(static_cast<int>(v)), r.L + 4.0, y - 6.0, kAxisW - 2.0, 12.0, 8.5, t.dim,
              tg_align::right, "OpenSans-Regular");
  }
  const double bandTop = PlotValueY(p, low, high, tw.BandHigh()),
               bandBottom = PlotValueY(p, low, high, tw.BandLow());
  g.new_path();
  g.rectangle(p.L, bandTop, p.W(), std::max(1.0, bandBottom - bandTop));
  g.set_color(t.targetBand);
  g.fill();
  auto hline = [&](double value, const tg_color& c) {
    const double y = std::round(PlotValueY(p, low, high, value)) + 0.5;
    g.new_path();
    g.move_to(p.L, y);
    g.line_to(p.R, y);
    g.set_color(c);
    g.stroke();
  };
  hline(tw.target, WithAlpha(t.ok, 0.9));
  hline(tw.truePeakMax, WithAlpha(t.bad, 0.7));
}

void DrawTimeAxis(tgraphics& g, const DRect& r, const DRect& p, const Theme& t, const PlotColumns& c,
                  const PlotStyle& s) {
  const int mode = s.histogramMode;
  const double step = TimeStep(c.viewLength * (mode == 1 ? 90.0 : 64.0) / std::max(1.0, double(p.W())));
  for (double at = std::ceil(c.viewStart / step) * step; at <= c.viewStart + c.viewLength + 1e-9;
       at += step) {
    const double x = std::round(XAt(p, c, at)) + 0.5;
    g.new_path();
    g.move_to(x, p.T);
    g.line_to(x, p.B + 3.0);
    g.set_color(t.grid);
    g.stroke();
    // Labels stay inside the panel: the last one is right-aligned to the plot.
    const double labelX = std::clamp(x - 45.0, r.L + 2.0, p.R - 90.0 + 8.0);
    const tg_align align = labelX > x - 45.0   ? tg_align::left
                           : labelX < x - 45.0 ? tg_align::right
                                               : tg_align::center;
    DrawLabel(g, FormatAxisTime(at, mode, s.fpsIndex, s.systemStartSeconds, step < 1.0), labelX, p.B + 3.0,
              90.0, kAxisH, 8.5, t.dim, align, "OpenSans-Regular");
  }
}

void DrawCurves(tgraphics& g, const DRect& p, const Theme& t, const PlotColumns& c, const PlotStyle& s,
                double low, double high) {
  const int columns = c.Count();
  const double dx = double(p.W()) / std::max(1, columns);
  if (s.shown[kPlotMomentary]) {
    // The momentary envelope as a filled area.
    g.new_path();
    bool open = false;
    for (int i = 0; i <= columns; ++i) {
      const bool valid = i < columns && !std::isnan(c.momentaryMax[size_t(i)]);
      const double x = p.L + (i + 0.5) * dx;
      if (valid) {
        if (!open) {
          g.move_to(x, p.B);
          open = true;
        }
        g.line_to(x, PlotValueY(p, low, high, c.momentaryMax[size_t(i)]));
      } else if (open) {
        g.line_to(p.L + (i - 0.5) * dx, p.B);
        g.close_path();
        open = false;
      }
    }
    g.set_color(WithAlpha(t.momentary, 0.28));
    g.fill();
  }
  auto line = [&](const std::vector<double>& values, const tg_color& color, double width) {
    g.new_path();
    bool open = false;
    for (int i = 0; i < columns; ++i) {
      const double v = values[size_t(i)];
      if (std::isnan(v)) {
        open = false;
        continue;
      }
      const double x = p.L + (i + 0.5) * dx, y = PlotValueY(p, low, high, v);
      if (!open)
        g.move_to(x, y);
      else
        g.line_to(x, y);
      open = true;
    }
    g.set_line_style(width, CAIRO_LINE_CAP_ROUND, CAIRO_LINE_JOIN_ROUND);
    g.set_color(color);
    g.stroke();
  };
  if (s.shown[kPlotTruePeak]) line(c.truePeakMax, WithAlpha(t.truePeak, 0.8), 1.0);
  if (s.shown[kPlotShortTerm]) line(c.shortTerm, t.shortTerm, 1.6);
  if (s.shown[kPlotIntegrated]) line(c.integrated, t.integrated, 1.8);
}

void DrawScrollAndLegend(tgraphics& g, const PlotGeometry& geo, const Theme& t, const PlotColumns& c,
                         const PlotStyle& s) {
  const DRect& sb = geo.scroll;
  const double whole = std::max({10.0, c.total, c.viewStart + c.viewLength});
  g.new_path();
  g.rounded_rectangle(sb.L, sb.T, sb.W(), sb.H(), 3.0);
  g.set_color(WithAlpha(t.grid, 0.7));
  g.fill();
  const double tx = sb.L + sb.W() * c.viewStart / whole, tw = std::max(8.0, sb.W() * c.viewLength / whole);
  g.new_path();
  g.rounded_rectangle(std::min(tx, sb.R - tw), sb.T, tw, sb.H(), 3.0);
  g.set_color(WithAlpha(t.dim, 0.8));
  g.fill();
  const tg_color colors[kPlotCurves] = {t.momentary, t.shortTerm, t.integrated, t.truePeak};
  if (geo.panel.W() <= 380.0) return;
  for (int i = 0; i < kPlotCurves; ++i) {
    const DRect& l = geo.legend[i];
    g.new_path();
    g.rounded_rectangle(l.L, l.T + 4.0, 8.0, 6.0, 2.0);
    g.set_color(s.shown[i] ? colors[i] : WithAlpha(colors[i], 0.25));
    g.fill();
    DrawLabel(g, kCurveNames[i], l.L + 11.0, l.T, l.W() - 11.0, l.H(), 8.5, s.shown[i] ? t.text : t.dim);
  }
}

}  // namespace

PlotGeometry HistoryPlotGeometry(const DRect& r) {
  PlotGeometry geo;
  geo.panel = r;
  geo.plot = {r.L + 6. + kAxisW, r.T + kLegendH + 4., r.R - 8., r.B - 6. - kAxisH - kScrollH - 2.};
  geo.scroll = {geo.plot.L, r.B - 6. - kScrollH, geo.plot.R, r.B - 6.};
  for (int c = 0; c < kPlotCurves; ++c) {
    const double w = 78., x = r.R - 8. - w * double(kPlotCurves - c);
    geo.legend[c] = {x, r.T + 3., x + w - 4., r.T + 3. + 14.};
  }
  // The control model keeps floats: the same rounding as the editor's rectangles.
  auto f = [](DRect& d) {
    d = {double(float(d.L)), double(float(d.T)), double(float(d.R)), double(float(d.B))};
  };
  f(geo.plot);
  f(geo.scroll);
  for (DRect& l : geo.legend) f(l);
  return geo;
}

void PlotValueRange(double target, double& low, double& high) {
  high = std::max(0.0, std::ceil((target + 20.0) / 6.0) * 6.0);
  low = high - 60.0;
}

double PlotValueY(const DRect& plot, double low, double high, double v) {
  const double f = std::clamp((v - low) / (high - low), 0.0, 1.0);
  return plot.B - f * plot.H();
}

PlotColumns ReadPlotColumns(const LoudnessEngine& e, int columns,
                            const std::function<void(double, double&, double&)>& settleView, int first,
                            int last) {
  PlotColumns c;
  columns = std::max(1, columns);
  c.momentaryMax.assign(size_t(columns), kNaN);
  c.shortTerm.assign(size_t(columns), kNaN);
  c.truePeakMax.assign(size_t(columns), kNaN);
  c.integrated.assign(size_t(columns), kNaN);
  std::unique_lock<EngineMutex> lock(e.Mutex());
  const MeasurementHistory& h = e.History();
  c.total = double(h.Size10()) * kStep10;
  settleView(c.total, c.viewStart, c.viewLength);
  size_t n10 = 0, n100 = 0, budget = 0;
  auto sizes = [&] {
    n10 = std::min({h.momentary.size(), h.shortTerm.size(), h.truePeak.size(), h.stepFlags.size()});
    n100 = std::min(h.integrated.size(), h.blockFlags.size());
  };
  sizes();
  for (int i = std::max(0, first); i < std::min(columns, last); ++i) {
    if (budget > 8192) {
      // Hold the mutex for short slices only; the sizes may have grown meanwhile.
      lock.unlock();
      lock.lock();
      sizes();
      budget = 0;
    }
    const double t0 = c.viewStart + c.viewLength * i / columns,
                 t1 = c.viewStart + c.viewLength * (i + 1) / columns;
    auto i0 = static_cast<size_t>(std::max(0.0, std::floor(t0 / kStep10)));
    auto i1 = static_cast<size_t>(std::max(0.0, std::ceil(t1 / kStep10)));
    i1 = std::min(std::max(i1, i0 + 1), n10);
    double mm = -1e9, tp = -1e9, s = kNaN;
    budget += i1 > i0 ? i1 - i0 : 0;
    for (size_t k = i0; k < i1; ++k) {
      if (h.stepFlags[k] != kFlagMeasured) continue;
      mm = std::max(mm, double(h.momentary[k]));
      tp = std::max(tp, double(h.truePeak[k]));
      s = double(h.shortTerm[k]);
    }
    if (mm > -119.9) c.momentaryMax[size_t(i)] = mm;
    if (tp > -119.9) c.truePeakMax[size_t(i)] = tp;
    if (s > -119.9) c.shortTerm[size_t(i)] = s;
    const auto b = static_cast<size_t>(std::max(0.0, std::floor(t1 / 0.1)));
    if (b < n100 && h.blockFlags[b] == kFlagMeasured && h.integrated[b] > -119.9f)
      c.integrated[size_t(i)] = double(h.integrated[b]);
  }
  return c;
}

void DrawHistoryPlot(tgraphics& g, const PlotGeometry& geo, const Theme& t, const PlotColumns& c,
                     const PlotStyle& s, const PlotAccelerator* accelerator) {
  const DRect& r = geo.panel;
  const DRect& p = geo.plot;
  g.clip_rect(r.L, r.T, r.W(), r.H());
  DrawPanel(g, r, t, "LOUDNESS HISTORY");
  if (p.W() < 20.0 || p.H() < 20.) return;
  double low = 0.0, high = 0.0;
  PlotValueRange(s.targets.target, low, high);
  DrawGridAndTargets(g, r, p, t, s.targets, low, high);
  DrawTimeAxis(g, r, p, t, c, s);
  g.save();
  g.clip_rect(p.L, p.T, p.W(), p.H());
  if (s.hasSelection) {
    const double x0 = XAt(p, c, s.selectionBegin), x1 = XAt(p, c, s.selectionEnd);
    g.new_path();
    g.rectangle(x0, p.T, std::max(1.0, x1 - x0), p.H());
    g.set_color(WithAlpha(t.accent, 0.22));
    g.fill();
  }
  if (!accelerator || !accelerator->draw(p)) {
    if (accelerator && accelerator->reread) {
      PlotColumns all = c;
      accelerator->reread(all);
      DrawCurves(g, p, t, all, s, low, high);
    } else {
      DrawCurves(g, p, t, c, s, low, high);
    }
  }
  g.restore();
  g.new_path();
  g.rectangle(p.L + 0.5, p.T + 0.5, p.W() - 1.0, p.H() - 1.0);
  g.set_line_style(1.0);
  g.set_color(t.panelEdge);
  g.stroke();
  DrawScrollAndLegend(g, geo, t, c, s);
}

}  // namespace velorum::ui
