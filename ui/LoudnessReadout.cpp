#include "ui/LoudnessReadout.h"

#include <cmath>
#include <string>

#include "ui/UiFormat.h"

namespace velorum::ui {

LoudnessReadout::LoudnessReadout(EditorHost& host, const IRECT& r) : MeterControl(host, r) {
  SetTooltip(
      "Integrated loudness against the target of the chosen standard. Select a range on the graph to read "
      "its integrated value.");
}

int LoudnessReadout::IntegratedState(double lufs, const TargetWindow& t) {
  if (!(lufs > -119.95)) return 0;
  const double lo = t.BandLow(), hi = t.BandHigh();
  if (lufs >= lo - 1e-9 && lufs <= hi + 1e-9) return 1;
  if (lufs >= lo - 1.0 && lufs <= hi + 1.0) return 2;
  return 3;
}

int LoudnessReadout::TruePeakState(double dbtp, const TargetWindow& t) {
  if (!(dbtp > -119.95)) return 0;
  if (dbtp > t.truePeakMax + 1e-9) return 3;
  if (dbtp > t.truePeakMax - 1.0) return 2;
  return 1;
}

std::vector<ReadoutLine> LoudnessReadout::Lines() const {
  const MeterModel& m = mHost.Model();
  const MeterValues v = m.Read();
  const TargetWindow t = m.Targets();
  const std::string unit = UnitText(t.lkfs);
  const double shortTermLimit = m.Param(33);
  auto loud = [&](const char* caption, double value, int state) {
    return ReadoutLine{caption, FormatLoudness(value), unit, FormatRelative(value, t.target), state};
  };
  std::vector<ReadoutLine> lines;
  lines.push_back(loud(v.rangeSelected ? "INTEGRATED (SELECTION)" : "INTEGRATED", v.integrated,
                       IntegratedState(v.integrated, t)));
  // Dialogue presets: the dialogue-gated value against the dialogue target,
  // and how much of the programme was speech.
  const double dialTarget = m.Param(92);
  if (dialTarget < 29.95) {
    const double dial = m.Engine().IntegratedDialogue();
    TargetWindow dw = t;
    dw.target = dw.upper = dialTarget;
    dw.lower = -70.0;
    lines.push_back({"INTEGRATED DIAL", FormatLoudness(dial), unit, FormatRelative(dial, dialTarget),
                     IntegratedState(dial, dw)});
    lines.push_back({"Speech Content",
                     std::to_string(static_cast<int>(std::lround(m.Engine().SpeechContent() * 100.0))), "%",
                     "", 0});
  }
  const int stState = shortTermLimit < 29.95 && v.shortTerm > shortTermLimit ? 3 : 0;
  lines.push_back(loud("SHORT TERM", v.shortTerm, stState));
  lines.push_back(loud("MOMENTARY", v.momentary, 0));
  const int stMaxState = shortTermLimit < 29.95 ? (v.shortTermMax > shortTermLimit ? 3 : 1) : 0;
  lines.push_back(loud("SHORT TERM MAX", v.shortTermMax, v.shortTermMax > -119.95 ? stMaxState : 0));
  lines.push_back(loud("MOMENTARY MAX", v.momentaryMax, 0));
  lines.push_back({"LOUDNESS RANGE", FormatDecimal(v.loudnessRange), "LU", "", 0});
  lines.push_back(
      {"TRUE PEAK MAX", FormatLoudness(v.truePeakMax), "dBTP", "", TruePeakState(v.truePeakMax, t)});
  lines.push_back({"AVERAGE DYNAMICS (PLR)", FormatDecimal(v.plr), "LU", "", 0});
  lines.push_back({"REALTIME DYNAMICS", FormatDecimal(v.realtimeDynamics), "LU", "", 0});
  return lines;
}

void LoudnessReadout::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  DrawPanel(g, r, t);
  const std::vector<ReadoutLine> lines = Lines();
  auto stateColor = [&](int s) {
    switch (s) {
      case 1:
        return t.ok;
      case 2:
        return t.warn;
      case 3:
        return t.bad;
      default:
        return t.text;
    }
  };
  const double pad = 10.0, w = r.W() - 2.0 * pad;
  // The integrated value, large, with a coloured strip on the left.
  const ReadoutLine& in = lines[0];
  const double bigH = std::min(96.0, std::max(48.0, r.H() * 0.26));
  double y = r.T + 6.0;
  DrawLabel(g, in.caption, r.L + pad, y, w, 14.0, 9.5, t.dim);
  g.new_path();
  g.rounded_rectangle(r.L + pad, y + 18.0, 4.0, bigH - 22.0, 2.0);
  g.set_color(in.state ? stateColor(in.state) : t.panelEdge);
  g.fill();
  const double valueSize = std::min(40.0, bigH * 0.48);
  DrawLabel(g, in.value, r.L + pad + 10.0, y + 14.0, w * 0.68, bigH * 0.58, valueSize, stateColor(in.state),
            tg_align::left, "OpenSans-Bold");
  DrawLabel(g, in.unit, r.L + pad + w * 0.70, y + 14.0, w * 0.30, bigH * 0.58, 12.0, t.dim, tg_align::right);
  DrawLabel(g, in.relative, r.L + pad + 10.0, y + 14.0 + bigH * 0.56, w - 10.0, bigH * 0.30, 12.0,
            in.state ? stateColor(in.state) : t.dim, tg_align::left, "OpenSans-SemiBold");
  y += bigH + 4.0;
  // The other lines share what is left.
  const size_t rest = lines.size() - 1;
  const double lineH = std::min(40.0, (r.B - 6.0 - y) / double(rest));
  if (lineH < 11.0) return;
  const double capSize = std::min(9.5, lineH * 0.42), valSize = std::min(17.0, lineH * 0.55);
  const bool twoRows = lineH >= 28.0;
  for (size_t i = 1; i < lines.size(); ++i) {
    const ReadoutLine& l = lines[i];
    g.new_path();
    g.move_to(r.L + pad, y + 0.5);
    g.line_to(r.R - pad, y + 0.5);
    g.set_line_style(1.0);
    g.set_color(t.grid);
    g.stroke();
    const tg_color vc = stateColor(l.state);
    if (twoRows) {
      DrawLabel(g, l.caption, r.L + pad, y + 2.0, w, lineH * 0.38, capSize, t.dim);
      DrawLabel(g, l.value, r.L + pad, y + lineH * 0.38, w * 0.45, lineH * 0.6, valSize, vc, tg_align::left,
                "OpenSans-Bold");
      DrawLabel(g, l.unit, r.L + pad + w * 0.45, y + lineH * 0.38, w * 0.2, lineH * 0.6, 9.0, t.dim);
      DrawLabel(g, l.relative, r.L + pad + w * 0.62, y + lineH * 0.38, w * 0.38, lineH * 0.6, 10.0, t.dim,
                tg_align::right);
    } else {
      DrawLabel(g, l.caption, r.L + pad, y, w * 0.55, lineH, capSize, t.dim);
      DrawLabel(g, l.value + " " + l.unit, r.L + pad + w * 0.55, y, w * 0.45, lineH,
                std::min(11.0, lineH * 0.6), vc, tg_align::right, "OpenSans-Bold");
    }
    y += lineH;
  }
}

}  // namespace velorum::ui
