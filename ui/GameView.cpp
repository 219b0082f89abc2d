#include "ui/GameView.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "graphics/IGraphics.h"
#include "graphics/tg_gl_plot.h"
#include "ui/UiFormat.h"

namespace velorum::ui {
namespace {

constexpr double kLow = -50.0, kHigh = 6.0;  // dB shown on the lane and the fader
constexpr double kPastSeconds = 1.0;
constexpr double kNudgeDb = 1.5;
constexpr int64_t kFlashSteps = 40;

// Editor units per simulation step on a lane.
double LaneStepWidth(const DRect& lane) {
  return lane.W() / ((kPastSeconds + GainRiderGame::kLookAhead) / GainRiderGame::kStepSeconds);
}

double LaneY(const DRect& r, double v) {
  const double f = std::clamp((v - kLow) / (kHigh - kLow), 0.0, 1.0);
  return r.B - f * r.H();
}

}  // namespace

GameView::GameView(EditorHost& host, const IRECT& r) : MeterControl(host, r) {
  Hide(true);
}

GameView::~GameView() = default;

void GameView::Open(uint32_t seed) {
  if (mGame) {
    mGame->SetPaused(false);
    return;
  }
  mGame = std::make_unique<GainRiderGame>(seed);
  Hide(false);
  SetDirty();
}

void GameView::Close() {
  if (!mGame) return;
  KeepHighScore();
  mGame.reset();
  Hide(true);
  mHost.RedrawAll();
}

long long GameView::HighScore() const {
  return std::max<long long>(mHost.Settings().gameHighScore, mGame ? mGame->Score() : 0);
}

void GameView::KeepHighScore() {
  UiSettings& s = mHost.Settings();
  if (!mGame || mGame->Score() <= s.gameHighScore) return;
  s.gameHighScore = mGame->Score();
  s.Save();
}

void GameView::Tick(double seconds) {
  if (!mGame) return;
  const bool wasOver = mGame->Over();
  if (mGame->Advance(seconds) > 0) SetDirty();
  if (!wasOver && mGame->Over()) KeepHighScore();
}

void GameView::OnFocusLost() {
  if (mGame && !mGame->Paused()) {
    mGame->SetPaused(true);
    SetDirty();
  }
}

IRECT GameView::FaderRect() const {
  const DRect r = D(GetRECT());
  return IRECT(float(r.R - 46.), float(r.T + 40.), float(r.R - 14.), float(r.B - 14.));
}

IRECT GameView::LaneRect() const {
  const DRect r = D(GetRECT());
  return IRECT(float(r.L + 14.), float(r.T + 40.), float(r.R - 58.), float(r.B - 14.));
}

IRECT GameView::CloseRect() const {
  const DRect r = D(GetRECT());
  return IRECT(float(r.R - 30.), float(r.T + 8.), float(r.R - 12.), float(r.T + 26.));
}

void GameView::FaderFromY(float y) {
  const DRect f = D(FaderRect());
  const double v = kLow + (f.B - double(y)) / std::max(1.0, f.H()) * (kHigh - kLow);
  // The fader shows the output level the cap puts the programme at: ride it
  // to where the output should sit, the gain follows.
  mGame->SetFader(v - mGame->Programme(mGame->Steps()));
}

bool GameView::OnKeyDown(float, float, int key) {
  if (!mGame) return false;
  GainRiderGame& game = *mGame;
  switch (key) {
    case KEY_UPARROW:
      game.NudgeFader(kNudgeDb);
      break;
    case KEY_DOWNARROW:
      game.NudgeFader(-kNudgeDb);
      break;
    case KEY_SPACE:
      if (game.Over())
        game.Restart();
      else
        game.SetPaused(!game.Paused());
      break;
    case KEY_ALPHA_A + ('p' - 'a'):
      game.SetPaused(true);
      break;
    case KEY_ALPHA_A + ('q' - 'a'):
      Close();
      return true;
    default:
      return true;  // the game has the keyboard while it is open
  }
  SetDirty();
  return true;
}

void GameView::OnMouseDown(float x, float y, const IMouseMod& mod) {
  if (!mGame || !mod.L) return;
  if (CloseRect().Contains(x, y)) {
    Close();
    return;
  }
  if (mGame->Over()) mGame->Restart();
  mGame->SetPaused(false);
  FaderFromY(y);
  SetDirty();
}

void GameView::OnMouseDrag(float, float y, float, float, const IMouseMod&) {
  if (!mGame) return;
  FaderFromY(y);
}

void GameView::OnMouseWheel(float, float, const IMouseMod&, float d) {
  if (mGame) mGame->NudgeFader(d > 0.f ? kNudgeDb : -kNudgeDb);
}

void GameView::Draw(tgraphics& g) {
  if (!mGame) return;
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.save();
  g.clip_rect(r.L, r.T, r.W(), r.H());
  DrawPanel(g, r, t, "GAIN RIDER");
  const DRect lane = D(LaneRect()), fader = D(FaderRect());
  if (lane.W() > 40.0 && lane.H() > 40.0) {
    DrawLane(g, lane);
    DrawFader(g, fader);
  }
  DrawHud(g, r);
  g.restore();
}

void GameView::DrawLane(tgraphics& g, const DRect& lane) {
  const Theme& t = Colors();
  const GainRiderGame& game = *mGame;
  const double gain = game.Gain();
  const int64_t now = game.Steps();
  const double stepsShown = (kPastSeconds + GainRiderGame::kLookAhead) / GainRiderGame::kStepSeconds;
  const double dx = lane.W() / stepsShown;
  const double nowX = lane.L + kPastSeconds / GainRiderGame::kStepSeconds * dx;
  const int64_t first = now - int64_t(kPastSeconds / GainRiderGame::kStepSeconds);
  const int64_t last = first + int64_t(stepsShown);
  auto x = [&](int64_t s) { return nowX + double(s - now) * dx; };

  g.save();
  g.clip_rect(lane.L, lane.T, lane.W(), lane.H());
  // The target band and the true-peak ceiling.
  const double bandT = LaneY(lane, GainRiderGame::kTarget + GainRiderGame::kTolerance);
  const double bandB = LaneY(lane, GainRiderGame::kTarget - GainRiderGame::kTolerance);
  g.new_path();
  g.rectangle(lane.L, bandT, lane.W(), bandB - bandT);
  g.set_color(WithAlpha(t.ok, 0.25));
  g.fill();
  g.set_line_style(1.0);
  g.new_path();
  g.move_to(lane.L, LaneY(lane, GainRiderGame::kCeiling));
  g.line_to(lane.R, LaneY(lane, GainRiderGame::kCeiling));
  g.set_color(WithAlpha(t.bad, 0.8));
  g.stroke();

  // Transients: spikes above the programme, red where they would clip.
  for (const GainRiderGame::Transient& tr : game.TransientsBetween(first, last)) {
    const double base = game.Programme(tr.step) + gain, top = base + tr.crest;
    g.new_path();
    g.move_to(x(tr.step), LaneY(lane, base));
    g.line_to(x(tr.step), LaneY(lane, top));
    g.set_line_style(2.5, CAIRO_LINE_CAP_ROUND);
    g.set_color(top > GainRiderGame::kCeiling ? t.bad : t.truePeak);
    g.stroke();
  }
  // The programme at the present gain: where the output will go unless ridden.
  if (!DrawProgrammeAccelerated(g, lane, first, last)) {
    g.new_path();
    for (int64_t s = first; s <= last; s += 2) {
      const double y = LaneY(lane, game.Programme(s) + gain);
      if (s == first)
        g.move_to(x(s), y);
      else
        g.line_to(x(s), y);
    }
    g.set_line_style(2.0, CAIRO_LINE_CAP_ROUND, CAIRO_LINE_JOIN_ROUND);
    g.set_color(t.shortTerm);
    g.stroke();
  }
  // The now-line and the output dot.
  g.new_path();
  g.move_to(nowX, lane.T);
  g.line_to(nowX, lane.B);
  g.set_line_style(1.0);
  g.set_color(t.dim);
  g.stroke();
  g.new_path();
  g.arc(nowX, LaneY(lane, game.Output()), 6.0, 0.0, 6.283185307179586);
  g.set_color(game.InBand() ? t.ok : t.warn);
  g.fill();
  g.restore();
}

bool GameView::DrawProgrammeAccelerated(tgraphics& g, const DRect& lane, int64_t first, int64_t last) {
  tg_gl_plot* gl = DrawsToWindow(g) ? mHost.Accelerated() : nullptr;
  if (!gl) return false;
  // The visible stretch of programme, every second step, as a series of its own.
  const GainRiderGame& game = *mGame;
  std::vector<float> values;
  for (int64_t s = first; s <= last; s += 2) values.push_back(float(game.Programme(s) + game.Gain()));
  const double scale = g.device_scale();
  const int w = static_cast<int>(std::lround(lane.W() * scale)),
            h = static_cast<int>(std::lround(lane.H() * scale));
  const tg_gl_view view{double(first), double(first) + lane.W() / LaneStepWidth(lane), kLow, kHigh};
  gl->clear(kGlSeries);
  gl->append(kGlSeries, values.data(), values.size());
  if (gl->begin(w, h)) {
    gl->line(kGlSeries, 0, values.size(), double(first), 2.0, view, Colors().shortTerm, 2.0 * scale);
    if (cairo_surface_t* image = gl->end()) {
      cairo_surface_set_device_scale(image, scale, scale);
      g.draw_surface(image, lane.L, lane.T);
      cairo_surface_destroy(image);
      return true;
    }
  }
  mHost.AcceleratedFailed();
  return false;
}

void GameView::DrawFader(tgraphics& g, const DRect& f) {
  const Theme& t = Colors();
  const GainRiderGame& game = *mGame;
  const double cx = (f.L + f.R) / 2.0;
  g.new_path();
  g.rounded_rectangle(cx - 3.0, f.T, 6.0, f.H(), 3.0);
  g.set_color(t.grid);
  g.fill();
  const double program = game.Programme(game.Steps());
  const double ghostY = LaneY(f, program + game.Fader()), capY = LaneY(f, game.Output());
  g.new_path();
  g.rounded_rectangle(f.L, ghostY - 3.0, f.W(), 6.0, 2.0);
  g.set_color(WithAlpha(t.accent, 0.35));
  g.fill();
  g.new_path();
  g.rounded_rectangle(f.L, capY - 9.0, f.W(), 18.0, 3.0);
  g.set_color(t.menu);
  g.fill_preserve();
  g.set_line_style(1.0);
  g.set_color(t.panelEdge);
  g.stroke();
  g.new_path();
  g.move_to(f.L + 3.0, capY + 0.5);
  g.line_to(f.R - 3.0, capY + 0.5);
  g.set_color(t.accent);
  g.stroke();
  DrawLabel(g, (game.Gain() >= 0 ? "+" : "") + FormatDecimal(game.Gain()), f.L - 20., f.B - 2., f.W() + 40.,
            12., 8.5, t.dim, tg_align::center, "OpenSans-Regular");
}

void GameView::DrawHud(tgraphics& g, const DRect& r) {
  const Theme& t = Colors();
  const GainRiderGame& game = *mGame;
  const std::string hud = "SCORE " + std::to_string(game.Score()) + "   x" + std::to_string(game.Combo()) +
                          "   HI " + std::to_string(HighScore());
  DrawLabel(g, hud, r.L + 120.0, r.T + 4.0, r.W() - 260.0, 22.0, 11.0, t.text, tg_align::center,
            "OpenSans-Bold");
  for (int i = 0; i < GainRiderGame::kLives; ++i) {
    g.new_path();
    g.arc(r.R - 110.0 + 14.0 * i, r.T + 17.0, 4.5, 0.0, 6.283185307179586);
    g.set_color(i < game.Lives() ? t.ok : t.grid);
    g.fill();
  }
  // The close box.
  const DRect c = D(CloseRect());
  g.new_path();
  g.move_to(c.L + 4.0, c.T + 4.0);
  g.line_to(c.R - 4.0, c.B - 4.0);
  g.move_to(c.R - 4.0, c.T + 4.0);
  g.line_to(c.L + 4.0, c.B - 4.0);
  g.set_line_style(1.5, CAIRO_LINE_CAP_ROUND);
  g.set_color(t.dim);
  g.stroke();

  const DRect lane = D(LaneRect());
  std::string banner;
  tg_color color = t.text;
  if (game.Over()) {
    banner = "GAME OVER - SPACE OR CLICK TO RIDE AGAIN";
  } else if (game.Paused()) {
    banner = "PAUSED - SPACE OR CLICK TO RIDE";
  } else if (game.LastOverStep() >= 0 && game.Steps() - game.LastOverStep() < kFlashSteps) {
    banner = "OVER!";
    color = t.bad;
  } else if (game.Steps() < 180) {
    banner = "KEEP IT IN THE BAND, KEEP THE PEAKS UNDER THE LINE";
    color = t.dim;
  }
  if (!banner.empty())
    DrawLabel(g, banner, lane.L, lane.T + 6.0, lane.W(), 24.0, 14.0, color, tg_align::center,
              "OpenSans-ExtraBold");
}

}  // namespace velorum::ui
