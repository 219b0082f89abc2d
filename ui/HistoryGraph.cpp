#include "ui/HistoryGraph.h"

#include <algorithm>
#include <cmath>

#include "ui/HistoryPlot.h"
#include "ui/UiFormat.h"

namespace velorum::ui {
namespace {

constexpr double kStep10 = 0.01;  // seconds per 10 ms entry
constexpr double kMinView = 1.0;  // shortest view, seconds
}  // namespace

HistoryGraph::HistoryGraph(EditorHost& host, const IRECT& r) : MeterControl(host, r) {
  SetTooltip(
      "Loudness history. Drag to select a range, click to clear it, wheel to zoom (Shift: scroll), "
      "double-click to show the whole measurement.");
}

IRECT HistoryGraph::PlotRect() const {
  const DRect p = HistoryPlotGeometry(D(GetRECT())).plot;
  return IRECT(float(p.L), float(p.T), float(p.R), float(p.B));
}

IRECT HistoryGraph::ScrollRect() const {
  const DRect s = HistoryPlotGeometry(D(GetRECT())).scroll;
  return IRECT(float(s.L), float(s.T), float(s.R), float(s.B));
}

IRECT HistoryGraph::LegendRect(int curve) const {
  const DRect l = HistoryPlotGeometry(D(GetRECT())).legend[curve];
  return IRECT(float(l.L), float(l.T), float(l.R), float(l.B));
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
    case KEY_LEFTARROW:
      ScrollBy(-mViewLength * 0.1);
      return true;
    case KEY_RIGHTARROW:
      ScrollBy(mViewLength * 0.1);
      return true;
    case KEY_UPARROW:
      Zoom(1.25, x);
      return true;
    case KEY_DOWNARROW:
      Zoom(0.8, x);
      return true;
    default:
      return false;
  }
}

void HistoryGraph::Draw(tgraphics& g) {
  DrawInto(g, true);
}

bool HistoryGraph::DrawCurvesAccelerated(tgraphics& g, tg_gl_plot& gl, const DRect& p) {
  const Theme& t = Colors();
  const double scale = g.device_scale();
  const int w = static_cast<int>(std::lround(p.W() * scale)),
            h = static_cast<int>(std::lround(p.H() * scale));
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
  const MeterModel& m = mHost.Model();
  const PlotGeometry geo = HistoryPlotGeometry(D(GetRECT()));
  const DRect r = geo.panel, p = geo.plot;
  PlotStyle style;
  style.targets = m.Targets();
  style.histogramMode = m.HistogramMode();
  style.fpsIndex = mHost.Settings().fpsIndex;
  style.systemStartSeconds = m.SystemStartSeconds();
  for (int c = 0; c < kCurves; ++c) style.shown[c] = mShown[c];
  style.hasSelection = m.HasSelection();
  style.selectionBegin = m.SelectionBegin();
  style.selectionEnd = m.SelectionEnd();
  PlotValueRange(style.targets.target, mLow, mHigh);
  const auto settle = [this](double total, double& start, double& length) {
    UpdateView(total);
    start = mViewStart;
    length = mViewLength;
  };
  const int columns = std::max(1, static_cast<int>(p.W()));
  // Only the window's own frames take the OpenGL path; exports and offscreen
  // renders always draw with cairo. The OpenGL path reads the histories
  // itself, so only the column under the pointer is decimated here.
  tg_gl_plot* gl = interactive && DrawsToWindow(g) ? mHost.Accelerated() : nullptr;
  const int hover =
      interactive && mHoverX >= 0.f
          ? std::clamp(static_cast<int>((double(mHoverX) - p.L) / (double(p.W()) / columns)), 0, columns - 1)
          : -1;
  const PlotColumns cols = gl ? ReadPlotColumns(m.Engine(), columns, settle, hover, hover + 1)
                              : ReadPlotColumns(m.Engine(), columns, settle);
  PlotAccelerator accelerator;
  accelerator.draw = [&](const DRect& plot) {
    if (DrawCurvesAccelerated(g, *gl, plot)) return true;
    // A failed frame is drawn again with cairo; so are the ones after it.
    mHost.AcceleratedFailed();
    return false;
  };
  accelerator.reread = [&](PlotColumns& all) { all = ReadPlotColumns(m.Engine(), columns, settle); };
  DrawHistoryPlot(g, geo, t, cols, style, gl ? &accelerator : nullptr);
  if (p.W() < 20.0 || p.H() < 20.) return;
  const std::vector<double>& mMax = cols.momentaryMax;
  const std::vector<double>& sLast = cols.shortTerm;
  const std::vector<double>& iLast = cols.integrated;
  const std::vector<double>& tpMax = cols.truePeakMax;
  const int mode = style.histogramMode, fps = style.fpsIndex;
  const double dx = double(p.W()) / columns;

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
    const std::string lines[5] = {
        FormatAxisTime(at, mode, fps, m.SystemStartSeconds(), true),
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

  if (interactive && m.HasSelection() && r.W() > 680.) {
    const std::string text = FormatAxisTime(m.SelectionBegin(), mode, fps, m.SystemStartSeconds(), true) +
                             " - " +
                             FormatAxisTime(m.SelectionEnd(), mode, fps, m.SystemStartSeconds(), true);
    DrawLabel(g, "SELECTION " + text, r.L + 130.0, r.T + 3.0, 200.0, 14.0, 8.5, t.accent);
  }
}

}  // namespace velorum::ui
