#include "update/UpdateCheck.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "presets/GlobalSettings.h"
#include "velorum/Version.h"

namespace velorum {
namespace {

constexpr size_t kMaxDismissed = 64;

bool Switch(const SettingsFile& file, const char* key) {
  const std::optional<std::string> v = file.Get(key);
  return !v || (*v != "0" && *v != "OFF" && *v != "off" && *v != "false");
}

std::vector<std::string> SplitIds(const std::string& list) {
  std::vector<std::string> ids;
  size_t start = 0;
  while (start <= list.size()) {
    const size_t comma = std::min(list.find(',', start), list.size());
    if (comma > start) ids.push_back(list.substr(start, comma - start));
    start = comma + 1;
  }
  return ids;
}

std::string CachePath(const std::string& folder) {
  return folder + "/" + kManifestCacheName;
}

std::optional<std::string> ReadSmallFile(const std::string& path) try {
  namespace fs = std::filesystem;
  std::error_code ec;
  const auto size = fs::file_size(fs::u8path(path), ec);
  if (ec || size > kMaxManifestBytes) return std::nullopt;
  std::ifstream in(fs::u8path(path), std::ios::binary);
  std::string text(size, '\0');
  if (!in.read(text.data(), std::streamsize(size))) return std::nullopt;
  return text;
} catch (...) {
  return std::nullopt;
}

// Today's manifest from the cache, checked again like a fetched one.
std::optional<UpdateManifest> CachedManifest(const std::string& folder) {
  const std::optional<std::string> text = ReadSmallFile(CachePath(folder));
  std::string error;
  return text ? ParseUpdateManifest(*text, error) : std::nullopt;
}

std::mutex& CheckLock() {
  static std::mutex lock;
  return lock;
}

}  // namespace

int64_t UnixNow() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

UpdateSettings UpdateSettings::Read(const std::string& folder) {
  const SettingsFile file(folder);
  UpdateSettings s;
  s.checkForUpdates = Switch(file, kCheckForUpdatesKey);
  s.showNews = Switch(file, kShowNewsKey);
  s.url = EnvironmentUtf8(kUpdateUrlVariable, file.Get(kUpdateUrlKey).value_or(""));
  if (s.url.empty()) s.url = kDefaultUpdateUrl;
  if (const std::optional<std::string> last = file.Get(kLastUpdateCheckKey)) {
    const auto [p, ec] = std::from_chars(last->data(), last->data() + last->size(), s.lastCheck);
    if (ec != std::errc() || p != last->data() + last->size()) s.lastCheck = 0;
  }
  s.dismissedNews = SplitIds(file.Get(kDismissedNewsKey).value_or(""));
  s.updateSeen = file.Get(kUpdateSeenKey).value_or("");
  return s;
}

bool WriteUpdateSwitch(const std::string& folder, const char* key, bool on) {
  SettingsFile file(folder);
  file.Set(key, on ? "1" : "0");
  return file.Save();
}

bool DismissNews(const std::string& folder, const std::string& id) {
  SettingsFile file(folder);
  std::vector<std::string> ids = SplitIds(file.Get(kDismissedNewsKey).value_or(""));
  if (std::find(ids.begin(), ids.end(), id) != ids.end()) return true;
  ids.push_back(id);
  if (ids.size() > kMaxDismissed) ids.erase(ids.begin(), ids.end() - kMaxDismissed);
  std::string list;
  for (const std::string& i : ids) list += (list.empty() ? "" : ",") + i;
  file.Set(kDismissedNewsKey, list);
  return file.Save();
}

bool MarkUpdateSeen(const std::string& folder, const ProductVersion& version) {
  SettingsFile file(folder);
  file.Set(kUpdateSeenKey, version.Text());
  return file.Save();
}

UpdateNotices NoticesFrom(const UpdateManifest& m, const UpdateSettings& s, bool unseenOnly) {
  UpdateNotices n;
  if (s.checkForUpdates && m.latest && *m.latest > CurrentVersion() &&
      !(unseenOnly && s.updateSeen == m.latest->Text())) {
    n.newer = m.latest;
    n.download = m.download;
    n.notes = m.notes;
  }
  if (s.showNews)
    for (const NewsItem& item : m.news)
      if (std::find(s.dismissedNews.begin(), s.dismissedNews.end(), item.id) == s.dismissedNews.end())
        n.news.push_back(item);
  return n;
}

CheckOutcome RunUpdateCheck(const std::string& folder, CheckMode mode, int64_t now, FetchCancel* cancel,
                            int timeoutMs) {
  CheckOutcome out;
  std::string url;
  {
    std::lock_guard<std::mutex> guard(CheckLock());
    const UpdateSettings s = UpdateSettings::Read(folder);
    if (mode == CheckMode::Scheduled) {
      if (!s.checkForUpdates) return out;
      // A check stamped in the future (a clock put back) does not hold off the next one.
      if (s.lastCheck > 0 && now >= s.lastCheck && now - s.lastCheck < kSecondsBetweenChecks) {
        out.manifest = CachedManifest(folder);
        return out;
      }
    }
    // Claim today's check before fetching, so other instances wait for tomorrow.
    SettingsFile file(folder);
    file.Set(kLastUpdateCheckKey, std::to_string(now));
    file.Save();
    url = s.url;
  }
  FetchOptions options;
  options.timeoutMs = timeoutMs;
  options.maxBytes = kMaxManifestBytes;
  options.cancel = cancel;
  options.userAgent = std::string("Velorum/") + kVersionText + " (" + ManifestPlatformKey() + ")";
  out.fetched = true;
  const FetchResult got = HttpGet(url, options);
  if (got.ok) {
    out.manifest = ParseUpdateManifest(got.body, out.error);
    if (out.manifest) ReplaceFileContents(CachePath(folder), got.body);
  } else {
    out.error = got.error;
  }
  if (!out.manifest && mode == CheckMode::Scheduled) out.manifest = CachedManifest(folder);
  return out;
}

}  // namespace velorum
