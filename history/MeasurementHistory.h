// The whole measurement as dense per-step arrays ("graph memory"), indexed by
// position on the timeline: one entry per 10 ms step and per 100 ms block.
//
// The engine writes it on the audio thread; readers (graph, export, state)
// hold the engine's mutex while they read. The arrays are public so that the
// state code can serialise them and put restored data back; after a restore
// call LoudnessEngine::RebuildFromHistory() so that the gating sums and the
// readings agree with the arrays again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velorum {

// Meaning of the per-step state byte (stateFlags): a bit set.
enum StepState : std::uint8_t {
  kStateUnsettled = 1,  // not a settled measurement: never measured (fill),
                        // or the 3 s short-term window had not filled since
                        // the last reset or signal-chain restart
  kStatePaused = 2,     // measurement was paused; values are fills
  kStateEco = 4,        // eco true-peak mode was on
};

// Step and block flags.
inline constexpr std::uint8_t kFlagWarmUp = 0;    // written during warm-up, not valid
inline constexpr std::uint8_t kFlagMeasured = 1;  // measured
inline constexpr std::uint8_t kFlagBefore = 2;    // before the measured region (fill)

// What the newest write of one quantity replaced (timeline mode, when a
// position is measured again). `index` is the 100 ms block of the write.
struct ReplacedValue {
  std::int32_t index = -1;
  float value = 0.0f;
  bool replaced = false;
};

class MeasurementHistory {
 public:
  // Fill values of entries that are created without being measured.
  static constexpr float kLoudnessFill = -120.0f;
  static constexpr float kPeakFill = -120.0f;
  static constexpr float kDynamicsFill = 0.0f;
  static constexpr float kPowerFill = 1e-12f;
  static constexpr float kRangeFill = 0.0f;
  static constexpr std::uint8_t kStepFlagFill = kFlagBefore;
  static constexpr std::uint8_t kStateFill = kStateUnsettled;
  static constexpr std::uint8_t kSpeechFill = 0;
  static constexpr std::uint8_t kBlockFlagFill = kFlagBefore;

  // 10 ms histories
  std::vector<float> momentary;  // LUFS
  std::vector<float> shortTerm;  // LUFS
  std::vector<float> truePeak;   // dBTP, overall true peak of the step
  std::vector<float> dynamics;   // realtime dynamics, LU
  std::vector<std::uint8_t> stepFlags;
  std::vector<std::uint8_t> stateFlags;   // StepState bits
  std::vector<std::uint8_t> speechFlags;  // dialogue detection bits

  // 100 ms histories
  std::vector<float> momentaryPower;  // linear offset power of the 400 ms block
  std::vector<float> shortTermPower;  // linear offset power of the 3 s block
  std::vector<float> integrated;      // LUFS
  std::vector<float> loudnessRange;   // LU
  std::vector<std::uint8_t> blockFlags;

  // 100 ms dialogue-gated histories (written by the dialogue gate)
  std::vector<float> dialogueMomentaryPower;  // fill 1e-12
  std::vector<float> dialogueShortTermPower;  // fill 1e-12
  std::vector<float> dialogueIntegrated;      // fill -120.0
  std::vector<float> dialogueRange;           // fill 0.0
  std::vector<std::uint8_t> dialogueFlags;    // fill 2

  // Bookkeeping.
  std::int32_t start10 = 0;   // first measured 10 ms index
  std::int32_t start100 = 0;  // first measured 100 ms index
  bool startKnown = false;
  bool timelineMode = false;
  std::int32_t end10 = 0;        // one past the newest written 10 ms index
  std::int32_t end100 = 0;       // one past the newest written 100 ms index
  std::int32_t current100 = -1;  // newest written 100 ms index, -1 when none
  // Counts the changes that are not appends or rewrites of single steps
  // (resizes, clears, a restored history swapped in), so that a copy made
  // a slice at a time knows when to start again (HistorySnapshot.h).
  std::uint64_t generation = 0;

  // What the newest 100 ms step replaced in the 10 ms entry that the
  // distributions read for that block (see Distributions.h).
  ReplacedValue replacedLoudness;
  ReplacedValue replacedTruePeak;
  ReplacedValue replacedDynamics;

  // Write one entry: grow to `start` with fill, grow to `index` with fill,
  // then append or overwrite. A negative index is taken as 0.
  static void Write(std::vector<float>& h, std::int32_t start, std::int32_t index, float value, float fill);
  static void Write(std::vector<std::uint8_t>& h, std::int32_t start, std::int32_t index, std::uint8_t value,
                    std::uint8_t fill);

  // Sets every 100 ms history to count100 entries and every 10 ms history to
  // count10, new entries at their fills. In timeline mode the entries from
  // each history's end index to its size are first overwritten with fills.
  void Resize(std::size_t count100, std::size_t count10);

  // Empties every history and the bookkeeping (Resize(0, 0) plus starts).
  void Clear();

  std::size_t Size10() const { return momentary.size(); }
  std::size_t Size100() const { return momentaryPower.size(); }

  // The 10 ms entry that stands for 100 ms block `index100` (its last step).
  static std::int32_t TenMsIndexOfBlock(std::int32_t index100) { return index100 * 10 + 9; }

  // Gives every array of one resolution the same length (the longest one),
  // padding with fills; used after restoring arrays from a saved state.
  void Normalise();

  // Approximate bytes held by the arrays.
  std::size_t MemoryBytes() const;
};

}  // namespace velorum
