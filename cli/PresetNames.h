#pragma once
// Preset names as a command line takes them: the menu text or the short name
// in any case and spacing ("ebu r128", "EBU-S1", "atsc a/85"), or a common
// alias (r128, ebu, atsc, a85, spotify, apple, youtube, netflix ...). A name
// that matches nothing gets the closest known name as a suggestion.
#include <string>
#include <utility>
#include <vector>

namespace velorum {

struct LoudnessStandard;

struct PresetMatch {
  const LoudnessStandard* preset = nullptr;
  std::string suggestion;  // menu text of the closest preset when none matched ("" if nothing is close)
};

PresetMatch MatchPreset(const std::string& name);
// "unknown preset "X"; did you mean "EBU R128"? (see velorum presets)"
std::string UnknownPresetMessage(const std::string& name, const PresetMatch& match);
// The aliases, as (alias, menu text) pairs, for the presets list.
const std::vector<std::pair<const char*, const char*>>& PresetAliases();

}  // namespace velorum
