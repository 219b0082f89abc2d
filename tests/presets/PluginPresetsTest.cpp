// The plug-in and the user's presets: the default preset of new instances,
// custom presets chosen by index, and the shown preset kept with the state.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "plugin/ByteChunk.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "presets/CustomPresets.h"
#include "presets/GlobalSettings.h"
#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

namespace fs = std::filesystem;

intptr_t NoHost(vst::AEffect*, int32_t, int32_t, intptr_t, void*, float) {
  return 0;
}

// A private settings folder for the instances created by one test.
std::string UseSettingsFolder(const std::string& name) {
  const fs::path dir = fs::path(VELORUM_BINARY_DIR) / "presets-test" / name;
  fs::remove_all(dir);
  fs::create_directories(dir);
#ifdef _WIN32
  _putenv_s("VELORUM_SETTINGS_DIR", dir.string().c_str());
#else
  setenv("VELORUM_SETTINGS_DIR", dir.string().c_str(), 1);
#endif
  return dir.string();
}

std::unique_ptr<LoudnessMeterPlugin> NewInstance() {
  return std::make_unique<LoudnessMeterPlugin>(&NoHost);
}

// The parameters a preset writes, as the plug-in holds them.
std::vector<double> PresetParams(const LoudnessMeterPlugin& p) {
  std::vector<double> v;
  for (int i : {17, 10, 11, 13, 96, 15, 12, 33, 34, 77, 36, 37, 92, 42}) v.push_back(p.ParamValue(i));
  return v;
}

CustomPreset House() {
  CustomPreset p;
  p.name = "House";
  p.target = -20;
  p.upper = -19;
  p.lower = -21;
  p.truePeakMax = -1.5;
  p.relativeGateLU = -8;
  p.lkfs = true;
  p.gateMode = 1;
  p.maximum = -12.5;
  p.p77 = 12;
  p.rangeUpper = -19;
  p.rangeLower = -21;
  p.dialTarget = -22;
  p.percent = 50;
  return p;
}

void Save(const std::string& folder, const CustomPreset& p) {
  std::string message;
  ASSERT_TRUE(CustomPresetStore(folder).Save(p, false, message)) << message;
}

TEST(DefaultPreset, NewInstancesStartWithItAndRestoredProjectsKeepTheirOwn) {
  const std::string folder = UseSettingsFolder("default-builtin");
  // No default stored: the declared defaults.
  auto plain = NewInstance();
  EXPECT_EQ(plain->ShownStandard(), kDefaultStandardIndex);
  EXPECT_EQ(plain->ParamValue(17), -23.0);
  plain->ApplyStandardIndex(1);  // "EBU R128"
  plain->SetParam(13, -3.0);     // and a change of the user's own
  ByteChunk project;
  ASSERT_TRUE(plain->WriteState(project));
  const std::vector<double> saved = PresetParams(*plain);

  ASSERT_TRUE(WriteDefaultPreset(folder, {7, ""}));  // "SPOTIFY"
  auto fresh = NewInstance();
  EXPECT_EQ(fresh->ShownStandard(), 7);
  EXPECT_EQ(fresh->ParamValue(param::kStandard), 7.0);
  EXPECT_EQ(fresh->ParamValue(17), -14.0);
  EXPECT_EQ(fresh->ParamValue(12), 2.0);
  EXPECT_EQ(fresh->ParamValue(77), 8.0);

  auto reopened = NewInstance();
  ASSERT_GT(reopened->ReadState(project, 0), 0);
  EXPECT_EQ(PresetParams(*reopened), saved);
  EXPECT_EQ(reopened->ShownStandard(), 1);
  EXPECT_EQ(reopened->ParamValue(13), -3.0);
}

TEST(DefaultPreset, ACustomDefaultIsFoundByNameAfterThePresetsChanged) {
  const std::string folder = UseSettingsFolder("default-custom");
  Save(folder, House());
  ASSERT_TRUE(WriteDefaultPreset(folder, {kFirstCustomPresetIndex, "House"}));
  // Two presets sorted before it move "House" to index 502.
  CustomPreset a = House(), b = House();
  a.name = "Alpha";
  a.target = -30;
  b.name = "Beta";
  b.target = -31;
  Save(folder, a);
  Save(folder, b);
  auto fresh = NewInstance();
  EXPECT_EQ(fresh->ShownStandard(), kFirstCustomPresetIndex + 2);
  EXPECT_EQ(fresh->ShownCustomPreset(), "House");
  EXPECT_EQ(fresh->ShownPresetText(false), "House");
  std::vector<double> expected;
  {
    std::vector<std::pair<int, double>> writes;
    ApplyCustomPreset(House(), [&](int p, double v) { writes.emplace_back(p, v); });
    for (auto [p, v] : writes)
      if (p != 90) expected.push_back(v);
  }
  EXPECT_EQ(PresetParams(*fresh), expected);
  EXPECT_EQ(fresh->ParamValue(96), RelativeGateChoiceIndex(-8));

  // Deleted: new instances start plain, nothing else breaks.
  std::string message;
  ASSERT_TRUE(CustomPresetStore(folder).Remove("House", message));
  auto after = NewInstance();
  EXPECT_EQ(after->ShownStandard(), kDefaultStandardIndex);
  EXPECT_EQ(after->ParamValue(17), -23.0);
}

TEST(CustomPresetIndex, AppliesThePresetAtThatPlaceAndWritesNothingPastTheList) {
  const std::string folder = UseSettingsFolder("custom-index");
  CustomPreset a = House();
  a.name = "Alpha";
  Save(folder, a);
  Save(folder, House());
  auto p = NewInstance();
  EXPECT_EQ(p->ApplyStandardIndex(kFirstCustomPresetIndex + 1), static_cast<int>(ApplyResult::kCustomPreset));
  EXPECT_EQ(p->ShownCustomPreset(), "House");
  EXPECT_EQ(p->ParamValue(17), -20.0);
  EXPECT_EQ(p->ParamValue(param::kStandard), double(kFirstCustomPresetIndex + 1));
  const std::vector<double> before = PresetParams(*p);
  EXPECT_EQ(p->ApplyStandardIndex(kFirstCustomPresetIndex + 2), static_cast<int>(ApplyResult::kUnknown));
  EXPECT_EQ(p->ApplyStandardIndex(kLastCustomPresetIndex), static_cast<int>(ApplyResult::kUnknown));
  EXPECT_EQ(PresetParams(*p), before);
  EXPECT_EQ(p->ShownCustomPreset(), "House");
  // A built-in item replaces the custom name.
  p->ApplyStandardIndex(2);
  EXPECT_EQ(p->ShownCustomPreset(), "");
  EXPECT_EQ(p->ShownPresetText(true), "ATSC A/85");
}

TEST(CustomPresetIndex, AProjectKeepsItsPresetNameAfterThePresetIsDeleted) {
  const std::string folder = UseSettingsFolder("state-name");
  Save(folder, House());
  auto p = NewInstance();
  ASSERT_EQ(p->ApplyStandardIndex(kFirstCustomPresetIndex), static_cast<int>(ApplyResult::kCustomPreset));
  ByteChunk project;
  ASSERT_TRUE(p->WriteState(project));
  std::string message;
  ASSERT_TRUE(CustomPresetStore(folder).Remove("House", message));

  auto reopened = NewInstance();
  ASSERT_GT(reopened->ReadState(project, 0), 0);
  EXPECT_EQ(reopened->ShownStandard(), kFirstCustomPresetIndex);
  EXPECT_EQ(reopened->ShownCustomPreset(), "House");
  EXPECT_EQ(PresetParams(*reopened), PresetParams(*p));
  // Saved again, the name travels on.
  ByteChunk again;
  ASSERT_TRUE(reopened->WriteState(again));
  auto third = NewInstance();
  ASSERT_GT(third->ReadState(again, 0), 0);
  EXPECT_EQ(third->ShownPresetText(true), "House");
}

}  // namespace
}  // namespace velorum
