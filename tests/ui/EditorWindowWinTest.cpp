// The editor of the real Windows DLL, opened by the host harness in a host
// window of its own (run under wine with a virtual display): it paints through
// its timer, clicks pick presets and settings that the plug-in then reports
// through its vendor query, keys reach the open menu or pass on to the host,
// and screenshots show the dark meter and the white settings page.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "EditorWindow.h"
#include "VstHost.h"
#include "plugin/VendorQuery.h"
#include "presets/LoudnessStandards.h"
#include "ui/DropDownMenu.h"
#include "ui/MeterLayout.h"
#include "ui/PresetMenu.h"
#include "ui/SettingsPage.h"

namespace velorum::testing {
namespace {

namespace fs = std::filesystem;
using harness::Screenshot;

constexpr uint32_t kDarkBackground = Screenshot::Rgb(24, 25, 27);
constexpr uint32_t kWhiteBackground = Screenshot::Rgb(232, 234, 237);
constexpr int kPaintTimeoutMs = 15000;

// Unix paths of the build tree as the Windows side sees them.
std::string WinePath(const fs::path& p) {
  std::string s = p.string();
  if (!s.empty() && s[0] == '/') s = "Z:" + s;
  std::replace(s.begin(), s.end(), '/', '\\');
  return s;
}

class EditorWindowWin : public ::testing::Test {
 protected:
  void SetUp() override {
    settings = fs::path(VELORUM_BINARY_DIR) / "ui-test-settings" / "window-win";
    fs::remove_all(WinePath(settings));
    fs::create_directories(WinePath(settings));
    _putenv_s("VELORUM_SETTINGS_DIR", WinePath(settings).c_str());
    std::string error;
    module = harness::PluginModule::Load(VELORUM_PLUGIN_PATH, &error);
    ASSERT_TRUE(module) << error;
    host = harness::HostedPlugin::Create(*module, 48000.0, 512);
    ASSERT_TRUE(host);
    host->SetChannels(2);
    window = harness::EditorWindow::Open(*host, &error);
    ASSERT_TRUE(window) << error;
    scale = double(window->Width()) / ui::MeterLayout::kBaseWidth;
  }
  void TearDown() override {
    window.reset();
    host.reset();
    module.reset();
  }

  void Click(float x, float y) {
    window->Click(static_cast<int>(std::lround(double(x) * scale)),
                  static_cast<int>(std::lround(double(y) * scale)));
  }
  void ClickCentre(const IRECT& r) { Click((r.L + r.R) / 2.f, (r.T + r.B) / 2.f); }

  double Query(int32_t command, int32_t index = 0) {
    VendorRequest request;
    request.command = command;
    request.index = index;
    host->Dispatch(vst::effVendorSpecific, kVendorQueryIndex, 0, &request);
    return request.value;
  }
  double Param(int index) { return Query(kQueryGetParam, index); }
  // Keeps the message loop running until `get` returns `want` (at most 3 s).
  bool Becomes(const std::function<double()>& get, double want) {
    for (int i = 0; i < 150; ++i) {
      if (std::fabs(get() - want) < 1e-9) return true;
      window->Pump(20);
    }
    return false;
  }

  static ui::MeterLayout Layout() {
    return ui::MeterLayout::Compute(ui::MeterLayout::kBaseWidth, ui::MeterLayout::kBaseHeight, 2);
  }
  void ClickMenuItem(const std::vector<ui::MenuItem>& items, const IRECT& anchor, size_t position) {
    const IRECT list = ui::DropDownMenu::Place(items, anchor, float(ui::MeterLayout::kBaseWidth),
                                               float(ui::MeterLayout::kBaseHeight));
    const float top = list.T + 4.f + ui::DropDownMenu::kItemHeight * float(position);
    ASSERT_LT(top + ui::DropDownMenu::kItemHeight, list.B) << "item outside the visible list";
    Click(list.L + 40.f, top + ui::DropDownMenu::kItemHeight / 2.f);
  }
  void ChoosePreset(int index) {
    const IRECT anchor = Layout().buttons[ui::MeterLayout::kPreset];
    ClickCentre(anchor);
    const auto items = ui::PresetMenuItems(-1);
    for (size_t i = 0; i < items.size(); ++i)
      if (items[i].id == index) {
        ClickMenuItem(items, anchor, i);
        return;
      }
    FAIL() << "no preset " << index;
  }
  // Opens settings row `row` and clicks item `position` of its menu of `count` items.
  void ChooseSetting(size_t row, size_t position, size_t count) {
    const IRECT value = ui::SettingsPage::ValueRectFor(Layout().settings, row, kRows);
    ClickCentre(value);
    std::vector<ui::MenuItem> items(count, ui::MenuItem{"ITEM", 0, false, true, false});
    ClickMenuItem(items, value, position);
  }
  // Saves a capture beside the build for people to look at.
  static void Save(const Screenshot& shot, const std::string& name) {
    const fs::path path = fs::path(VELORUM_BINARY_DIR) / name;
    EXPECT_TRUE(shot.SaveBmp(WinePath(path))) << path;
  }

  static constexpr size_t kRows = 12;
  fs::path settings;
  std::unique_ptr<harness::PluginModule> module;
  std::unique_ptr<harness::HostedPlugin> host;
  std::unique_ptr<harness::EditorWindow> window;
  double scale = 1.0;
};

TEST_F(EditorWindowWin, PaintsAndAnswersClicksAndKeys) {
  ASSERT_GT(window->Width(), 0);
  HWND editor = static_cast<HWND>(window->EditorHandle());
  EXPECT_EQ(GetParent(editor), static_cast<HWND>(window->HostHandle()));
  RECT client;
  ASSERT_TRUE(GetClientRect(editor, &client));
  EXPECT_EQ(client.right, window->Width());
  EXPECT_EQ(client.bottom, window->Height());

  // The timer paints the meter in the dark theme: more than a background.
  Screenshot shot;
  ASSERT_TRUE(window->WaitForPaint(kDarkBackground, 40, kPaintTimeoutMs, &shot))
      << shot.DistinctColours() << " colours, " << shot.Count(kDarkBackground) << " background pixels";
  EXPECT_EQ(shot.width, window->Width());
  EXPECT_GT(shot.Count(kDarkBackground), shot.pixels.size() / 40);  // the gaps between the panels
  EXPECT_EQ(Query(kQueryShownStandard), kDefaultStandardIndex);

  // Presets picked from the menu with the mouse.
  ChoosePreset(13);  // "EBU R128 S1": a short-term maximum of -18
  EXPECT_TRUE(Becomes([&] { return Query(kQueryShownStandard); }, 13));
  EXPECT_EQ(Param(33), -18.0);
  EXPECT_EQ(Param(17), -23.0);
  ChoosePreset(2);  // "ATSC A/85": -24 LKFS, -2 dBTP
  EXPECT_TRUE(Becomes([&] { return Query(kQueryShownStandard); }, 2));
  EXPECT_EQ(Param(17), -24.0);
  EXPECT_EQ(Param(13), -2.0);

  // Keys: an open menu takes any key and closes; with it closed, keys the
  // editor has no use for go on to the host's window.
  ClickCentre(Layout().buttons[ui::MeterLayout::kPreset]);
  ASSERT_TRUE(window->WaitForPaint(kDarkBackground, 40, kPaintTimeoutMs, &shot));
  Save(shot, "ui_window_win_preset_menu.bmp");
  window->Key('A');
  EXPECT_TRUE(window->HostKeys().empty());
  window->Key('A');
  window->Key(VK_F1);
  EXPECT_EQ(window->HostKeys(), (std::vector<unsigned>{'A', VK_F1}));
  EXPECT_EQ(Query(kQueryShownStandard), 2);

  // Pause and resume through the tool button.
  ClickCentre(Layout().buttons[ui::MeterLayout::kPause]);
  EXPECT_TRUE(Becomes([&] { return Param(88); }, 1.0));
  ClickCentre(Layout().buttons[ui::MeterLayout::kPause]);
  EXPECT_TRUE(Becomes([&] { return Param(88); }, 0.0));
  ASSERT_TRUE(window->WaitForPaint(kDarkBackground, 40, kPaintTimeoutMs, &shot));
  Save(shot, "ui_window_win_meter.bmp");

  // The settings page: the loudness unit, then the white theme, kept on disk.
  ClickCentre(Layout().buttons[ui::MeterLayout::kSettings]);
  ChooseSetting(0, 1, 2);  // LOUDNESS UNIT -> LKFS
  EXPECT_TRUE(Becomes([&] { return Param(15); }, 1.0));
  ChooseSetting(9, 1, 2);  // THEME -> white
  ASSERT_TRUE(window->WaitForPaint(kWhiteBackground, 20, kPaintTimeoutMs, &shot))
      << shot.DistinctColours() << " colours";
  EXPECT_EQ(shot.Count(kDarkBackground), 0u);
  Save(shot, "ui_window_win_settings.bmp");
  std::ifstream ini(WinePath(settings / "Settings.ini"));
  std::stringstream text;
  text << ini.rdbuf();
  EXPECT_NE(text.str().find("Theme=0"), std::string::npos) << text.str();

  // Closing takes the editor's window away and leaves the host's.
  window.reset();
  EXPECT_FALSE(IsWindow(editor));
}

}  // namespace
}  // namespace velorum::testing
