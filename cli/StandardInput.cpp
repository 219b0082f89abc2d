#include "cli/StandardInput.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace velorum {

StandardInput::~StandardInput() {
  if (!path_.empty()) std::remove(path_.c_str());
}

bool StandardInput::save() {
  std::error_code ec;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(ec);
  std::string pattern = ((ec ? std::filesystem::path("/tmp") : folder) / "velorum-stdin-XXXXXX").string();
  const int fd = mkstemp(pattern.data());
  if (fd < 0) return false;
  path_ = pattern;
  char buffer[1 << 16];
  size_t total = 0;
  for (;;) {
    const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
    if (n == 0) break;
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      close(fd);
      return false;
    }
    for (ssize_t done = 0; done < n;) {
      const ssize_t w = write(fd, buffer + done, static_cast<size_t>(n - done));
      if (w <= 0) {
        close(fd);
        return false;
      }
      done += w;
    }
    total += static_cast<size_t>(n);
  }
  return close(fd) == 0 && total > 0;
}

}  // namespace velorum
