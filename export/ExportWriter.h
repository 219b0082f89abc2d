#pragma once
// The common writer of every export file. An existing file is replaced only
// when the caller's question "This file already exists. Do you want to replace
// the existing file?" is answered yes; a file that another program holds
// locked is reported as in use; a file that cannot be created is reported as
// such. The content goes to a temporary file beside the target first and is
// renamed over it, so a failed write never leaves half a file behind.
#include <functional>
#include <string>

namespace velorum {

enum class ExportStatus { Written, Declined, InUse, CouldNotCreate };

inline constexpr const char* kReplaceQuestion =
    "This file already exists. Do you want to replace the existing file?";
inline constexpr const char* kCouldNotCreateMessage = "A new file could not be created. Please try again.";
inline constexpr const char* kInUseMessage =
    "The file is in use. Please close all applications that have opened this file!";

// `confirmReplace` is asked kReplaceQuestion when the file exists; null means yes.
ExportStatus WriteExportFile(const std::string& path, const std::string& content,
                             const std::function<bool(const std::string&)>& confirmReplace = nullptr);

// The user's message for a status ("" for Written and Declined).
const char* ExportStatusMessage(ExportStatus status);

// True when another process holds a lock on the file (the "in use" test).
bool FileInUse(const std::string& path);

}  // namespace velorum
