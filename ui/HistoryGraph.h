// The loudness history over time: momentary (envelope), short-term,
// integrated and true peak, over the target band of the chosen standard.
// The wheel zooms around the pointer (with Shift it scrolls), the scroll bar
// under the plot and a drag on it move the view, a drag on the plot selects a
// time range whose integrated value the readouts then show, a click clears
// the selection and a double-click shows the whole measurement again. The
// time axis is labelled in the units of the histogram mode.
#pragma once

#include <memory>
#include <vector>

#include "ui/EditorHost.h"
#include "ui/HistoryGpuCache.h"

namespace velorum::ui {

class HistoryGraph : public MeterControl {
 public:
  enum Curve { kMomentary = 0, kShortTerm = 1, kIntegrated = 2, kTruePeak = 3, kCurves = 4 };
  enum class ViewMode { Fit, Follow, Free };

  HistoryGraph(EditorHost& host, const IRECT& r);
  void Draw(tgraphics& g) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;
  void OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) override;
  void OnMouseUp(float x, float y, const IMouseMod& mod) override;
  void OnMouseDblClick(float x, float y, const IMouseMod& mod) override;
  void OnMouseWheel(float x, float y, const IMouseMod& mod, float d) override;
  void OnMouseOver(float x, float y, const IMouseMod& mod) override;
  void OnMouseOut() override;
  // Left and right scroll, up and down zoom, while the pointer is over the graph.
  bool OnKeyDown(float x, float y, int key) override;

  // The measured length in seconds (from the 10 ms history).
  double TotalSeconds() const;
  double ViewStart() const { return mViewStart; }
  double ViewLength() const { return mViewLength; }
  ViewMode Mode() const { return mMode; }
  // Zooms by `factor` (> 1 shows less time) around the time at x.
  void Zoom(double factor, float x);
  void ScrollBy(double seconds);
  void ShowAll();
  // Geometry: the plot, the scroll bar and the legend entry of a curve.
  IRECT PlotRect() const;
  IRECT ScrollRect() const;
  IRECT LegendRect(int curve) const;
  double TimeAtX(float x) const;
  float XAtTime(double seconds) const;
  bool CurveShown(int curve) const { return mShown[curve]; }
  void ShowCurve(int curve, bool on) {
    mShown[curve] = on;
    SetDirty();
  }
  // Draws with an explicit total (the image export uses it).
  void DrawInto(tgraphics& g, bool interactive);

 private:
  void UpdateView(double total);
  // The curves through the OpenGL path; false when it failed.
  bool DrawCurvesAccelerated(tgraphics& g, tg_gl_plot& gl, const DRect& plot);
  double ValueY(const DRect& plot, double v) const;

  double mViewStart = 0.0, mViewLength = 10.0;
  ViewMode mMode = ViewMode::Fit;
  bool mShown[kCurves] = {true, true, true, true};
  enum class Drag { None, Select, Scroll } mDrag = Drag::None;
  double mDragAnchor = 0.0;
  bool mDragMoved = false;
  double mLow = -60.0, mHigh = 0.0;
  float mHoverX = -1.f;                   // the pointer over the plot, -1 when away
  std::unique_ptr<HistoryGpuCache> mGpu;  // only once the OpenGL path draws
};

}  // namespace velorum::ui
