// The update and news check against a server on 127.0.0.1 started by the
// test (plain http to loopback takes the same code path as https: libcurl or
// WinHTTP, the size limit, the timeout, the cancel), and the manifest's
// refusals of hostile documents.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "presets/GlobalSettings.h"
#include "update/LoopbackHttpServer.h"
#include "update/UpdateCheck.h"
#include "update/UpdateChecker.h"

namespace velorum {
namespace {

using test::LoopbackHttpServer;
constexpr int64_t kDay = kSecondsBetweenChecks;
constexpr int64_t kNoon = 1795000000;

std::string Manifest(const std::string& version, const std::string& news = "") {
  return R"({"format": 1, "product": "Velorum", "latest": {")" + std::string(ManifestPlatformKey()) +
         R"(": {"version": ")" + version +
         R"(", "download": "https://velorum.example/download", "notes": "Faster.\nBetter."}}, "news": [)" +
         news + "]}";
}
std::string News(const std::string& id) {
  return R"({"id": ")" + id + R"(", "date": "2026-11-20", "title": "Title )" + id + R"(", "text": "Body"})";
}
ProductVersion Bumped(int minor) {
  ProductVersion v = CurrentVersion();
  v.minor += minor;
  return v;
}

class UpdateCheckTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The suite points every test at a dead loopback address; these use the settings' address.
#ifdef _WIN32
    _putenv_s(kUpdateUrlVariable, "");
#else
    unsetenv(kUpdateUrlVariable);
#endif
    mFolder = std::string(VELORUM_BINARY_DIR) + "/test-settings/update/" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::filesystem::remove_all(mFolder);
    std::filesystem::create_directories(mFolder);
    UseUrl(mServer.Url("/manifest.json"));
  }
  void UseUrl(const std::string& url) {
    SettingsFile file(mFolder);
    file.Set(kUpdateUrlKey, url);
    file.Save();
  }
  void Serve(const std::string& body, int status = 200) {
    mServer.Set("/manifest.json", {status, body, false});
  }
  UpdateNotices Check(int64_t now, CheckOutcome* outcome = nullptr) {
    const CheckOutcome out = RunUpdateCheck(mFolder, CheckMode::Scheduled, now, nullptr, 5000);
    if (outcome) *outcome = out;
    return out.manifest ? NoticesFrom(*out.manifest, UpdateSettings::Read(mFolder), true) : UpdateNotices{};
  }

  LoopbackHttpServer mServer;
  std::string mFolder;
};

TEST_F(UpdateCheckTest, NewerEqualAndOlderVersions) {
  const struct {
    ProductVersion version;
    bool newer;
  } cases[] = {{Bumped(1), true},
               {CurrentVersion(), false},
               {Bumped(-1), false},
               {{CurrentVersion().major + 1, 0, 0}, true},
               {{CurrentVersion().major - 1, 99, 99}, false}};
  int64_t now = kNoon;
  for (const auto& c : cases) {
    Serve(Manifest(c.version.Text()));
    now += kDay;  // a new day: fetched again
    CheckOutcome out;
    const UpdateNotices n = Check(now, &out);
    EXPECT_TRUE(out.fetched) << c.version.Text();
    EXPECT_EQ(n.newer.has_value(), c.newer) << c.version.Text();
    if (c.newer) {
      EXPECT_EQ(*n.newer, c.version);
      EXPECT_EQ(n.download, "https://velorum.example/download");
      EXPECT_EQ(n.notes, "Faster.\nBetter.");
    }
  }
}

TEST_F(UpdateCheckTest, OncePerDayThenFromTheCacheAndOnlyUntilAnswered) {
  Serve(Manifest(Bumped(1).Text()));
  CheckOutcome out;
  EXPECT_TRUE(Check(kNoon, &out).newer);
  EXPECT_TRUE(out.fetched);
  // The rest of the day, every instance reads the cached manifest.
  EXPECT_TRUE(Check(kNoon + kDay - 1, &out).newer);
  EXPECT_FALSE(out.fetched);
  EXPECT_EQ(mServer.Requests(), 1);
  // Answered: not shown again for this version.
  ASSERT_TRUE(MarkUpdateSeen(mFolder, Bumped(1)));
  EXPECT_FALSE(Check(kNoon + 10).newer);
  // The next day fetches again; a clock put back a day does too.
  Serve(Manifest(Bumped(2).Text()));
  EXPECT_EQ(Check(kNoon + kDay).newer, Bumped(2));
  Check(kNoon - kDay, &out);
  EXPECT_TRUE(out.fetched);
  EXPECT_EQ(mServer.Requests(), 3);
}

TEST_F(UpdateCheckTest, NewsShownUntilDismissedAndSwitchesHonoured) {
  Serve(Manifest(CurrentVersion().Text(), News("a") + "," + News("b")));
  UpdateNotices n = Check(kNoon);
  ASSERT_EQ(n.news.size(), 2u);
  EXPECT_EQ(n.news[0].title, "Title a");
  EXPECT_TRUE(n.news[0].link.empty());
  ASSERT_TRUE(DismissNews(mFolder, "a"));
  n = Check(kNoon + 1);
  ASSERT_EQ(n.news.size(), 1u);
  EXPECT_EQ(n.news[0].id, "b");
  ASSERT_TRUE(WriteUpdateSwitch(mFolder, kShowNewsKey, false));
  EXPECT_TRUE(Check(kNoon + 2).news.empty());
  // The update switch off: no network at all, and nothing shown.
  ASSERT_TRUE(WriteUpdateSwitch(mFolder, kCheckForUpdatesKey, false));
  CheckOutcome out;
  EXPECT_TRUE(Check(kNoon + 3 * kDay, &out).Empty());
  EXPECT_FALSE(out.fetched);
  EXPECT_EQ(mServer.Requests(), 1);
}

// Failures are silent: no manifest (or yesterday's), a reason for the log.
TEST_F(UpdateCheckTest, BadRepliesAndServerDown) {
  const struct {
    const char* name;
    int status;
    std::string body;
  } cases[] = {{"malformed", 200, "{\"format\": 1, \"latest\": "},
               {"oversized", 200, std::string(kMaxManifestBytes + 1, ' ')},
               {"not found", 404, Manifest(Bumped(1).Text())},
               {"server error", 500, Manifest(Bumped(1).Text())}};
  int64_t now = kNoon;
  for (const auto& c : cases) {
    Serve(c.body, c.status);
    CheckOutcome out;
    EXPECT_TRUE(Check(now += kDay, &out).Empty()) << c.name;
    EXPECT_TRUE(out.fetched) << c.name;
    EXPECT_FALSE(out.error.empty()) << c.name;
  }
  // A good manifest is cached; a later failure keeps showing it that day.
  Serve(Manifest(Bumped(1).Text()));
  EXPECT_TRUE(Check(now += kDay).newer);
  mServer.Set("/gone.json", {404, "", false});
  UseUrl(mServer.Url("/gone.json"));
  EXPECT_TRUE(Check(now += kDay).newer);
  // Nothing listening.
  std::string downUrl;
  {
    LoopbackHttpServer closed;
    downUrl = closed.Url("/manifest.json");
  }
  UseUrl(downUrl);
  const CheckOutcome down = RunUpdateCheck(mFolder, CheckMode::Now, now, nullptr, 5000);
  EXPECT_FALSE(down.manifest);
  EXPECT_FALSE(down.error.empty());
}

TEST_F(UpdateCheckTest, SlowServerTimesOutAndCancelEndsTheCheck) {
  LoopbackHttpServer slow;
  slow.Set("/manifest.json", {200, "", true});
  UseUrl(slow.Url("/manifest.json"));
  const CheckOutcome timedOut = RunUpdateCheck(mFolder, CheckMode::Now, kNoon, nullptr, 300);
  EXPECT_FALSE(timedOut.manifest);
  EXPECT_FALSE(timedOut.error.empty());
  // The editor's checker, closed while the server stalls: it cancels and returns.
  FetchCancel cancel;
  cancel.Cancel();
  const CheckOutcome cancelled = RunUpdateCheck(mFolder, CheckMode::Now, kNoon, &cancel, 60000);
  EXPECT_EQ(cancelled.error, "cancelled");
  { UpdateChecker checker(mFolder, CheckMode::Now, kNoon); }
}

TEST_F(UpdateCheckTest, BackgroundCheckerAndAddressFromTheEnvironment) {
  Serve(Manifest(Bumped(1).Text()));
  mServer.Set("/other.json", {200, Manifest(Bumped(3).Text()), false});
#ifdef _WIN32
  _putenv_s(kUpdateUrlVariable, mServer.Url("/other.json").c_str());
#else
  setenv(kUpdateUrlVariable, mServer.Url("/other.json").c_str(), 1);
#endif
  UpdateChecker checker(mFolder, CheckMode::Scheduled, kNoon);
  checker.Wait();
  std::optional<CheckOutcome> out = checker.Take();
#ifdef _WIN32
  _putenv_s(kUpdateUrlVariable, "");
#else
  unsetenv(kUpdateUrlVariable);
#endif
  ASSERT_TRUE(out && out->manifest);
  EXPECT_EQ(out->manifest->latest, Bumped(3));
  EXPECT_FALSE(checker.Take());
  EXPECT_EQ(UpdateSettings::Read(mFolder).url, mServer.Url("/manifest.json"));
}

TEST(UpdateManifestTest, HostileManifestsAreRefused) {
  const std::string platform = ManifestPlatformKey();
  auto entry = [&](const std::string& fields) {
    return R"({"format": 1, "latest": {")" + platform + R"(": {)" + fields + "}}}";
  };
  const std::string ok = R"("version": "3.1.4", "download": "https://x.example/d")";
  std::string deep = "[";
  for (int i = 0; i < 10000; ++i) deep += "[";
  const struct {
    std::string text;
    const char* why;
  } refused[] = {
      {"", "empty"},
      {"[1]", "not an object"},
      {R"({"format": 2})", "format"},
      {R"({"format": "1"})", "format as text"},
      {entry(R"("version": "3.1", "download": "https://x.example/d")"), "two-part version"},
      {entry(R"("version": "3.100.0", "download": "https://x.example/d")"), "part over 99"},
      {entry(R"("version": "3.1.4 ", "download": "https://x.example/d")"), "trailing blank"},
      {entry(R"("version": "3.1.4", "download": "http://x.example/d")"), "plain http download"},
      {entry(R"x("version": "3.1.4", "download": "javascript:alert(1)")x"), "script address"},
      {entry(R"("version": "3.1.4", "download": "https://x.example/a b")"), "blank in address"},
      {entry(R"("version": "3.1.4")"), "no download"},
      {entry(ok + R"(, "notes": ")" + std::string(2001, 'n') + "\""), "notes too long"},
      {entry(ok + R"(, "notes": "a\u0007b")"), "control character"},
      {R"({"format": 1, "news": [{"id": "a b", "date": "2026-01-01", "title": "t"}]})", "id with blank"},
      {R"({"format": 1, "news": [{"id": "a", "date": "2026-13-01", "title": "t"}]})", "month 13"},
      {R"({"format": 1, "news": [{"id": "a", "date": "2026-01-01"}]})", "no title"},
      {R"({"format": 1, "news": [{"id": "a", "date": "2026-01-01", "title": "t", "link": "file:///etc"}]})",
       "file link"},
      {R"({"format": 1, "news": {}})", "news not a list"},
      {R"({"format": 1, "x": )" + deep, "deep nesting"},
      {std::string(kMaxManifestBytes + 1, ' '), "oversized"},
  };
  for (const auto& r : refused) {
    std::string error;
    EXPECT_FALSE(ParseUpdateManifest(r.text, error)) << r.why;
    EXPECT_FALSE(error.empty()) << r.why;
  }
  std::string many = R"({"format": 1, "news": [)";
  for (size_t i = 0; i <= kMaxNewsItems; ++i) many += (i ? "," : "") + News(std::to_string(i));
  std::string error;
  EXPECT_FALSE(ParseUpdateManifest(many + "]}", error));
  // Unknown keys and other platforms are fine; a missing entry is no update.
  const auto m =
      ParseUpdateManifest(R"({"format": 1, "future": [1, 2], "latest": {"amiga": {"v": 1}}})", error);
  ASSERT_TRUE(m) << error;
  EXPECT_FALSE(m->latest);
  const auto full = ParseUpdateManifest(entry(ok + R"(, "extra": true)"), error);
  ASSERT_TRUE(full) << error;
  EXPECT_EQ(full->latest, (ProductVersion{3, 1, 4}));
}

TEST(UpdateManifestTest, VersionsAndAddresses) {
  EXPECT_EQ(ParseProductVersion("2.10.0"), (ProductVersion{2, 10, 0}));
  EXPECT_LT(*ParseProductVersion("2.9.9"), *ParseProductVersion("2.10.0"));
  for (const char* bad :
       {"", "2", "2.1", "2.1.", ".1.2", "2.1.2.3", "-1.0.0", "2.01x.0", "+2.0.0", "2.1.100"})
    EXPECT_FALSE(ParseProductVersion(bad)) << bad;
  EXPECT_TRUE(IsAllowedUrl("https://a.example/x", false));
  EXPECT_TRUE(IsAllowedUrl("http://127.0.0.1:8080/x", true));
  EXPECT_TRUE(IsAllowedUrl("http://localhost/x", true));
  for (const char* bad :
       {"http://127.0.0.1.evil.example/x", "http://localhost@evil.example/", "http://a.example/", "https://",
        "https:///x", "ftp://a.example/", "https://a.example/\x01"})
    EXPECT_FALSE(IsAllowedUrl(bad, true)) << bad;
  EXPECT_FALSE(IsAllowedUrl("http://127.0.0.1/x", false));
}

}  // namespace
}  // namespace velorum
