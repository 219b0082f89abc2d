// The settings shared by every instance of the meter on the machine: an
// INI-like "Settings.ini" of key=value lines in the settings folder. The
// editor keeps its own keys there; the plug-in reads the default preset.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorum {

inline constexpr const char* kSettingsFileName = "Settings.ini";
// The standards-table index (or 500..999 for a custom preset) that a new
// instance applies, and the name of that custom preset (its index follows
// the sorted list, so the name is what identifies it).
inline constexpr const char* kDefaultPresetIndexKey = "Default Preset Index";
inline constexpr const char* kDefaultPresetNameKey = "Default Preset Name";

// An environment variable as UTF-8 (on Windows read as wide text, so that a
// user folder such as C:\Users\Müller survives any code page), or `fallback`
// when it is unset or empty.
std::string EnvironmentUtf8(const char* name, const std::string& fallback);

// The settings folder: VELORUM_SETTINGS_DIR when set, otherwise the
// platform's per-user configuration folder + "/Velorum" (created unless
// `create` is false, for readers that only look).
std::string SettingsFolder(bool create = true);

// Writes `bytes` to `path` through a temporary file in the same folder, so a
// reader never sees half a file. Returns false when it could not.
bool ReplaceFileContents(const std::string& path, std::string_view bytes);

// The lines of the settings file, kept in order so that a writer changes
// only its own keys and keeps everyone else's.
class SettingsFile {
 public:
  static constexpr size_t kMaxBytes = 1 << 20;  // a larger file is ignored

  // Reads `folder`/Settings.ini; a missing, unreadable or oversized file
  // reads as empty.
  explicit SettingsFile(std::string folder);

  // The trimmed value of the first line whose trimmed key is `key`.
  std::optional<std::string> Get(std::string_view key) const;
  // Replaces the first line of `key` (dropping later ones) or appends it.
  void Set(std::string_view key, std::string_view value);
  void Erase(std::string_view key);
  bool Save() const;

  const std::string& Folder() const { return mFolder; }
  std::string Path() const;

 private:
  std::string mFolder;
  std::vector<std::string> mLines;
};

// "Default Preset Index" of the settings in `folder`: an index of the
// standards table or 500..999, with the name for a custom preset; nothing
// when the key is absent or not a usable number.
struct DefaultPreset {
  int index = -1;
  std::string name;
};
std::optional<DefaultPreset> ReadDefaultPreset(const std::string& folder);
bool WriteDefaultPreset(const std::string& folder, const DefaultPreset& preset);

}  // namespace velorum
