#include <algorithm>
#include <chrono>
#include <filesystem>

#include "plugin/CrashReporter.h"

namespace velorum {

std::string CrashReportFolder(const std::string& settingsFolder) {
  return settingsFolder + "/" + kCrashReportFolderName;
}

std::vector<CrashReportFile> CrashReportsSince(const std::string& folder, int64_t sinceSeconds) {
  namespace fs = std::filesystem;
  std::vector<CrashReportFile> found;
  try {
    std::error_code ec;
    for (fs::directory_iterator it(fs::u8path(folder), ec), end; !ec && it != end; it.increment(ec)) {
      if (it->path().extension() != ".dmp" || !it->is_regular_file(ec)) continue;
      const auto written = fs::last_write_time(it->path(), ec);
      if (ec) continue;
      // The file clock's epoch differs by platform: measured from now.
      const auto age = fs::file_time_type::clock::now() - written;
      const int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(
                                  std::chrono::system_clock::now().time_since_epoch() - age)
                                  .count();
      if (seconds <= sinceSeconds) continue;
      const std::u8string path = it->path().u8string();
      found.push_back({std::string(path.begin(), path.end()), seconds});
    }
  } catch (...) {
    // An unreadable folder has no reports to offer.
  }
  std::sort(found.begin(), found.end(), [](const CrashReportFile& a, const CrashReportFile& b) {
    return a.writtenSeconds > b.writtenSeconds;
  });
  return found;
}

}  // namespace velorum
