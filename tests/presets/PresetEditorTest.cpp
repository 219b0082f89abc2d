// The custom presets in the editor, driven in-process as the user would: the
// preset menu, the typed name, the message box's confirmations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "presets/CustomPresets.h"
#include "presets/GlobalSettings.h"
#include "presets/LoudnessStandards.h"
#include "ui/DropDownMenu.h"
#include "ui/MeterFixture.h"
#include "ui/MeterMessageBox.h"
#include "ui/MeterModel.h"
#include "ui/PresetMenu.h"
#include "ui/UiSettings.h"

namespace velorum::testing {
namespace {

namespace fs = std::filesystem;
using ui::MenuItem;
using ui::MeterEditor;

void SaveToStore(const std::string& folder, const std::string& name, int target) {
  CustomPreset p;
  p.name = name;
  p.target = target;
  p.upper = target;
  std::string message;
  ASSERT_TRUE(CustomPresetStore(folder).Save(p, false, message)) << message;
}

std::vector<std::string> StoredNames(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& e : CustomPresetStore(folder).List()) names.push_back(e.preset.name);
  return names;
}

// Opens the preset menu with a click on its button.
const std::vector<MenuItem>& OpenPresetMenu(MeterEditor& ed) {
  const IRECT b = ed.Layout().buttons[ui::MeterLayout::kPreset];
  IMouseMod left;
  left.L = true;
  ed.Graphics().OnMouseDown((b.L + b.R) / 2.f, (b.T + b.B) / 2.f, left);
  ed.Graphics().OnMouseUp((b.L + b.R) / 2.f, (b.T + b.B) / 2.f, left);
  EXPECT_TRUE(ed.Menu().IsOpen());
  return ed.Menu().Items();
}

void Choose(MeterEditor& ed, int id) {
  OpenPresetMenu(ed);
  ASSERT_TRUE(ed.Menu().Choose(id)) << id;
}

#ifndef _WIN32
void Type(MeterEditor& ed, const std::string& text) {
  ASSERT_TRUE(ed.Graphics().IsTextEntryOpen());
  for (int i = 0; i < 80; ++i) ed.Graphics().OnTextEntryBackspace();  // the box may hold the shown name
  ed.Graphics().OnTextEntryChar(text);
  ed.Graphics().CloseTextEntry(true);
}
#endif

// SAVE PRESET with a typed name. The Windows editor types into a native box
// of its window, which the offscreen editor does not have: there the name
// goes straight to what the box's Enter calls.
void SaveAs(MeterEditor& ed, const std::string& name) {
  Choose(ed, ui::kSavePresetCommand);
#ifdef _WIN32
  ed.SavePreset(name);
#else
  Type(ed, name);
#endif
}

const MenuItem* Find(const std::vector<MenuItem>& items, int id) {
  const auto it = std::find_if(items.begin(), items.end(), [&](const MenuItem& m) { return m.id == id; });
  return it == items.end() ? nullptr : &*it;
}

TEST(PresetEditor, MenuListsCustomPresetsUnderTheirHeaderWithCommands) {
  MeterFixture meter("presets-menu");
  SaveToStore(meter.Folder(), "Zulu", -20);
  SaveToStore(meter.Folder(), "alpha", -21);
  MeterEditor& ed = meter.Editor();
  const std::vector<MenuItem> items = OpenPresetMenu(ed);
  const auto header =
      std::find_if(items.begin(), items.end(), [](const MenuItem& m) { return m.text == "CUSTOM PRESETS"; });
  ASSERT_NE(header, items.end());
  EXPECT_TRUE(header->header);
  const std::vector<std::pair<std::string, int>> after = {{"alpha", 500},
                                                          {"Zulu", 501},
                                                          {"SAVE PRESET", ui::kSavePresetCommand},
                                                          {"IMPORT", ui::kImportPresetCommand},
                                                          {"SET DEFAULT", ui::kSetDefaultCommand},
                                                          {"Delete Preset", ui::kDeletePresetCommand}};
  ASSERT_EQ(size_t(items.end() - header), after.size() + 1);
  for (size_t i = 0; i < after.size(); ++i) {
    const MenuItem& m = header[std::ptrdiff_t(i) + 1];
    EXPECT_EQ(m.text, after[i].first);
    EXPECT_EQ(m.id, after[i].second);
    EXPECT_FALSE(m.checked) << m.text;
    // Delete acts on the custom preset shown: none yet.
    EXPECT_EQ(m.enabled, m.id != ui::kDeletePresetCommand) << m.text;
  }
  EXPECT_TRUE(Find(items, kDefaultStandardIndex)->checked);
  // Choosing one applies it, checks it and shows its name.
  ASSERT_TRUE(ed.Menu().Choose(501));
  EXPECT_EQ(meter.Plugin().ParamValue(17), -20.0);
  EXPECT_EQ(ed.Model().PresetShortName(), "Zulu");
  const std::vector<MenuItem> again = OpenPresetMenu(ed);
  EXPECT_TRUE(Find(again, 501)->checked);
  EXPECT_FALSE(Find(again, kDefaultStandardIndex)->checked);
  EXPECT_TRUE(Find(again, ui::kDeletePresetCommand)->enabled);
  // The menu shows the presets seen when it opened, even if the folder changes meanwhile.
  SaveToStore(meter.Folder(), "Beta", -22);  // now at 501
  ASSERT_TRUE(ed.Menu().Choose(500));
  EXPECT_EQ(meter.Plugin().ShownCustomPreset(), "alpha");
  cairo_surface_destroy(meter.Render(1.0));
}

TEST(PresetEditor, SaveReplaceSetDefaultAndDelete) {
  MeterFixture meter("presets-save");
  MeterEditor& ed = meter.Editor();
  LoudnessMeterPlugin& p = meter.Plugin();
  const std::string folder = meter.Folder();
  p.ApplyStandardIndex(2);  // "ATSC A/85", then a change of the engineer's own
  p.SetParam(13, -3.0);

  SaveAs(ed, "  Trailer mix ");
  EXPECT_EQ(StoredNames(folder), std::vector<std::string>{"Trailer mix"});
  EXPECT_EQ(p.ShownCustomPreset(), "Trailer mix");
  EXPECT_EQ(p.ShownStandard(), 500);
  EXPECT_EQ(ed.Model().PresetShortName(), "Trailer mix");
  CustomPreset stored = CustomPresetStore(folder).Find("Trailer mix").value().preset;
  EXPECT_EQ(stored.target, -24);
  EXPECT_TRUE(stored.lkfs);
  EXPECT_EQ(stored.truePeakMax, -3.0);

  // A name no file can carry is refused in the message box.
  SaveAs(ed, "a/b");
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_NE(ed.Message().Text().find("cannot contain"), std::string::npos) << ed.Message().Text();
  ed.Message().Press(0);

  // The same name again asks before replacing.
  p.SetParam(17, -27.0);
  SaveAs(ed, "TRAILER MIX");
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_NE(ed.Message().Text().find("already exists"), std::string::npos);
  ed.Message().Press(1);  // No
  EXPECT_EQ(CustomPresetStore(folder).Find("Trailer mix").value().preset.target, -24);
  SaveAs(ed, "TRAILER MIX");
  ed.Message().Press(0);  // Yes
  EXPECT_EQ(StoredNames(folder), std::vector<std::string>{"TRAILER MIX"});
  EXPECT_EQ(CustomPresetStore(folder).Find("Trailer mix").value().preset.target, -27);

  // SET DEFAULT: a new instance starts with it; the editor's own settings keep it.
  Choose(ed, ui::kSetDefaultCommand);
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_NE(ed.Message().Text().find("TRAILER MIX"), std::string::npos) << ed.Message().Text();
  ed.Message().Press(0);
  ed.Settings().theme = 0.0;
  ed.Settings().fpsIndex = 11;  // "59.94 DF", the last rate
  ASSERT_TRUE(ed.Settings().Save());
  EXPECT_FALSE(ui::UiSettings(folder).Dark());
  EXPECT_EQ(ui::UiSettings(folder).fpsIndex, 11);
  ASSERT_TRUE(ReadDefaultPreset(folder));
  EXPECT_EQ(ReadDefaultPreset(folder)->name, "TRAILER MIX");
  {
    LoudnessMeterPlugin fresh(&NoHost);
    EXPECT_EQ(fresh.ShownCustomPreset(), "TRAILER MIX");
    EXPECT_EQ(fresh.ParamValue(17), -27.0);
    EXPECT_EQ(fresh.ParamValue(13), -3.0);
  }

  // Delete: cancelled, then confirmed. The settings stay, the name goes.
  Choose(ed, ui::kDeletePresetCommand);
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_NE(ed.Message().Text().find("Delete the preset \"TRAILER MIX\""), std::string::npos);
  ed.Message().Press(1);
  EXPECT_EQ(StoredNames(folder).size(), 1u);
  Choose(ed, ui::kDeletePresetCommand);
  ed.Message().Press(0);
  EXPECT_TRUE(StoredNames(folder).empty());
  EXPECT_FALSE(ed.Message().IsShown());
  EXPECT_EQ(p.ParamValue(17), -27.0);
  EXPECT_EQ(ed.Model().PresetShortName(), "CUSTOM");
  EXPECT_FALSE(ReadDefaultPreset(folder));
  EXPECT_FALSE(ui::UiSettings(folder).Dark());
  EXPECT_FALSE(Find(OpenPresetMenu(ed), ui::kDeletePresetCommand)->enabled);
  ed.Menu().Close();

  // A built-in preset as default.
  p.ApplyStandardIndex(8);  // "YOUTUBE"
  Choose(ed, ui::kSetDefaultCommand);
  ed.Message().Press(0);
  EXPECT_EQ(ReadDefaultPreset(folder)->index, 8);
  LoudnessMeterPlugin fresh(&NoHost);
  EXPECT_EQ(fresh.ShownStandard(), 8);
}

TEST(PresetEditor, ImportValidatesAndCopiesIntoThePresetsFolder) {
  MeterFixture meter("presets-import");
  MeterEditor& ed = meter.Editor();
  const fs::path outside = fs::path(meter.Folder()) / "outside";
  fs::create_directories(outside);
  CustomPreset shared;
  shared.name = "Shared Loud";
  shared.target = -16;
  const fs::path good = outside / "renamed by mail.qrxpreset";
  { std::ofstream(good, std::ios::binary) << FormatCustomPreset(shared); }
  const fs::path junk = outside / "junk.qrxpreset";
  { std::ofstream(junk, std::ios::binary) << std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16); }

  ed.ImportPreset(junk.string());
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_NE(ed.Message().Text().find("not imported"), std::string::npos) << ed.Message().Text();
  ed.Message().Press(0);
  ed.ImportPreset((outside / "missing.qrxpreset").string());
  EXPECT_NE(ed.Message().Text().find("not imported"), std::string::npos);
  ed.Message().Press(0);
  EXPECT_TRUE(StoredNames(meter.Folder()).empty());

  ed.ImportPreset(good.string());
  EXPECT_NE(ed.Message().Text().find("\"Shared Loud\" was imported"), std::string::npos)
      << ed.Message().Text();
  ed.Message().Press(0);
  EXPECT_EQ(StoredNames(meter.Folder()), std::vector<std::string>{"Shared Loud"});
  EXPECT_TRUE(fs::exists(fs::path(meter.Folder()) / "Presets" / "Shared Loud.qrxpreset"));
  EXPECT_TRUE(fs::exists(good));
  // Twice is a duplicate.
  ed.ImportPreset(good.string());
  EXPECT_NE(ed.Message().Text().find("already exists"), std::string::npos) << ed.Message().Text();
  ed.Message().Press(0);
  // Imported presets are chosen like any other.
  Choose(ed, 500);
  EXPECT_EQ(meter.Plugin().ParamValue(17), -16.0);

#ifndef _WIN32
  // Through the menu on a desktop without zenity or kdialog (an empty PATH):
  // the path is typed under the preset button.
  CustomPreset other = shared;
  other.name = "Other";
  const fs::path second = outside / "other.qrxpreset";
  { std::ofstream(second, std::ios::binary) << FormatCustomPreset(other); }
  const char* path = std::getenv("PATH");
  const std::string oldPath = path ? path : "";
  setenv("PATH", outside.c_str(), 1);
  Choose(ed, ui::kImportPresetCommand);
  setenv("PATH", oldPath.c_str(), 1);
  Type(ed, second.string());
  EXPECT_NE(ed.Message().Text().find("\"Other\" was imported"), std::string::npos) << ed.Message().Text();
  ed.Message().Press(0);
  EXPECT_EQ(StoredNames(meter.Folder()), (std::vector<std::string>{"Other", "Shared Loud"}));
#endif
}

}  // namespace
}  // namespace velorum::testing
