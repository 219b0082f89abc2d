// The hidden game: the fixed-step simulation against known answers and
// scripted play, and the game opened, played and closed inside the editor
// while the meter goes on measuring, with the same readings as a meter that
// never saw the game.
#include <gtest/gtest.h>

#include "MeterFixture.h"
#include "graphics/IGraphicsTypes.h"
#include "ui/GainRiderGame.h"
#include "ui/GameView.h"
#include "ui/UiSettings.h"

namespace velorum::testing {
namespace {

using ui::GainRiderGame;

// Steps `n` times, applying each scripted input at its step first.
struct Input {
  int64_t step;
  double fader;
};
int64_t Play(GainRiderGame& game, int64_t steps, std::initializer_list<Input> script = {}) {
  for (int64_t s = 0; s < steps; ++s) {
    for (const Input& in : script)
      if (in.step == s) game.SetFader(in.fader);
    game.Step();
  }
  return game.Score();
}

TEST(GainRiderGame, KnownScoresOnAFlatProgramme) {
  // A programme at the target, untouched: 60 steps at x1, 60 at x2, ... 60
  // at x7, and the rest at x8. Ten seconds make 60 * 28 + 180 * 8 points.
  GainRiderGame atTarget(7, true, GainRiderGame::kTarget);
  EXPECT_EQ(Play(atTarget, 600), 3120);
  EXPECT_EQ(atTarget.Combo(), 8);
  EXPECT_EQ(atTarget.Lives(), 3);

  // 10 LU too quiet: nothing scores until the gain reaches +8 dB (the band's
  // lower edge); at 1 dB per step from the input at step 100 that is step
  // 107, then 500 - 107 = 393 steps score: 60 * (1 + ... + 6) + 33 * 7.
  GainRiderGame quiet(7, true, GainRiderGame::kTarget - 10.0);
  EXPECT_EQ(Play(quiet, 500, {{100, 10.0}}), 60 * 21 + 33 * 7);
  EXPECT_NEAR(quiet.Gain(), 10.0, 1e-9);

  // A ride out of the band resets the multiplier.
  GainRiderGame rideOut(7, true, GainRiderGame::kTarget);
  Play(rideOut, 200, {{130, 5.0}, {150, 0.0}});
  EXPECT_EQ(rideOut.Combo(), 1 + (200 - 158) / 60);
}

TEST(GainRiderGame, ScriptedPlayIsDeterministicAndOversCostLives) {
  // A rider that follows the programme to the target scores, one that leaves
  // the fader at +30 dB runs every transient into the ceiling.
  auto ride = [](uint32_t seed, bool follow) {
    GainRiderGame g(seed);
    for (int s = 0; s < 3600 && !g.Over(); ++s) {
      g.SetFader(follow ? GainRiderGame::kTarget - 4.0 - g.Programme(g.Steps() + 3) : 30.0);
      g.Step();
    }
    return g;
  };
  const GainRiderGame a = ride(42, true), b = ride(42, true), c = ride(43, true);
  EXPECT_EQ(a.Score(), b.Score());
  EXPECT_EQ(a.Lives(), b.Lives());
  EXPECT_NE(a.Score(), c.Score());
  EXPECT_GT(a.Score(), 0);
  const GainRiderGame reckless = ride(42, false);
  EXPECT_TRUE(reckless.Over());
  EXPECT_LT(reckless.Score(), 5);  // only on the way up through the band
  EXPECT_GE(reckless.LastOverStep(), 0);

  // Nothing moves while paused or over; Advance carries the remainder.
  GainRiderGame g(5, true);
  g.SetPaused(true);
  EXPECT_EQ(g.Advance(1.0), 0);
  g.SetPaused(false);
  EXPECT_EQ(g.Advance(2.5 * GainRiderGame::kStepSeconds), 2);
  EXPECT_EQ(g.Advance(0.5 * GainRiderGame::kStepSeconds), 1);
  EXPECT_EQ(g.Advance(10.0), 8);  // a stalled editor does not run the game away
  EXPECT_EQ(g.Steps(), 11);
}

TEST(GameInEditor, PlayingLeavesTheReadingsAloneAndKeepsTheHighScore) {
  MeterFixture played("game"), untouched("game-untouched");
  played.PlayProgramme(5.0);
  untouched.PlayProgramme(5.0);
  ui::MeterEditor& ed = played.Editor();
  ui::GameView& view = ed.Game();
  EXPECT_FALSE(view.IsOpen());
  EXPECT_TRUE(view.IsHidden());

  // The gesture: Shift + double-click on the logo.
  IMouseMod shift;
  shift.L = shift.S = true;
  ed.Graphics().OnMouseDblClick(20.f, 10.f, shift);
  ASSERT_TRUE(view.IsOpen());
  ASSERT_NE(view.Game(), nullptr);
  // Keys go to the game; the meter goes on measuring meanwhile.
  for (int i = 0; i < 300; ++i) {
    ed.Graphics().OnKeyDown(200.f, 200.f, i % 40 < 20 ? KEY_UPARROW : KEY_DOWNARROW);
    view.Tick(GainRiderGame::kStepSeconds);
    if (i % 30 == 0) {
      // The game's region drawn as the window draws it (the editor's frame
      // control in the top-left corner, which moves the game by wall time,
      // is outside it).
      IGraphics& gui = ed.Graphics();
      cairo_surface_t* s = tg_create_image_surface(gui.Width(), gui.Height(), 1.0);
      {
        tgraphics ctx(s, gui.Width(), gui.Height(), 1.0);
        gui.DrawControls(ctx, view.GetRECT(), false);
      }
      cairo_surface_destroy(s);
    }
    played.PlayProgramme(0.02);
    untouched.PlayProgramme(0.02);
  }
  // The seed comes from the clock: the game ran every step, or until its last life.
  EXPECT_TRUE(view.Game()->Steps() == 300 || view.Game()->Over()) << view.Game()->Steps();
  // VELORUM_SCREENSHOT_DIR=docs writes the game for the documentation.
  if (const char* dir = std::getenv("VELORUM_SCREENSHOT_DIR")) {
    cairo_surface_t* shot = played.Render(1.0);
    cairo_surface_write_to_png(shot, (std::string(dir) + "/editor-game.png").c_str());
    cairo_surface_destroy(shot);
  }
  const long long score = view.Game()->Score();
  view.OnFocusLost();
  EXPECT_TRUE(view.Game()->Paused());
  ed.Graphics().OnKeyDown(200.f, 200.f, KEY_ALPHA_A + ('q' - 'a'));
  EXPECT_FALSE(view.IsOpen());
  EXPECT_TRUE(view.IsHidden());

  const LoudnessEngine &a = played.Plugin().Engine(), &b = untouched.Plugin().Engine();
  EXPECT_EQ(a.Integrated(), b.Integrated());
  EXPECT_EQ(a.LoudnessRange(), b.LoudnessRange());
  EXPECT_EQ(a.TruePeakMax(), b.TruePeakMax());
  EXPECT_EQ(a.Steps10(), b.Steps10());
  EXPECT_EQ(ui::UiSettings(ed.Settings().FolderPath()).gameHighScore, score);
}

}  // namespace
}  // namespace velorum::testing
