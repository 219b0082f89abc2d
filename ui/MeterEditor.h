// The meter's editor: builds the controls on the platform's editor window,
// lays them out for any size and scale, keeps them up to date from a light
// timer thread that only marks a frame control dirty (everything else runs
// on the thread that draws), and carries out the menus, file analysis and
// exports that the controls ask for.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "graphics/IGraphics.h"
#include "graphics/IGraphicsResize.h"
#include "plugin/IEditor.h"
#include "ui/EditorHost.h"
#include "ui/MeterLayout.h"

namespace velorum {
class LoudnessMeterPlugin;
}

namespace velorum::ui {

class DistributionDisplay;
class DropDownMenu;
class EditorNotices;
class FileAnalysis;
class GameView;
class HistoryGraph;
class LoudnessMeterBar;
class LoudnessReadout;
class MeterMessageBox;
class SettingsPage;
class StatusBar;
class ToolButton;
class TruePeakMeterBar;

class MeterEditor : public IEditor, public EditorHost {
 public:
  explicit MeterEditor(LoudnessMeterPlugin& plugin);
  ~MeterEditor() override;

  // IEditor
  bool Open(void* parentHandle) override;
  void Close() override;
  const EditorRect& Rect() const override;
  void SetContentScale(float scale) override;
  void RefreshScaling() override;
  void OnParamChanged(int index) override;
  void SetAllDirty() override;

  // EditorHost
  MeterModel& Model() override { return *mModel; }
  UiSettings& Settings() override { return mSettings; }
  void OpenMenu(const std::vector<MenuItem>& items, const IRECT& anchor,
                std::function<void(int)> choose) override;
  void ShowMessage(const std::string& text, const std::vector<std::string>& buttons,
                   std::function<void(int)> answer = nullptr) override;
  void ToggleSettings() override;
  bool SettingsShown() const override;
  void ApplyTheme() override;
  void SetGuiScale(float scale) override;
  float GuiScale() const override;
  void AnalyseFiles(const std::vector<std::string>& paths) override;
  void CancelAnalysis() override;
  void Export(ExportKind kind) override;
  void RedrawAll() override;
  tg_gl_plot* Accelerated() override;
  void AcceleratedFailed() override;
  // Why the OpenGL path is not in use (empty while it is, or while it is off).
  const std::string& AcceleratedProblem() const { return mGlProblem; }

  // One frame of the editor's own timing (runs on the drawing thread; the
  // window calls it through the frame control, tests call it directly).
  void OnFrame();
  // Draws the whole editor into a context (offscreen renders, screenshots).
  void DrawAll(tgraphics& g);
  // Waits until a file analysis has finished and takes its result.
  bool FinishAnalysisForTests(int timeoutMs);

  IGraphics& Graphics() { return *mGraphics; }
  const MeterLayout& Layout() const { return mLayout; }
  LoudnessReadout& Readout() { return *mReadout; }
  HistoryGraph& Graph() { return *mGraph; }
  DistributionDisplay& Histogram(int i) { return *mHistograms[size_t(i)]; }
  TruePeakMeterBar& PeakBars() { return *mPeakBars; }
  DropDownMenu& Menu() { return *mMenu; }
  MeterMessageBox& Message() { return *mMessage; }
  SettingsPage& Page() { return *mSettingsPage; }
  StatusBar& Status() { return *mStatus; }
  ToolButton& Button(int i) { return *mButtons[size_t(i)]; }
  const std::string& LastExportPath() const { return mLastExport; }
  // Crash report, update and news notices.
  EditorNotices& Notices() { return *mNotices; }
  GameView& Game() { return *mGame; }
  // Opens the hidden game (the gesture that does it is in MeterEditor.cpp).
  void OpenGame();

  // The custom-preset commands of the preset menu. SavePreset stores the
  // current settings under `name` (asking before it replaces a preset unless
  // `replace`) and shows it; ImportPreset copies a preset file into the
  // presets folder; the other two act on the preset shown, Delete after the
  // user confirms in the message box.
  void SavePreset(const std::string& name, bool replace = false);
  void ImportPreset(const std::string& path);
  void MakeShownPresetDefault();
  void DeleteShownPreset();
  bool AnalysisRunning() const;

 private:
  void BuildControls();
  void ApplyLayout();
  IRECT GameRect() const;
  void PollAnalysis();
  void OpenPresetMenu();
  void AskPresetName();
  void AskImportPath();
  // A one-line text entry under tool button `button`, at most `width` wide.
  void OpenTextEntryUnder(int button, double width, const std::string& text);
  void OpenExportMenu();
  void ChooseFile();
  std::string ExportPath(ExportKind kind);
  void WriteExportTo(ExportKind kind, const std::string& path);

  LoudnessMeterPlugin& mPlugin;
  UiSettings mSettings;
  std::unique_ptr<MeterModel> mModel;
  std::unique_ptr<IGraphics> mGraphics;
  std::unique_ptr<FileAnalysis> mAnalysis;
  std::unique_ptr<EditorNotices> mNotices;
  mutable EditorRect mRect;
  MeterLayout mLayout;
  int mLayoutChannels = 0;
  int mLayoutW = 0, mLayoutH = 0;

  // Controls (owned by mGraphics).
  IControl* mBackground = nullptr;
  IControl* mFrame = nullptr;
  LoudnessReadout* mReadout = nullptr;
  LoudnessMeterBar* mLoudnessBar = nullptr;
  TruePeakMeterBar* mPeakBars = nullptr;
  HistoryGraph* mGraph = nullptr;
  std::array<DistributionDisplay*, 3> mHistograms{};
  std::array<ToolButton*, MeterLayout::kButtons> mButtons{};
  StatusBar* mStatus = nullptr;
  SettingsPage* mSettingsPage = nullptr;
  DropDownMenu* mMenu = nullptr;
  MeterMessageBox* mMessage = nullptr;
  GameView* mGame = nullptr;

  // The graphs' OpenGL path, made on the drawing thread when first asked for.
  std::unique_ptr<tg_gl_plot> mGl;
  bool mGlWanted = false;  // the setting as last seen
  std::string mGlProblem;
  IGraphicsResize* mResize = nullptr;

  // Timing of the frame.
  using Clock = std::chrono::steady_clock;
  Clock::time_point mLastMeters{}, mLastGraph{}, mLastActivity{}, mLastStatus{}, mLastGameTick{};
  uint32_t mLastSequence = 0;
  int64_t mLastSteps10 = -1, mLastSteps100 = -1, mGraphSteps = -1;
  bool mAnalysisShown = false;
  std::atomic<bool> mParamsChanged{false};
  std::atomic<bool> mAllDirty{false};
  std::string mLastExport;
  // Where the text typed under the preset button goes (a name, a path).
  std::function<void(const std::string&)> mPresetEntry;

  // The timer thread (only while the window is open).
  std::thread mTicker;
  std::atomic<bool> mTicking{false};
};

}  // namespace velorum::ui
