#include "presets/LoudnessStandards.h"

#include <cctype>

namespace velorum {
namespace {

constexpr bool LKFS = true;
constexpr bool LUFS = false;

// clang-format off
constexpr LoudnessStandard kStandards[] = {
  // index, menu text,               short,          tgt, up,  low, TP,  gate, unit, mode, max, p77, p36, p37, p92, p42
  {29, "    DEFAULT",                "DEFAULT",      -23, -23, -70, -1.0, -10, LUFS, 0,  30, 16,  30, -70,  30, 100},
  {0,  "ITU-R BS.1770-4",            "BS.1770-4",    -24, -24, -70, -2.0, -10, LKFS, 0,  30, 16, -24, -70,  30, 100},
  {1,  "EBU R128",                   "EBU R128",     -23, -23, -70, -1.0, -10, LUFS, 0,  30, 16, -23, -70,  30, 100},
  {13, "EBU R128 S1",                "EBU S1",       -23, -23, -70, -1.0, -10, LUFS, 0, -18, 16, -23, -70,  30, 100},
  {2,  "ATSC A/85",                  "ATSC A/85",    -24, -24, -70, -2.0, -10, LKFS, 0,  30, 16, -24, -70,  30, 100},
  {38, "ATSC A/85 DIAL",             "ATSC A/85 DIAL", -24, -24, -70, -2.0, -10, LKFS, 0, 30, 16, 30, -70, -24, 100},
  {3,  "OP-59",                      "OP-59",        -24, -24, -70, -2.0, -10, LKFS, 0,  30, 16, -24, -70,  30, 100},
  {4,  "ARIB TR-B32",                "ARIB TR-B32",  -24, -24, -70, -1.0, -10, LKFS, 0,  30, 16, -24, -70,  30, 100},
  {5,  "AGCOM 219/09/CSP",           "AGCOM 219/09/CSP", -24, -24, -70, -2.0, -8, LUFS, 0, 30, 16, -24, -70, 30, 100},
  {11, "ASWG-R001 HOME",             "ASWG HOME",    -24, -24, -70, -1.0, -10, LUFS, 1,  30, 16, -24, -70,  30, 100},
  {12, "ASWG-R001 PORTABLE",         "ASWG PORT",    -18, -18, -70, -1.0, -10, LUFS, 1,  30, 12, -18, -70,  30, 100},
  {36, "ITU-R BS.1770-1 DIAL",       "1770-1 DI",    -27, -27, -70, -2.0, -10, LKFS, 2,  30, 16,  30, -70, -27, 100},
  {37, "ITU-R BS.1770-2 DIAL",       "1770-2 DI",    -27, -27, -70, -2.0, -10, LKFS, 2,  30, 16,  30, -70, -27, 100},
  {6,  "AES STREAMING",              "AES STREAMING", -18, -16, -20, -1.0, -10, LUFS, 0, 30, 10, -16, -20,  30, 100},
  {35, "AES SHORT FORM",             "AES SHORT",    -18, -16, -20, -1.0, -10, LUFS, 0, -13, 10, -16, -20,  30, 100},
  {7,  "SPOTIFY",                    "SPOTIFY",      -14, -14, -70, -1.0, -10, LUFS, 2,  30,  8, -14, -70,  30, 100},
  {25, "SPOTIFY LOUD",               "SPOTIFY LOUD", -11, -11, -70, -2.0, -10, LUFS, 2,  30,  6, -11, -70,  30, 100},
  {8,  "YOUTUBE",                    "YOUTUBE",      -14, -14, -70, -1.0, -10, LUFS, 2,  30,  8, -14, -70,  30, 100},
  {9,  "APPLE MUSIC",                "APPLE MUSIC",  -16, -16, -70, -1.0, -10, LUFS, 1,  30,  8, -16, -70,  30, 100},
  {24, "APPLE PODCAST",              "APPLE PODCAST", -16, -16, -70, -1.0, -10, LUFS, 1, 30, 10, -16, -70,  30, 100},
  {10, "TIDAL",                      "TIDAL",        -14, -14, -70, -1.0, -10, LUFS, 2,  30,  8, -14, -70,  30, 100},
  {30, "DEEZER",                     "DEEZER",       -15, -15, -70, -1.0, -10, LUFS, 2,  30,  8, -15, -70,  30, 100},
  {28, "NETFLIX",                    "NETFLIX",      -27, -27, -70, -2.0, -10, LKFS, 2,  30, 16,  30, -70, -27, 100},
  {31, "HBO",                        "HBO",          -27, -27, -70, -2.0, -10, LKFS, 2,  30, 16,  30, -70, -27, 100},
  {32, "DISNEY+",                    "DISNEY+",      -27, -27, -70, -2.0, -10, LKFS, 2,  30, 16,  30, -70, -27, 100},
  {26, "AMAZON MUSIC",               "AMAZ MUSIC",   -14, -14, -70, -2.0, -10, LUFS, 0,  30,  8, -14, -19,  30, 100},
  {27, "AMAZON ALEXA",               "AMAZ ALEXA",   -14, -14, -70, -2.0, -10, LUFS, 0,  30, 10, -14, -19,  30, 100},
  {33, "EBU R128 S2",                "EBU S2",       -18, -18, -70, -1.0, -10, LUFS, 2,  30, 10, -18, -70,  30, 100},
  {34, "EBU R128 S2 MUSIC",          "EBU S2 MUSIC", -16, -16, -70, -1.0, -10, LUFS, 2,  30, 15, -16, -70,  30,  15},
};
// clang-format on

constexpr const LoudnessStandard& Row(int index) {
  for (const auto& s : kStandards)
    if (s.index == index) return s;
  throw "standard index missing from the table";  // compile-time error in the menu below
}

constexpr StandardsMenuItem kMenu[] = {
    {nullptr, &Row(29)},
    {"FILM - TV - GAMING", nullptr},
    {nullptr, &Row(0)},
    {nullptr, &Row(1)},
    {nullptr, &Row(13)},
    {nullptr, &Row(2)},
    {nullptr, &Row(38)},
    {nullptr, &Row(3)},
    {nullptr, &Row(4)},
    {nullptr, &Row(5)},
    {nullptr, &Row(11)},
    {nullptr, &Row(12)},
    {"ONLINE STREAMING", nullptr},
    {nullptr, &Row(36)},
    {nullptr, &Row(37)},
    {nullptr, &Row(6)},
    {nullptr, &Row(35)},
    {nullptr, &Row(7)},
    {nullptr, &Row(25)},
    {nullptr, &Row(8)},
    {nullptr, &Row(9)},
    {nullptr, &Row(24)},
    {nullptr, &Row(10)},
    {nullptr, &Row(30)},
    {nullptr, &Row(28)},
    {nullptr, &Row(31)},
    {nullptr, &Row(32)},
    {nullptr, &Row(26)},
    {nullptr, &Row(27)},
    {nullptr, &Row(33)},
    {nullptr, &Row(34)},
    {"CUSTOM PRESETS", nullptr},
};

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

}  // namespace

std::span<const LoudnessStandard> LoudnessStandards() {
  return kStandards;
}

std::span<const StandardsMenuItem> StandardsMenu() {
  return kMenu;
}

const LoudnessStandard* FindStandard(int index) {
  for (const auto& s : kStandards)
    if (s.index == index) return &s;
  return nullptr;
}

const LoudnessStandard* FindStandardByName(std::string_view name) {
  name = Trim(name);
  if (name.empty()) return nullptr;
  for (const auto& s : kStandards)
    if (EqualNoCase(Trim(s.menuText), name) || EqualNoCase(s.shortName, name)) return &s;
  return nullptr;
}

int RelativeGateChoiceIndex(int gateLU) {
  for (int i = 0; i < static_cast<int>(std::size(kRelativeGateChoicesLU)); ++i)
    if (kRelativeGateChoicesLU[i] == gateLU) return i;
  return -1;
}

ApplyResult ApplyStandard(int index, const std::function<void(int, double)>& write) {
  using namespace preset_param;
  if (index >= kFirstCustomPresetIndex && index <= kLastCustomPresetIndex) return ApplyResult::kCustomPreset;
  if (index >= 14 && index <= 23) {
    write(kCustomFlag, 0.0);
    return ApplyResult::kRetired;
  }
  const LoudnessStandard* s = FindStandard(index);
  if (!s) return ApplyResult::kUnknown;
  write(kTarget, s->target);
  write(kUpper, s->upper);
  write(kLower, s->lower);
  write(kTruePeakMax, s->truePeakMax);
  write(kRelativeGate, RelativeGateChoiceIndex(s->relativeGateLU));
  write(kUnitLkfs, s->lkfs ? 1.0 : 0.0);
  write(kGateMode, s->gateMode);
  write(kMax1, s->maximum);
  write(kMax2, s->maximum);
  write(kPerPreset77, s->p77);
  write(kRangeUpper, s->rangeUpper);
  write(kRangeLower, s->rangeLower);
  write(kDialTarget, s->dialTarget);
  write(kPercent, s->percent);
  write(kPresetEdited, 0.0);
  return ApplyResult::kApplied;
}

}  // namespace velorum
