// The graphs' OpenGL path under a private X server (Mesa's software GL): the
// window's frames drawn with it match the cairo frames of the same scene
// within a stated tolerance, the switch works both ways at run time, and a
// GL that refuses to start or fails mid-session leaves the cairo drawing,
// pixel for pixel.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "../graphics/XvfbServer.h"
#include "MeterFixture.h"
#include "graphics/tg_gl_plot.h"
#include "ui/DistributionDisplay.h"
#include "ui/GameView.h"
#include "ui/HistoryGraph.h"

namespace velorum::testing {
namespace {

// The tolerance: antialiased edges differ between cairo and the GPU's
// multisampling, so at most 3 % of a graph's pixels may differ by more than
// 64 of 255 in any channel, and the mean difference stays under 4.
constexpr int kBigDifference = 64;
constexpr double kMaxBigShare = 0.03, kMaxMeanDifference = 4.0;

struct Frame {
  int width = 0, height = 0, stride = 0;
  std::vector<unsigned char> pixels;
};

struct Difference {
  double bigShare = 0.0, mean = 0.0;
};

Difference Compare(const Frame& a, const Frame& b, const IRECT& r) {
  long long big = 0, n = 0;
  double sum = 0.0;
  for (int y = int(r.T) + 1; y < int(r.B) - 1; ++y)
    for (int x = int(r.L) + 1; x < int(r.R) - 1; ++x) {
      int worst = 0;
      for (int c = 0; c < 4; ++c) {
        const size_t i = size_t(y) * size_t(a.stride) + size_t(x) * 4 + size_t(c);
        const int d = std::abs(int(a.pixels[i]) - int(b.pixels[i]));
        worst = std::max(worst, d);
        sum += d / 4.0;
      }
      big += worst > kBigDifference;
      ++n;
    }
  return {double(big) / double(std::max(1LL, n)), sum / double(std::max(1LL, n))};
}

class EditorGl : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    xvfb = new XvfbServer();
    meter = new MeterFixture("gl");
    meter->PlayProgramme(40.0);
  }
  static void TearDownTestSuite() {
    delete meter;
    delete xvfb;
  }
  void TearDown() override { tg_gl_plot::force_failure(tg_gl_plot::failure::none); }

  // One frame of the window drawn into its back buffer, with the setting.
  static Frame Draw(bool openGL, const char* screenshot = nullptr) {
    ui::MeterEditor& ed = meter->Editor();
    ed.Settings().openGL = openGL;
    IGraphics& gui = ed.Graphics();
    gui.SetAllControlsDirty();
    gui.Draw(IRECT(0.f, 0.f, float(gui.Width()), float(gui.Height())));
    cairo_surface_t* s = gui.BackBuffer();
    // VELORUM_SCREENSHOT_DIR=docs writes the frame for the documentation.
    if (const char* dir = std::getenv("VELORUM_SCREENSHOT_DIR"); dir && screenshot)
      cairo_surface_write_to_png(s, (std::string(dir) + "/" + screenshot).c_str());
    Frame f;
    f.width = cairo_image_surface_get_width(s);
    f.height = cairo_image_surface_get_height(s);
    f.stride = cairo_image_surface_get_stride(s);
    const unsigned char* d = cairo_image_surface_get_data(s);
    f.pixels.assign(d, d + size_t(f.stride) * size_t(f.height));
    return f;
  }
  static std::vector<IRECT> Graphs() {
    ui::MeterEditor& ed = meter->Editor();
    return {ed.Graph().GetRECT(), ed.Histogram(0).GetRECT(), ed.Histogram(1).GetRECT(),
            ed.Histogram(2).GetRECT()};
  }
  static void ExpectSame(const Frame& a, const Frame& b) {
    for (const IRECT& r : Graphs()) {
      const Difference d = Compare(a, b, r);
      EXPECT_EQ(d.mean, 0.0) << "graph at " << r.L << "," << r.T;
    }
  }

  static XvfbServer* xvfb;
  static MeterFixture* meter;
};
XvfbServer* EditorGl::xvfb = nullptr;
MeterFixture* EditorGl::meter = nullptr;

TEST_F(EditorGl, MatchesCairoAndSwitchesAtRunTime) {
  ASSERT_TRUE(xvfb->ok());
  ui::MeterEditor& ed = meter->Editor();
  const Frame cairo = Draw(false);
  EXPECT_EQ(ed.Accelerated(), nullptr);
  const Frame gl = Draw(true, "editor-opengl.png");
  ASSERT_NE(ed.Accelerated(), nullptr) << ed.AcceleratedProblem();
  EXPECT_TRUE(ed.AcceleratedProblem().empty());
  for (const IRECT& r : Graphs()) {
    const Difference d = Compare(cairo, gl, r);
    std::cout << "graph at " << r.L << "," << r.T << ": " << d.bigShare * 100.0
              << " % of pixels differ by more than " << kBigDifference << ", mean difference " << d.mean
              << "\n";
    EXPECT_LT(d.bigShare, kMaxBigShare) << "graph at " << r.L << "," << r.T;
    EXPECT_LT(d.mean, kMaxMeanDifference) << "graph at " << r.L << "," << r.T;
  }
  // The history grows: only the new part is uploaded, and the frame follows.
  meter->PlayProgramme(5.0);
  const Frame more = Draw(true);
  EXPECT_EQ(ed.Graph().TotalSeconds(), 45.0);
  // Off again: cairo's own frame, and no context kept.
  const Frame off = Draw(false);
  EXPECT_EQ(ed.Accelerated(), nullptr);
  const Frame onAgain = Draw(true);
  ASSERT_NE(ed.Accelerated(), nullptr);
  for (const IRECT& r : Graphs()) EXPECT_LT(Compare(off, onAgain, r).bigShare, kMaxBigShare);
  Draw(false);
}

TEST_F(EditorGl, FailuresFallBackToCairo) {
  ui::MeterEditor& ed = meter->Editor();
  const Frame cairo = Draw(false);
  // A GL that will not start: the frame is cairo's, and the reason is kept.
  tg_gl_plot::force_failure(tg_gl_plot::failure::start);
  ExpectSame(cairo, Draw(true));
  EXPECT_EQ(ed.Accelerated(), nullptr);
  EXPECT_FALSE(ed.AcceleratedProblem().empty());
  Draw(false);

  // A GL that fails mid-session: the failing frame itself is drawn by cairo.
  tg_gl_plot::force_failure(tg_gl_plot::failure::none);
  Draw(true);
  ASSERT_NE(ed.Accelerated(), nullptr);
  tg_gl_plot::force_failure(tg_gl_plot::failure::frame);
  ExpectSame(cairo, Draw(true));
  EXPECT_EQ(ed.Accelerated(), nullptr);
  EXPECT_FALSE(ed.AcceleratedProblem().empty());
  ExpectSame(cairo, Draw(true));
  Draw(false);
}

TEST_F(EditorGl, TheGameDrawsThroughOpenGLToo) {
  ui::MeterEditor& ed = meter->Editor();
  ui::GameView& view = ed.Game();
  const double integrated = meter->Plugin().Engine().Integrated();
  ed.OpenGame();
  ASSERT_TRUE(view.IsOpen());
  for (int i = 0; i < 120; ++i) {
    view.OnKeyDown(0.f, 0.f, i < 60 ? KEY_UPARROW : KEY_DOWNARROW);
    view.Tick(ui::GainRiderGame::kStepSeconds);
  }
  view.Game()->SetPaused(true);  // the frames below must show the same moment
  const Frame cairo = Draw(false);
  const Frame gl = Draw(true, "editor-game-opengl.png");
  ASSERT_NE(ed.Accelerated(), nullptr);
  const Difference d = Compare(cairo, gl, view.LaneRect());
  EXPECT_LT(d.bigShare, kMaxBigShare);
  EXPECT_LT(d.mean, kMaxMeanDifference);
  Draw(false);
  ed.Graphics().OnKeyDown(0.f, 0.f, KEY_ALPHA_A + ('q' - 'a'));
  EXPECT_FALSE(view.IsOpen());
  EXPECT_EQ(meter->Plugin().Engine().Integrated(), integrated);
}

}  // namespace
}  // namespace velorum::testing
