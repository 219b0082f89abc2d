// The update and news check: where the manifest is fetched from, the
// switches and bookkeeping in the settings file (at most one fetch a day for
// every instance on the machine, news items the user dismissed, the update
// notice already seen), and what there is to show.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "update/HttpFetch.h"
#include "update/UpdateManifest.h"

namespace velorum {

inline constexpr const char* kDefaultUpdateUrl = "https://update.velorum.audio/v1/manifest.json";
inline constexpr const char* kUpdateUrlVariable = "VELORUM_UPDATE_URL";
inline constexpr const char* kCheckForUpdatesKey = "Check For Updates";
inline constexpr const char* kShowNewsKey = "Show News";
inline constexpr const char* kUpdateUrlKey = "Update URL";
inline constexpr const char* kLastUpdateCheckKey = "Last Update Check";
inline constexpr const char* kDismissedNewsKey = "Dismissed News";
inline constexpr const char* kUpdateSeenKey = "Update Notice Seen";
// The last manifest fetched, kept in the settings folder for the rest of the day.
inline constexpr const char* kManifestCacheName = "UpdateManifest.json";
inline constexpr int64_t kSecondsBetweenChecks = 24 * 60 * 60;

struct UpdateSettings {
  bool checkForUpdates = true;  // the only switch that lets the meter use the network
  bool showNews = true;
  std::string url;  // VELORUM_UPDATE_URL, else "Update URL", else the default
  int64_t lastCheck = 0;
  std::vector<std::string> dismissedNews;
  std::string updateSeen;  // the version whose notice was answered

  static UpdateSettings Read(const std::string& folder);
};

bool WriteUpdateSwitch(const std::string& folder, const char* key, bool on);
// Remembers that news `id` was dismissed (the newest 64 ids are kept).
bool DismissNews(const std::string& folder, const std::string& id);
bool MarkUpdateSeen(const std::string& folder, const ProductVersion& version);

// What a manifest has to show for this build and these settings.
struct UpdateNotices {
  std::optional<ProductVersion> newer;  // a newer version than this build
  std::string download, notes;
  std::vector<NewsItem> news;  // not yet dismissed (empty when news is off)
  bool Empty() const { return !newer && news.empty(); }
};
// `unseenOnly` leaves out an update notice the user already answered.
UpdateNotices NoticesFrom(const UpdateManifest& manifest, const UpdateSettings& settings, bool unseenOnly);

struct CheckOutcome {
  bool fetched = false;                    // the network was used
  std::string error;                       // why the fetch or the manifest failed (never shown in the editor)
  std::optional<UpdateManifest> manifest;  // fetched now, or today's cached one
};

enum class CheckMode {
  Scheduled,  // the editor's check: switch on, once a day, else today's cached manifest
  Now         // `velorum version --check`: fetches whatever the switch and the day
};

// Runs one check with the settings in `folder` at `nowSeconds` (Unix time).
// Safe to call from any thread but the audio thread; instances of the same
// process take turns.
CheckOutcome RunUpdateCheck(const std::string& folder, CheckMode mode, int64_t nowSeconds,
                            FetchCancel* cancel = nullptr, int timeoutMs = 10000);

int64_t UnixNow();

}  // namespace velorum
