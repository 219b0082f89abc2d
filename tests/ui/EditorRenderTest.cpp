// The editor drawn offscreen with a measured programme: the readouts show the
// engine's values, the graph spans the measurement, every control stays
// inside its rectangle, in both themes and at two scales.
#include <gtest/gtest.h>

#include <algorithm>

#include "../graphics/GraphicsTestUtil.h"
#include "MeterFixture.h"
#include "ui/DistributionDisplay.h"
#include "ui/HistoryGraph.h"
#include "ui/LoudnessReadout.h"
#include "ui/TruePeakMeterBar.h"
#include "ui/UiFormat.h"

namespace velorum::testing {
namespace {

using ui::FormatLoudness;

class EditorRender : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    meter = new MeterFixture("render");
    // 10 s at -23 LUFS, then 10 s 10 dB louder.
    meter->PlaySine(10.0, -23.0);
    meter->PlaySine(10.0, -13.0);
  }
  static void TearDownTestSuite() {
    delete meter;
    meter = nullptr;
  }
  static MeterFixture* meter;
};
MeterFixture* EditorRender::meter = nullptr;

TEST_F(EditorRender, ReadoutsShowTheEngineValues) {
  ui::MeterEditor& ed = meter->Editor();
  const LoudnessEngine& e = meter->Plugin().Engine();
  ed.OnFrame();
  const auto lines = ed.Readout().Lines();
  ASSERT_GE(lines.size(), 9u);
  EXPECT_EQ(lines[0].caption, "INTEGRATED");
  EXPECT_EQ(lines[0].value, FormatLoudness(e.Integrated()));
  EXPECT_EQ(lines[0].value, FormatLoudness(meter->Plugin().ParamValue(param::kShownIntegrated)));
  EXPECT_EQ(lines[0].unit, "LUFS");
  // The programme is 10 dB above the -23 target for half its length.
  EXPECT_GT(e.Integrated(), -17.0);
  EXPECT_EQ(lines[0].state, 3);  // outside the window of the default preset
  EXPECT_EQ(lines[1].value, FormatLoudness(e.ShortTerm()));
  EXPECT_EQ(lines[2].value, FormatLoudness(e.Momentary()));
  EXPECT_EQ(lines[4].value, FormatLoudness(e.MomentaryMax()));
  EXPECT_EQ(lines[5].value, ui::FormatDecimal(e.LoudnessRange()));
  EXPECT_EQ(lines[6].caption, "TRUE PEAK MAX");
  EXPECT_EQ(lines[6].value, FormatLoudness(e.TruePeakMax()));
  EXPECT_NEAR(e.TruePeakMax(), -13.0, 0.2);
  EXPECT_EQ(lines[7].caption, "AVERAGE DYNAMICS (PLR)");
  EXPECT_EQ(lines[8].caption, "REALTIME DYNAMICS");
  EXPECT_EQ(lines[2].relative, ui::FormatRelative(e.Momentary(), -23.0));

  // A selected range: the readouts show its integrated value, close to the
  // -23 LUFS of the first half.
  ed.Model().SetSelection(1.0, 9.0);
  const auto sel = ed.Readout().Lines();
  EXPECT_EQ(sel[0].caption, "INTEGRATED (SELECTION)");
  EXPECT_EQ(sel[0].value, FormatLoudness(e.MeasureRange(10, 90).integrated));
  EXPECT_NEAR(e.MeasureRange(10, 90).integrated, -23.0, 0.1);
  EXPECT_EQ(sel[0].state, 1);
  // The plug-in publishes the same value for the selected range with its next block.
  meter->PlaySine(0.01, -23.0);
  EXPECT_EQ(FormatLoudness(meter->Plugin().ParamValue(param::kShownIntegrated)), sel[0].value);
  ed.Model().ClearSelection();

  // The unit setting and a dialogue preset change what the readouts say.
  meter->Plugin().SetParam(param::kUnitLkfs, 1.0);
  EXPECT_EQ(ed.Readout().Lines()[0].unit, "LKFS");
  meter->Plugin().ApplyStandardIndex(28);  // "NETFLIX": dialogue-gated, -27 LKFS
  const auto dial = ed.Readout().Lines();
  ASSERT_GE(dial.size(), 11u);
  EXPECT_EQ(dial[1].caption, "INTEGRATED DIAL");
  EXPECT_EQ(dial[1].value, FormatLoudness(e.IntegratedDialogue()));
  EXPECT_EQ(dial[2].caption, "Speech Content");
  meter->Plugin().ApplyStandardIndex(29);  // back to "DEFAULT"
  EXPECT_EQ(ed.Readout().Lines()[0].unit, "LUFS");
  EXPECT_EQ(ed.Readout().Lines().size(), 9u);
}

TEST_F(EditorRender, GraphSpansTheMeasurement) {
  ui::MeterEditor& ed = meter->Editor();
  ui::HistoryGraph& graph = ed.Graph();
  cairo_surface_t* s = meter->Render(1.0);
  cairo_surface_destroy(s);
  EXPECT_NEAR(graph.TotalSeconds(), 20.0, 0.05);
  EXPECT_EQ(graph.ViewStart(), 0.0);
  EXPECT_NEAR(graph.ViewLength(), 20.0, 0.05);
  EXPECT_NEAR(graph.XAtTime(0.0), graph.PlotRect().L, 0.01);
  EXPECT_NEAR(graph.XAtTime(graph.TotalSeconds()), graph.PlotRect().R, 0.5);
  // Zoom in around the middle, scroll to the end, and back to the whole.
  const float mid = (graph.PlotRect().L + graph.PlotRect().R) / 2.f;
  graph.Zoom(4.0, mid);
  EXPECT_NEAR(graph.ViewLength(), 5.0, 0.01);
  EXPECT_NEAR(graph.ViewStart() + graph.ViewLength() / 2.0, 10.0, 0.05);
  graph.ScrollBy(100.0);
  EXPECT_NEAR(graph.ViewStart() + graph.ViewLength(), 20.0, 0.05);
  EXPECT_EQ(graph.Mode(), ui::HistoryGraph::ViewMode::Follow);
  graph.ShowAll();
  s = meter->Render(1.0);
  cairo_surface_destroy(s);
  EXPECT_NEAR(graph.ViewLength(), 20.0, 0.05);
  // A drag selects a range of the timeline, a click clears it.
  const IRECT p = graph.PlotRect();
  const float x0 = graph.XAtTime(5.0), x1 = graph.XAtTime(15.0), y = (p.T + p.B) / 2.f;
  IMouseMod left;
  left.L = true;
  graph.OnMouseDown(x0, y, left);
  graph.OnMouseDrag(x1, y, x1 - x0, 0.f, left);
  graph.OnMouseUp(x1, y, left);
  EXPECT_NEAR(ed.Model().SelectionBegin(), 5.0, 0.05);
  EXPECT_NEAR(ed.Model().SelectionEnd(), 15.0, 0.05);
  graph.OnMouseDown(x0, y, left);
  graph.OnMouseUp(x0, y, left);
  EXPECT_FALSE(ed.Model().HasSelection());
}

TEST_F(EditorRender, HistogramsCountTheProgramme) {
  ui::MeterEditor& ed = meter->Editor();
  cairo_surface_t* s = meter->Render(1.0);
  cairo_surface_destroy(s);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(ed.Histogram(i).ShowedWarmUp());
  // Loudness: 20 s of 100 ms blocks in two levels; the fullest bar holds about half.
  EXPECT_GT(ed.Histogram(0).LastPeakCount(), 60.0);
  EXPECT_GT(ed.Histogram(2).LastPeakCount(), 60.0);
  EXPECT_EQ(ed.PeakBars().DrawnChannels(), 2);
}

// Every control draws only inside its rectangle (panel shadows may reach a
// few units below it).
TEST_F(EditorRender, NothingIsDrawnOutsideItsPanel) {
  ui::MeterEditor& ed = meter->Editor();
  IGraphics& gui = ed.Graphics();
  for (double scale : {1.0, 2.0}) {
    for (int i = 0; i < gui.NControls(); ++i) {
      IControl* c = gui.GetControl(i);
      if (c->IsHidden() || i == 0) continue;
      cairo_surface_t* s = tg_create_image_surface(gui.Width(), gui.Height(), scale);
      {
        tgraphics g(s, gui.Width(), gui.Height(), scale);
        g.save();
        c->Draw(g);
        g.restore();
      }
      const InkBox ink = FindInk(s, 0u);
      cairo_surface_destroy(s);
      if (ink.empty()) continue;
      const ui::DRect r = ui::D(c->GetRECT());
      const double tol = 1.0 * scale;
      EXPECT_GE(ink.left, r.L * scale - tol) << "control " << i;
      EXPECT_GE(ink.top, r.T * scale - tol) << "control " << i;
      EXPECT_LE(ink.right, r.R * scale + tol) << "control " << i;
      EXPECT_LE(ink.bottom, r.B * scale + 6.0 * scale) << "control " << i;
    }
  }
}

// Both themes at 100 % and 200 %: the picture doubles, the theme's colours show.
TEST_F(EditorRender, ThemesAndScales) {
  ui::MeterEditor& ed = meter->Editor();
  const std::string docs = OutputPath("");
  for (int dark = 1; dark >= 0; --dark) {
    ed.Settings().theme = dark;
    ed.ApplyTheme();
    cairo_surface_t* one = meter->Render(1.0);
    cairo_surface_t* two = meter->Render(2.0);
    EXPECT_EQ(cairo_image_surface_get_width(two), 2 * cairo_image_surface_get_width(one));
    EXPECT_EQ(cairo_image_surface_get_height(two), 2 * cairo_image_surface_get_height(one));
    // The background colour in the status-free corner between panels.
    const uint32_t bg = PixelAt(one, 3, ed.Layout().readout.B > 0 ? int(ed.Layout().readout.T) + 20 : 50);
    if (dark)
      EXPECT_LT(Red(bg), 80);
    else
      EXPECT_GT(Red(bg), 180);
    // At 200 % the same place has the same colour.
    EXPECT_EQ(PixelAt(two, 6, 2 * (int(ed.Layout().readout.T) + 20)), bg);
    const std::string name = dark ? "editor-dark" : "editor-white";
    tg_write_png(one, OutputPath(name + ".png"));
    tg_write_png(two, OutputPath(name + "@2x.png"));
    cairo_surface_destroy(one);
    cairo_surface_destroy(two);
  }
  ed.Settings().theme = 1;
  ed.ApplyTheme();
}

// From an insert-sized window to full screen, every part stays inside the editor
// and the parts never overlap.
TEST(EditorLayout, ScalesFromInsertToFullScreen) {
  for (auto [w, h] : {std::pair{360, 240}, {560, 340}, {960, 600}, {1920, 1080}, {3840, 2100}}) {
    const ui::MeterLayout l = ui::MeterLayout::Compute(float(w), float(h), 6);
    std::vector<IRECT> parts = {l.readout, l.loudnessBar, l.truePeakBar};
    if (l.showGraph) parts.push_back(l.graph);
    if (l.showHistograms) parts.insert(parts.end(), {l.histograms[0], l.histograms[1], l.histograms[2]});
    for (size_t i = 0; i < parts.size(); ++i) {
      EXPECT_FALSE(parts[i].Empty()) << w << "x" << h << " part " << i;
      EXPECT_GE(parts[i].L, 0.f);
      EXPECT_LE(parts[i].R, float(w));
      EXPECT_GE(parts[i].T, l.topBar.B);
      EXPECT_LE(parts[i].B, l.statusBar.T);
      for (size_t j = i + 1; j < parts.size(); ++j)
        EXPECT_FALSE(parts[i].Intersects(parts[j])) << w << "x" << h << " parts " << i << " " << j;
    }
    for (int b = 0; b < ui::MeterLayout::kButtons; ++b) EXPECT_LE(l.buttons[b].R, float(w));
    EXPECT_EQ(l.showGraph, w >= 560 && h >= 330);
  }
}

}  // namespace
}  // namespace velorum::testing

namespace velorum::testing {
namespace {

// A moving programme under the EBU R128 preset, drawn in both themes, as an
// insert-sized window and with the settings page open. The pictures are the
// documentation's screenshots.
TEST(EditorScreenshots, ProgrammeInBothThemesAndSizes) {
  MeterFixture meter("screenshots");
  meter.Plugin().ApplyStandardIndex(1);  // "EBU R128"
  meter.PlayProgramme(150.0);
  ui::MeterEditor& ed = meter.Editor();
  ed.Model().SetSelection(40.0, 70.0);
  for (int dark = 1; dark >= 0; --dark) {
    ed.Settings().theme = dark;
    ed.ApplyTheme();
    cairo_surface_t* s = meter.Render(1.0);
    EXPECT_TRUE(tg_write_png(s, OutputPath(dark ? "docs-editor-dark.png" : "docs-editor-white.png")));
    cairo_surface_destroy(s);
  }
  ed.Settings().theme = 1;
  ed.ApplyTheme();
  ed.ToggleSettings();
  cairo_surface_t* s = meter.Render(1.0);
  EXPECT_TRUE(tg_write_png(s, OutputPath("docs-editor-settings.png")));
  cairo_surface_destroy(s);
  ed.ToggleSettings();
  EXPECT_FALSE(ed.SettingsShown());

  // Insert-sized: the readouts and bars only.
  ed.Graphics().SetEditorSize(420, 280);
  s = meter.Render(1.0);
  EXPECT_TRUE(ed.Graph().IsHidden());
  EXPECT_FALSE(ed.Readout().IsHidden());
  EXPECT_LE(ed.Readout().GetRECT().R, 420.f);
  EXPECT_EQ(ed.Rect().right, 420);
  EXPECT_TRUE(tg_write_png(s, OutputPath("docs-editor-small.png")));
  cairo_surface_destroy(s);
  ed.Graphics().SetEditorSize(ui::MeterLayout::kBaseWidth, ui::MeterLayout::kBaseHeight);
  s = meter.Render(1.0);
  cairo_surface_destroy(s);
  EXPECT_FALSE(ed.Graph().IsHidden());
}

}  // namespace
}  // namespace velorum::testing
