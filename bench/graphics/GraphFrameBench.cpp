// Frame times of the editor's graphs with 24 hours of history at full-screen
// size (1920 x 1080): the cairo path against the OpenGL path, in the same run,
// for the whole day and for the last minute of it. Runs in a private Xvfb, so
// the GL figures are those of the machine's GL under Xvfb (Mesa's software
// renderer on a server); on a desktop with a GPU run it with DISPLAY set and
// VELORUM_BENCH_OWN_DISPLAY=1.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "XvfbServer.h"
#include "graphics/tg_gl_plot.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/VstAbi.h"
#include "ui/DistributionDisplay.h"
#include "ui/HistoryGraph.h"
#include "ui/MeterEditor.h"

using namespace velorum;

namespace {

intptr_t NoHost(vst::AEffect*, int32_t, int32_t, intptr_t, void*, float) {
  return 0;
}

// A day of a programme that moves: 10 ms and 100 ms entries written straight
// into the history (measuring a day of audio would take hours).
void FillDay(LoudnessEngine& e) {
  EngineLock lock(e.Mutex());
  MeasurementHistory& h = e.MutableHistory();
  const size_t n10 = 24u * 3600u * 100u, n100 = n10 / 10;
  unsigned seed = 1;
  double level = -23.0;
  for (size_t i = 0; i < n10; ++i) {
    seed = seed * 1103515245u + 12345u;
    level = std::fmin(-8.0, std::fmax(-45.0, level + (double((seed >> 16) & 1023) / 1023.0 - 0.5) * 0.6));
    h.momentary.push_back(float(level));
    h.shortTerm.push_back(float(level - 1.0));
    h.truePeak.push_back(float(level + 9.0));
    h.dynamics.push_back(9.0f);
    h.stepFlags.push_back(kFlagMeasured);
    h.stateFlags.push_back(0);
    h.speechFlags.push_back(0);
  }
  for (size_t b = 0; b < n100; ++b) {
    h.momentaryPower.push_back(1e-3f);
    h.shortTermPower.push_back(1e-3f);
    h.integrated.push_back(-23.0f + float(std::sin(double(b) * 1e-4)));
    h.loudnessRange.push_back(8.0f);
    h.blockFlags.push_back(kFlagMeasured);
    h.dialogueMomentaryPower.push_back(1e-12f);
    h.dialogueShortTermPower.push_back(1e-12f);
    h.dialogueIntegrated.push_back(-120.0f);
    h.dialogueRange.push_back(0.0f);
    h.dialogueFlags.push_back(2);
  }
}

double FrameMs(ui::MeterEditor& ed, bool openGL, int frames) {
  ed.Settings().openGL = openGL;
  IGraphics& gui = ed.Graphics();
  const IRECT r = ed.Graph().GetRECT().Union(ed.Histogram(2).GetRECT());
  ed.Graph().SetDirty();
  gui.Draw(r);  // warm: contexts, uploads, fonts
  const auto t0 = std::chrono::steady_clock::now();
  for (int i = 0; i < frames; ++i) {
    ed.Graph().SetDirty();
    for (int k = 0; k < 3; ++k) ed.Histogram(k).SetDirty();
    gui.Draw(r);
  }
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count() / frames;
}

}  // namespace

int main() {
  XvfbServer* xvfb = std::getenv("VELORUM_BENCH_OWN_DISPLAY") ? nullptr : new XvfbServer();
  const auto settings = std::filesystem::temp_directory_path() / "velorum-graph-bench";
  std::filesystem::create_directories(settings);
  setenv("VELORUM_SETTINGS_DIR", settings.string().c_str(), 1);
  RegisterEditorFactory(&CreateMeterEditor);
  auto* plugin = new LoudnessMeterPlugin(&NoHost);
  vst::AEffect* e = &plugin->AEffectRecord();
  e->dispatcher(e, vst::effSetSampleRate, 0, 0, nullptr, 48000.f);
  FillDay(plugin->Engine());
  auto& ed = *dynamic_cast<ui::MeterEditor*>(plugin->Editor());
  ed.Graphics().SetEditorSize(1920, 1080);
  ed.OnFrame();
  std::printf("24 h of history, graphs at 1920 x 1080\n");
  for (const bool zoomed : {false, true}) {
    if (zoomed) {
      ed.Graph().ShowAll();
      ed.Graph().Zoom(1440.0, float(ed.Graph().PlotRect().R - 1.f));  // the last minute
    }
    const double cairo = FrameMs(ed, false, zoomed ? 10 : 5);
    const double gl = FrameMs(ed, true, zoomed ? 10 : 5);
    const tg_gl_plot* plot = ed.Accelerated();
    std::printf("%-12s cairo %8.2f ms/frame   OpenGL %8.2f ms/frame (%s)   cairo/OpenGL %.2f\n",
                zoomed ? "last minute" : "whole day", cairo, gl,
                plot ? plot->renderer().c_str() : ed.AcceleratedProblem().c_str(), cairo / gl);
  }
  e->dispatcher(e, vst::effClose, 0, 0, nullptr, 0.f);
  delete xvfb;
  return 0;
}
