// Copies of a history taken a slice at a time while a writer works between
// the slices. The writer runs inside the lock's release, so every interleaving
// tested is fixed, not left to the scheduler.
#include <gtest/gtest.h>

#include <functional>

#include "history/HistorySnapshot.h"

namespace velorum {
namespace {

using H = MeasurementHistory;

// Appends `steps` 10 ms steps (and their blocks) as the engine does.
void Measure(H& h, int steps) {
  for (int k = 0; k < steps; ++k) {
    const auto i = static_cast<int32_t>(h.Size10());
    const auto v = static_cast<float>(-20 - i % 37);
    for (auto* a : {&h.momentary, &h.shortTerm, &h.truePeak, &h.dynamics})
      H::Write(*a, 0, i, v, H::kLoudnessFill);
    for (auto* a : {&h.stepFlags, &h.stateFlags, &h.speechFlags}) H::Write(*a, 0, i, uint8_t(1), uint8_t(2));
    if (i % 10 == 9) {
      for (auto* a :
           {&h.momentaryPower, &h.shortTermPower, &h.integrated, &h.loudnessRange, &h.dialogueMomentaryPower,
            &h.dialogueShortTermPower, &h.dialogueIntegrated, &h.dialogueRange})
        H::Write(*a, 0, i / 10, v, H::kPowerFill);
      for (auto* a : {&h.blockFlags, &h.dialogueFlags}) H::Write(*a, 0, i / 10, uint8_t(1), uint8_t(2));
    }
    h.end10 = i + 1;
  }
}

bool SameArrays(const H& a, const H& b) {
  return a.momentary == b.momentary && a.shortTerm == b.shortTerm && a.truePeak == b.truePeak &&
         a.dynamics == b.dynamics && a.stepFlags == b.stepFlags && a.stateFlags == b.stateFlags &&
         a.speechFlags == b.speechFlags && a.momentaryPower == b.momentaryPower &&
         a.shortTermPower == b.shortTermPower && a.integrated == b.integrated &&
         a.loudnessRange == b.loudnessRange && a.blockFlags == b.blockFlags &&
         a.dialogueMomentaryPower == b.dialogueMomentaryPower &&
         a.dialogueShortTermPower == b.dialogueShortTermPower &&
         a.dialogueIntegrated == b.dialogueIntegrated && a.dialogueRange == b.dialogueRange &&
         a.dialogueFlags == b.dialogueFlags && a.end10 == b.end10;
}

// A lock whose release lets the writer run: `between(hold)` after each hold.
struct SteppingLock {
  std::function<void(int)> between;
  int holds = 0;
  bool held = false;
  void lock() {
    EXPECT_FALSE(held);
    held = true;
  }
  void unlock() {
    held = false;
    if (between) between(++holds);
  }
};

TEST(HistorySnapshot, CopiesALongHistoryInBoundedSlicesWhileTheWriterAppends) {
  H live;
  Measure(live, 300000);  // 50 minutes
  SteppingLock lock{[&](int) { Measure(live, 50); }};
  H copy;
  const auto stats = HistorySnapshot::Take(live, lock, copy);
  EXPECT_LE(stats.largestSlice, HistorySnapshot::kSlice10);
  EXPECT_GE(stats.holds, 300000 / HistorySnapshot::kSlice10);
  EXPECT_EQ(stats.restarts, 0);
  Measure(copy, 50);  // the writer ran once more after the last slice
  EXPECT_TRUE(SameArrays(copy, live));
}

TEST(HistorySnapshot, AResetDuringTheCopyStartsItAgain) {
  H live;
  Measure(live, 100000);
  SteppingLock lock{[&](int hold) {
    if (hold == 2) {
      live.Clear();
      Measure(live, 70000);
    }
  }};
  H copy;
  const auto stats = HistorySnapshot::Take(live, lock, copy);
  EXPECT_EQ(stats.restarts, 1);
  EXPECT_TRUE(SameArrays(copy, live));
  EXPECT_EQ(copy.generation, live.generation);
}

TEST(HistorySnapshot, GrowAheadLeavesRoomSoTheWriterNeverReallocates) {
  H live;
  Measure(live, 120000);
  SteppingLock lock{[&](int) { Measure(live, 30); }};
  const H before = live;
  EXPECT_TRUE(HistorySnapshot::GrowAhead(live, lock, 90000));
  EXPECT_GE(live.momentary.capacity() - live.momentary.size(), 90000u);
  EXPECT_GE(live.dialogueFlags.capacity() - live.dialogueFlags.size(), 9000u);
  const float* data = live.momentary.data();
  lock.between = nullptr;
  Measure(live, 80000);
  EXPECT_EQ(live.momentary.data(), data);  // appended in place
  H expected = before;
  Measure(expected, int(live.Size10() - before.Size10()));
  EXPECT_TRUE(SameArrays(live, expected));
  Measure(live, 100000);
  EXPECT_TRUE(HistorySnapshot::GrowAhead(live, lock, 90000));  // short again
  EXPECT_FALSE(HistorySnapshot::GrowAhead(live, lock, 90000));
}

}  // namespace
}  // namespace velorum
