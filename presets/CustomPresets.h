// The user's own presets: named sets of the same parameters a built-in
// standard writes, one UTF-8 text file "<name>.qrxpreset" each in the
// "Presets" folder of the settings folder:
//
//   [preset]
//   name=Trailer mix
//   version=20506
//   target=-24
//   upper=-24
//   lower=-70
//   true peak max=-2
//   relative gate=-10
//   unit=LKFS
//   gate mode=0
//   maximum=30
//   param 77=16
//   range upper=-24
//   range lower=-70
//   dialogue target=30
//   param 42=100
//
// Keys are matched ignoring case, blank lines and lines starting with ';' or
// '#' are skipped, unknown keys are ignored. A file that is too large, not
// UTF-8 text, lacks a key, repeats one, or holds a value that is not a finite
// number in the parameter's range is refused with a message naming the fault.
// Presets are listed sorted by name and shown in the menu at indices 500 on.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorum {

inline constexpr const char* kCustomPresetExtension = "qrxpreset";
inline constexpr size_t kMaxCustomPresets = 500;
inline constexpr size_t kMaxCustomPresetFileBytes = 16 * 1024;
inline constexpr size_t kMaxCustomPresetNameChars = 64;

struct CustomPreset {
  std::string name;
  int target = -23;           // 17
  int upper = -23;            // 10
  int lower = -70;            // 11
  double truePeakMax = -1.0;  // 13
  int relativeGateLU = -10;   // 96, stored as the index of the matching choice
  bool lkfs = false;          // 15
  int gateMode = 0;           // 12
  double maximum = 30.0;      // 33 and 34
  int p77 = 16;               // 77
  double rangeUpper = 30.0;   // 36
  double rangeLower = -70.0;  // 37
  double dialTarget = 30.0;   // 92
  double percent = 100.0;     // 42

  bool operator==(const CustomPreset&) const = default;
};

// A preset found in the folder and the file it came from.
struct CustomPresetEntry {
  CustomPreset preset;
  std::string path;
};

// An empty string when `name` can name a preset (and its file on every
// platform), otherwise the reason it cannot.
std::string CheckCustomPresetName(std::string_view name);
// An empty string when every value of `preset` is in range, otherwise the reason.
std::string CheckCustomPreset(const CustomPreset& preset);

std::string FormatCustomPreset(const CustomPreset& preset);
// Parses the text of a preset file; on failure `message` says why.
bool ParseCustomPreset(std::string_view text, CustomPreset& preset, std::string& message);
// Reads and parses a preset file, refusing oversized or unreadable files.
bool ReadCustomPresetFile(const std::string& path, CustomPreset& preset, std::string& message);

// The current values of the preset's parameters, read through `read(index)`.
CustomPreset CaptureCustomPreset(std::string name, const std::function<double(int)>& read);
// Writes the preset's parameters through `write(param, value)` in the order a
// built-in standard writes them, then clears the preset-edited flag (90).
void ApplyCustomPreset(const CustomPreset& preset, const std::function<void(int, double)>& write);

// Case-insensitive (ASCII) equality of preset names: "Loud" and "LOUD" would
// be one file on Windows, so they are one preset everywhere.
bool SameCustomPresetName(std::string_view a, std::string_view b);

// The presets of one settings folder.
class CustomPresetStore {
 public:
  // `settingsFolder` as SettingsFolder() gives it; the presets live in its
  // "Presets" subfolder.
  explicit CustomPresetStore(const std::string& settingsFolder);
  const std::string& Folder() const { return mFolder; }

  // The readable presets sorted by name, at most kMaxCustomPresets; refused
  // files and later files repeating a name are left out.
  std::vector<CustomPresetEntry> List() const;
  std::optional<CustomPresetEntry> Find(std::string_view name) const;
  // The preset at menu index 500 + position, or nothing.
  std::optional<CustomPresetEntry> AtIndex(int index) const;
  // Menu index of the preset called `name`, or -1.
  int IndexOf(std::string_view name) const;

  // Writes the preset; an existing preset of the same name is replaced only
  // when `replace` is set. On failure `message` says why.
  bool Save(const CustomPreset& preset, bool replace, std::string& message) const;
  // Validates the preset file at `path` and copies it into the folder under
  // its own name; a preset of that name must not exist yet.
  bool Import(const std::string& path, CustomPreset& imported, std::string& message) const;
  bool Remove(std::string_view name, std::string& message) const;

 private:
  std::string mFolder;
};

}  // namespace velorum
