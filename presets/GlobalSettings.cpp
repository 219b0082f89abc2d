#include "presets/GlobalSettings.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

namespace fs = std::filesystem;

std::string_view Trim(std::string_view s) {
  const auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string_view::npos) return {};
  return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

// The key of a key=value line, or an empty view.
std::string_view KeyOf(std::string_view line) {
  const auto eq = line.find('=');
  return eq == std::string_view::npos ? std::string_view{} : Trim(line.substr(0, eq));
}

}  // namespace

std::string EnvironmentUtf8(const char* name, const std::string& fallback) {
#ifdef _WIN32
  const std::wstring wide(name, name + std::char_traits<char>::length(name));
  const wchar_t* v = _wgetenv(wide.c_str());
  if (!v || !*v) return fallback;
  try {
    const std::u8string text = fs::path(v).u8string();
    return std::string(text.begin(), text.end());
  } catch (...) {
    return fallback;  // not convertible text
  }
#else
  const char* v = std::getenv(name);
  return v && *v ? std::string(v) : fallback;
#endif
}

std::string SettingsFolder(bool create) {
  std::string folder = EnvironmentUtf8("VELORUM_SETTINGS_DIR", "");
  if (folder.empty()) {
#ifdef _WIN32
    folder = EnvironmentUtf8("APPDATA", ".") + "/Velorum";
#else
    const std::string config =
        EnvironmentUtf8("XDG_CONFIG_HOME", EnvironmentUtf8("HOME", "/tmp") + "/.config");
    folder = config + "/Velorum";
#endif
  }
  try {
    std::error_code ec;
    if (create) fs::create_directories(fs::u8path(folder), ec);
  } catch (...) {
    // A folder the platform cannot convert: readers find nothing there.
  }
  return folder;
}

bool ReplaceFileContents(const std::string& path, std::string_view bytes) try {
  static std::atomic<unsigned> counter{0};
  const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
  const fs::path target = fs::u8path(path);
  fs::path temp = target;
  temp += "." + std::to_string(stamp) + "-" + std::to_string(counter++) + ".tmp";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) {
      out.close();
      std::error_code ec;
      fs::remove(temp, ec);
      return false;
    }
  }
  std::error_code ec;
  fs::rename(temp, target, ec);
  if (ec) {
    // Some runtimes do not replace an existing file by renaming.
    ec.clear();
    fs::remove(target, ec);
    fs::rename(temp, target, ec);
  }
  if (ec) {
    std::error_code ignored;
    fs::remove(temp, ignored);
    return false;
  }
  return true;
} catch (...) {
  return false;
}

SettingsFile::SettingsFile(std::string folder) : mFolder(std::move(folder)) {
  try {
    std::error_code ec;
    const auto size = fs::file_size(fs::u8path(Path()), ec);
    if (ec || size > kMaxBytes) return;
    std::ifstream in(fs::u8path(Path()), std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      mLines.push_back(std::move(line));
    }
  } catch (...) {
    // A path the platform cannot convert reads as an empty file.
    mLines.clear();
  }
}

std::string SettingsFile::Path() const {
  return mFolder + "/" + kSettingsFileName;
}

std::optional<std::string> SettingsFile::Get(std::string_view key) const {
  for (const std::string& line : mLines) {
    if (KeyOf(line) == key) return std::string(Trim(std::string_view(line).substr(line.find('=') + 1)));
  }
  return std::nullopt;
}

void SettingsFile::Set(std::string_view key, std::string_view value) {
  std::string line = std::string(key) + "=" + std::string(value);
  // A value never spans lines.
  for (char& c : line)
    if (c == '\n' || c == '\r') c = ' ';
  bool placed = false;
  for (size_t i = 0; i < mLines.size();) {
    if (KeyOf(mLines[i]) == key) {
      if (!placed) {
        mLines[i++] = line;
        placed = true;
      } else {
        mLines.erase(mLines.begin() + static_cast<std::ptrdiff_t>(i));
      }
    } else {
      ++i;
    }
  }
  if (!placed) mLines.push_back(std::move(line));
}

void SettingsFile::Erase(std::string_view key) {
  std::erase_if(mLines, [&](const std::string& line) { return KeyOf(line) == key; });
}

bool SettingsFile::Save() const try {
  std::error_code ec;
  fs::create_directories(fs::u8path(mFolder), ec);
  std::string text;
  for (const std::string& line : mLines) text += line + "\n";
  return ReplaceFileContents(Path(), text);
} catch (...) {
  return false;
}

std::optional<DefaultPreset> ReadDefaultPreset(const std::string& folder) {
  const SettingsFile file(folder);
  const std::optional<std::string> value = file.Get(kDefaultPresetIndexKey);
  if (!value) return std::nullopt;
  DefaultPreset preset;
  const char* end = value->data() + value->size();
  const auto [ptr, ec] = std::from_chars(value->data(), end, preset.index);
  if (ec != std::errc() || ptr != end) return std::nullopt;
  const bool custom = preset.index >= kFirstCustomPresetIndex && preset.index <= kLastCustomPresetIndex;
  if (!custom && !FindStandard(preset.index)) return std::nullopt;
  if (custom) preset.name = file.Get(kDefaultPresetNameKey).value_or("");
  return preset;
}

bool WriteDefaultPreset(const std::string& folder, const DefaultPreset& preset) {
  SettingsFile file(folder);
  file.Set(kDefaultPresetIndexKey, std::to_string(preset.index));
  if (preset.index >= kFirstCustomPresetIndex && preset.index <= kLastCustomPresetIndex)
    file.Set(kDefaultPresetNameKey, preset.name);
  else
    file.Erase(kDefaultPresetNameKey);
  return file.Save();
}

}  // namespace velorum
