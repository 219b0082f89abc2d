// The exports of a build without the export library: images only, written
// straight to their file.
#include <fstream>

#include "ui/ExportActions.h"

namespace velorum::ui {

bool ExportAvailable(ExportKind kind) {
  return kind == ExportKind::Png || kind == ExportKind::Svg || kind == ExportKind::Pdf;
}

const char* ExportExtension(ExportKind kind) {
  switch (kind) {
    case ExportKind::Png: return "png";
    case ExportKind::Svg: return "svg";
    case ExportKind::Pdf: return "pdf";
    case ExportKind::NormalizedWav: return "wav";
    case ExportKind::TextSummary: return "txt";
    default: return "csv";
  }
}

bool BuildTextExport(MeterModel&, const UiSettings&, ExportKind, std::string&, std::string& message) {
  message = "This export is not available in this version.";
  return false;
}

std::string WriteExport(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return kCannotCreateFile;
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  return out.flush() ? std::string() : std::string(kCannotCreateFile);
}

std::string WriteNormalized(MeterModel&, const std::string&, std::string&) {
  return "This export is not available in this version.";
}

}  // namespace velorum::ui
