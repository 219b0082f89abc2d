// The exports of the editor: the text summary, CSV and Dolby CSV files (every
// build), the normalised WAV file (builds with the decoders), and the writing
// of any export through the common export writer (an existing file is
// replaced only when the user agreed).
#pragma once

#include <string>

#include "ui/EditorHost.h"

namespace velorum::ui {

inline constexpr const char* kReplaceFileQuestion =
    "This file already exists. Do you want to replace the existing file?";
inline constexpr const char* kCannotCreateFile = "A new file could not be created. Please try again.";
inline constexpr const char* kFileInUse =
    "The file is in use. Please close all applications that have opened this file!";

// Whether this build can produce an export of this kind.
bool ExportAvailable(ExportKind kind);
// The file extension of a kind ("txt", "csv", "png", ...).
const char* ExportExtension(ExportKind kind);
// Builds a text export (summary, CSV, Dolby CSV) of what the editor shows.
bool BuildTextExport(MeterModel& model, const UiSettings& settings, ExportKind kind, std::string& content,
                     std::string& message);
// Writes `content` to `path` (replacing it: the caller asked first). Returns
// "" when written, otherwise the user's message.
std::string WriteExport(const std::string& path, const std::string& content);
// Writes the analysed file normalised to the target; "" or the message, and a
// short report of the gain in `report`.
std::string WriteNormalized(MeterModel& model, const std::string& path, std::string& report);

}  // namespace velorum::ui
