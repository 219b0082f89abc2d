// The loudness history plot without its window: momentary envelope,
// short-term, integrated and true peak over the target band, with the grid,
// the time axis, the scroll bar and the legend. The editor's HistoryGraph
// control and the offscreen pictures of the command draw through it.
#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "ui/UiDraw.h"
#include "ui/UiFormat.h"

namespace velorum {
class LoudnessEngine;
}

namespace velorum::ui {

// The target window of the chosen standard.
struct TargetWindow {
  double target = -23.0;
  double upper = -23.0;
  double lower = -70.0;  // -70: no lower limit
  double truePeakMax = -1.0;
  bool lkfs = false;
  // The band the readouts and the graph treat as "on target".
  double BandLow() const { return lower > -70.0 ? lower : target - 1.0; }
  double BandHigh() const { return lower > -70.0 ? upper : (upper > target ? upper : target) + 1.0; }
};

enum PlotCurve {
  kPlotMomentary = 0,
  kPlotShortTerm = 1,
  kPlotIntegrated = 2,
  kPlotTruePeak = 3,
  kPlotCurves = 4
};

// Where the parts of a plot panel go.
struct PlotGeometry {
  DRect panel, plot, scroll;
  DRect legend[kPlotCurves];
};
PlotGeometry HistoryPlotGeometry(const DRect& panel);

// The histories decimated to one column per editor unit of the plot.
struct PlotColumns {
  std::vector<double> momentaryMax, shortTerm, integrated, truePeakMax;  // NaN: nothing measured
  double total = 0.0;                                                    // measured seconds
  double viewStart = 0.0, viewLength = 10.0;
  int Count() const { return static_cast<int>(momentaryMax.size()); }
};

// Reads the engine's histories under its mutex, in short slices (the audio
// thread takes the same mutex every 10 ms). `settleView` gets the measured
// length and sets the view's start and length before the columns are read.
// Only the columns [first, last) are read; the others stay NaN.
PlotColumns ReadPlotColumns(
    const LoudnessEngine& engine, int columns,
    const std::function<void(double total, double& start, double& length)>& settleView, int first = 0,
    int last = std::numeric_limits<int>::max());

struct PlotStyle {
  TargetWindow targets;
  int histogramMode = 0;  // time-axis units (0 elapsed)
  int fpsIndex = kDefaultFpsIndex;
  double systemStartSeconds = 0.0;
  bool shown[kPlotCurves] = {true, true, true, true};
  bool hasSelection = false;
  double selectionBegin = 0.0, selectionEnd = 0.0;
};

// The value axis for a target: 60 dB ending at a multiple of 6 above it.
void PlotValueRange(double target, double& low, double& high);
double PlotValueY(const DRect& plot, double low, double high, double value);

// Another way of drawing the curves (the editor's OpenGL path). `draw` draws
// them into the clipped plot and returns false when it could not; the curves
// are then drawn with cairo from the columns, read again in full by `reread`.
struct PlotAccelerator {
  std::function<bool(const DRect& plot)> draw;
  std::function<void(PlotColumns& columns)> reread;
};
// Draws the panel, grid, target band, axis, curves, frame, scroll bar and legend.
void DrawHistoryPlot(tgraphics& g, const PlotGeometry& geometry, const Theme& t, const PlotColumns& columns,
                     const PlotStyle& style, const PlotAccelerator* accelerator = nullptr);

}  // namespace velorum::ui
