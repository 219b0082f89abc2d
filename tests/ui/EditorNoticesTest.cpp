// The editor's notices: a crash report of an earlier session, a newer
// version and news, from a manifest served on 127.0.0.1; they wait while the
// calibration signal plays, each button does what it says, and what was
// answered is not shown again. The settings page's two switches.
#include <gtest/gtest.h>

#include <fstream>

#include "MeterFixture.h"
#include "presets/GlobalSettings.h"
#include "ui/DropDownMenu.h"
#include "ui/EditorNotices.h"
#include "ui/MeterMessageBox.h"
#include "ui/SettingsPage.h"
#include "update/LoopbackHttpServer.h"
#include "update/UpdateCheck.h"

namespace velorum::ui {
namespace {

using velorum::testing::MeterFixture;

std::string Manifest() {
  ProductVersion next = CurrentVersion();
  ++next.minor;
  return R"({"format": 1, "latest": {")" + std::string(ManifestPlatformKey()) + R"(": {"version": ")" +
         next.Text() +
         R"(", "download": "https://velorum.example/download"}}, "news": [)"
         R"({"id": "n1", "date": "2026-11-20", "title": "Plain news", "text": "Read me."},)"
         R"({"id": "n2", "date": "2026-11-21", "title": "Linked news", "link": "https://velorum.example/n2"}]})";
}

class EditorNoticesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    velorum::testing::SetEnvironment(kUpdateUrlVariable, "");
    SettingsFile file(mMeter.Folder());
    file.Set(kUpdateUrlKey, mServer.Url("/m.json"));
    file.Save();
    mServer.Set("/m.json", {200, Manifest(), false});
    std::filesystem::create_directories(CrashReportDir());
    std::ofstream(CrashReportDir() + "/Velorum-1-1.dmp") << "MDMP";
  }
  std::string CrashReportDir() const { return mMeter.Folder() + "/Crash Reports"; }
  // Shows the next notice and answers it with `button`; returns its text.
  std::string Answer(EditorNotices& notices, int button) {
    MeterEditor& ed = mMeter.Editor();
    notices.Poll(false);
    if (!ed.Message().IsShown()) return {};
    const std::string text = ed.Message().Text();
    ed.Message().Press(button);
    return text;
  }

  test::LoopbackHttpServer mServer;
  MeterFixture mMeter{"notices"};
};

TEST_F(EditorNoticesTest, EachNoticeOnceWithItsButtons) {
  std::vector<std::string> opened;
  {
    EditorNotices notices(mMeter.Editor(), mMeter.Folder(),
                          [&](const std::string& t) { return opened.push_back(t), true; });
    notices.Start();
    notices.WaitForCheck();
    EXPECT_NE(Answer(notices, 0).find("A crash report was saved"), std::string::npos);
    ProductVersion next = CurrentVersion();
    ++next.minor;
    EXPECT_EQ(Answer(notices, 1).rfind("Velorum " + next.Text() + ": a newer version is available.", 0), 0u);
    EXPECT_EQ(Answer(notices, 0), "Plain news\nRead me.");  // Dismiss
    EXPECT_EQ(Answer(notices, 2), "Linked news");           // Later
    EXPECT_EQ(notices.Pending(), 0u);
  }
  EXPECT_EQ(opened, std::vector<std::string>{CrashReportDir()});
  // The next session: only the news put off for later, then read.
  EditorNotices again(mMeter.Editor(), mMeter.Folder(),
                      [&](const std::string& t) { return opened.push_back(t), true; });
  again.Start();
  again.WaitForCheck();
  EXPECT_EQ(Answer(again, 0), "Linked news");
  EXPECT_EQ(Answer(again, 0), "");
  EXPECT_EQ(opened.back(), "https://velorum.example/n2");
  EXPECT_EQ(mServer.Requests(), 1);  // once a day
}

TEST_F(EditorNoticesTest, EditorWaitsForTheCalibrationSignalAndTheSwitches) {
  MeterEditor& ed = mMeter.Editor();
  SettingsPage& page = ed.Page();
  auto choose = [&](const char* label, int id) {
    page.OpenRow(size_t(page.FindRow(label)));
    ASSERT_TRUE(ed.Menu().Choose(id)) << label;
  };
  choose("SHOW NEWS", 0);
  EXPECT_EQ(page.RowAt(size_t(page.FindRow("SHOW NEWS"))).value(), "OFF");
  EXPECT_FALSE(UpdateSettings::Read(mMeter.Folder()).showNews);
  mMeter.Plugin().SetParam(param::kGenerator, 1);
  ed.Notices().Start();
  ed.Notices().WaitForCheck();
  ed.OnFrame();
  EXPECT_FALSE(ed.Message().IsShown());
  EXPECT_EQ(ed.Notices().Pending(), 2u);  // the crash report and the update; no news
  mMeter.Plugin().SetParam(param::kGenerator, 0);
  ed.OnFrame();
  ASSERT_TRUE(ed.Message().IsShown());
  ed.Message().Press(1);
  ed.OnFrame();
  ed.Message().Press(1);
  ed.Notices().Stop();
  // The update switch off: nothing fetched and nothing shown.
  choose("CHECK FOR UPDATES", 0);
  SettingsFile file(mMeter.Folder());
  file.Erase(kLastUpdateCheckKey);
  file.Save();
  ed.Notices().Start();
  ed.Notices().WaitForCheck();
  ed.OnFrame();
  EXPECT_FALSE(ed.Message().IsShown());
  EXPECT_EQ(mServer.Requests(), 1);
}

}  // namespace
}  // namespace velorum::ui
