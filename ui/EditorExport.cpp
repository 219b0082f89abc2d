#include "ui/EditorExport.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>

#include "graphics/tgraphics_surface.h"
#include "ui/DistributionDisplay.h"
#include "ui/HistoryGraph.h"
#include "ui/LoudnessReadout.h"
#include "ui/UiFormat.h"

namespace velorum::ui {
namespace {

cairo_status_t Append(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

void DrawPage(EditorHost& host, tgraphics& g, bool dark) {
  const double theme = dark ? 1.0 : 0.0;
  const Theme& t = Theme::Get(dark);
  g.set_color(t.background);
  g.rectangle(0, 0, kExportWidth, kExportHeight);
  g.fill();
  const MeterModel& m = host.Model();
  std::string title = "Velorum  -  " + m.PresetMenuName();
  if (m.ShowingFile()) title += "  -  " + const_cast<MeterModel&>(m).File()->path;
  DrawLabel(g, title, 16.0, 8.0, kExportWidth - 32.0, 24.0, 13.0, t.text, tg_align::left, "OpenSans-Bold");
  LoudnessReadout readout(host, IRECT(12.f, 40.f, 292.f, 708.f));
  HistoryGraph graph(host, IRECT(300.f, 40.f, 1188.f, 448.f));
  DistributionDisplay l(host, IRECT(300.f, 456.f, 590.f, 708.f), DistributionDisplay::Kind::Loudness);
  DistributionDisplay d(host, IRECT(599.f, 456.f, 889.f, 708.f), DistributionDisplay::Kind::Dynamics);
  DistributionDisplay p(host, IRECT(898.f, 456.f, 1188.f, 708.f), DistributionDisplay::Kind::TruePeak);
  MeterControl* controls[] = {&readout, &graph, &l, &d, &p};
  for (MeterControl* c : controls) {
    c->SetTheme(theme);
    g.save();
    g.new_path();
    if (c == &graph)
      graph.DrawInto(g, false);
    else
      c->Draw(g);
    g.restore();
  }
}

}  // namespace

std::string RenderExportImage(EditorHost& host, ExportKind kind, bool dark) {
  std::string bytes;
  cairo_surface_t* surface = nullptr;
  double scale = 1.0;
  switch (kind) {
    case ExportKind::Png:
      scale = 2.0;
      surface = tg_create_image_surface(kExportWidth, kExportHeight, scale);
      break;
    case ExportKind::Svg:
      surface = cairo_svg_surface_create_for_stream(&Append, &bytes, kExportWidth, kExportHeight);
      break;
    case ExportKind::Pdf:
      surface = cairo_pdf_surface_create_for_stream(&Append, &bytes, kExportWidth, kExportHeight);
      break;
    default:
      return {};
  }
  if (!surface || cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    if (surface) cairo_surface_destroy(surface);
    return {};
  }
  {
    tgraphics g(surface, kExportWidth, kExportHeight, scale);
    DrawPage(host, g, dark);
  }
  if (kind == ExportKind::Png) {
    cairo_surface_flush(surface);
    if (cairo_surface_write_to_png_stream(surface, &Append, &bytes) != CAIRO_STATUS_SUCCESS) bytes.clear();
    cairo_surface_destroy(surface);
  } else {
    cairo_surface_finish(surface);
    cairo_surface_destroy(surface);
  }
  return bytes;
}

}  // namespace velorum::ui
