#include "presets/CustomPresets.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "presets/GlobalSettings.h"
#include "presets/LoudnessStandards.h"
#include "velorum/Version.h"

namespace velorum {
namespace {

namespace fs = std::filesystem;

// Scanning stops after this many folder entries, so a folder flooded with
// files cannot stall the menu.
constexpr int kMaxScannedEntries = 10000;

std::string_view Trim(std::string_view s) {
  const auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string_view::npos) return {};
  return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Folded(std::string_view s) {
  std::string f(s);
  for (char& c : f) c = Lower(c);
  return f;
}

std::string Quoted(std::string_view s) {
  return "\"" + std::string(s) + "\"";
}

// Number of code points when `s` is well-formed UTF-8 (no overlong forms,
// surrogates or values above U+10FFFF), otherwise nothing.
std::optional<size_t> Utf8Length(std::string_view s) {
  size_t count = 0;
  for (size_t i = 0; i < s.size(); ++count) {
    const auto b = static_cast<unsigned char>(s[i]);
    size_t n = 0;
    uint32_t cp = 0;
    if (b < 0x80) {
      ++i;
      continue;
    } else if ((b & 0xE0) == 0xC0) {
      n = 1;
      cp = b & 0x1F;
    } else if ((b & 0xF0) == 0xE0) {
      n = 2;
      cp = b & 0x0F;
    } else if ((b & 0xF8) == 0xF0) {
      n = 3;
      cp = b & 0x07;
    } else {
      return std::nullopt;
    }
    if (i + n >= s.size()) return std::nullopt;
    for (size_t k = 1; k <= n; ++k) {
      const auto c = static_cast<unsigned char>(s[i + k]);
      if ((c & 0xC0) != 0x80) return std::nullopt;
      cp = (cp << 6) | (c & 0x3F);
    }
    static constexpr uint32_t kMin[4] = {0, 0x80, 0x800, 0x10000};
    if (cp < kMin[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return std::nullopt;
    i += n + 1;
  }
  return count;
}

// A finite number written in plain decimal notation ("-23", "-0.5", "1e1"),
// read without the C locale's say in the decimal point.
std::optional<double> ParseNumber(std::string_view s) {
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  double v = 0.0;
  const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (s.empty() || ec != std::errc() || ptr != s.data() + s.size() || !std::isfinite(v)) return std::nullopt;
  return v;
}

std::string FormatNumber(double v) {
  char buf[32];
  const auto [ptr, ec] = std::to_chars(buf, buf + sizeof buf, v);
  return ec == std::errc() ? std::string(buf, ptr) : std::string("0");
}

// One value of the file: its key, range, whether it must be whole, and where
// it lives in CustomPreset.
struct Field {
  const char* key;
  double lo, hi;
  bool whole;
  double (*get)(const CustomPreset&);
  void (*set)(CustomPreset&, double);
};

#define VELORUM_FIELD(key, lo, hi, whole, member)                                            \
  Field {                                                                                    \
    key, lo, hi, whole, [](const CustomPreset& p) { return static_cast<double>(p.member); }, \
        [](CustomPreset& p, double v) { p.member = static_cast<decltype(p.member)>(v); }     \
  }

// The numeric values in file order ("relative gate" and "unit" are checked
// on their own).
const Field kFields[] = {
    VELORUM_FIELD("target", -60, 30, true, target),
    VELORUM_FIELD("upper", -70, 30, true, upper),
    VELORUM_FIELD("lower", -70, 30, true, lower),
    VELORUM_FIELD("true peak max", -30, 10, false, truePeakMax),
    VELORUM_FIELD("relative gate", -100, -8, true, relativeGateLU),
    VELORUM_FIELD("gate mode", 0, 2, true, gateMode),
    VELORUM_FIELD("maximum", -70, 30, false, maximum),
    VELORUM_FIELD("param 77", 0, 70, true, p77),
    VELORUM_FIELD("range upper", -70, 30, false, rangeUpper),
    VELORUM_FIELD("range lower", -70, 30, false, rangeLower),
    VELORUM_FIELD("dialogue target", -70, 30, false, dialTarget),
    VELORUM_FIELD("param 42", 0, 100, false, percent),
};

#undef VELORUM_FIELD

std::string CheckValue(const Field& f, double v) {
  if (!std::isfinite(v) || v < f.lo || v > f.hi)
    return Quoted(f.key) + " must be a number from " + FormatNumber(f.lo) + " to " + FormatNumber(f.hi) + ".";
  if (f.whole && v != std::floor(v)) return Quoted(f.key) + " must be a whole number.";
  if (std::string_view(f.key) == "relative gate" && RelativeGateChoiceIndex(static_cast<int>(v)) < 0)
    return "\"relative gate\" must be -10, -8 or -100.";
  return {};
}

bool IsReservedDeviceName(std::string_view name) {
  // CON, PRN, AUX, NUL, COM1..9, LPT1..9, also with an extension.
  std::string stem = Folded(name.substr(0, name.find('.')));
  while (!stem.empty() && stem.back() == ' ') stem.pop_back();
  if (stem == "con" || stem == "prn" || stem == "aux" || stem == "nul") return true;
  return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) && stem[3] >= '1' &&
         stem[3] <= '9';
}

std::string ReadSmallFile(const fs::path& path, std::string& message) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) {
    message = "The preset file could not be opened.";
    return {};
  }
  const auto size = fs::file_size(path, ec);
  if (ec) {
    message = "The preset file could not be opened.";
    return {};
  }
  if (size > kMaxCustomPresetFileBytes) {
    message = "The file is too large to be a preset.";
    return {};
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    message = "The preset file could not be opened.";
    return {};
  }
  std::string text(static_cast<size_t>(size) + 1, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  if (text.size() > kMaxCustomPresetFileBytes) {
    message = "The file is too large to be a preset.";
    return {};
  }
  return text;
}

fs::path PresetPath(const std::string& folder, std::string_view name) {
  return fs::u8path(folder + "/" + std::string(name) + "." + kCustomPresetExtension);
}

std::string U8(const fs::path& p) {
  const auto s = p.u8string();
  return std::string(s.begin(), s.end());
}

}  // namespace

bool SameCustomPresetName(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string CheckCustomPresetName(std::string_view name) {
  if (name.empty()) return "The preset needs a name.";
  const std::optional<size_t> length = Utf8Length(name);
  if (!length) return "The preset name is not valid text.";
  if (*length > kMaxCustomPresetNameChars)
    return "The preset name is longer than " + std::to_string(kMaxCustomPresetNameChars) + " characters.";
  for (char c : name) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      return "The preset name contains a control character.";
    if (std::string_view("/\\:*?\"<>|").find(c) != std::string_view::npos)
      return "A preset name cannot contain / \\ : * ? \" < > or |.";
  }
  if (name.front() == ' ' || name.back() == ' ' || name.front() == '.' || name.back() == '.')
    return "A preset name cannot begin or end with a space or a dot.";
  if (IsReservedDeviceName(name)) return Quoted(name) + " is reserved by Windows and cannot name a preset.";
  // The closed menu shows the name: it must not pass for a built-in standard.
  if (FindStandardByName(name)) return Quoted(name) + " is the name of a built-in preset.";
  return {};
}

std::string CheckCustomPreset(const CustomPreset& preset) {
  if (std::string m = CheckCustomPresetName(preset.name); !m.empty()) return m;
  for (const Field& f : kFields)
    if (std::string m = CheckValue(f, f.get(preset)); !m.empty()) return m;
  return {};
}

std::string FormatCustomPreset(const CustomPreset& preset) {
  std::string text = "[preset]\nname=" + preset.name + "\nversion=" + std::to_string(kVersionDecimal) + "\n";
  for (const Field& f : kFields) {
    text += std::string(f.key) + "=" + FormatNumber(f.get(preset)) + "\n";
    if (std::string_view(f.key) == "relative gate")
      text += std::string("unit=") + (preset.lkfs ? "LKFS" : "LUFS") + "\n";
  }
  return text;
}

bool ParseCustomPreset(std::string_view text, CustomPreset& preset, std::string& message) {
  if (text.size() > kMaxCustomPresetFileBytes) {
    message = "The file is too large to be a preset.";
    return false;
  }
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  if (!Utf8Length(text)) {
    message = "The file is not a preset: it is not UTF-8 text.";
    return false;
  }
  for (char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\r' && c != '\t') {
      message = "The file is not a preset: it contains binary data.";
      return false;
    }
  }
  CustomPreset p;
  bool section = false, haveName = false, haveVersion = false, haveUnit = false;
  bool have[std::size(kFields)] = {};
  int lineNumber = 0;
  size_t pos = 0;
  while (pos <= text.size()) {
    const size_t end = std::min(text.find('\n', pos), text.size());
    const std::string_view line = Trim(text.substr(pos, end - pos));
    pos = end + 1;
    ++lineNumber;
    const std::string at = " (line " + std::to_string(lineNumber) + ")";
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[') {
      if (section || Folded(line) != "[preset]") {
        message = "The file is not a preset: unexpected section " + std::string(line) + at + ".";
        return false;
      }
      section = true;
      continue;
    }
    if (!section) {
      message = "The file is not a preset: it does not begin with [preset].";
      return false;
    }
    const size_t eq = line.find('=');
    if (eq == std::string_view::npos) {
      message = "The preset has a line without a value" + at + ".";
      return false;
    }
    const std::string key = Folded(Trim(line.substr(0, eq)));
    const std::string_view value = Trim(line.substr(eq + 1));
    auto once = [&](bool& seen) {
      if (seen) message = "The preset names " + Quoted(key) + " twice" + at + ".";
      const bool first = !seen;
      seen = true;
      return first;
    };
    if (key == "name") {
      if (!once(haveName)) return false;
      p.name = std::string(value);
      if (std::string m = CheckCustomPresetName(p.name); !m.empty()) {
        message = m;
        return false;
      }
    } else if (key == "version") {
      if (!once(haveVersion)) return false;
      const std::optional<double> v = ParseNumber(value);
      if (!v || *v != std::floor(*v) || *v < 1.0 || *v > 99999999.0) {
        message = "The preset's version is not a whole number" + at + ".";
        return false;
      }
    } else if (key == "unit") {
      if (!once(haveUnit)) return false;
      const std::string unit = Folded(value);
      if (unit != "lufs" && unit != "lkfs") {
        message = "\"unit\" must be LUFS or LKFS" + at + ".";
        return false;
      }
      p.lkfs = unit == "lkfs";
    } else {
      for (size_t i = 0; i < std::size(kFields); ++i) {
        if (key != kFields[i].key) continue;
        if (!once(have[i])) return false;
        const std::optional<double> v = ParseNumber(value);
        std::string m = v ? CheckValue(kFields[i], *v) : CheckValue(kFields[i], NAN);
        if (!m.empty()) {
          message = "The preset's value is out of range: " + m.substr(0, m.size() - 1) + at + ".";
          return false;
        }
        kFields[i].set(p, *v);
      }
      // Keys of later versions are skipped.
    }
  }
  if (!section) {
    message = "The file is not a preset: it does not begin with [preset].";
    return false;
  }
  std::string missing;
  if (!haveName)
    missing = "name";
  else if (!haveVersion)
    missing = "version";
  else if (!haveUnit)
    missing = "unit";
  for (size_t i = 0; missing.empty() && i < std::size(kFields); ++i)
    if (!have[i]) missing = kFields[i].key;
  if (!missing.empty()) {
    message = "The preset has no " + Quoted(missing) + ".";
    return false;
  }
  preset = std::move(p);
  return true;
}

bool ReadCustomPresetFile(const std::string& path, CustomPreset& preset, std::string& message) try {
  message.clear();
  const std::string text = ReadSmallFile(fs::u8path(path), message);
  if (!message.empty()) return false;
  return ParseCustomPreset(text, preset, message);
} catch (...) {
  message = "The preset files could not be read or written.";
  return false;
}

CustomPreset CaptureCustomPreset(std::string name, const std::function<double(int)>& read) {
  using namespace preset_param;
  auto whole = [&](int index) { return static_cast<int>(std::lround(read(index))); };
  CustomPreset p;
  p.name = std::move(name);
  p.target = whole(kTarget);
  p.upper = whole(kUpper);
  p.lower = whole(kLower);
  p.truePeakMax = read(kTruePeakMax);
  const int choice = whole(kRelativeGate);
  p.relativeGateLU = choice >= 0 && choice < static_cast<int>(std::size(kRelativeGateChoicesLU))
                         ? kRelativeGateChoicesLU[choice]
                         : -10;
  p.lkfs = read(kUnitLkfs) >= 0.5;
  p.gateMode = whole(kGateMode);
  p.maximum = read(kMax1);
  p.p77 = whole(kPerPreset77);
  p.rangeUpper = read(kRangeUpper);
  p.rangeLower = read(kRangeLower);
  p.dialTarget = read(kDialTarget);
  p.percent = read(kPercent);
  return p;
}

void ApplyCustomPreset(const CustomPreset& p, const std::function<void(int, double)>& write) {
  using namespace preset_param;
  write(kTarget, p.target);
  write(kUpper, p.upper);
  write(kLower, p.lower);
  write(kTruePeakMax, p.truePeakMax);
  write(kRelativeGate, std::max(0, RelativeGateChoiceIndex(p.relativeGateLU)));
  write(kUnitLkfs, p.lkfs ? 1.0 : 0.0);
  write(kGateMode, p.gateMode);
  write(kMax1, p.maximum);
  write(kMax2, p.maximum);
  write(kPerPreset77, p.p77);
  write(kRangeUpper, p.rangeUpper);
  write(kRangeLower, p.rangeLower);
  write(kDialTarget, p.dialTarget);
  write(kPercent, p.percent);
  write(kPresetEdited, 0.0);
}

CustomPresetStore::CustomPresetStore(const std::string& settingsFolder)
    : mFolder(settingsFolder + "/Presets") {}

std::vector<CustomPresetEntry> CustomPresetStore::List() const try {
  std::vector<CustomPresetEntry> list;
  std::error_code ec;
  fs::directory_iterator it(fs::u8path(mFolder), ec), end;
  int scanned = 0;
  for (; !ec && it != end && scanned < kMaxScannedEntries; it.increment(ec), ++scanned) {
    const fs::path& path = it->path();
    if (Folded(U8(path.extension())) != std::string(".") + kCustomPresetExtension) continue;
    std::error_code fileEc;
    if (!it->is_regular_file(fileEc)) continue;
    CustomPresetEntry entry;
    std::string message;
    entry.path = U8(path);
    if (ReadCustomPresetFile(entry.path, entry.preset, message)) list.push_back(std::move(entry));
  }
  // Sorted by name ignoring case; of names that differ only in case, the
  // file named after the preset comes first, then the first file name.
  auto stemMatches = [](const CustomPresetEntry& e) {
    return U8(fs::u8path(e.path).stem()) == e.preset.name;
  };
  std::sort(list.begin(), list.end(), [&](const CustomPresetEntry& a, const CustomPresetEntry& b) {
    const std::string fa = Folded(a.preset.name), fb = Folded(b.preset.name);
    if (fa != fb) return fa < fb;
    if (stemMatches(a) != stemMatches(b)) return stemMatches(a);
    return a.path < b.path;
  });
  list.erase(std::unique(list.begin(), list.end(),
                         [](const CustomPresetEntry& a, const CustomPresetEntry& b) {
                           return SameCustomPresetName(a.preset.name, b.preset.name);
                         }),
             list.end());
  if (list.size() > kMaxCustomPresets) list.resize(kMaxCustomPresets);
  return list;
} catch (...) {
  return {};
}

std::optional<CustomPresetEntry> CustomPresetStore::Find(std::string_view name) const {
  for (CustomPresetEntry& e : List())
    if (SameCustomPresetName(e.preset.name, name)) return std::move(e);
  return std::nullopt;
}

std::optional<CustomPresetEntry> CustomPresetStore::AtIndex(int index) const {
  if (index < kFirstCustomPresetIndex || index > kLastCustomPresetIndex) return std::nullopt;
  std::vector<CustomPresetEntry> list = List();
  const size_t position = static_cast<size_t>(index - kFirstCustomPresetIndex);
  if (position >= list.size()) return std::nullopt;
  return std::move(list[position]);
}

int CustomPresetStore::IndexOf(std::string_view name) const {
  const std::vector<CustomPresetEntry> list = List();
  for (size_t i = 0; i < list.size(); ++i)
    if (SameCustomPresetName(list[i].preset.name, name)) return kFirstCustomPresetIndex + static_cast<int>(i);
  return -1;
}

bool CustomPresetStore::Save(const CustomPreset& preset, bool replace, std::string& message) const try {
  message = CheckCustomPreset(preset);
  if (!message.empty()) return false;
  const std::vector<CustomPresetEntry> list = List();
  const auto existing = std::find_if(list.begin(), list.end(), [&](const CustomPresetEntry& e) {
    return SameCustomPresetName(e.preset.name, preset.name);
  });
  if (existing != list.end() && !replace) {
    message = "A preset named " + Quoted(existing->preset.name) + " already exists.";
    return false;
  }
  if (existing == list.end() && list.size() >= kMaxCustomPresets) {
    message = "There are already " + std::to_string(kMaxCustomPresets) + " custom presets. Delete one first.";
    return false;
  }
  std::error_code ec;
  fs::create_directories(fs::u8path(mFolder), ec);
  const fs::path target = PresetPath(mFolder, preset.name);
  if (existing != list.end() && fs::u8path(existing->path) != target)
    fs::remove(fs::u8path(existing->path), ec);
  if (!ReplaceFileContents(U8(target), FormatCustomPreset(preset))) {
    message = "The preset could not be written to " + U8(target) + ".";
    return false;
  }
  return true;
} catch (...) {
  message = "The preset files could not be read or written.";
  return false;
}

bool CustomPresetStore::Import(const std::string& path, CustomPreset& imported, std::string& message) const
    try {
  CustomPreset preset;
  if (!ReadCustomPresetFile(path, preset, message)) return false;
  if (!Save(preset, false, message)) return false;
  imported = std::move(preset);
  return true;
} catch (...) {
  message = "The preset files could not be read or written.";
  return false;
}

bool CustomPresetStore::Remove(std::string_view name, std::string& message) const try {
  const std::optional<CustomPresetEntry> entry = Find(name);
  if (!entry) {
    message = "There is no preset named " + Quoted(name) + ".";
    return false;
  }
  std::error_code ec;
  if (!fs::remove(fs::u8path(entry->path), ec) || ec) {
    message = "The preset " + Quoted(entry->preset.name) + " could not be deleted.";
    return false;
  }
  message.clear();
  return true;
} catch (...) {
  message = "The preset files could not be read or written.";
  return false;
}

}  // namespace velorum
