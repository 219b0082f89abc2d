// The editor's own settings shared by every instance on the machine: theme,
// "GRAPHS REFRESH RATE", "TIME CODE FPS" and the export folder, kept in an
// INI-style file beside "GuiScale.ini" in the settings folder.
#pragma once

#include <string>

namespace velorum::ui {

class UiSettings {
 public:
  // The settings folder: VELORUM_SETTINGS_DIR when set, otherwise the
  // platform's per-user configuration folder + "/Velorum" (created).
  static std::string Folder();

  // Reads the file of `folder` (missing keys keep their defaults).
  explicit UiSettings(std::string folder);
  const std::string& FolderPath() const { return mFolder; }
  bool Save() const;

  double theme = 1.0;        // 1 dark, 0 white
  int refreshRate = 3;       // "NORMAL"
  int fpsIndex = 2;          // "25"
  double exportTheme = 0.0;  // images and reports: white by default
  std::string exportFolder;
  long long gameHighScore = 0;  // kept for the editor's little secret
  bool openGL = false;          // the graphs' hardware acceleration

  bool Dark() const { return theme >= 0.5; }
  // Milliseconds between two redraws of the graphs at the refresh rate.
  int GraphIntervalMs() const;

 private:
  std::string mFolder;
};

}  // namespace velorum::ui
