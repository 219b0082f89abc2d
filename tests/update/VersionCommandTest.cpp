// velorum version --check against a server on 127.0.0.1.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "cli/VersionCommand.h"
#include "presets/GlobalSettings.h"
#include "update/LoopbackHttpServer.h"
#include "update/UpdateCheck.h"

namespace velorum {
namespace {

std::string RunVersion(const std::vector<std::string>& args, int& status) {
  std::FILE* out = std::tmpfile();
  status = RunVersionCommand(args, out, out);
  std::rewind(out);
  std::string text;
  for (int c; (c = std::fgetc(out)) != EOF;) text += char(c);
  std::fclose(out);
  return text;
}

TEST(VersionCommand, CheckPrintsTheNewerVersionAndNewsOrFailsWithStatus2) {
  const std::string folder = std::string(VELORUM_BINARY_DIR) + "/test-settings/version-command";
  std::filesystem::remove_all(folder);
  setenv("VELORUM_SETTINGS_DIR", folder.c_str(), 1);
  test::LoopbackHttpServer server;
  ProductVersion next = CurrentVersion();
  ++next.patch;
  server.Set("/m.json", {200,
                         R"({"format": 1, "latest": {"linux-x64": {"version": ")" + next.Text() +
                             R"(", "download": "https://velorum.example/d"}}, "news": [)"
                             R"({"id": "a", "date": "2026-11-20", "title": "Hello", "text": "World"}]})",
                         false});
  setenv(kUpdateUrlVariable, server.Url("/m.json").c_str(), 1);
  int status = -1;
  std::string text = RunVersion({"--check"}, status);
  EXPECT_EQ(status, 0);
  EXPECT_NE(text.find("Velorum " + next.Text() +
                      ": a newer version is available.\nDownload: https://velorum.example/d"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("News 2026-11-20: Hello\nWorld"), std::string::npos) << text;
  // Asked explicitly: fetched again the same day, even with the editor's switch off.
  WriteUpdateSwitch(folder, kCheckForUpdatesKey, false);
  RunVersion({"--check"}, status);
  EXPECT_EQ(server.Requests(), 2);
  server.Set("/m.json", {200, "{\"format\": 1, \"latest\": [", false});
  text = RunVersion({"--check"}, status);
  EXPECT_EQ(status, 2);
  EXPECT_NE(text.find("the update check failed"), std::string::npos) << text;
  EXPECT_EQ(RunVersion({}, status), std::string("velorum ") + CurrentVersion().Text() + "\n");
  RunVersion({"--bogus"}, status);
  EXPECT_EQ(status, 64);
  unsetenv(kUpdateUrlVariable);
}

}  // namespace
}  // namespace velorum
