#include "ui/MeterEditor.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#ifndef _WIN32
#include "graphics/IGraphicsX11.h"
#endif
#include "graphics/tg_gl_plot.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/MeterParams.h"
#include "presets/CustomPresets.h"
#include "presets/GlobalSettings.h"
#include "presets/LoudnessStandards.h"
#include "ui/DesktopOpen.h"
#include "ui/DistributionDisplay.h"
#include "ui/DropDownMenu.h"
#include "ui/EditorExport.h"
#include "ui/EditorNotices.h"
#include "ui/ExportActions.h"
#include "ui/FileAnalysis.h"
#include "ui/GameView.h"
#include "ui/HistoryGraph.h"
#include "ui/LoudnessMeterBar.h"
#include "ui/LoudnessReadout.h"
#include "ui/MeterMessageBox.h"
#include "ui/ModuleHandle.h"
#include "ui/PresetMenu.h"
#include "ui/SettingsPage.h"
#include "ui/StatusBar.h"
#include "ui/ToolButton.h"
#include "ui/TruePeakMeterBar.h"
#include "ui/UiFormat.h"

namespace velorum {

std::unique_ptr<IEditor> CreateMeterEditor(IPlugBase& plugin) {
  try {
    return std::make_unique<ui::MeterEditor>(static_cast<LoudnessMeterPlugin&>(plugin));
  } catch (...) {
    return nullptr;
  }
}

namespace ui {
namespace {

// The editor's background, the top bar behind the buttons, and the target of
// dropped files.
class EditorBackground : public MeterControl {
 public:
  EditorBackground(EditorHost& host, const IRECT& r, const MeterLayout& layout)
      : MeterControl(host, r), mLayout(layout) {}
  void Draw(tgraphics& g) override {
    const Theme& t = Colors();
    const DRect r = D(GetRECT());
    g.set_color(t.background);
    g.rectangle(r.L, r.T, r.W(), r.H());
    g.fill();
    const DRect top = D(mLayout.topBar);
    g.set_color(t.panel);
    g.rectangle(top.L, top.T, top.W(), top.H());
    g.fill();
    g.new_path();
    g.move_to(top.L, top.B - 0.5);
    g.line_to(top.R, top.B - 0.5);
    g.set_line_style(1.0);
    g.set_color(t.panelEdge);
    g.stroke();
    const double logoW = double(mLayout.buttons[0].L) - 8.;
    if (logoW > 30.)
      DrawLabel(g, "VELORUM", 8.0, top.T, logoW - 4.0, top.H(), 12.0, t.accent, tg_align::left,
                "OpenSans-ExtraBold");
    const std::string unit = UnitText(mHost.Model().Param(param::kUnitLkfs) >= 0.5);
    const double right = double(mLayout.buttons[MeterLayout::kButtons - 1].R) + 8.;
    const TargetWindow tw = mHost.Model().Targets();
    const std::string info = "TARGET " + std::to_string(static_cast<int>(tw.target)) + " " + unit +
                             "   TP MAX " + FormatDecimal(tw.truePeakMax) + " dBTP";
    if (top.R - right > 60.)
      DrawLabel(g, info, right, top.T, top.R - right - 28.0, top.H(), 10.0, t.dim, tg_align::right);
  }
  // The hidden game opens with a double-click on the VELORUM logo while Shift
  // is held. Nothing on screen says so.
  std::function<void()> onSecret;
  void OnMouseDblClick(float x, float y, const IMouseMod& mod) override {
    const DRect top = D(mLayout.topBar);
    const double logoR = std::min(8.0 + 90.0, double(mLayout.buttons[0].L) - 8.);
    const double px = x, py = y;
    if (mod.S && onSecret && px >= 4.0 && px < logoR && py >= top.T && py < top.B) onSecret();
  }
  bool AcceptsDrop() const override { return true; }
  bool OnDrop(const std::vector<std::string>& paths, const std::vector<int>& isDirectory, float,
              float) override {
    std::vector<std::string> files;
    for (size_t i = 0; i < paths.size(); ++i)
      if (i >= isDirectory.size() || !isDirectory[i]) files.push_back(paths[i]);
    if (files.empty()) return false;
    mHost.AnalyseFiles(files);
    return true;
  }

 private:
  const MeterLayout& mLayout;
};

// An invisible control whose drawing is the editor's frame: the timer thread
// marks it dirty, and the window draws it on its own thread.
class FrameControl : public IControl {
 public:
  FrameControl(MeterEditor& editor) : IControl(IRECT(0., 0., 1., 1.)), mEditor(editor) {
    SetIgnoreMouse(true);
  }
  void Draw(tgraphics&) override { mEditor.OnFrame(); }

 private:
  MeterEditor& mEditor;
};

// A button that can also take typed text: a path (the file chooser where the
// platform has no dialog) or a preset name.
class OpenFileButton : public ToolButton {
 public:
  using ToolButton::ToolButton;
  std::function<void(const std::string&)> onText;
  void OnTextEntryCompletion(const std::string& text) override {
    if (onText) onText(text);
  }
};

std::string TrimBlanks(const std::string& s) {
  const auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return {};
  return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

bool IsCustomIndex(int index) {
  return index >= kFirstCustomPresetIndex && index <= kLastCustomPresetIndex;
}

// Whether the desktop has a file dialog: always on Windows; on Linux when
// zenity or kdialog is installed (otherwise paths are typed).
bool HasFileDialog() {
#ifdef _WIN32
  return true;
#else
  return IGraphicsX11::FileDialogAvailable();
#endif
}

std::string Stem(const std::string& path) {
  const auto u8 = std::filesystem::u8path(path).stem().u8string();
  const std::string s(u8.begin(), u8.end());
  return s.empty() ? std::string("Velorum") : s;
}

}  // namespace

MeterEditor::MeterEditor(LoudnessMeterPlugin& plugin)
    : mPlugin(plugin),
      mSettings(UiSettings::Folder()),
      mModel(std::make_unique<MeterModel>(plugin)),
      mAnalysis(std::make_unique<FileAnalysis>()),
      mNotices(std::make_unique<EditorNotices>(*this, mSettings.FolderPath(), &OpenWithDesktop)) {
  mGraphics = IGraphics::Create(ThisModuleHandle(), MeterLayout::kBaseWidth, MeterLayout::kBaseHeight, 60);
  mGraphics->EnableDragAndDrop(true);
  BuildControls();
}

MeterEditor::~MeterEditor() {
  Close();
  mNotices.reset();
  mAnalysis.reset();
  mGraphics.reset();
}

void MeterEditor::BuildControls() {
  IGraphics& ui = *mGraphics;
  mLayoutChannels = std::max(2, mPlugin.Engine().ProcessedChannels());
  mLayout = MeterLayout::Compute(float(ui.Width()), float(ui.Height()), mLayoutChannels);
  mLayoutW = ui.Width();
  mLayoutH = ui.Height();
  auto* background =
      ui.Attach<EditorBackground>(*this, IRECT(0., 0., float(ui.Width()), float(ui.Height())), mLayout);
  background->onSecret = [this] { OpenGame(); };
  mBackground = background;
  mReadout = ui.Attach<LoudnessReadout>(*this, mLayout.readout);
  mLoudnessBar = ui.Attach<LoudnessMeterBar>(*this, mLayout.loudnessBar);
  mPeakBars = ui.Attach<TruePeakMeterBar>(*this, mLayout.truePeakBar);
  mGraph = ui.Attach<HistoryGraph>(*this, mLayout.graph);
  mHistograms[0] =
      ui.Attach<DistributionDisplay>(*this, mLayout.histograms[0], DistributionDisplay::Kind::Loudness);
  mHistograms[1] =
      ui.Attach<DistributionDisplay>(*this, mLayout.histograms[1], DistributionDisplay::Kind::Dynamics);
  mHistograms[2] =
      ui.Attach<DistributionDisplay>(*this, mLayout.histograms[2], DistributionDisplay::Kind::TruePeak);
  mStatus = ui.Attach<StatusBar>(*this, mLayout.statusBar);

  MeterModel& m = *mModel;
  LoudnessMeterPlugin& p = mPlugin;
  auto* preset = ui.Attach<OpenFileButton>(
      *this, mLayout.buttons[MeterLayout::kPreset], [&m] { return m.PresetShortName(); },
      [this] { OpenPresetMenu(); }, nullptr, true);
  preset->onText = [this](const std::string& text) {
    auto entry = std::move(mPresetEntry);
    mPresetEntry = nullptr;
    if (entry) entry(text);
  };
  mButtons[MeterLayout::kPreset] = preset;
  mButtons[MeterLayout::kPreset]->SetTooltip("Choose the loudness standard or delivery target.");
  mButtons[MeterLayout::kPause] = ui.Attach<ToolButton>(
      *this, mLayout.buttons[MeterLayout::kPause],
      [&p] { return std::string(p.Measuring() ? "PAUSE" : "RESUME"); },
      [this, &p] {
        mModel->SetParam(param::kPaused, p.Measuring() ? 1.0 : 0.0);
        RedrawAll();
      },
      [&p] { return !p.Measuring(); });
  mButtons[MeterLayout::kPause]->SetTooltip("Pause or resume the measurement.");
  mButtons[MeterLayout::kReset] = ui.Attach<ToolButton>(
      *this, mLayout.buttons[MeterLayout::kReset], [] { return std::string("RESET"); },
      [this] {
        mModel->ResetLive();
        mGraph->ShowAll();
        RedrawAll();
      });
  mButtons[MeterLayout::kReset]->SetTooltip("Reset the measurement.");
  mButtons[MeterLayout::kSource] = ui.Attach<ToolButton>(
      *this, mLayout.buttons[MeterLayout::kSource],
      [&m] { return std::string(m.ShowingFile() ? "FILE" : "LIVE"); },
      [this] {
        if (mModel->ShowingFile())
          mModel->ShowLive();
        else if (mModel->File())
          mModel->ShowFile(nullptr);
        RedrawAll();
      },
      [&m] { return m.ShowingFile(); });
  mButtons[MeterLayout::kSource]->SetTooltip("Show the live measurement or the analysed file.");
  auto* open = ui.Attach<OpenFileButton>(
      *this, mLayout.buttons[MeterLayout::kOpen], [] { return std::string("OPEN FILE"); },
      [this] { ChooseFile(); });
  open->onText = [this](const std::string& path) {
    if (!path.empty()) AnalyseFiles({path});
  };
  open->SetTooltip("Analyse an audio file (or drop files on the meter).");
  mButtons[MeterLayout::kOpen] = open;
  mButtons[MeterLayout::kExport] = ui.Attach<ToolButton>(
      *this, mLayout.buttons[MeterLayout::kExport], [] { return std::string("EXPORT"); },
      [this] { OpenExportMenu(); }, nullptr, true);
  mButtons[MeterLayout::kExport]->SetTooltip("Export the measurement.");
  mButtons[MeterLayout::kSettings] = ui.Attach<ToolButton>(
      *this, mLayout.buttons[MeterLayout::kSettings], [] { return std::string("SETTINGS"); },
      [this] { ToggleSettings(); }, [this] { return SettingsShown(); });

  mSettingsPage = ui.Attach<SettingsPage>(*this, mLayout.settings);
  mMenu = ui.Attach<DropDownMenu>(*this);
  mGame = ui.Attach<GameView>(*this, GameRect());
  mMessage = ui.Attach<MeterMessageBox>(*this);
  mFrame = ui.Attach<FrameControl>(*this);
  mResize = ui.Attach<IGraphicsResize>(&ui, mSettings.FolderPath());
  mResize->AttachHandles();
  mResize->SetResizeMode(true, 0);
  ApplyTheme();
  ApplyLayout();
}

void MeterEditor::ApplyLayout() {
  IGraphics& ui = *mGraphics;
  const int channels = std::max(2, mModel->Read().channels);
  if (ui.Width() != mLayoutW || ui.Height() != mLayoutH || channels != mLayoutChannels) {
    mLayoutW = ui.Width();
    mLayoutH = ui.Height();
    mLayoutChannels = channels;
    mLayout = MeterLayout::Compute(float(mLayoutW), float(mLayoutH), channels);
  }
  auto place = [](IControl* c, const IRECT& r) {
    if (c && !(c->GetRECT() == r)) c->SetBounds(r);
  };
  place(mBackground, IRECT(0., 0., float(mLayoutW), float(mLayoutH)));
  place(mReadout, mLayout.readout);
  place(mLoudnessBar, mLayout.loudnessBar);
  place(mPeakBars, mLayout.truePeakBar);
  place(mStatus, mLayout.statusBar);
  place(mSettingsPage, mLayout.settings);
  place(mFrame, IRECT(0., 0., 1., 1.));
  place(mGame, GameRect());
  for (int i = 0; i < MeterLayout::kButtons; ++i) place(mButtons[size_t(i)], mLayout.buttons[i]);
  const bool settings = SettingsShown();
  place(mGraph, mLayout.graph);
  mGraph->Hide(!mLayout.showGraph || settings);
  for (int i = 0; i < 3; ++i) {
    place(mHistograms[size_t(i)], mLayout.histograms[i]);
    mHistograms[size_t(i)]->Hide(!mLayout.showHistograms || settings);
  }
  mReadout->Hide(settings && !mLayout.showGraph);
}

const EditorRect& MeterEditor::Rect() const {
  mRect.top = 0;
  mRect.left = 0;
  mRect.right = static_cast<int16_t>(std::min(32767, mGraphics->WindowWidth()));
  mRect.bottom = static_cast<int16_t>(std::min(32767, mGraphics->WindowHeight()));
  return mRect;
}

bool MeterEditor::Open(void* parentHandle) {
  if (mGraphics->WindowIsOpen()) return true;
  if (!mGraphics->OpenWindow(parentHandle)) return false;
  mTicking = true;
  mTicker = std::thread([this] {
    while (mTicking.load()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(8));
      if (mFrame) mFrame->SetDirty();
    }
  });
  mNotices->Start();  // the update check runs on its own thread
  return true;
}

void MeterEditor::Close() {
  mNotices->Stop();
  if (mGame && mGame->Game()) {
    std::lock_guard<std::recursive_mutex> guard(mGraphics->GetLock());
    mGame->Game()->SetPaused(true);
  }
  mTicking = false;
  if (mTicker.joinable()) mTicker.join();
  if (!mGraphics || !mGraphics->WindowIsOpen()) return;
#ifdef _WIN32
  mGraphics->CloseWindow();
#else
  // The host closes the editor under the plug-in lock, and the window's own
  // thread may be waiting for that lock in a click handler (a parameter
  // write): give the lock up while the window thread finishes.
  RecursiveSpinLock& lock = mPlugin.Lock();
  int depth = 0;
  while (lock.HeldByCaller()) {
    lock.Unlock();
    ++depth;
  }
  mGraphics->CloseWindow();
  while (depth-- > 0) lock.Lock();
#endif
}

void MeterEditor::SetContentScale(float scale) {
  std::lock_guard<std::recursive_mutex> guard(mGraphics->GetLock());
  if (scale > 0.f && std::isfinite(scale)) mGraphics->SetScreenScale(scale);
}

void MeterEditor::RefreshScaling() {
  mAllDirty = true;
}

void MeterEditor::OnParamChanged(int index) {
  if (index == param::kElapsedSeconds || index == param::kShownIntegrated) return;
  mParamsChanged = true;
}

void MeterEditor::SetAllDirty() {
  mAllDirty = true;
}

void MeterEditor::RedrawAll() {
  mGraphics->SetAllControlsDirty();
}

bool MeterEditor::AnalysisRunning() const {
  return mAnalysis->Poll() == FileAnalysis::State::Busy;
}

void MeterEditor::OnFrame() {
  const auto now = Clock::now();
  ApplyLayout();
  if (mAllDirty.exchange(false)) {
    // A restored state brings its own selection.
    mModel->ReloadDisplayState();
    RedrawAll();
  }
  if (mParamsChanged.exchange(false)) RedrawAll();
  if (mGame->IsOpen()) {
    const double seconds = std::chrono::duration<double>(now - mLastGameTick).count();
    mGame->Tick(mLastGameTick == Clock::time_point{} ? 0.0 : seconds);
    mLastGameTick = now;
  }
  PollAnalysis();
  // Notices wait while the user is busy with the meter.
  const bool busy = mAnalysisShown || mMessage->IsShown() || mMenu->IsOpen() ||
                    std::lround(mModel->Param(param::kGenerator)) != 0;
  mNotices->Poll(busy);
  const LoudnessEngine& e = mModel->Engine();
  const uint32_t sequence = mPlugin.PeakMeters().Sequence();
  const int64_t steps10 = e.Steps10(), steps100 = e.Steps100();
  if (sequence != mLastSequence || steps10 != mLastSteps10) mLastActivity = now;
  mLastSequence = sequence;
  mLastSteps10 = steps10;
  const int graphMs = mSettings.GraphIntervalMs();
  const auto since = [&](Clock::time_point t) {
    return std::chrono::duration<double, std::milli>(now - t).count();
  };
  const bool active = since(mLastActivity) < 3000.0;
  if (active && since(mLastMeters) >= std::max(16, std::min(33, graphMs))) {
    mReadout->SetDirty();
    mLoudnessBar->SetDirty();
    mPeakBars->SetDirty();
    mLastMeters = now;
  }
  if (since(mLastStatus) >= 100.0) {
    mStatus->SetDirty();
    mLastStatus = now;
  }
  if (since(mLastGraph) >= graphMs && steps10 != mGraphSteps) {
    mGraph->SetDirty();
    mGraphSteps = steps10;
    mLastGraph = now;
    if (steps100 != mLastSteps100) {
      for (DistributionDisplay* h : mHistograms) h->SetDirty();
      mLastSteps100 = steps100;
    }
  }
}

void MeterEditor::DrawAll(tgraphics& g) {
  OnFrame();
  mGraphics->DrawControls(g, IRECT(0., 0., float(mGraphics->Width()), float(mGraphics->Height())));
}

tg_gl_plot* MeterEditor::Accelerated() {
  if (!mSettings.openGL) {
    mGlWanted = false;
    mGl.reset();
    mGlProblem.clear();
    return nullptr;
  }
  if (!mGlWanted) {
    // Switched on (again): one attempt to start; a failure leaves cairo on
    // until the switch is turned off and on.
    mGlWanted = true;
    mGlProblem.clear();
    mGl = tg_gl_plot::create(mGlProblem);
  }
  return mGl.get();
}

void MeterEditor::AcceleratedFailed() {
  mGl.reset();
  mGlProblem = "OpenGL drawing failed; the graphs draw without it.";
  RedrawAll();
}

IRECT MeterEditor::GameRect() const {
  return IRECT(0.f, mLayout.topBar.B, float(mLayoutW), float(mLayoutH));
}

void MeterEditor::OpenGame() {
  mGame->Open(static_cast<uint32_t>(Clock::now().time_since_epoch().count()));
  mLastGameTick = {};
  RedrawAll();
}

void MeterEditor::OpenMenu(const std::vector<MenuItem>& items, const IRECT& anchor,
                           std::function<void(int)> choose) {
  mMenu->Open(items, anchor, std::move(choose));
}

void MeterEditor::ShowMessage(const std::string& text, const std::vector<std::string>& buttons,
                              std::function<void(int)> answer) {
  mMessage->Show(text, buttons, std::move(answer));
}

void MeterEditor::ToggleSettings() {
  mSettingsPage->Hide(!mSettingsPage->IsHidden());
  ApplyLayout();
  RedrawAll();
}

bool MeterEditor::SettingsShown() const {
  return mSettingsPage && !mSettingsPage->IsHidden();
}

void MeterEditor::ApplyTheme() {
  for (int i = 0; i < mGraphics->NControls(); ++i)
    if (auto* c = dynamic_cast<tgraphics_control*>(mGraphics->GetControl(i))) c->SetTheme(mSettings.theme);
  RedrawAll();
}

void MeterEditor::SetGuiScale(float scale) {
  mResize->SetGUIScale(scale);
  ApplyLayout();
  RedrawAll();
}

float MeterEditor::GuiScale() const {
  return mResize->GetGUIScale();
}

void MeterEditor::OpenPresetMenu() {
  // The presets as the menu shows them: a choice applies the preset seen,
  // even if another instance changes the folder while the menu is open.
  auto custom =
      std::make_shared<std::vector<CustomPresetEntry>>(CustomPresetStore(mSettings.FolderPath()).List());
  std::vector<std::string> names;
  for (const CustomPresetEntry& e : *custom) names.push_back(e.preset.name);
  const std::vector<MenuItem> items =
      PresetMenuItems(mPlugin.ShownStandard(), names, mPlugin.ShownCustomPreset());
  OpenMenu(items, mButtons[MeterLayout::kPreset]->GetRECT(), [this, custom](int id) {
    if (IsCustomIndex(id)) {
      const size_t position = static_cast<size_t>(id - kFirstCustomPresetIndex);
      if (position < custom->size()) mPlugin.ApplyCustomPresetAs((*custom)[position].preset, id);
    } else if (id == kSavePresetCommand) {
      AskPresetName();
    } else if (id == kImportPresetCommand) {
      AskImportPath();
    } else if (id == kSetDefaultCommand) {
      MakeShownPresetDefault();
    } else if (id == kDeletePresetCommand) {
      DeleteShownPreset();
    } else {
      mPlugin.ApplyStandardIndex(id);
    }
    RedrawAll();
  });
}

void MeterEditor::AskPresetName() {
  // The name is typed in a box under the preset button.
  mPresetEntry = [this](const std::string& name) { SavePreset(name); };
  OpenTextEntryUnder(MeterLayout::kPreset, 260., mPlugin.ShownCustomPreset());
}

void MeterEditor::OpenTextEntryUnder(int button, double width, const std::string& text) {
  const DRect r = D(mButtons[button]->GetRECT());
  const double w = std::min(width, double(mGraphics->Width()) - r.L - 8.);
  mGraphics->CreateTextEntry(mButtons[button], IRECT(r.L, r.B + 2., r.L + w, r.B + 24.), text);
}

void MeterEditor::SavePreset(const std::string& typedName, bool replace) {
  const std::string name = TrimBlanks(typedName);
  if (name.empty()) return;  // an empty entry cancels
  const CustomPreset preset = CaptureCustomPreset(name, [this](int index) { return mModel->Param(index); });
  if (const std::string problem = CheckCustomPreset(preset); !problem.empty()) {
    ShowMessage(problem, {"OK"});
    return;
  }
  const CustomPresetStore store(mSettings.FolderPath());
  if (!replace) {
    if (const std::optional<CustomPresetEntry> existing = store.Find(name)) {
      ShowMessage("A preset named \"" + existing->preset.name + "\" already exists. Replace it?",
                  {"Yes", "No"}, [this, name](int answer) {
                    if (answer == 0) SavePreset(name, true);
                  });
      return;
    }
  }
  std::string message;
  if (!store.Save(preset, true, message)) {
    ShowMessage(message, {"OK"});
    return;
  }
  const int index = store.IndexOf(name);
  if (IsCustomIndex(index)) mPlugin.ApplyCustomPresetAs(preset, index);
  RedrawAll();
}

void MeterEditor::AskImportPath() {
  if (!HasFileDialog()) {
    // Type the path of the preset file.
    mPresetEntry = [this](const std::string& typed) {
      const std::string typedPath = TrimBlanks(typed);
      if (!typedPath.empty()) ImportPreset(typedPath);
    };
    OpenTextEntryUnder(MeterLayout::kPreset, 420., "");
    return;
  }
  const std::string path = mGraphics->PromptForFile(false, kCustomPresetExtension, mSettings.exportFolder);
  if (!path.empty()) ImportPreset(path);
}

void MeterEditor::ImportPreset(const std::string& path) {
  const CustomPresetStore store(mSettings.FolderPath());
  CustomPreset imported;
  std::string message;
  if (!store.Import(path, imported, message)) {
    ShowMessage("The preset was not imported. " + message, {"OK"});
    return;
  }
  ShowMessage(
      "The preset \"" + imported.name + "\" was imported. It is in the preset menu under CUSTOM PRESETS.",
      {"OK"});
  RedrawAll();
}

void MeterEditor::MakeShownPresetDefault() {
  DefaultPreset preset;
  preset.index = mPlugin.ShownStandard();
  std::string shown;
  if (IsCustomIndex(preset.index)) {
    preset.name = mPlugin.ShownCustomPreset();
    if (!CustomPresetStore(mSettings.FolderPath()).Find(preset.name)) preset.name.clear();
    shown = preset.name;
  } else if (const LoudnessStandard* s = FindStandard(preset.index)) {
    shown = TrimBlanks(s->menuText);
  }
  if (shown.empty()) {
    ShowMessage("The settings shown are not a saved preset. Save them as a preset first.", {"OK"});
    return;
  }
  if (!WriteDefaultPreset(mSettings.FolderPath(), preset)) {
    ShowMessage("The settings file could not be written.", {"OK"});
    return;
  }
  ShowMessage("New instances of the meter will start with \"" + shown + "\".", {"OK"});
}

void MeterEditor::DeleteShownPreset() {
  const std::string name =
      IsCustomIndex(mPlugin.ShownStandard()) ? mPlugin.ShownCustomPreset() : std::string();
  if (name.empty() || !CustomPresetStore(mSettings.FolderPath()).Find(name)) {
    ShowMessage("Choose the custom preset to delete in the menu first.", {"OK"});
    return;
  }
  ShowMessage("Delete the preset \"" + name + "\"? The meter keeps its current settings.",
              {"Delete", "Cancel"}, [this, name](int answer) {
                if (answer != 0) return;
                std::string message;
                if (!CustomPresetStore(mSettings.FolderPath()).Remove(name, message)) {
                  ShowMessage(message, {"OK"});
                  return;
                }
                mPlugin.ForgetCustomPreset(name);
                // New instances no longer look for it.
                const std::optional<DefaultPreset> def = ReadDefaultPreset(mSettings.FolderPath());
                if (def && IsCustomIndex(def->index) && SameCustomPresetName(def->name, name)) {
                  SettingsFile file(mSettings.FolderPath());
                  file.Erase(kDefaultPresetIndexKey);
                  file.Erase(kDefaultPresetNameKey);
                  file.Save();
                }
                RedrawAll();
              });
}

void MeterEditor::OpenExportMenu() {
  static const struct {
    const char* text;
    ExportKind kind;
  } kItems[] = {{"TEXT SUMMARY", ExportKind::TextSummary},
                {"CSV", ExportKind::Csv},
                {"DOLBY CSV", ExportKind::DolbyCsv},
                {"PNG IMAGE", ExportKind::Png},
                {"SVG IMAGE", ExportKind::Svg},
                {"PDF REPORT", ExportKind::Pdf},
                {"NORMALIZED WAV", ExportKind::NormalizedWav}};
  std::vector<MenuItem> items;
  for (const auto& item : kItems) {
    bool enabled = ExportAvailable(item.kind);
    if (item.kind == ExportKind::NormalizedWav) enabled = enabled && mModel->ShowingFile();
    items.push_back({item.text, static_cast<int>(item.kind), false, enabled, false});
  }
  OpenMenu(items, mButtons[MeterLayout::kExport]->GetRECT(),
           [this](int id) { Export(static_cast<ExportKind>(id)); });
}

void MeterEditor::ChooseFile() {
  if (!HasFileDialog()) {
    OpenTextEntryUnder(MeterLayout::kOpen, 420., "");  // type the path
    return;
  }
  const std::string path = mGraphics->PromptForFile(false, "", mSettings.exportFolder);
  if (!path.empty()) AnalyseFiles({path});
}

void MeterEditor::AnalyseFiles(const std::vector<std::string>& paths) {
  if (paths.empty()) return;
  if (AnalysisRunning()) {
    ShowMessage("A file is being analysed. Cancel it first.", {"OK"});
    return;
  }
  const int gate = static_cast<int>(std::lround(mModel->Param(param::kRelativeGate)));
  const double gateLU = gate >= 0 && gate < 3 ? kRelativeGateChoicesLU[gate] : -10.0;
  if (!mAnalysis->Start(paths, mModel->Param(param::kEcoTruePeak) >= 0.5, std::pow(10.0, gateLU / 10.0))) {
    ShowMessage(
        mAnalysis->Message().empty() ? std::string("The file could not be opened.") : mAnalysis->Message(),
        {"OK"});
    return;
  }
  mAnalysisShown = true;
  mStatus->SetProgress(0, mAnalysis->CurrentPath());
}

void MeterEditor::CancelAnalysis() {
  mAnalysis->Cancel();
}

void MeterEditor::PollAnalysis() {
  if (!mAnalysisShown) return;
  const FileAnalysis::State s = mAnalysis->Poll();
  if (s == FileAnalysis::State::Busy) {
    mStatus->SetProgress(mAnalysis->Progress(), mAnalysis->CurrentPath());
    return;
  }
  mAnalysisShown = false;
  mStatus->SetProgress(-1, {});
  std::unique_ptr<FileMeasurement> file = mAnalysis->TakeResult();
  if (file) {
    mModel->ShowFile(std::move(file));
    mGraph->ShowAll();
  } else if (!mAnalysis->Message().empty()) {
    ShowMessage(mAnalysis->Message(), {"OK"});
  }
  RedrawAll();
}

bool MeterEditor::FinishAnalysisForTests(int timeoutMs) {
  const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (AnalysisRunning() && Clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  PollAnalysis();
  return !AnalysisRunning();
}

std::string MeterEditor::ExportPath(ExportKind kind) {
  static const char* const kSuffix[] = {"_Summary", "_History", "_Dolby",     "_Graph",
                                        "_Graph",   "_Report",  "_Normalized"};
  const std::string stem = mModel->ShowingFile() ? Stem(mModel->File()->path) : std::string("Velorum");
  const std::string name = stem + kSuffix[static_cast<int>(kind)] + "." + ExportExtension(kind);
  std::error_code ec;
  std::filesystem::create_directories(std::filesystem::u8path(mSettings.exportFolder), ec);
  // Without a file dialog the export goes to the export folder.
  if (!HasFileDialog()) return mSettings.exportFolder + "/" + name;
  return mGraphics->PromptForFile(true, ExportExtension(kind), mSettings.exportFolder, name);
}

void MeterEditor::Export(ExportKind kind) {
  const std::string path = ExportPath(kind);
  if (path.empty()) return;
  std::error_code ec;
  if (std::filesystem::exists(std::filesystem::u8path(path), ec)) {
    ShowMessage(kReplaceFileQuestion, {"Yes", "No"}, [this, kind, path](int answer) {
      if (answer == 0) WriteExportTo(kind, path);
    });
    return;
  }
  WriteExportTo(kind, path);
}

void MeterEditor::WriteExportTo(ExportKind kind, const std::string& path) {
  std::string message, report;
  if (kind == ExportKind::NormalizedWav) {
    message = WriteNormalized(*mModel, path, report);
  } else if (kind == ExportKind::Png || kind == ExportKind::Svg || kind == ExportKind::Pdf) {
    const std::string bytes = RenderExportImage(*this, kind, mSettings.exportTheme >= 0.5);
    message = bytes.empty() ? std::string(kCannotCreateFile) : WriteExport(path, bytes);
  } else {
    std::string content;
    if (!BuildTextExport(*mModel, mSettings, kind, content, message)) {
      ShowMessage(message.empty() ? std::string(kCannotCreateFile) : message, {"OK"});
      return;
    }
    message = WriteExport(path, content);
  }
  if (!message.empty()) {
    ShowMessage(message, {"OK"});
    return;
  }
  mLastExport = path;
  ShowMessage("Exported to " + path + (report.empty() ? std::string() : "\n" + report), {"OK"});
}

}  // namespace ui
}  // namespace velorum
