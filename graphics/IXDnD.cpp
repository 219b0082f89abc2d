#include "graphics/IXDnD.h"

#include <sys/stat.h>

namespace ixdnd {

static int hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::vector<std::string> PathsFromUriList(const std::string& uriList) {
  std::vector<std::string> paths;
  size_t pos = 0;
  while (pos < uriList.size()) {
    size_t end = uriList.find('\n', pos);
    if (end == std::string::npos) end = uriList.size();
    std::string line = uriList.substr(pos, end - pos);
    pos = end + 1;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    if (line.empty() || line[0] == '#' || line.compare(0, 5, "file:") != 0) continue;
    std::string rest = line.substr(5);
    if (rest.compare(0, 2, "//") == 0) {
      // file://host/path: only the local host (empty or "localhost").
      const size_t slash = rest.find('/', 2);
      if (slash == std::string::npos) continue;
      const std::string host = rest.substr(2, slash - 2);
      if (!host.empty() && host != "localhost") continue;
      rest = rest.substr(slash);
    }
    std::string path;
    bool bad = false;
    for (size_t i = 0; i < rest.size(); ++i) {
      if (rest[i] == '%') {
        const int hi = i + 2 < rest.size() ? hex(rest[i + 1]) : -1;
        const int lo = hi >= 0 ? hex(rest[i + 2]) : -1;
        if (lo < 0 || (hi == 0 && lo == 0)) {
          bad = true;
          break;
        }
        path.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
      } else {
        path.push_back(rest[i]);
      }
    }
    if (!bad && !path.empty() && path[0] == '/') paths.push_back(path);
  }
  return paths;
}

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace ixdnd
