#include "ui/StatusBar.h"

#include <algorithm>

#include "engine/ChannelLayouts.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/MeterParams.h"
#include "ui/UiFormat.h"

namespace velorum::ui {

StatusBar::StatusBar(EditorHost& host, const IRECT& r) : MeterControl(host, r) {}

void StatusBar::SetProgress(int percent, const std::string& file) {
  if (percent != mProgress || file != mFile) {
    mProgress = percent;
    mFile = file;
    SetDirty();
  }
}

IRECT StatusBar::CancelRect() const {
  const DRect r = D(GetRECT());
  const double x = r.L + r.W() * 0.5 + 110.;
  return IRECT(x, r.T + 3., x + 64., r.B - 3.);
}

std::string StatusBar::TimeText() const {
  const MeterModel& m = mHost.Model();
  const MeterValues v = m.Read();
  const int mode = m.ShowingFile() ? 0 : m.HistogramMode();
  std::string text = std::string(HistogramModeName(mode)) + "  ";
  if (mode == kModeTimeCode) {
    text += FormatTimecode(v.elapsedSeconds, mHost.Settings().fpsIndex) + " @ " +
            kFpsItems[mHost.Settings().fpsIndex].label;
  } else if (mode == kModeSystem) {
    text += FormatTimeOfDay(m.SystemStartSeconds() + v.elapsedSeconds);
  } else {
    text += FormatElapsed(v.elapsedSeconds, true);
  }
  return text;
}

void StatusBar::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  g.set_color(t.panel);
  g.rectangle(r.L, r.T, r.W(), r.H());
  g.fill();
  const MeterModel& m = mHost.Model();
  const double size = std::min(10.0, r.H() * 0.5);
  std::string source;
  if (m.ShowingFile()) {
    source = "FILE  " + const_cast<MeterModel&>(m).File()->path;
  } else {
    const LoudnessEngine& e = m.Engine();
    source = std::string(m.Plugin().Measuring() ? "LIVE  " : "PAUSED  ") + LayoutAt(e.Layout()).name + "  " +
             std::to_string(static_cast<int>(e.SampleRate())) + " Hz";
    if (m.Param(param::kGenerator) >= 0.5) source += "  CALIBRATION SIGNAL ON";
  }
  // A host rate the meter cannot measure at: the audio passes, the meter says why it stands still.
  const bool inactive = !m.ShowingFile() && !m.Plugin().RateSupported();
  if (inactive) source = m.Plugin().StatusLine();
  const double half = r.W() * 0.5;
  DrawLabel(g, source, r.L + 8.0, r.T, inactive ? r.W() - 16.0 : half - 16.0, r.H(), size,
            (m.Plugin().Measuring() || m.ShowingFile()) && !inactive ? t.dim : t.warn, tg_align::left,
            "OpenSans-Regular");
  if (mProgress >= 0) {
    const double x = r.L + half, w = 100.0, y = r.T + r.H() / 2.0 - 3.0;
    g.new_path();
    g.rounded_rectangle(x, y, w, 6.0, 3.0);
    g.set_color(t.grid);
    g.fill();
    g.new_path();
    g.rounded_rectangle(x, y, w * std::clamp(mProgress, 0, 100) / 100.0, 6.0, 3.0);
    g.set_color(t.accent);
    g.fill();
    const DRect c = D(CancelRect());
    g.new_path();
    g.rounded_rectangle(c.L, c.T, c.W(), c.H(), 3.0);
    g.set_color(t.panelEdge);
    g.fill();
    DrawLabel(g, "CANCEL", c.L, c.T, c.W(), c.H(), size * 0.9, t.text, tg_align::center);
    DrawLabel(g, std::to_string(mProgress) + " %", c.R + 6.0, r.T, 50.0, r.H(), size, t.text);
  }
  // Clear of the resize corner at the right.
  DrawLabel(g, TimeText(), r.R - 290.0, r.T, 262.0, r.H(), size, t.text, tg_align::right,
            "OpenSans-SemiBold");
}

void StatusBar::OnMouseDown(float x, float y, const IMouseMod& mod) {
  if (mod.L && mProgress >= 0 && CancelRect().Contains(x, y)) mHost.CancelAnalysis();
}

}  // namespace velorum::ui
