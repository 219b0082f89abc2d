// The image export: the readouts, the loudness history and the three
// histograms drawn by the editor's own controls into a PNG (at twice the
// resolution), an SVG or a PDF page, in the theme the export asks for.
#pragma once

#include <string>

#include "ui/EditorHost.h"

namespace velorum::ui {

inline constexpr double kExportWidth = 1200.0;
inline constexpr double kExportHeight = 720.0;

// The file's bytes; empty when drawing failed.
std::string RenderExportImage(EditorHost& host, ExportKind kind, bool dark);

}  // namespace velorum::ui
