// Offscreen pictures of a measurement for the command: the loudness history
// panel (drawn by the editor's own plot code) under a title and a line of
// readings, as PNG (at twice the resolution), SVG or PDF; and a PDF report of
// many inputs, a table first and then one page per graph. Nothing here needs
// a window.
#pragma once

#include <string>
#include <vector>

#include "ui/HistoryPlot.h"

namespace velorum {
class LoudnessEngine;
}

namespace velorum::ui {

enum class ImageKind { Png, Svg, Pdf };

inline constexpr double kGraphWidth = 1200.0;
inline constexpr double kGraphHeight = 520.0;

// What one picture shows; captured from the engine once its file is measured,
// so that it can be drawn after the engine is gone.
struct GraphPicture {
  std::string title;
  std::string readings;  // one line under the plot
  PlotColumns columns;
  PlotStyle style;
  bool dark = false;
};

GraphPicture CaptureGraph(const LoudnessEngine& engine, const TargetWindow& targets, std::string title,
                          std::string readings);
// The file's bytes; empty when drawing failed.
std::string RenderGraphImage(const GraphPicture& picture, ImageKind kind);
// ".png", ".svg" or ".pdf" (any case); false for any other name.
bool ImageKindForPath(const std::string& path, ImageKind& kind);

// A PDF: the rows of `table` (the first is the header) on as many landscape
// pages as they need, then one page per picture.
std::string RenderReportPdf(const std::string& title, const std::vector<std::vector<std::string>>& table,
                            const std::vector<const GraphPicture*>& pictures);

}  // namespace velorum::ui
