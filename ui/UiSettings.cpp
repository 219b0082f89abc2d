#include "ui/UiSettings.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "presets/GlobalSettings.h"
#include "ui/UiFormat.h"

namespace velorum::ui {
namespace {

std::string Trim(const std::string& s) {
  const auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return {};
  return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

int ToInt(const std::string& s, int fallback, int lo, int hi) {
  char* end = nullptr;
  const long v = std::strtol(s.c_str(), &end, 10);
  if (end == s.c_str() || v < lo || v > hi) return fallback;
  return static_cast<int>(v);
}

}  // namespace

std::string UiSettings::Folder() {
  return SettingsFolder();
}

UiSettings::UiSettings(std::string folder) : mFolder(std::move(folder)) {
#ifdef _WIN32
  exportFolder = EnvironmentUtf8("USERPROFILE", mFolder) + "/Documents";
#else
  exportFolder = EnvironmentUtf8("HOME", mFolder);
#endif
  std::ifstream in(std::filesystem::u8path(mFolder + "/Settings.ini"), std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    const auto eq = line.find('=');
    if (eq == std::string::npos) continue;
    const std::string key = Trim(line.substr(0, eq)), value = Trim(line.substr(eq + 1));
    if (key == "Theme")
      theme = ToInt(value, 1, 0, 1);
    else if (key == "GUI Refresh Rate")
      refreshRate = ToInt(value, 3, 0, 6);
    else if (key == "Export Theme")
      exportTheme = ToInt(value, 0, 0, 1);
    else if (key == "Time Code FPS")
      fpsIndex = ToInt(value, 2, 0, kFpsCount - 1);
    else if (key == "Export Folder" && !value.empty())
      exportFolder = value;
    else if (key == "OpenGL")
      openGL = ToInt(value, 0, 0, 1) == 1;
    else if (key == "Game High Score")
      gameHighScore = std::max(0LL, std::atoll(value.c_str()));
  }
}

bool UiSettings::Save() const {
  // The file also holds keys of others (the default preset): change only ours.
  SettingsFile file(mFolder);
  file.Set("Theme", std::to_string(Dark() ? 1 : 0));
  file.Set("GUI Refresh Rate", std::to_string(refreshRate));
  file.Set("Time Code FPS", std::to_string(fpsIndex));
  file.Set("Export Theme", std::to_string(exportTheme >= 0.5 ? 1 : 0));
  file.Set("Export Folder", exportFolder);
  file.Set("OpenGL", openGL ? "1" : "0");
  if (gameHighScore > 0) file.Set("Game High Score", std::to_string(gameHighScore));
  return file.Save();
}

int UiSettings::GraphIntervalMs() const {
  static constexpr int kIntervals[7] = {500, 250, 100, 50, 33, 16, 6};
  return kIntervals[refreshRate < 0 ? 0 : refreshRate > 6 ? 6 : refreshRate];
}

}  // namespace velorum::ui
