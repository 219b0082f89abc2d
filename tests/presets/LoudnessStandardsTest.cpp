#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

using Writes = std::vector<std::pair<int, double>>;

Writes Apply(int index, ApplyResult* result = nullptr) {
  Writes w;
  ApplyResult r = ApplyStandard(index, [&](int p, double v) { w.emplace_back(p, v); });
  if (result) *result = r;
  return w;
}

// Parameter values after applying a row, as a map.
std::map<int, double> Values(int index) {
  std::map<int, double> m;
  for (auto [p, v] : Apply(index)) m[p] = v;
  return m;
}

TEST(LoudnessStandards, WritesEveryParameterOnceInTheFixedOrder) {
  const std::vector<int> order = {17, 10, 11, 13, 96, 15, 12, 33, 34, 77, 36, 37, 92, 42, 90};
  for (const auto& s : LoudnessStandards()) {
    std::vector<int> params;
    for (auto [p, v] : Apply(s.index)) params.push_back(p);
    EXPECT_EQ(params, order) << s.menuText;
  }
}

TEST(LoudnessStandards, KnownRowsWriteTheirValues) {
  // EBU R128: -23 LUFS, -1 dBTP, -10 LU gate (choice 2), LUFS, gate mode 0.
  EXPECT_EQ(Values(1), (std::map<int, double>{{17, -23},
                                              {10, -23},
                                              {11, -70},
                                              {13, -1},
                                              {96, 2},
                                              {15, 0},
                                              {12, 0},
                                              {33, 30},
                                              {34, 30},
                                              {77, 16},
                                              {36, -23},
                                              {37, -70},
                                              {92, 30},
                                              {42, 100},
                                              {90, 0}}));
  // NETFLIX: dialogue-gated -27 LKFS, -2 dBTP.
  EXPECT_EQ(Values(28), (std::map<int, double>{{17, -27},
                                               {10, -27},
                                               {11, -70},
                                               {13, -2},
                                               {96, 2},
                                               {15, 1},
                                               {12, 2},
                                               {33, 30},
                                               {34, 30},
                                               {77, 16},
                                               {36, 30},
                                               {37, -70},
                                               {92, -27},
                                               {42, 100},
                                               {90, 0}}));
  // EBU R128 S1 limits the short-term maximum to -18.
  EXPECT_EQ(Values(13)[33], -18);
  EXPECT_EQ(Values(13)[34], -18);
  // AES SHORT FORM: -13 maximum.
  EXPECT_EQ(Values(35)[33], -13);
}

TEST(LoudnessStandards, RowsThatShareSettingsWriteTheSameValues) {
  EXPECT_EQ(Values(2), Values(0));    // ATSC A/85 == ITU-R BS.1770-4
  EXPECT_EQ(Values(3), Values(2));    // OP-59 == ATSC A/85: only the shown name changes
  EXPECT_EQ(Values(31), Values(28));  // HBO == NETFLIX
  EXPECT_EQ(Values(32), Values(28));  // DISNEY+ == NETFLIX
  EXPECT_NE(std::string(FindStandard(3)->shortName), FindStandard(2)->shortName);
}

TEST(LoudnessStandards, SingularRows) {
  int eightGate = 0, percent15 = 0;
  for (const auto& s : LoudnessStandards()) {
    auto v = Values(s.index);
    if (v[96] == RelativeGateChoiceIndex(-8)) {
      ++eightGate;
      EXPECT_EQ(s.index, 5);
    }
    if (v[42] == 15) {
      ++percent15;
      EXPECT_EQ(s.index, 34);
    }
    // Only the AES presets have a tolerance window; all others: upper == target, no lower limit.
    if (s.index == 6 || s.index == 35) {
      EXPECT_EQ(v[17], -18);
      EXPECT_EQ(v[10], -16);
      EXPECT_EQ(v[11], -20);
    } else {
      EXPECT_EQ(v[10], v[17]) << s.menuText;
      EXPECT_EQ(v[11], -70) << s.menuText;
    }
  }
  EXPECT_EQ(eightGate, 1);
  EXPECT_EQ(percent15, 1);
}

TEST(LoudnessStandards, IndicesOutsideTheTableWriteNothing) {
  for (int index : {-1, 39, 40, 100, 499, 1000, 123456}) {
    ApplyResult r;
    EXPECT_TRUE(Apply(index, &r).empty()) << index;
    EXPECT_EQ(r, ApplyResult::kUnknown);
  }
  ApplyResult r;
  EXPECT_TRUE(Apply(500, &r).empty());
  EXPECT_EQ(r, ApplyResult::kCustomPreset);
  EXPECT_TRUE(Apply(999, &r).empty());
  EXPECT_EQ(r, ApplyResult::kCustomPreset);
  // Retired indices only clear the custom flag.
  for (int index = 14; index <= 23; ++index) {
    EXPECT_EQ(Apply(index, &r), (Writes{{22, 0.0}}));
    EXPECT_EQ(r, ApplyResult::kRetired);
  }
}

TEST(LoudnessStandards, MenuHasHeadersInOrderAndEveryRowOnce) {
  std::vector<std::string> headers;
  std::set<int> seen;
  for (const auto& item : StandardsMenu()) {
    if (item.header) {
      headers.push_back(item.header);
    } else {
      ASSERT_NE(item.standard, nullptr);
      EXPECT_TRUE(seen.insert(item.standard->index).second) << item.standard->menuText;
    }
  }
  EXPECT_EQ(headers, (std::vector<std::string>{"FILM - TV - GAMING", "ONLINE STREAMING", "CUSTOM PRESETS"}));
  EXPECT_EQ(seen.size(), LoudnessStandards().size());
  EXPECT_STREQ(StandardsMenu().front().standard->menuText, "    DEFAULT");
  EXPECT_EQ(StandardsMenu()[2].standard->index, 0);
}

TEST(LoudnessStandards, LookupByMenuTextOrShortName) {
  EXPECT_EQ(FindStandardByName("EBU R128")->index, 1);
  EXPECT_EQ(FindStandardByName("ebu s1")->index, 13);
  EXPECT_EQ(FindStandardByName(" DEFAULT ")->index, kDefaultStandardIndex);
  EXPECT_EQ(FindStandardByName("ASWG-R001 PORTABLE")->index, 12);
  EXPECT_EQ(FindStandardByName("ASWG PORT")->index, 12);
  EXPECT_EQ(FindStandardByName("disney+")->index, 32);
  EXPECT_EQ(FindStandardByName("NO SUCH"), nullptr);
  EXPECT_EQ(FindStandardByName(""), nullptr);
}

}  // namespace
}  // namespace velorum
