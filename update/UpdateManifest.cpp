#include "update/UpdateManifest.h"

#include <charconv>
#include <nlohmann/json.hpp>

#include "velorum/Version.h"

namespace velorum {
namespace {

using nlohmann::json;

constexpr size_t kMaxUrl = 512, kMaxNotes = 2000, kMaxTitle = 120, kMaxText = 1000, kMaxId = 64;
constexpr int kMaxDepth = 6;

struct Refusal {
  std::string why;
};

bool HasControlCharacters(std::string_view s, bool allowNewlines) {
  for (const unsigned char c : s)
    if ((c < 0x20 && !(allowNewlines && (c == '\n' || c == '\t'))) || c == 0x7f) return true;
  return false;
}

// A string member of `o` (empty when absent and not required), bounded.
std::string Text(const json& o, const char* key, size_t maxBytes, bool required, bool multiline = false) {
  const auto it = o.find(key);
  if (it == o.end()) {
    if (required) throw Refusal{std::string("missing \"") + key + "\""};
    return {};
  }
  if (!it->is_string()) throw Refusal{std::string("\"") + key + "\" is not text"};
  const std::string& s = it->get_ref<const std::string&>();
  if (s.size() > maxBytes) throw Refusal{std::string("\"") + key + "\" is too long"};
  if (HasControlCharacters(s, multiline))
    throw Refusal{std::string("\"") + key + "\" has control characters"};
  return s;
}

std::string Url(const json& o, const char* key, bool required) {
  std::string url = Text(o, key, kMaxUrl, required);
  if (!url.empty() && !IsAllowedUrl(url, false))
    throw Refusal{std::string("\"") + key + "\" is not an https address"};
  return url;
}

bool IsDate(std::string_view d) {
  if (d.size() != 10 || d[4] != '-' || d[7] != '-') return false;
  for (size_t i : {0, 1, 2, 3, 5, 6, 8, 9})
    if (d[i] < '0' || d[i] > '9') return false;
  const int month = (d[5] - '0') * 10 + (d[6] - '0'), day = (d[8] - '0') * 10 + (d[9] - '0');
  return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

bool IsNewsId(std::string_view id) {
  if (id.empty() || id.size() > kMaxId) return false;
  for (const char c : id)
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
          c == '_' || c == '-'))
      return false;
  return true;
}

NewsItem ParseNews(const json& n) {
  if (!n.is_object()) throw Refusal{"a news item is not an object"};
  NewsItem item;
  item.id = Text(n, "id", kMaxId, true);
  if (!IsNewsId(item.id)) throw Refusal{"a news id has characters other than letters, digits, '.', '_', '-'"};
  item.date = Text(n, "date", 10, true);
  if (!IsDate(item.date)) throw Refusal{"a news date is not YYYY-MM-DD"};
  item.title = Text(n, "title", kMaxTitle, true);
  item.text = Text(n, "text", kMaxText, false, true);
  item.link = Url(n, "link", false);
  return item;
}

void ParseLatest(const json& root, std::string_view platform, UpdateManifest& m) {
  const auto latest = root.find("latest");
  if (latest == root.end()) return;
  if (!latest->is_object()) throw Refusal{"\"latest\" is not an object"};
  const auto entry = latest->find(std::string(platform));
  if (entry == latest->end()) return;
  if (!entry->is_object()) throw Refusal{"the platform's entry is not an object"};
  m.latest = ParseProductVersion(Text(*entry, "version", 8, true));
  if (!m.latest) throw Refusal{"\"version\" is not MAJOR.MINOR.PATCH"};
  m.download = Url(*entry, "download", true);
  m.notes = Text(*entry, "notes", kMaxNotes, false, true);
}

}  // namespace

std::string ProductVersion::Text() const {
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

std::optional<ProductVersion> ParseProductVersion(std::string_view text) {
  int parts[3] = {0, 0, 0};
  const char* p = text.data();
  const char* end = p + text.size();
  for (int i = 0; i < 3; ++i) {
    if (i > 0) {
      if (p == end || *p != '.') return std::nullopt;
      ++p;
    }
    if (p == end || *p < '0' || *p > '9') return std::nullopt;
    const auto [next, ec] = std::from_chars(p, end, parts[i]);
    if (ec != std::errc() || next - p > 2 || parts[i] > 99) return std::nullopt;
    p = next;
  }
  if (p != end) return std::nullopt;
  return ProductVersion{parts[0], parts[1], parts[2]};
}

ProductVersion CurrentVersion() {
  return {kVersionMajor, kVersionMinor, kVersionPatch};
}

const char* ManifestPlatformKey() {
#ifdef _WIN32
  return "windows-x64";
#else
  return "linux-x64";
#endif
}

std::optional<UpdateManifest> ParseUpdateManifest(std::string_view text, std::string& error,
                                                  std::string_view platform) {
  if (text.size() > kMaxManifestBytes) {
    error = "the manifest is larger than " + std::to_string(kMaxManifestBytes / 1024) + " KiB";
    return std::nullopt;
  }
  try {
    // Deep nesting is refused while parsing, before anything is built.
    const json root = json::parse(text, [](int depth, json::parse_event_t, json&) {
      if (depth > kMaxDepth) throw Refusal{"the manifest is nested too deeply"};
      return true;
    });
    if (!root.is_object()) throw Refusal{"the manifest is not a JSON object"};
    const auto format = root.find("format");
    if (format == root.end() || !format->is_number_integer() || format->get<int64_t>() != 1)
      throw Refusal{"the manifest's \"format\" is not 1"};
    UpdateManifest m;
    ParseLatest(root, platform, m);
    if (const auto news = root.find("news"); news != root.end()) {
      if (!news->is_array()) throw Refusal{"\"news\" is not a list"};
      if (news->size() > kMaxNewsItems) throw Refusal{"too many news items"};
      for (const json& n : *news) m.news.push_back(ParseNews(n));
    }
    return m;
  } catch (const Refusal& r) {
    error = r.why;
  } catch (const std::exception&) {
    error = "the manifest is not valid JSON";
  }
  return std::nullopt;
}

bool IsLoopbackHttpUrl(std::string_view url) {
  for (const std::string_view host : {"http://127.0.0.1", "http://localhost", "http://[::1]"}) {
    if (url.substr(0, host.size()) != host) continue;
    const std::string_view rest = url.substr(host.size());
    if (rest.empty() || rest[0] == '/' || rest[0] == ':') return true;
  }
  return false;
}

bool IsAllowedUrl(std::string_view url, bool allowLoopbackHttp) {
  if (url.size() > kMaxUrl) return false;
  for (const unsigned char c : url)
    if (c <= 0x20 || c >= 0x7f || c == '"' || c == '\\' || c == '<' || c == '>') return false;
  if (allowLoopbackHttp && IsLoopbackHttpUrl(url)) return true;
  constexpr std::string_view kHttps = "https://";
  if (url.substr(0, kHttps.size()) != kHttps) return false;
  const std::string_view host = url.substr(kHttps.size());
  return !host.empty() && host[0] != '/' && host[0] != ':' && host[0] != '@';
}

}  // namespace velorum
