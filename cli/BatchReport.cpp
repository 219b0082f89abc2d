#include "cli/BatchReport.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace velorum {
namespace {

std::string text(const Json& j, const char* key, int decimals = 1) {
  const auto it = j.find(key);
  if (it == j.end() || it->is_null()) return std::string();
  if (it->is_string()) return it->get<std::string>();
  if (it->is_number_float()) {
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, it->get<double>());
    return buffer;
  }
  return it->dump();
}

std::string csvField(const std::string& s) {
  if (s.find_first_of(",\"\n\r") == std::string::npos) return s;
  std::string out = "\"";
  for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + "\"";
}

std::string html(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) out += (i ? separator : "") + parts[i];
  return out;
}

std::string buildCsv(const std::vector<std::vector<std::string>>& table) {
  std::string out;
  for (const auto& row : table) {
    for (size_t c = 0; c < row.size(); ++c) out += (c ? "," : "") + csvField(row[c]);
    out += "\n";
  }
  return out;
}

std::string buildJson(const std::vector<ReportRow>& rows) {
  Json all = Json::array();
  for (const ReportRow& r : rows) {
    Json j = r.result;
    j["verdict"] = r.verdict;
    j["reasons"] = r.reasons;
    all.push_back(std::move(j));
  }
  return all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string buildHtml(const std::vector<ReportRow>& rows, const std::vector<std::vector<std::string>>& table,
                      const std::string& title) {
  std::string out = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" + html(title) +
                    "</title>\n<style>body{font-family:sans-serif;margin:2em}table{border-collapse:collapse}"
                    "td,th{border:1px solid #bbb;padding:3px 6px;font-size:13px;text-align:left}"
                    ".PASS{background:#dfd}.FAIL{background:#fdd}.ERROR{background:#fcc}"
                    "figure{margin:2em 0}svg{max-width:100%;height:auto}</style></head><body>\n<h1>" +
                    html(title) + "</h1>\n<table>\n<tr>";
  for (const std::string& h : table.front()) out += "<th>" + html(h) + "</th>";
  out += "</tr>\n";
  for (size_t r = 1; r < table.size(); ++r) {
    out += "<tr class=\"" + rows[r - 1].verdict + "\">";
    for (const std::string& cell : table[r]) out += "<td>" + html(cell) + "</td>";
    out += "</tr>\n";
  }
  out += "</table>\n";
  for (const ReportRow& r : rows) {
    if (!r.hasGraph) continue;
    std::string svg = ui::RenderGraphImage(r.graph, ui::ImageKind::Svg);
    const size_t start = svg.find("<svg");
    if (start == std::string::npos) continue;
    out += "<figure><figcaption>" + html(text(r.result, "file")) + "</figcaption>\n" + svg.substr(start) +
           "</figure>\n";
  }
  return out + "</body></html>\n";
}

}  // namespace

bool ReportKindForPath(const std::string& path, ReportKind& kind) {
  const size_t dot = path.find_last_of('.');
  std::string ext = dot == std::string::npos ? std::string() : path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ext == "csv")
    kind = ReportKind::Csv;
  else if (ext == "json")
    kind = ReportKind::JsonFile;
  else if (ext == "html" || ext == "htm")
    kind = ReportKind::Html;
  else if (ext == "pdf")
    kind = ReportKind::Pdf;
  else
    return false;
  return true;
}

std::vector<std::vector<std::string>> ReportTable(const std::vector<ReportRow>& rows) {
  std::vector<std::vector<std::string>> table;
  table.push_back({"File",           "Format",        "Duration (s)",    "Sample Rate",     "Channels",
                   "Bits",           "Unit",          "Integrated",      "Loudness Range",  "Momentary Max",
                   "Short Term Max", "True Peak Max", "Sample Peak Max", "Clipped Samples", "Preset",
                   "Window Lower",   "Window Upper",  "True Peak Limit", "Verdict",         "Reasons"});
  for (const ReportRow& r : rows) {
    const Json& j = r.result;
    const Json window = j.contains("window") ? j["window"] : Json::object();
    table.push_back({text(j, "file"),
                     text(j, "format"),
                     text(j, "duration", 2),
                     text(j, "sample_rate"),
                     text(j, "channels"),
                     text(j, "bits_per_sample"),
                     text(j, "unit"),
                     text(j, "integrated"),
                     text(j, "loudness_range"),
                     text(j, "momentary_max"),
                     text(j, "short_term_max"),
                     text(j, "true_peak_max"),
                     text(j, "sample_peak_max"),
                     text(j, "clipped_samples"),
                     text(j, "preset"),
                     text(window, "lower"),
                     text(window, "upper"),
                     text(window, "true_peak_max"),
                     r.verdict,
                     joined(r.reasons, "; ")});
  }
  return table;
}

std::string BuildReport(ReportKind kind, const std::vector<ReportRow>& rows, const std::string& title) {
  const auto table = ReportTable(rows);
  switch (kind) {
    case ReportKind::Csv:
      return buildCsv(table);
    case ReportKind::JsonFile:
      return buildJson(rows);
    case ReportKind::Html:
      return buildHtml(rows, table, title);
    case ReportKind::Pdf: {
      std::vector<const ui::GraphPicture*> pictures;
      for (const ReportRow& r : rows)
        if (r.hasGraph) pictures.push_back(&r.graph);
      return ui::RenderReportPdf(title, table, pictures);
    }
  }
  return std::string();
}

}  // namespace velorum
