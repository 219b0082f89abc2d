// The editor drawn, clicked and reconfigured on one thread while the audio
// thread measures on another: no deadlock, no torn history, and the graph
// ends up spanning the whole measurement.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "MeterFixture.h"
#include "ui/HistoryGraph.h"
#include "ui/LoudnessReadout.h"

namespace velorum::testing {
namespace {

TEST(EditorConcurrency, DrawingWhileTheAudioThreadMeasures) {
  MeterFixture meter("concurrency");
  ui::MeterEditor& ed = meter.Editor();
  std::atomic<bool> done{false};
  std::thread audio([&] {
    meter.PlayProgramme(30.0);
    done = true;
  });
  int frames = 0;
  while (!done.load()) {
    ed.Model().SetSelection(frames % 7, frames % 7 + 3.0);
    if (frames % 5 == 0) meter.Plugin().ApplyStandardIndex(frames % 10 == 0 ? 1 : 7);
    if (frames % 3 == 0) ed.Graph().Zoom(frames % 6 == 0 ? 2.0 : 0.5, 500.f);
    cairo_surface_t* s = meter.Render(1.0);
    cairo_surface_destroy(s);
    EXPECT_FALSE(ed.Readout().Lines().empty());
    ++frames;
  }
  audio.join();
  EXPECT_GT(frames, 2);
  ed.Model().ClearSelection();
  ed.Graph().ShowAll();
  cairo_surface_t* s = meter.Render(1.0);
  cairo_surface_destroy(s);
  EXPECT_NEAR(ed.Graph().TotalSeconds(), 30.0, 0.05);
  EXPECT_NEAR(ed.Graph().ViewLength(), 30.0, 0.05);
}

}  // namespace
}  // namespace velorum::testing
