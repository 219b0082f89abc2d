#include "ui/GraphImage.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>

#include <algorithm>
#include <cctype>

#include "graphics/tgraphics_surface.h"

namespace velorum::ui {
namespace {

constexpr double kPageWidth = 842.0, kPageHeight = 595.0;  // A4 landscape, points
const DRect kPlotPanel{12.0, 44.0, kGraphWidth - 12.0, kGraphHeight - 36.0};

cairo_status_t Append(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

// Draws a picture into the rectangle (0, 0, kGraphWidth, kGraphHeight).
void DrawPicture(tgraphics& g, const GraphPicture& p) {
  const Theme& t = Theme::Get(p.dark);
  g.save();
  g.set_color(t.background);
  g.rectangle(0, 0, kGraphWidth, kGraphHeight);
  g.fill();
  DrawLabel(g, p.title, 16.0, 10.0, kGraphWidth - 32.0, 24.0, 13.0, t.text, tg_align::left, "OpenSans-Bold");
  DrawLabel(g, p.readings, 16.0, kGraphHeight - 30.0, kGraphWidth - 32.0, 22.0, 10.0, t.dim, tg_align::left,
            "OpenSans-Regular");
  g.save();
  DrawHistoryPlot(g, HistoryPlotGeometry(kPlotPanel), t, p.columns, p.style);
  g.restore();
  g.restore();
}

void DrawTablePage(tgraphics& g, const std::string& title, const std::vector<std::vector<std::string>>& table,
                   size_t first, size_t last) {
  const Theme& t = Theme::Get(false);
  g.set_color(t.background);
  g.rectangle(0, 0, kPageWidth, kPageHeight);
  g.fill();
  DrawLabel(g, title, 24.0, 16.0, kPageWidth - 48.0, 20.0, 12.0, t.text, tg_align::left, "OpenSans-Bold");
  const size_t columns = table.empty() ? 0 : table.front().size();
  if (columns == 0) return;
  // The first column (the file) gets a third of the width, the others share the rest.
  const double x0 = 24.0, width = kPageWidth - 48.0, fileWidth = width / 3.0;
  const double other = columns > 1 ? (width - fileWidth) / double(columns - 1) : 0.0;
  auto drawRow = [&](const std::vector<std::string>& row, double y, bool header) {
    for (size_t c = 0; c < columns && c < row.size(); ++c) {
      const double x = c == 0 ? x0 : x0 + fileWidth + other * double(c - 1);
      const double w = c == 0 ? fileWidth - 4.0 : other - 4.0;
      DrawLabel(g, row[c], x, y, w, 14.0, header ? 7.0 : 7.5, header ? t.dim : t.text, tg_align::left,
                header ? "OpenSans-Bold" : "OpenSans-Regular");
    }
  };
  drawRow(table.front(), 44.0, true);
  double y = 60.0;
  for (size_t r = first; r < last; ++r, y += 15.0) drawRow(table[r], y, false);
}

}  // namespace

GraphPicture CaptureGraph(const LoudnessEngine& engine, const TargetWindow& targets, std::string title,
                          std::string readings) {
  GraphPicture p;
  p.title = std::move(title);
  p.readings = std::move(readings);
  p.style.targets = targets;
  const int columns = std::max(1, static_cast<int>(HistoryPlotGeometry(kPlotPanel).plot.W()));
  // The whole measurement, at least 10 s, as the editor shows it when fitted.
  p.columns = ReadPlotColumns(engine, columns, [](double total, double& start, double& length) {
    start = 0.0;
    length = std::max(10.0, total);
  });
  return p;
}

bool ImageKindForPath(const std::string& path, ImageKind& kind) {
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos) return false;
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  if (ext == "png")
    kind = ImageKind::Png;
  else if (ext == "svg")
    kind = ImageKind::Svg;
  else if (ext == "pdf")
    kind = ImageKind::Pdf;
  else
    return false;
  return true;
}

std::string RenderGraphImage(const GraphPicture& picture, ImageKind kind) {
  std::string bytes;
  cairo_surface_t* surface = nullptr;
  const double scale = kind == ImageKind::Png ? 2.0 : 1.0;
  if (kind == ImageKind::Png)
    surface = tg_create_image_surface(kGraphWidth, kGraphHeight, scale);
  else if (kind == ImageKind::Svg)
    surface = cairo_svg_surface_create_for_stream(&Append, &bytes, kGraphWidth, kGraphHeight);
  else
    surface = cairo_pdf_surface_create_for_stream(&Append, &bytes, kGraphWidth, kGraphHeight);
  if (!surface || cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    if (surface) cairo_surface_destroy(surface);
    return {};
  }
  {
    tgraphics g(surface, kGraphWidth, kGraphHeight, scale);
    DrawPicture(g, picture);
  }
  if (kind == ImageKind::Png) {
    cairo_surface_flush(surface);
    if (cairo_surface_write_to_png_stream(surface, &Append, &bytes) != CAIRO_STATUS_SUCCESS) bytes.clear();
  } else {
    cairo_surface_finish(surface);
  }
  const bool failed = cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  return failed ? std::string() : bytes;
}

std::string RenderReportPdf(const std::string& title, const std::vector<std::vector<std::string>>& table,
                            const std::vector<const GraphPicture*>& pictures) {
  std::string bytes;
  cairo_surface_t* surface = cairo_pdf_surface_create_for_stream(&Append, &bytes, kPageWidth, kPageHeight);
  if (!surface || cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    if (surface) cairo_surface_destroy(surface);
    return {};
  }
  {
    tgraphics g(surface, kPageWidth, kPageHeight, 1.0);
    constexpr size_t kRowsPerPage = 34;
    for (size_t first = 1; first < std::max<size_t>(table.size(), 2); first += kRowsPerPage) {
      DrawTablePage(g, title, table, first, std::min(table.size(), first + kRowsPerPage));
      cairo_show_page(g.context());
    }
    const double fit = (kPageWidth - 24.0) / kGraphWidth;
    for (const GraphPicture* p : pictures) {
      g.save();
      g.translate(12.0, (kPageHeight - kGraphHeight * fit) / 2.0);
      g.scale(fit, fit);
      DrawPicture(g, *p);
      g.restore();
      cairo_show_page(g.context());
    }
  }
  cairo_surface_finish(surface);
  const bool failed = cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  return failed ? std::string() : bytes;
}

}  // namespace velorum::ui
