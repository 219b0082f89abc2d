// Where every part of the editor goes for an editor size in units. The same
// function lays the editor out at every size, from an insert-sized window
// (readouts and bars only) to full screen.
#pragma once

#include "graphics/IGraphicsTypes.h"

namespace velorum::ui {

struct MeterLayout {
  static constexpr int kBaseWidth = 960;
  static constexpr int kBaseHeight = 600;
  static constexpr int kButtons = 7;
  enum Button { kPreset = 0, kPause, kReset, kSource, kOpen, kExport, kSettings };

  IRECT topBar, statusBar;
  IRECT buttons[kButtons];
  IRECT readout, loudnessBar, truePeakBar;
  IRECT graph;
  IRECT histograms[3];
  IRECT settings;  // the settings page when shown
  bool showGraph = true;
  bool showHistograms = true;

  static MeterLayout Compute(float width, float height, int channels);
};

}  // namespace velorum::ui
