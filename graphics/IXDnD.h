#pragma once
// Files dropped through the XDND protocol arrive as a "text/uri-list"; this
// turns one into local paths.

#include <string>
#include <vector>

namespace ixdnd {
// Local paths of the file: URIs in a uri-list (comments and other schemes are
// skipped, %XX escapes decoded).
std::vector<std::string> PathsFromUriList(const std::string& uriList);
// Whether a path names a directory.
bool IsDirectory(const std::string& path);
}  // namespace ixdnd
