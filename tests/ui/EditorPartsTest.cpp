// The editor's parts on their own: text forms (time codes at the "TIME CODE
// FPS" rates, LU offsets, floors), the colour states against a target window,
// the settings file with hostile content, the pop-up menu's placement and
// choices, and every settings row writing what it stands for.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "MeterFixture.h"
#include "engine/ChannelLayouts.h"
#include "export/Timecode.h"
#include "graphics/IGraphicsResize.h"
#include "ui/DropDownMenu.h"
#include "ui/LoudnessReadout.h"
#include "ui/MeterMessageBox.h"
#include "ui/SettingsPage.h"
#include "ui/UiFormat.h"
#include "ui/UiSettings.h"

namespace velorum::testing {
namespace {

using namespace ui;

TEST(EditorText, TimeCodesAtEveryRate) {
  // 1 h 0 min 0.5 s: half a second is 12 frames at 25 fps. The NTSC rates
  // count frames at 24000/1001, 30000/1001 and 60000/1001 and label them at
  // 24, 30 and 60, so their non-drop time code runs 3.6 s an hour behind the
  // clock: 86325 frames at 23.976, 107907 at 29.97 NDF, 215814 at 59.94 NDF.
  EXPECT_EQ(FormatTimecode(3600.5, 2), "01:00:00:12");
  EXPECT_EQ(FormatTimecode(3600.5, 3), "00:59:56:27");
  EXPECT_EQ(FormatTimecode(3600.5, 0), "00:59:56:21");
  EXPECT_EQ(FormatTimecode(3600.5, 8), "00:59:56:54");
  // The editor and the exports agree at every rate.
  for (int i = 0; i < kFpsCount; ++i)
    EXPECT_EQ(FormatTimecode(4321.123, i),
              TimecodeFrames(4321.123, kFpsItems[i].rate, kFpsItems[i].dropFrame))
        << kFpsItems[i].label;
  EXPECT_EQ(FormatTimecode(59.999, 9), "00:00:59:59");
  EXPECT_EQ(FormatTimecode(-5.0, 2), "00:00:00:00");
  EXPECT_EQ(FormatTimecode(1.0, 99), "00:00:01:00");  // unknown rate: the default
  EXPECT_STREQ(kFpsItems[3].label, "29.97 NDF");
  EXPECT_STREQ(kFpsItems[8].label, "59.94 NDF");
  EXPECT_STREQ(kFpsItems[5].label, "47.95");
}

// Drop-frame numbering follows the clock: an hour of real time is an hour of
// labels, and the labels skipped at each minute (but not at every tenth) are
// the ones broadcast equipment skips.
TEST(EditorText, DropFrameTimeCodesKeepUpWithTheClock) {
  constexpr int kDf2997 = 10, kDf5994 = 11;
  EXPECT_STREQ(kFpsItems[kDf2997].label, "29.97 DF");
  EXPECT_STREQ(kFpsItems[kDf5994].label, "59.94 DF");
  EXPECT_EQ(FormatTimecode(3600.0, kDf2997), "01:00:00;00");
  EXPECT_EQ(FormatTimecode(3600.0, kDf5994), "01:00:00;00");
  // Frame 1799 ends at 60.027 s; frame 1800 (60.06 s) is labelled ;02.
  EXPECT_EQ(FormatTimecode(60.04, kDf2997), "00:00:59;29");
  EXPECT_EQ(FormatTimecode(60.07, kDf2997), "00:01:00;02");
  // At 59.94 four labels go: frame 3600 (60.06 s) reads ;04.
  EXPECT_EQ(FormatTimecode(60.07, kDf5994), "00:01:00;04");
  // The tenth minute keeps its ;00 (frame 17982 at 599.9994 s).
  EXPECT_EQ(FormatTimecode(600.01, kDf2997), "00:10:00;00");
  // The non-drop siblings count the same frames without skipping labels, so
  // they fall behind the clock: 107892 frames in an hour, 1800 at 60.07 s.
  EXPECT_EQ(FormatTimecode(3600.0, 3), "00:59:56:12");
  EXPECT_EQ(FormatTimecode(60.07, 3), "00:01:00:00");
  // Hostile times give a label, not a crash.
  EXPECT_EQ(FormatTimecode(std::nan(""), kDf2997), "00:00:00;00");
  EXPECT_FALSE(FormatTimecode(1e300, kDf5994).empty());
  EXPECT_FALSE(FormatTimecode(1e300, 3).empty());
  // The graph's time axis in the time-code mode uses the same form.
  EXPECT_EQ(FormatAxisTime(3600.0, 1, kDf2997, 0.0, false), "01:00:00;00");
}

TEST(EditorText, ValuesOffsetsAndTimes) {
  EXPECT_EQ(FormatLoudness(-23.04), "-23.0");
  EXPECT_EQ(FormatLoudness(-0.04), "0.0");
  EXPECT_EQ(FormatLoudness(-120.0), "-inf");
  EXPECT_EQ(FormatLoudness(std::nan("")), "-inf");
  EXPECT_EQ(FormatRelative(-23.0, -23.0), "+0.0 LU");
  EXPECT_EQ(FormatRelative(-23.04, -23.0), "+0.0 LU");
  EXPECT_EQ(FormatRelative(-20.5, -23.0), "+2.5 LU");
  EXPECT_EQ(FormatRelative(-120.0, -23.0), "-");
  EXPECT_EQ(FormatElapsed(3725.0, false), "1:02:05");
  EXPECT_EQ(FormatElapsed(125.0, false), "2:05");
  EXPECT_EQ(FormatElapsed(5.55, true), "0:00:05.5");
  EXPECT_EQ(FormatTimeOfDay(86400.0 + 3661.0), "01:01:01");
  EXPECT_EQ(FormatAxisTime(10.0, 2, 2, 3600.0, false), "01:00:10");
  EXPECT_EQ(FormatAxisTime(10.0, 1, 2, 0.0, false), "00:00:10:00");
  EXPECT_STREQ(UnitText(true), "LKFS");
}

TEST(EditorText, ColourStatesAgainstTheWindow) {
  TargetWindow aes;  // "AES STREAMING": -18 with a window of -20 .. -16
  aes.target = -18.0;
  aes.upper = -16.0;
  aes.lower = -20.0;
  aes.truePeakMax = -1.0;
  EXPECT_EQ(LoudnessReadout::IntegratedState(-18.0, aes), 1);
  EXPECT_EQ(LoudnessReadout::IntegratedState(-16.0, aes), 1);
  EXPECT_EQ(LoudnessReadout::IntegratedState(-15.5, aes), 2);
  EXPECT_EQ(LoudnessReadout::IntegratedState(-14.0, aes), 3);
  EXPECT_EQ(LoudnessReadout::IntegratedState(-120.0, aes), 0);
  TargetWindow r128;  // no lower limit: target +- 1 LU
  EXPECT_EQ(LoudnessReadout::IntegratedState(-23.9, r128), 1);
  EXPECT_EQ(LoudnessReadout::IntegratedState(-24.5, r128), 2);
  EXPECT_EQ(LoudnessReadout::IntegratedState(-26.0, r128), 3);
  EXPECT_EQ(LoudnessReadout::TruePeakState(-1.0, r128), 2);
  EXPECT_EQ(LoudnessReadout::TruePeakState(-0.9, r128), 3);
  EXPECT_EQ(LoudnessReadout::TruePeakState(-6.0, r128), 1);
}

TEST(EditorSettingsFile, RoundTripAndHostileContent) {
  const std::string folder = TestSettingsFolder("settings-file");
  UiSettings a(folder);
  EXPECT_TRUE(a.Dark());
  EXPECT_EQ(a.refreshRate, 3);
  a.theme = 0;
  a.refreshRate = 6;
  a.fpsIndex = 8;
  a.exportTheme = 1;
  a.exportFolder = "/tmp/exports here";
  ASSERT_TRUE(a.Save());
  UiSettings b(folder);
  EXPECT_FALSE(b.Dark());
  EXPECT_EQ(b.refreshRate, 6);
  EXPECT_EQ(b.GraphIntervalMs(), 6);
  EXPECT_EQ(b.fpsIndex, 8);
  EXPECT_EQ(b.exportTheme, 1.0);
  EXPECT_EQ(b.exportFolder, "/tmp/exports here");
  // Out of range, not numbers, binary junk: the defaults stay.
  {
    std::ofstream out(folder + "/Settings.ini", std::ios::binary | std::ios::trunc);
    out << "Theme=7\nGUI Refresh Rate=-3\nTime Code FPS=abc\n\x01\x02=\xff\nExport Theme\n";
  }
  UiSettings c(folder);
  EXPECT_TRUE(c.Dark());
  EXPECT_EQ(c.refreshRate, 3);
  EXPECT_EQ(c.fpsIndex, 2);
}

TEST(EditorMenu, PlacementAndChoices) {
  std::vector<MenuItem> items = {{"HEADER", -1, false, true, true},
                                 {"ONE", 1, false, true, false},
                                 {"TWO", 2, true, true, false},
                                 {"OFF", 3, false, false, false}};
  // Room below: under the anchor. Near the bottom: above it.
  const IRECT below = DropDownMenu::Place(items, IRECT(100.f, 40.f, 200.f, 60.f), 960.f, 600.f);
  EXPECT_EQ(below.T, 60.f);
  EXPECT_FLOAT_EQ(below.H(), 4 * DropDownMenu::kItemHeight + 8.f);
  const IRECT above = DropDownMenu::Place(items, IRECT(100.f, 560.f, 200.f, 580.f), 960.f, 600.f);
  EXPECT_LE(above.B, 560.f);
  // A long list in a small editor stays inside it.
  std::vector<MenuItem> many(60, MenuItem{"ITEM", 5, false, true, false});
  const IRECT tall = DropDownMenu::Place(many, IRECT(900.f, 10.f, 950.f, 30.f), 960.f, 300.f);
  EXPECT_GE(tall.T, 0.f);
  EXPECT_LE(tall.B, 300.f);
  EXPECT_LE(tall.R, 960.f);

  MeterFixture meter("menu");
  MeterEditor& ed = meter.Editor();
  int chosen = 0;
  ed.OpenMenu(items, IRECT(100.f, 40.f, 200.f, 60.f), [&](int id) { chosen = id; });
  ASSERT_TRUE(ed.Menu().IsOpen());
  EXPECT_FALSE(ed.Menu().Choose(-1));  // a header
  EXPECT_FALSE(ed.Menu().Choose(3));   // disabled
  EXPECT_TRUE(ed.Menu().IsOpen());
  // A click on the second item chooses it and closes the menu.
  const IRECT two = ed.Menu().ItemRect(2);
  IMouseMod left;
  left.L = true;
  ed.Graphics().OnMouseDown((two.L + two.R) / 2.f, (two.T + two.B) / 2.f, left);
  ed.Graphics().OnMouseUp((two.L + two.R) / 2.f, (two.T + two.B) / 2.f, left);
  EXPECT_EQ(chosen, 2);
  EXPECT_FALSE(ed.Menu().IsOpen());
  // A click outside closes it without a choice.
  chosen = 0;
  ed.OpenMenu(items, IRECT(100.f, 40.f, 200.f, 60.f), [&](int id) { chosen = id; });
  ed.Graphics().OnMouseDown(900.f, 500.f, left);
  EXPECT_FALSE(ed.Menu().IsOpen());
  EXPECT_EQ(chosen, 0);
  // The message box answers with the button pressed.
  int answer = -1;
  ed.ShowMessage("Question?", {"Yes", "No"}, [&](int a) { answer = a; });
  const IRECT no = ed.Message().ButtonRect(1);
  ed.Graphics().OnMouseDown((no.L + no.R) / 2.f, (no.T + no.B) / 2.f, left);
  EXPECT_EQ(answer, 1);
  EXPECT_FALSE(ed.Message().IsShown());
}

// Every row of the settings page writes its parameter or setting.
TEST(EditorSettingsPage, EveryRowWritesWhatItStandsFor) {
  MeterFixture meter("settings-rows");
  MeterEditor& ed = meter.Editor();
  SettingsPage& page = ed.Page();
  ed.ToggleSettings();
  ASSERT_TRUE(ed.SettingsShown());
  auto choose = [&](const char* label, int id) {
    const int row = page.FindRow(label);
    ASSERT_GE(row, 0) << label;
    page.OpenRow(size_t(row));
    ASSERT_TRUE(ed.Menu().IsOpen()) << label;
    ASSERT_TRUE(ed.Menu().Choose(id)) << label << " " << id;
  };
  LoudnessMeterPlugin& p = meter.Plugin();
  choose("LOUDNESS UNIT", 1);
  EXPECT_EQ(p.ParamValue(param::kUnitLkfs), 1.0);
  choose("RELATIVE GATE", 0);
  EXPECT_EQ(p.ParamValue(param::kRelativeGate), 0.0);
  choose("Eco True Peak Mode", 1);
  EXPECT_EQ(p.ParamValue(param::kEcoTruePeak), 1.0);
  EXPECT_TRUE(p.Engine().EcoMode());
  choose("HISTOGRAM MODE", kModeTimeCode);
  EXPECT_EQ(p.ParamValue(param::kHistogramMode), double(kModeTimeCode));
  choose("RESET ON JUMP", 1);
  EXPECT_EQ(p.ParamValue(param::kResetOnJump), 1.0);
  const int surround = LayoutForChannelCount(6);
  choose("CHANNEL LAYOUT", surround);
  EXPECT_EQ(p.ParamValue(param::kChannelConfig), double(surround));
  choose("CHANNEL LAYOUT", 1000);
  EXPECT_EQ(p.ParamValue(param::kChannelConfig), 1000.0);
  EXPECT_EQ(page.RowAt(size_t(page.FindRow("CHANNEL LAYOUT"))).value().rfind("AUTOMATIC", 0), 0u);
  choose("CALIBRATION SIGNAL", 2);
  EXPECT_EQ(p.ParamValue(param::kGenerator), 2.0);
  choose("CALIBRATION SIGNAL", 0);
  choose("GRAPHS REFRESH RATE", 0);
  EXPECT_EQ(ed.Settings().GraphIntervalMs(), 500);
  choose("THEME", 0);
  EXPECT_FALSE(ed.Settings().Dark());
  EXPECT_FALSE(ed.Readout().IsDark());
  // Stored indices keep their meaning; the drop-frame rates came later and
  // are listed beside their non-drop siblings.
  page.OpenRow(size_t(page.FindRow("TIME CODE FPS")));
  ASSERT_TRUE(ed.Menu().IsOpen());
  std::vector<std::string> fpsMenu;
  for (const MenuItem& item : ed.Menu().Items()) fpsMenu.push_back(item.text + "=" + std::to_string(item.id));
  EXPECT_EQ(fpsMenu,
            (std::vector<std::string>{"23.976=0", "24=1", "25=2", "29.97 NDF=3", "29.97 DF=10", "30=4",
                                      "47.95=5", "48=6", "50=7", "59.94 NDF=8", "59.94 DF=11", "60=9"}));
  choose("TIME CODE FPS", 10);
  EXPECT_EQ(page.RowAt(size_t(page.FindRow("TIME CODE FPS"))).value(), "29.97 DF");
  EXPECT_EQ(ed.Settings().fpsIndex, 10);
  choose("TIME CODE FPS", 3);
  EXPECT_EQ(page.RowAt(size_t(page.FindRow("TIME CODE FPS"))).value(), "29.97 NDF");
  choose("GUI SCALING", 4);  // "150%"
  EXPECT_FLOAT_EQ(ed.GuiScale(), 1.5f);
  EXPECT_EQ(page.RowAt(size_t(page.FindRow("GUI SCALING"))).value(), "150%");
  ed.SetGuiScale(1.3f);
  EXPECT_EQ(page.RowAt(size_t(page.FindRow("GUI SCALING"))).value(), kCustomScalingLabel);
  // The settings survive in the file for the next editor.
  UiSettings again(meter.Folder());
  EXPECT_FALSE(again.Dark());
  EXPECT_EQ(again.fpsIndex, 3);
  EXPECT_EQ(again.refreshRate, 0);
}

}  // namespace
}  // namespace velorum::testing
