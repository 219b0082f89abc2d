#pragma once
// The batch report (--report FILE): one table across all inputs of a run —
// file, format, duration, readings, the preset window, verdict and reasons —
// as CSV (opens in a spreadsheet), JSON, HTML (each file's graph inline as
// SVG) or PDF (the table, then one page per graph), chosen by the extension.
#include <string>
#include <vector>

#include "cli/JsonResult.h"
#include "ui/GraphImage.h"

namespace velorum {

struct ReportRow {
  Json result;                       // the input's JSON object (readings or error)
  std::string verdict;               // "PASS", "FAIL", "ERROR" or "MEASURED" (no preset)
  std::vector<std::string> reasons;  // failed checks, export errors, the error
  bool hasGraph = false;
  ui::GraphPicture graph;
};

enum class ReportKind { Csv, JsonFile, Html, Pdf };

// False for an extension that is none of .csv .json .html .htm .pdf.
bool ReportKindForPath(const std::string& path, ReportKind& kind);
// The table as text rows; the first row is the header.
std::vector<std::vector<std::string>> ReportTable(const std::vector<ReportRow>& rows);
std::string BuildReport(ReportKind kind, const std::vector<ReportRow>& rows, const std::string& title);

}  // namespace velorum
