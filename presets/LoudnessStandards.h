// The built-in table of loudness standards and delivery targets, and the
// parameter writes that choosing one of them performs.
#pragma once

#include <functional>
#include <span>
#include <string_view>

namespace velorum {

// Internal parameter indices written by a standard.
namespace preset_param {
inline constexpr int kUpper = 10;        // upper limit of the integrated tolerance window
inline constexpr int kLower = 11;        // lower limit; -70 means none
inline constexpr int kGateMode = 12;     // integrated gate mode 0, 1 or 2
inline constexpr int kTruePeakMax = 13;  // dBTP
inline constexpr int kUnitLkfs = 15;     // 1 shows "LKFS", 0 "LUFS"
inline constexpr int kTarget = 17;       // integrated-loudness target
inline constexpr int kCustomFlag = 22;   // cleared by the retired indices 14..23
inline constexpr int kMax1 = 33;         // both set to the row's maximum; 30 = none
inline constexpr int kMax2 = 34;
inline constexpr int kRangeUpper = 36;    // second range; 30 = none
inline constexpr int kRangeLower = 37;    // -70 = none
inline constexpr int kPercent = 42;       // percentage setting
inline constexpr int kPerPreset77 = 77;   // integer setting applied per preset
inline constexpr int kPresetEdited = 90;  // set to 0 after a preset is applied
inline constexpr int kDialTarget = 92;    // dialogue target; 30 = none
inline constexpr int kRelativeGate = 96;  // index of the relative-gate choice
}  // namespace preset_param

// Relative-gate choices, in the order of their stored indices.
inline constexpr int kRelativeGateChoicesLU[] = {-100, -8, -10};

struct LoudnessStandard {
  int index;              // identity of the item; fixed, not contiguous
  const char* menuText;   // as the menu shows it
  const char* shortName;  // as the closed drop-down shows it
  int target;
  int upper;
  int lower;
  double truePeakMax;
  int relativeGateLU;  // -10 or -8
  bool lkfs;           // unit shown: "LKFS" when true, "LUFS" otherwise
  int gateMode;
  int maximum;  // parameters 33 and 34
  int p77;
  int rangeUpper;  // parameter 36
  int rangeLower;  // parameter 37
  int dialTarget;  // parameter 92
  int percent;     // parameter 42
};

// One line of the drop-down menu: a group header or a standard.
struct StandardsMenuItem {
  const char* header;                // non-null for a group header
  const LoudnessStandard* standard;  // non-null for a standard
};

inline constexpr int kDefaultStandardIndex = 29;
inline constexpr int kFirstCustomPresetIndex = 500;
inline constexpr int kLastCustomPresetIndex = 999;

// Every built-in standard, in menu order.
std::span<const LoudnessStandard> LoudnessStandards();

// The menu in order, headers included ("FILM - TV - GAMING", "ONLINE
// STREAMING", "CUSTOM PRESETS"); the custom presets follow the last header.
std::span<const StandardsMenuItem> StandardsMenu();

// The standard with this index, or null.
const LoudnessStandard* FindStandard(int index);

// Looks a standard up by its menu text or short name, ignoring case and
// surrounding blanks ("ebu r128", "EBU S1", "DEFAULT"), or null.
const LoudnessStandard* FindStandardByName(std::string_view name);

// Stored index of the relative-gate choice for a gate in LU, or -1.
int RelativeGateChoiceIndex(int gateLU);

enum class ApplyResult {
  kApplied,       // a built-in row was written
  kCustomPreset,  // 500..999: the caller loads its custom preset
  kRetired,       // 14..23: only the custom flag was cleared
  kUnknown,       // nothing written
};

// Writes the parameters of standard `index` through `write(param, value)` in
// the fixed order target, upper, lower, true-peak maximum, relative gate,
// unit, gate mode, maximum (33 and 34), 77, 36, 37, 92, 42, then clears the
// preset-edited flag (90). The caller refreshes the preset display once.
ApplyResult ApplyStandard(int index, const std::function<void(int, double)>& write);

}  // namespace velorum
