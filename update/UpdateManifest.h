// The update manifest: a small JSON document on the product's update address
// that names the newest version for each platform, its download page, release
// notes and news items (docs/update-manifest.md describes it). Everything in
// it is checked and bounded before use; a document that breaks a rule is
// refused as a whole.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorum {

// A version MAJOR.MINOR.PATCH, each 0..99 like the plug-in's version word.
struct ProductVersion {
  int major = 0, minor = 0, patch = 0;
  auto operator<=>(const ProductVersion&) const = default;
  std::string Text() const;
};
std::optional<ProductVersion> ParseProductVersion(std::string_view text);
// The version of this build.
ProductVersion CurrentVersion();

struct NewsItem {
  std::string id;     // letters, digits, '.', '_' and '-', at most 64
  std::string date;   // YYYY-MM-DD
  std::string title;  // at most 120 bytes of UTF-8
  std::string text;   // at most 1000 bytes
  std::string link;   // an https address, or empty
};

struct UpdateManifest {
  // The entry of this platform, when the manifest has one.
  std::optional<ProductVersion> latest;
  std::string download;  // https address of the download page
  std::string notes;     // release notes of the latest version
  std::vector<NewsItem> news;
};

inline constexpr size_t kMaxManifestBytes = 64 * 1024;
inline constexpr size_t kMaxNewsItems = 20;

// The key of this platform in the manifest's "latest" object.
const char* ManifestPlatformKey();

// Parses and checks a manifest for `platform`. Returns nothing, with the
// reason in `error`, when the text is not a valid manifest.
std::optional<UpdateManifest> ParseUpdateManifest(std::string_view text, std::string& error,
                                                  std::string_view platform = ManifestPlatformKey());

// An address the meter may fetch or open: https, or http to this machine's
// loopback address only (127.0.0.1, localhost, [::1]). At most 512 bytes,
// no blanks or control characters.
bool IsAllowedUrl(std::string_view url, bool allowLoopbackHttp);
bool IsLoopbackHttpUrl(std::string_view url);

}  // namespace velorum
