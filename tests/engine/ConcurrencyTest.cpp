// Readers on another thread while the audio thread measures: readings are
// read freely, the history under the engine mutex.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "EngineTestSignals.h"
#include "history/Distributions.h"

namespace velorum::test {
namespace {

TEST(Concurrency, EditorReadsWhileAudioThreadMeasures) {
  Signal s = MakeSignal(2);
  AppendSine(s, 4.0, -20.0);
  LoudnessEngine e;
  e.SetTimelineMode(true);
  Prepare(e, s);
  std::atomic<bool> done{false};
  std::atomic<long> reads{0};
  std::thread editor([&] {
    double sink = 0.0;
    while (!done.load()) {
      sink += e.Momentary() + e.ShortTerm() + e.Integrated() + e.TruePeakMax() + e.LoudnessRange();
      EngineLock lock(e.Mutex());
      const MeasurementHistory& h = e.History();
      if (h.Size10() > 0) sink += static_cast<double>(h.momentary.back());
      if (h.Size100() > 0) sink += static_cast<double>(h.momentaryPower[h.Size100() / 2]);
      reads.fetch_add(1);
    }
    EXPECT_FALSE(std::isnan(sink));
  });
  LoudnessDistribution distribution;
  for (int pass = 0; pass < 2; ++pass) {
    e.MoveTimelineOrigin(0);
    Feed(e, s, 256, [&](int) {
      EngineLock lock(e.Mutex());
      distribution.Update(e.History());
    });
  }
  e.Reset();
  done = true;
  editor.join();
  EXPECT_GT(reads.load(), 0);
}

}  // namespace
}  // namespace velorum::test
