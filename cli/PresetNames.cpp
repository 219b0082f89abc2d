#include "cli/PresetNames.h"

#include <algorithm>
#include <cctype>

#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

// Letters and digits only, lower case: "ATSC A/85" -> "atsca85".
std::string folded(const std::string& text) {
  std::string out;
  for (unsigned char c : text)
    if (std::isalnum(c)) out += static_cast<char>(std::tolower(c));
  return out;
}

size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t up = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = up;
    }
  }
  return row[b.size()];
}

// Every name a preset answers to, folded, with its preset.
std::vector<std::pair<std::string, const LoudnessStandard*>> knownNames() {
  std::vector<std::pair<std::string, const LoudnessStandard*>> names;
  for (const LoudnessStandard& s : LoudnessStandards()) {
    names.emplace_back(folded(s.menuText), &s);
    if (s.shortName) names.emplace_back(folded(s.shortName), &s);
  }
  for (const auto& [alias, menu] : PresetAliases())
    if (const LoudnessStandard* s = FindStandardByName(menu)) names.emplace_back(folded(alias), s);
  return names;
}

std::string trimmedMenuText(const LoudnessStandard* s) {
  std::string t = s->menuText;
  t.erase(0, t.find_first_not_of(' '));
  return t;
}

}  // namespace

const std::vector<std::pair<const char*, const char*>>& PresetAliases() {
  static const std::vector<std::pair<const char*, const char*>> aliases = {
      {"r128", "EBU R128"},
      {"ebu", "EBU R128"},
      {"s1", "EBU R128 S1"},
      {"s2", "EBU R128 S2"},
      {"atsc", "ATSC A/85"},
      {"a85", "ATSC A/85"},
      {"a/85", "ATSC A/85"},
      {"op59", "OP-59"},
      {"arib", "ARIB TR-B32"},
      {"agcom", "AGCOM 219/09/CSP"},
      {"bs1770", "ITU-R BS.1770-4"},
      {"itu", "ITU-R BS.1770-4"},
      {"1770", "ITU-R BS.1770-4"},
      {"aes", "AES STREAMING"},
      {"spotify", "SPOTIFY"},
      {"apple", "APPLE MUSIC"},
      {"itunes", "APPLE MUSIC"},
      {"podcast", "APPLE PODCAST"},
      {"youtube", "YOUTUBE"},
      {"yt", "YOUTUBE"},
      {"tidal", "TIDAL"},
      {"deezer", "DEEZER"},
      {"netflix", "NETFLIX"},
      {"hbo", "HBO"},
      {"disney", "DISNEY+"},
      {"amazon", "AMAZON MUSIC"},
      {"alexa", "AMAZON ALEXA"},
      {"aswg", "ASWG-R001 HOME"},
      {"default", "DEFAULT"},
  };
  return aliases;
}

PresetMatch MatchPreset(const std::string& name) {
  PresetMatch match;
  if ((match.preset = FindStandardByName(name))) return match;
  const std::string wanted = folded(name);
  if (wanted.empty()) return match;
  const auto names = knownNames();
  for (const auto& [known, preset] : names)
    if (known == wanted) {
      match.preset = preset;
      return match;
    }
  // The closest name within a third of its length, or one the text begins.
  size_t best = std::max<size_t>(2, wanted.size() / 3) + 1;
  for (const auto& [known, preset] : names) {
    const size_t d = known.rfind(wanted, 0) == 0 ? 1 : editDistance(known, wanted);
    if (d < best) {
      best = d;
      match.suggestion = trimmedMenuText(preset);
    }
  }
  return match;
}

std::string UnknownPresetMessage(const std::string& name, const PresetMatch& match) {
  std::string s = "unknown preset \"" + name + "\"";
  if (!match.suggestion.empty()) s += "; did you mean \"" + match.suggestion + "\"?";
  return s + " (see velorum presets)";
}

}  // namespace velorum
