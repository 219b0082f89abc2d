#include "ui/HistoryGraph.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "ui/UiFormat.h"

namespace velorum::ui {
namespace {

constexpr double kStep10 = 0.01;   // seconds per 10 ms entry
constexpr double kMinView = 1.0;   // shortest view, seconds
constexpr double kAxisW = 30.0, kAxisH = 16.0, kScrollH = 7.0, kLegendH = 18.0;
const char* const kCurveNames[HistoryGraph::kCurves] = {"MOMENTARY", "SHORT TERM", "INTEGRATED", "TRUE PEAK"};
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A tick step of the time axis that leaves at least `minSeconds` between labels.
double TimeStep(double minSeconds) {
  static constexpr double kSteps[] = {0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200,
                                      14400, 28800, 86400};
  for (double s : kSteps)
    if (s >= minSeconds) return s;
  return 86400.0 * std::ceil(minSeconds / 86400.0);
}

}  // namespace

HistoryGraph::HistoryGraph(EditorHost& host, const IRECT& r) : MeterControl(host, r) {
  SetTooltip("Loudness history. Drag to select a range, click to clear it, wheel to zoom (Shift: scroll), "
             "double-click to show the whole measurement.");
}

IRECT HistoryGraph::PlotRect() const {
  const DRect r = D(GetRECT());
  return IRECT(r.L + 6. + kAxisW, r.T + kLegendH + 4., r.R - 8., r.B - 6. - kAxisH - kScrollH - 2.);
}

IRECT HistoryGraph::ScrollRect() const {
  const DRect p = D(PlotRect());
  const DRect r = D(GetRECT());
  return IRECT(float(p.L), float(r.B - 6. - kScrollH), float(p.R), float(r.B - 6.));
}

IRECT HistoryGraph::LegendRect(int curve) const {
  const DRect r = D(GetRECT());
  const double w = 78., x = r.R - 8. - w * double(kCurves - curve);
  return IRECT(x, r.T + 3., x + w - 4., r.T + 3. + 14.);
}

double HistoryGraph::TotalSeconds() const {
  const LoudnessEngine& e = mHost.Model().Engine();
  EngineLock lock(e.Mutex());
  return double(e.History().Size10()) * kStep10;
}

double HistoryGraph::TimeAtX(float x) const {
  const DRect p = D(PlotRect());
  return mViewStart + (double(x) - p.L) / std::max(1.0, p.W()) * mViewLength;
}

float HistoryGraph::XAtTime(double seconds) const {
  const DRect p = D(PlotRect());
  return float(p.L + (seconds - mViewStart) / mViewLength * p.W());
}

double HistoryGraph::ValueY(const DRect& plot, double v) const {
  const double f = std::clamp((v - mLow) / (mHigh - mLow), 0.0, 1.0);
  return plot.B - f * plot.H();
}

void HistoryGraph::UpdateView(double total) {
  switch (mMode) {
    case ViewMode::Fit:
      mViewStart = 0.0;
      mViewLength = std::max(10.0, total);
      break;
    case ViewMode::Follow:
      mViewStart = std::max(0.0, total - mViewLength);
      break;
    case ViewMode::Free:
      mViewStart = std::clamp(mViewStart, 0.0, std::max(0.0, total - mViewLength));
      break;
  }
}

void HistoryGraph::Zoom(double factor, float x) {
  const double total = TotalSeconds();
  const double at = TimeAtX(x);
  const double length = std::clamp(mViewLength / factor, kMinView, std::max(10.0, total));
  const double frac = (at - mViewStart) / mViewLength;
  mViewLength = length;
  mViewStart = std::max(0.0, at - frac * length);
  if (mViewLength >= std::max(10.0, total) - 1e-9) {
    mMode = ViewMode::Fit;
  } else {
    mMode = mViewStart + mViewLength >= total - 1e-6 ? ViewMode::Follow : ViewMode::Free;
  }
  mHost.Model().SetView(std::max(10.0, total) / mViewLength, mViewStart);
  SetDirty();
}

void HistoryGraph::ScrollBy(double seconds) {
  const double total = TotalSeconds();
  if (mMode == ViewMode::Fit) return;
  mViewStart = std::clamp(mViewStart + seconds, 0.0, std::max(0.0, total - mViewLength));
  mMode = mViewStart + mViewLength >= total - 1e-6 ? ViewMode::Follow : ViewMode::Free;
  mHost.Model().SetView(std::max(10.0, total) / mViewLength, mViewStart);
  SetDirty();
}

void HistoryGraph::ShowAll() {
  mMode = ViewMode::Fit;
  mHost.Model().SetView(1.0, 0.0);
  SetDirty();
}

void HistoryGraph::OnMouseDown(float x, float y, const IMouseMod& mod) {
  for (int c = 0; c < kCurves; ++c) {
    if (LegendRect(c).Contains(x, y)) {
      ShowCurve(c, !mShown[c]);
      return;
    }
  }
  mDragMoved = false;
  if (mod.R) {
    mHost.Model().ClearSelection();
    mHost.RedrawAll();
    return;
  }
  const DRect s = D(ScrollRect());
  if (double(y) >= s.T - 2.) {
    mDrag = Drag::Scroll;
    return;
  }
  if (x >= PlotRect().L) {
    mDrag = Drag::Select;
    mDragAnchor = std::max(0.0, TimeAtX(x));
  }
}

void HistoryGraph::OnMouseDrag(float x, float, float dX, float, const IMouseMod&) {
  if (mDrag == Drag::Scroll) {
    const double total = std::max(10.0, TotalSeconds());
    if (mMode == ViewMode::Fit) return;
    ScrollBy(double(dX) / std::max(1.0, double(PlotRect().W())) * total);
    return;
  }
  if (mDrag != Drag::Select) return;
  const double total = TotalSeconds();
  const double at = std::clamp(TimeAtX(x), 0.0, total);
  if (std::fabs(XAtTime(at) - XAtTime(mDragAnchor)) >= 2.f) mDragMoved = true;
  if (mDragMoved) {
    mHost.Model().SetSelection(std::min(mDragAnchor, at), std::max(mDragAnchor, at));
    mHost.RedrawAll();
  }
}

void HistoryGraph::OnMouseUp(float, float, const IMouseMod&) {
  if (mDrag == Drag::Select && !mDragMoved) {
    mHost.Model().ClearSelection();
    mHost.RedrawAll();
  }
  mDrag = Drag::None;
}

void HistoryGraph::OnMouseDblClick(float, float, const IMouseMod&) {
  mDrag = Drag::None;
  ShowAll();
}

void HistoryGraph::OnMouseWheel(float x, float, const IMouseMod& mod, float d) {
  if (mod.S) {
    ScrollBy(-double(d) * mViewLength * 0.1);
    return;
  }
  Zoom(std::pow(1.25, double(d)), x);
}

void HistoryGraph::OnMouseOver(float x, float y, const IMouseMod&) {
  const IRECT p = PlotRect();
  const float hover = p.Contains(x, y) ? x : -1.f;
  if (hover != mHoverX) {
    mHoverX = hover;
    SetDirty();
  }
}

void HistoryGraph::OnMouseOut() {
  mHoverX = -1.f;
  SetDirty();
}

bool HistoryGraph::OnKeyDown(float x, float, int key) {
  switch (key) {
    case KEY_LEFTARROW: ScrollBy(-mViewLength * 0.1); return true;
    case KEY_RIGHTARROW: ScrollBy(mViewLength * 0.1); return true;
    case KEY_UPARROW: Zoom(1.25, x); return true;
    case KEY_DOWNARROW: Zoom(0.8, x); return true;
    default: return false;
  }
}

void HistoryGraph::Draw(tgraphics& g) { DrawInto(g, true); }

bool HistoryGraph::DrawCurvesAccelerated(tgraphics& g, tg_gl_plot& gl, const DRect& p) {
  const Theme& t = Colors();
  const double scale = g.device_scale();
  const int w = static_cast<int>(std::lround(p.W() * scale)), h = static_cast<int>(std::lround(p.H() * scale));
  if (!mGpu) mGpu = std::make_unique<HistoryGpuCache>();
  mGpu->Sync(gl, mHost.Model().Engine());
  if (!gl.begin(w, h)) return false;
  const tg_gl_view view{mViewStart, mViewStart + mViewLength, mLow, mHigh};
  auto range = [&](int curve) { return mGpu->RangeFor(curve, mViewStart, mViewLength, double(w)); };
  if (mShown[kMomentary]) {
    const auto r = range(HistoryGpuCache::kMomentary);
    gl.area(r.series, r.first, r.count, r.base, r.step, view, mLow, WithAlpha(t.momentary, 0.28));
  }
  const struct {
    int curve, cache;
    tg_color color;
    double width;
  } lines[3] = {{kTruePeak, HistoryGpuCache::kTruePeak, WithAlpha(t.truePeak, 0.8), 1.0},
                {kShortTerm, HistoryGpuCache::kShortTerm, t.shortTerm, 1.6},
                {kIntegrated, HistoryGpuCache::kIntegrated, t.integrated, 1.8}};
  for (const auto& l : lines) {
    if (!mShown[l.curve]) continue;
    const auto r = range(l.cache);
    gl.line(r.series, r.first, r.count, r.base, r.step, view, l.color, l.width * scale);
  }
  cairo_surface_t* image = gl.end();
  if (!image) return false;
  cairo_surface_set_device_scale(image, scale, scale);
  g.draw_surface(image, p.L, p.T);
  cairo_surface_destroy(image);
  return true;
}

void HistoryGraph::DrawInto(tgraphics& g, bool interactive) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  DrawPanel(g, r, t, "LOUDNESS HISTORY");
  const MeterModel& m = mHost.Model();
  const TargetWindow tw = m.Targets();
  const DRect p = D(PlotRect());
  if (p.W() < 20.0 || p.H() < 20.) return;
  mHigh = std::max(0.0, std::ceil((tw.target + 20.0) / 6.0) * 6.0);
  mLow = mHigh - 60.0;

  // Decimate the histories to one column per editor unit under the engine
  // mutex. The OpenGL path needs only the column under the pointer.
  const int columns = std::max(1, static_cast<int>(p.W()));
  std::vector<double> mMax(size_t(columns), kNaN), sLast(size_t(columns), kNaN), tpMax(size_t(columns), kNaN),
      iLast(size_t(columns), kNaN);
  double total = 0.0;
  const LoudnessEngine& e = m.Engine();
  auto decimate = [&](int c0, int c1) {
    // The audio thread takes the same mutex at every 10 ms step: hold it for
    // short slices only, and read the sizes again after each pause.
    std::unique_lock<EngineMutex> lock(e.Mutex());
    const MeasurementHistory& h = e.History();
    total = double(h.Size10()) * kStep10;
    UpdateView(total);
    size_t n10 = 0, n100 = 0, budget = 0;
    auto sizes = [&] {
      n10 = std::min({h.momentary.size(), h.shortTerm.size(), h.truePeak.size(), h.stepFlags.size()});
      n100 = std::min(h.integrated.size(), h.blockFlags.size());
    };
    sizes();
    for (int c = std::max(0, c0); c < std::min(columns, c1); ++c) {
      if (budget > 8192) {
        lock.unlock();
        lock.lock();
        sizes();
        budget = 0;
      }
      const double t0 = mViewStart + mViewLength * c / columns, t1 = mViewStart + mViewLength * (c + 1) / columns;
      auto i0 = static_cast<size_t>(std::max(0.0, std::floor(t0 / kStep10)));
      auto i1 = static_cast<size_t>(std::max(0.0, std::ceil(t1 / kStep10)));
      i1 = std::min(std::max(i1, i0 + 1), n10);
      double mm = -1e9, tp = -1e9, s = kNaN;
      budget += i1 > i0 ? i1 - i0 : 0;
      for (size_t i = i0; i < i1; ++i) {
        if (h.stepFlags[i] != kFlagMeasured) continue;
        mm = std::max(mm, double(h.momentary[i]));
        tp = std::max(tp, double(h.truePeak[i]));
        s = double(h.shortTerm[i]);
      }
      if (mm > -119.9) mMax[size_t(c)] = mm;
      if (tp > -119.9) tpMax[size_t(c)] = tp;
      if (s > -119.9) sLast[size_t(c)] = s;
      const auto b = static_cast<size_t>(std::max(0.0, std::floor(t1 / 0.1)));
      if (b < n100 && h.blockFlags[b] == kFlagMeasured && h.integrated[b] > -119.9f)
        iLast[size_t(c)] = double(h.integrated[b]);
    }
  };
  // Only the window's own frames take the OpenGL path; exports and offscreen
  // renders always draw with cairo.
  tg_gl_plot* gl = interactive && DrawsToWindow(g) ? mHost.Accelerated() : nullptr;
  const int hover = interactive && mHoverX >= 0.f
                        ? std::clamp(static_cast<int>((double(mHoverX) - p.L) / (double(p.W()) / columns)), 0,
                                     columns - 1)
                        : -1;
  if (gl) decimate(hover, hover + 1);
  else decimate(0, columns);

  // Grid: loudness every 6 dB, with labels.
  g.set_line_style(1.0);
  for (double v = mLow; v <= mHigh + 1e-9; v += 6.0) {
    const double y = std::round(ValueY(p, v)) + 0.5;
    g.new_path();
    g.move_to(p.L, y);
    g.line_to(p.R, y);
    g.set_color(t.grid);
    g.stroke();
    DrawLabel(g, std::to_string(static_cast<int>(v)), r.L + 4.0, y - 6.0, kAxisW - 2.0, 12.0, 8.5, t.dim,
              tg_align::right, "OpenSans-Regular");
  }
  // Target band and target line.
  const double bandTop = ValueY(p, tw.BandHigh()), bandBottom = ValueY(p, tw.BandLow());
  g.new_path();
  g.rectangle(p.L, bandTop, p.W(), std::max(1.0, bandBottom - bandTop));
  g.set_color(t.targetBand);
  g.fill();
  const double targetY = std::round(ValueY(p, tw.target)) + 0.5;
  g.new_path();
  g.move_to(p.L, targetY);
  g.line_to(p.R, targetY);
  g.set_color(WithAlpha(t.ok, 0.9));
  g.stroke();
  const double tpY = std::round(ValueY(p, tw.truePeakMax)) + 0.5;
  g.new_path();
  g.move_to(p.L, tpY);
  g.line_to(p.R, tpY);
  g.set_color(WithAlpha(t.bad, 0.7));
  g.stroke();

  // Time axis.
  const int mode = m.HistogramMode();
  const int fps = mHost.Settings().fpsIndex;
  const double step = TimeStep(mViewLength * (mode == 1 ? 90.0 : 64.0) / std::max(1.0, double(p.W())));
  for (double s = std::ceil(mViewStart / step) * step; s <= mViewStart + mViewLength + 1e-9; s += step) {
    const double x = std::round(double(XAtTime(s))) + 0.5;
    g.new_path();
    g.move_to(x, p.T);
    g.line_to(x, p.B + 3.0);
    g.set_color(t.grid);
    g.stroke();
    // Labels stay inside the panel: the last one is right-aligned to the plot.
    const double labelX = std::clamp(x - 45.0, r.L + 2.0, p.R - 90.0 + 8.0);
    const tg_align align = labelX > x - 45.0 ? tg_align::left : labelX < x - 45.0 ? tg_align::right : tg_align::center;
    DrawLabel(g, FormatAxisTime(s, mode, fps, m.SystemStartSeconds(), step < 1.0), labelX, p.B + 3.0, 90.0, kAxisH, 8.5,
              t.dim, align, "OpenSans-Regular");
  }

  g.save();
  g.clip_rect(p.L, p.T, p.W(), p.H());
  // Selection.
  if (m.HasSelection()) {
    const double x0 = double(XAtTime(m.SelectionBegin())), x1 = double(XAtTime(m.SelectionEnd()));
    g.new_path();
    g.rectangle(x0, p.T, std::max(1.0, x1 - x0), p.H());
    g.set_color(WithAlpha(t.accent, 0.22));
    g.fill();
  }
  const double dx = double(p.W()) / columns;
  if (gl && !DrawCurvesAccelerated(g, *gl, p)) {
    // A failed frame is drawn again with cairo; so are the ones after it.
    mHost.AcceleratedFailed();
    gl = nullptr;
    decimate(0, columns);
  }
  // Momentary envelope as a filled area.
  if (!gl && mShown[kMomentary]) {
    g.new_path();
    bool open = false;
    double firstX = 0.0;
    for (int c = 0; c <= columns; ++c) {
      const bool valid = c < columns && !std::isnan(mMax[size_t(c)]);
      const double x = p.L + (c + 0.5) * dx;
      if (valid) {
        const double y = ValueY(p, mMax[size_t(c)]);
        if (!open) {
          g.move_to(x, p.B);
          firstX = x;
          open = true;
        }
        g.line_to(x, y);
      } else if (open) {
        g.line_to(p.L + (c - 0.5) * dx, p.B);
        g.close_path();
        open = false;
      }
    }
    (void)firstX;
    g.set_color(WithAlpha(t.momentary, 0.28));
    g.fill();
  }
  auto line = [&](const std::vector<double>& values, const tg_color& color, double width) {
    g.new_path();
    bool open = false;
    for (int c = 0; c < columns; ++c) {
      const double v = values[size_t(c)];
      if (std::isnan(v)) {
        open = false;
        continue;
      }
      const double x = p.L + (c + 0.5) * dx, y = ValueY(p, v);
      if (!open) g.move_to(x, y);
      else g.line_to(x, y);
      open = true;
    }
    g.set_line_style(width, CAIRO_LINE_CAP_ROUND, CAIRO_LINE_JOIN_ROUND);
    g.set_color(color);
    g.stroke();
  };
  if (!gl && mShown[kTruePeak]) line(tpMax, WithAlpha(t.truePeak, 0.8), 1.0);
  if (!gl && mShown[kShortTerm]) line(sLast, t.shortTerm, 1.6);
  if (!gl && mShown[kIntegrated]) line(iLast, t.integrated, 1.8);
  g.restore();

  // The values under the pointer.
  if (interactive && mHoverX >= 0.f) {
    const int c = hover;
    const double x = std::round(p.L + (c + 0.5) * dx) + 0.5;
    g.new_path();
    g.move_to(x, p.T);
    g.line_to(x, p.B);
    g.set_line_style(1.0);
    g.set_color(WithAlpha(t.text, 0.6));
    g.stroke();
    const double at = mViewStart + mViewLength * (c + 0.5) / columns;
    const std::string lines[5] = {FormatAxisTime(at, mode, fps, m.SystemStartSeconds(), true),
                                  "M  " + FormatLoudness(std::isnan(mMax[size_t(c)]) ? -120.0 : mMax[size_t(c)]),
                                  "S  " + FormatLoudness(std::isnan(sLast[size_t(c)]) ? -120.0 : sLast[size_t(c)]),
                                  "I  " + FormatLoudness(std::isnan(iLast[size_t(c)]) ? -120.0 : iLast[size_t(c)]),
                                  "TP " + FormatLoudness(std::isnan(tpMax[size_t(c)]) ? -120.0 : tpMax[size_t(c)])};
    const double bw = 92.0, bh = 5 * 13.0 + 8.0;
    const double bx = x + 8.0 + bw < p.R ? x + 8.0 : x - 8.0 - bw, by = p.T + 6.0;
    g.new_path();
    g.rounded_rectangle(bx, by, bw, bh, 4.0);
    g.set_color(WithAlpha(t.menu, 0.92));
    g.fill_preserve();
    g.set_color(t.panelEdge);
    g.stroke();
    const tg_color colors5[5] = {t.text, t.momentary, t.shortTerm, t.integrated, t.truePeak};
    for (int i = 0; i < 5; ++i)
      DrawLabel(g, lines[i], bx + 6.0, by + 4.0 + i * 13.0, bw - 12.0, 13.0, 8.5, colors5[i], tg_align::left,
                "OpenSans-Regular");
  }

  // Plot frame.
  g.new_path();
  g.rectangle(p.L + 0.5, p.T + 0.5, p.W() - 1.0, p.H() - 1.0);
  g.set_line_style(1.0);
  g.set_color(t.panelEdge);
  g.stroke();

  // Scroll bar: the view inside the whole measurement.
  const DRect sb = D(ScrollRect());
  const double whole = std::max({10.0, total, mViewStart + mViewLength});
  g.new_path();
  g.rounded_rectangle(sb.L, sb.T, sb.W(), sb.H(), 3.0);
  g.set_color(WithAlpha(t.grid, 0.7));
  g.fill();
  const double tx = sb.L + sb.W() * mViewStart / whole, tw2 = std::max(8.0, sb.W() * mViewLength / whole);
  g.new_path();
  g.rounded_rectangle(std::min(tx, sb.R - tw2), sb.T, tw2, sb.H(), 3.0);
  g.set_color(WithAlpha(t.dim, 0.8));
  g.fill();

  // Legend (click to show or hide a curve).
  const tg_color colors[kCurves] = {t.momentary, t.shortTerm, t.integrated, t.truePeak};
  if (r.W() > 380.0) {
    for (int c = 0; c < kCurves; ++c) {
      const DRect l = D(LegendRect(c));
      g.new_path();
      g.rounded_rectangle(l.L, l.T + 4.0, 8.0, 6.0, 2.0);
      g.set_color(mShown[c] ? colors[c] : WithAlpha(colors[c], 0.25));
      g.fill();
      DrawLabel(g, kCurveNames[c], l.L + 11.0, l.T, l.W() - 11.0, l.H(), 8.5, mShown[c] ? t.text : t.dim);
    }
  }
  if (interactive && m.HasSelection() && r.W() > 680.) {
    const std::string text = FormatAxisTime(m.SelectionBegin(), mode, fps, m.SystemStartSeconds(), true) + " - " +
                             FormatAxisTime(m.SelectionEnd(), mode, fps, m.SystemStartSeconds(), true);
    DrawLabel(g, "SELECTION " + text, r.L + 130.0, r.T + 3.0, 200.0, 14.0, 8.5, t.accent);
  }
}

}  // namespace velorum::ui
