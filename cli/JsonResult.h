#pragma once
// The JSON forms of the command's results: one object per measured input
// (the --json line and the report's rows), the object of a refused input and
// the time line's rows. Keys are added in one place each, so a new reading is
// one line here. Texts that are not valid UTF-8 (file names) are written with
// replacement characters, so every line parses.
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/Measurement.h"

namespace velorum {

using Json = nlohmann::ordered_json;

// An export of one input that could not be written, and why.
struct ExportError {
  std::string path;
  std::string message;
};

// What became of one input besides its readings.
struct InputOutcome {
  const PresetCheck* check = nullptr;                        // with --preset
  std::vector<std::pair<std::string, std::string>> exports;  // kind -> path, as written
  std::vector<ExportError> exportErrors;
};

// Readings rounded to 1/100 (null when not finite).
Json JsonNumber(double value);
Json MeasurementJson(const Measurement& m, const ReportOptions& options, const InputOutcome& outcome);
// {"file", "error", "reason"}; no "reason" when it is empty.
Json ErrorJson(const std::string& file, const std::string& message, const std::string& reason = "");
// One line of text; invalid UTF-8 is replaced, never thrown on.
std::string JsonLine(const Json& value);

}  // namespace velorum
