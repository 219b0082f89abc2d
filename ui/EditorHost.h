// What the meter's controls ask of the editor that holds them: the model and
// settings they read, the pop-up menu and message box they open, and the
// actions that reach beyond one control.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "graphics/IGraphics.h"
#include "graphics/IGraphicsTypes.h"
#include "graphics/tgraphics_control.h"
#include "ui/MeterModel.h"
#include "ui/Theme.h"
#include "ui/UiDraw.h"
#include "ui/UiSettings.h"

class tg_gl_plot;

namespace velorum::ui {

inline DRect D(const IRECT& r) {
  return {double(r.L), double(r.T), double(r.R), double(r.B)};
}

struct MenuItem {
  std::string text;
  int id = -1;  // -1 for a group header
  bool checked = false;
  bool enabled = true;
  bool header = false;
};

enum class ExportKind { TextSummary, Csv, DolbyCsv, Png, Svg, Pdf, NormalizedWav };

class EditorHost {
 public:
  virtual ~EditorHost() = default;
  virtual MeterModel& Model() = 0;
  virtual UiSettings& Settings() = 0;
  // Opens a pop-up menu under `anchor`; `choose` gets the chosen item's id.
  virtual void OpenMenu(const std::vector<MenuItem>& items, const IRECT& anchor,
                        std::function<void(int)> choose) = 0;
  // A message with buttons ("OK", or "Yes" and "No"); `answer` gets the index of the button.
  virtual void ShowMessage(const std::string& text, const std::vector<std::string>& buttons,
                           std::function<void(int)> answer = nullptr) = 0;
  virtual void ToggleSettings() = 0;
  virtual bool SettingsShown() const = 0;
  virtual void ApplyTheme() = 0;
  virtual void SetGuiScale(float scale) = 0;
  virtual float GuiScale() const = 0;
  virtual void AnalyseFiles(const std::vector<std::string>& paths) = 0;
  virtual void CancelAnalysis() = 0;
  virtual void Export(ExportKind kind) = 0;
  virtual void RedrawAll() = 0;
  // The graphs' OpenGL path while it is switched on and working, else null
  // (the graphs then draw with cairo). Only on the drawing thread.
  virtual tg_gl_plot* Accelerated() { return nullptr; }
  // A frame of the OpenGL path failed: the editor goes back to cairo.
  virtual void AcceleratedFailed() {}
};

// The base of the meter's controls: the editor host and the theme colours.
class MeterControl : public tgraphics_control {
 public:
  MeterControl(EditorHost& host, const IRECT& r) : tgraphics_control(r), mHost(host) {}
  const Theme& Colors() const { return Theme::ForValue(GetTheme()); }
  // Whether `g` draws into the editor window's back buffer (not an export).
  bool DrawsToWindow(const tgraphics& g) const { return GetGUI() && g.surface() == GetGUI()->BackBuffer(); }

 protected:
  EditorHost& mHost;
};

}  // namespace velorum::ui
