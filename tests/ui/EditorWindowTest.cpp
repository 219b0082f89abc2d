// The editor of the real plug-in binary, opened by the host harness in a
// window of a private X server and clicked with XTest: the preset menu and
// the settings change the parameters the plug-in reports through its vendor
// query, and the GUI scale resizes the window and is kept in "GuiScale.ini".
// gtest before Xlib, whose macros (None, Bool, Status) break its templates.
// clang-format off
#include <gtest/gtest.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
// clang-format on

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "../graphics/XvfbServer.h"
#include "VstHost.h"
#include "plugin/VendorQuery.h"
#include "presets/LoudnessStandards.h"
#include "ui/DropDownMenu.h"
#include "ui/MeterLayout.h"
#include "ui/PresetMenu.h"
#include "ui/SettingsPage.h"

namespace velorum::testing {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

class EditorWindow : public ::testing::Test {
 protected:
  void SetUp() override {
    server = std::make_unique<XvfbServer>();
    ASSERT_TRUE(server->ok());
    settings = fs::path(VELORUM_BINARY_DIR) / "ui-test-settings" / "window";
    fs::remove_all(settings);
    fs::create_directories(settings);
    setenv("VELORUM_SETTINGS_DIR", settings.string().c_str(), 1);
    std::string error;
    module = harness::PluginModule::Load(VELORUM_PLUGIN_PATH, &error);
    ASSERT_TRUE(module) << error;
    host = harness::HostedPlugin::Create(*module, 48000.0, 512);
    ASSERT_TRUE(host);
    host->SetChannels(2);
    display = XOpenDisplay(nullptr);
    ASSERT_NE(display, nullptr);
    parent = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 2000, 1400, 0, 0, 0);
    XMapWindow(display, parent);
    XSync(display, False);
  }
  void TearDown() override {
    if (host && opened) host->Dispatch(vst::effEditClose);
    host.reset();
    module.reset();
    if (display) {
      XDestroyWindow(display, parent);
      XCloseDisplay(display);
    }
    server.reset();
  }

  void OpenEditor() {
    // Hosts ask for the rectangle before and after opening; the editor exists once opened.
    vst::ERect* rect = nullptr;
    host->Dispatch(vst::effEditGetRect, 0, 0, &rect);
    ASSERT_EQ(host->Dispatch(vst::effEditOpen, 0, 0, reinterpret_cast<void*>(static_cast<uintptr_t>(parent))),
              1);
    opened = true;
    std::this_thread::sleep_for(300ms);
    UpdateScale();
  }
  void UpdateScale() {
    vst::ERect* rect = nullptr;
    ASSERT_EQ(host->Dispatch(vst::effEditGetRect, 0, 0, &rect), 1);
    ASSERT_NE(rect, nullptr);
    width = rect->right - rect->left;
    height = rect->bottom - rect->top;
    scale = double(width) / ui::MeterLayout::kBaseWidth;
  }
  // Clicks at a point in editor units.
  void Click(float x, float y) {
    const int px = static_cast<int>(std::lround(double(x) * scale)),
              py = static_cast<int>(std::lround(double(y) * scale));
    XTestFakeMotionEvent(display, -1, px, py, CurrentTime);
    XSync(display, False);
    std::this_thread::sleep_for(40ms);
    XTestFakeButtonEvent(display, 1, True, CurrentTime);
    XSync(display, False);
    std::this_thread::sleep_for(30ms);
    XTestFakeButtonEvent(display, 1, False, CurrentTime);
    XSync(display, False);
    std::this_thread::sleep_for(150ms);
  }
  void ClickCentre(const IRECT& r) { Click((r.L + r.R) / 2.f, (r.T + r.B) / 2.f); }

  double Query(int32_t command, int32_t index = 0) {
    VendorRequest request;
    request.command = command;
    request.index = index;
    host->Dispatch(vst::effVendorSpecific, kVendorQueryIndex, 0, &request);
    return request.value;
  }
  // Waits until `get` returns `want`.
  bool Becomes(const std::function<double()>& get, double want) {
    for (int i = 0; i < 100; ++i) {
      if (std::fabs(get() - want) < 1e-9) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }
  double Param(int index) { return Query(kQueryGetParam, index); }

  // Clicks item `position` of a menu that opened under `anchor`.
  void ClickMenuItem(const std::vector<ui::MenuItem>& items, const IRECT& anchor, size_t position) {
    const IRECT list = ui::DropDownMenu::Place(items, anchor, float(ui::MeterLayout::kBaseWidth),
                                               float(ui::MeterLayout::kBaseHeight));
    const float top = list.T + 4.f + ui::DropDownMenu::kItemHeight * float(position);
    ASSERT_LT(top + ui::DropDownMenu::kItemHeight, list.B) << "item outside the visible list";
    Click(list.L + 40.f, top + ui::DropDownMenu::kItemHeight / 2.f);
  }
  void ChoosePreset(int index) {
    const ui::MeterLayout l =
        ui::MeterLayout::Compute(ui::MeterLayout::kBaseWidth, ui::MeterLayout::kBaseHeight, 2);
    ClickCentre(l.buttons[ui::MeterLayout::kPreset]);
    const auto items = ui::PresetMenuItems(-1);
    for (size_t i = 0; i < items.size(); ++i)
      if (items[i].id == index) {
        ClickMenuItem(items, l.buttons[ui::MeterLayout::kPreset], i);
        return;
      }
    FAIL() << "no preset " << index;
  }
  // Opens settings row `row` (of `rows`) and clicks item `position` of its menu of `count` items.
  void ChooseSetting(size_t row, size_t position, size_t count) {
    const ui::MeterLayout l =
        ui::MeterLayout::Compute(ui::MeterLayout::kBaseWidth, ui::MeterLayout::kBaseHeight, 2);
    const IRECT value = ui::SettingsPage::ValueRectFor(l.settings, row, kRows);
    ClickCentre(value);
    std::vector<ui::MenuItem> items(count, ui::MenuItem{"ITEM", 0, false, true, false});
    ClickMenuItem(items, value, position);
  }

  static constexpr size_t kRows = 12;
  std::unique_ptr<XvfbServer> server;
  fs::path settings;
  std::unique_ptr<harness::PluginModule> module;
  std::unique_ptr<harness::HostedPlugin> host;
  Display* display = nullptr;
  Window parent = 0;
  bool opened = false;
  int width = 0, height = 0;
  double scale = 1.0;
};

TEST_F(EditorWindow, PresetMenuAndSettingsChangeTheParameters) {
  OpenEditor();
  ASSERT_GT(width, 0);
  EXPECT_EQ(Query(kQueryShownStandard), kDefaultStandardIndex);

  ChoosePreset(13);  // "EBU R128 S1": a short-term maximum of -18
  EXPECT_TRUE(Becomes([&] { return Query(kQueryShownStandard); }, 13));
  EXPECT_EQ(Param(33), -18.0);
  EXPECT_EQ(Param(17), -23.0);
  ChoosePreset(2);  // "ATSC A/85": -24 LKFS, -2 dBTP
  EXPECT_TRUE(Becomes([&] { return Query(kQueryShownStandard); }, 2));
  EXPECT_EQ(Param(17), -24.0);
  EXPECT_EQ(Param(15), 1.0);
  EXPECT_EQ(Param(13), -2.0);
  ChoosePreset(6);  // "AES STREAMING": a window of -20 .. -16
  EXPECT_TRUE(Becomes([&] { return Param(11); }, -20.0));
  EXPECT_EQ(Param(10), -16.0);

  // The settings page: unit, gate, eco true peak, histogram mode, reset on jump.
  const ui::MeterLayout l =
      ui::MeterLayout::Compute(ui::MeterLayout::kBaseWidth, ui::MeterLayout::kBaseHeight, 2);
  ClickCentre(l.buttons[ui::MeterLayout::kSettings]);
  ChooseSetting(0, 1, 2);  // LOUDNESS UNIT -> LKFS
  EXPECT_TRUE(Becomes([&] { return Param(15); }, 1.0));
  ChooseSetting(0, 0, 2);  // -> LUFS
  EXPECT_TRUE(Becomes([&] { return Param(15); }, 0.0));
  ChooseSetting(1, 1, 3);  // RELATIVE GATE -> -8 LU (choice 1)
  EXPECT_TRUE(Becomes([&] { return Param(96); }, 1.0));
  ChooseSetting(2, 0, 2);  // Eco True Peak Mode -> ON
  EXPECT_TRUE(Becomes([&] { return Param(99); }, 1.0));
  ChooseSetting(3, 3, 4);  // HISTOGRAM MODE -> CONTINUOUS
  EXPECT_TRUE(Becomes([&] { return Param(172); }, 3.0));
  ChooseSetting(4, 0, 2);  // RESET ON JUMP -> ON
  EXPECT_TRUE(Becomes([&] { return Param(48); }, 1.0));
  ChooseSetting(6, 1, 3);  // CALIBRATION SIGNAL -> sine
  EXPECT_TRUE(Becomes([&] { return Param(104); }, 1.0));
  ChooseSetting(6, 0, 3);  // -> off
  EXPECT_TRUE(Becomes([&] { return Param(104); }, 0.0));

  // Pause and resume.
  ClickCentre(l.buttons[ui::MeterLayout::kSettings]);  // back to the meter
  ClickCentre(l.buttons[ui::MeterLayout::kPause]);
  EXPECT_TRUE(Becomes([&] { return Param(88); }, 1.0));
  ClickCentre(l.buttons[ui::MeterLayout::kPause]);
  EXPECT_TRUE(Becomes([&] { return Param(88); }, 0.0));
}

TEST_F(EditorWindow, GuiScalingResizesTheWindowAndIsKept) {
  OpenEditor();
  const int baseWidth = width;
  const ui::MeterLayout l =
      ui::MeterLayout::Compute(ui::MeterLayout::kBaseWidth, ui::MeterLayout::kBaseHeight, 2);
  ClickCentre(l.buttons[ui::MeterLayout::kSettings]);
  ChooseSetting(8, 6, 13);  // GUI SCALING -> "150%"
  for (int i = 0; i < 50 && width == baseWidth; ++i) {
    std::this_thread::sleep_for(20ms);
    UpdateScale();
  }
  EXPECT_EQ(width, static_cast<int>(std::lround(baseWidth * 1.5)));
  std::ifstream ini(settings / "GuiScale.ini");
  std::stringstream text;
  text << ini.rdbuf();
  EXPECT_NE(text.str().find("GUI Scale=1.5"), std::string::npos) << text.str();
  // The editor still answers clicks at the new scale: the theme goes white.
  ChooseSetting(9, 1, 2);
  std::ifstream ui(settings / "Settings.ini");
  std::stringstream uiText;
  uiText << ui.rdbuf();
  EXPECT_NE(uiText.str().find("Theme=0"), std::string::npos) << uiText.str();
}

}  // namespace
}  // namespace velorum::testing
