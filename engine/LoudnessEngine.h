// The BS.1770-4 / EBU R128 measurement engine: K-weighting, momentary and
// short-term loudness, gated integrated loudness, loudness range, true peak,
// dynamics (PLR and realtime dynamics), and the measurement history.
//
// Threads: ProcessSample/ProcessBlock run on one audio thread. The readings
// are atomics and may be read from any thread. The history is read under the
// engine mutex:  EngineLock lock(engine.Mutex()); use engine.History() ...
// Configuration calls (SetSampleRate, SetLayout, ...) are made between blocks
// by the thread that processes.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/ChannelLayouts.h"
#include "engine/EngineMutex.h"
#include "history/MeasurementHistory.h"

namespace velorum {

class DialogueGate;
struct EngineCore;

// Instruction-set paths of the hot loops. Every path gives bit-identical
// readings; the fastest one the CPU supports is chosen at construction.
enum class CodePath : int { Scalar = 0, Sse2 = 1, Avx2 = 2, Avx512 = 3 };
bool CodePathSupported(CodePath path);
CodePath BestCodePath();
const char* CodePathName(CodePath path);

// The values the plug-in's state keeps beside the history.
struct LoudnessResult {
  bool valid = false;            // at least one 100 ms block measured since the reset
  double integrated = -120.0;    // LUFS
  double loudnessRange = 0.0;    // LU
  double truePeakMax = -120.0;   // dBTP
  double momentaryMax = -120.0;  // LUFS
  double shortTermMax = -120.0;  // LUFS
  double loudnessRangeLow = -120.0;
  double loudnessRangeHigh = -120.0;
  double plr = 0.0;  // LU
  std::int64_t measuredSamples = 0;
};

// Integrated loudness and loudness range over a part of the history.
struct RangeReading {
  double integrated = -120.0;
  double loudnessRange = 0.0;
  double loudnessRangeLow = -120.0;
  double loudnessRangeHigh = -120.0;
  std::int32_t blocks = 0;  // measured 100 ms blocks inside the range
};

// The values of a whole programme with the final gates, as BS.1770-4 and
// EBU Tech 3342 define them for a finished measurement: every complete 400 ms
// gating block (75 % overlap) is gated against the relative threshold of all
// blocks, not only those seen up to the last block that passed it.
struct ProgrammeValues {
  bool complete = false;          // at least one complete gating block was measured
  std::int32_t gatingBlocks = 0;  // complete gating blocks in the programme
  double integrated = -120.0;     // LUFS; -120.0 when not complete or all gated out
  double plr = 0.0;               // LU; 0.0 when not complete
  double loudnessRange = 0.0;
  double loudnessRangeLow = -120.0;
  double loudnessRangeHigh = -120.0;
  double integratedDialogue = -120.0;  // speech-gated blocks over the whole programme
};

class LoudnessEngine {
 public:
  static constexpr int kMaxChannels = velorum::kMaxChannels;
  static constexpr double kLoudnessFloor = -120.0;
  static constexpr double kPeakFloor = -120.0;
  static constexpr double kOffsetFactor = 0.8529037030705663;  // 10^(-0.691/10)
  static constexpr double kAbsoluteGate = 1e-7;                // -70 LUFS, offset power
  static constexpr int kWarmUpSteps = 30;                      // 100 ms steps before LRA starts

  LoudnessEngine();
  ~LoudnessEngine();
  LoudnessEngine(const LoudnessEngine&) = delete;
  LoudnessEngine& operator=(const LoudnessEngine&) = delete;

  // ---- configuration ----
  // Stores the rate, sizes the windows and re-initialises the signal chain
  // (filter states, windows, step counters). History and gating are kept.
  void SetSampleRate(double rate);
  double SampleRate() const;
  // The re-initialisation SetSampleRate performs, at the current rate.
  void RestartSignalChain();
  // Full clear: readings, maxima, gating, history, signal chain.
  void Reset();

  // Layout from the channel-layout table: configured channel count and weights.
  void SetLayout(int layoutIndex);
  int Layout() const;
  // Automatic layout for a channel count (LayoutForChannelCount).
  void SetChannelCount(int channels);
  int ChannelCount() const;
  // Custom per-position amplitude weights (24 entries; missing ones 0.0).
  void SetChannelWeights(const double* weights, int count);
  double ChannelWeight(int channel) const;
  // The host's active inputs. Channels processed = min(inputs, configured), at most 24.
  void SetInputCount(int inputs);
  int ProcessedChannels() const;

  void SetEcoMode(bool on);
  bool EcoMode() const;
  void SetMomentaryWindowMs(int ms);  // resizes and empties the momentary window
  int MomentaryWindowMs() const;
  void SetRelativeGateFactor(double factor);  // 0.1 (-10 LU) by default
  double RelativeGateFactor() const;

  // Dialogue-gated measurement on (default) or off. Off, the speech
  // classifier gets no audio and the dialogue readings stay at their floors;
  // turning it on again starts it afresh.
  void SetDialogueEnabled(bool on);
  bool DialogueEnabled() const;

  // Paused: samples still run through the chain, steps are written as fills
  // and gating is not updated.
  void SetPaused(bool paused);
  bool Paused() const;

  // Timeline mode: history indices follow the position set with
  // SetTimelinePosition (samples since the timeline start) instead of the
  // count of processed samples; a position measured twice is overwritten.
  void SetTimelineMode(bool on);
  bool TimelineMode() const;
  // Position of the next processed sample; advances by one per sample.
  void SetTimelinePosition(std::int64_t samples);
  std::int64_t TimelinePosition() const;
  // After a jump: the segment starts at `samples`; the 10 ms and 100 ms step
  // counters start over so that steps are counted from there.
  void MoveTimelineOrigin(std::int64_t samples);

  // Instruction-set path of the hot loops (tests force each one). Returns
  // false, and keeps the current path, when the CPU lacks it.
  bool SetCodePath(CodePath path);
  CodePath ActiveCodePath() const;

  // ---- processing ----
  // One sample instant: channels[c][index] for c < ProcessedChannels().
  // The samples are gathered and run through the chain together when a
  // 10 ms step completes (or a setting changes), so readings and history
  // are exactly those of a sample-by-sample run, at block speed.
  void ProcessSample(const double* const* channels, int index);
  // frames sample instants 0 .. frames-1; identical to calling
  // ProcessSample for each index in turn. Non-positive frames do nothing.
  void ProcessBlock(const double* const* channels, int frames);
  // The same, starting at sample `offset` of each channel buffer.
  void ProcessBlock(const double* const* channels, int offset, int frames);

  // ---- readings (any thread) ----
  double Momentary() const;
  double ShortTerm() const;
  double MomentaryMax() const;
  double ShortTermMax() const;
  double Integrated() const;
  double LoudnessRange() const;
  double LoudnessRangeLow() const;
  double LoudnessRangeHigh() const;
  double Plr() const;
  double RealtimeDynamics() const;
  double TruePeak() const;     // overall, last 10 ms step, dBTP
  double TruePeakMax() const;  // overall maximum, dBTP
  double ChannelTruePeak(int channel) const;
  double ChannelTruePeakMax(int channel) const;
  // Offset powers of the newest step (linear).
  double MomentaryPower() const;
  double ShortTermPower() const;
  // Completed steps since the reset.
  std::int64_t Steps10() const;
  std::int64_t Steps100() const;
  std::int64_t MeasuredSamples() const;  // samples processed since the reset

  // Dialogue-gated readings.
  double IntegratedDialogue() const;
  double DialogueRange() const;
  double DialogueRangeLow() const;
  double DialogueRangeHigh() const;
  double SpeechContent() const;  // 0 .. 1

  LoudnessResult Result() const;

  // ---- history (hold Mutex() while using these) ----
  EngineMutex& Mutex() const { return mutex_; }
  const MeasurementHistory& History() const { return history_; }
  MeasurementHistory& MutableHistory() { return history_; }
  // Recomputes gating sums, the sorted short-term vector, integrated,
  // loudness range, PLR and the maxima from the history arrays (after the
  // state code restored them). Takes the mutex itself.
  void RebuildFromHistory();
  // The same in two halves, for a history restored while audio runs:
  // PrepareHistory does the long work (normalising, gating sums, sorting)
  // on the calling thread without any lock; AdoptHistory then swaps the
  // arrays in under the mutex (the replaced arrays come back in `prepared`,
  // to be freed outside the lock). `relativeGate` is the factor the engine
  // will use; AdoptHistory recomputes the sums when it differs.
  struct PreparedHistory {
    MeasurementHistory history;
    double relativeGate = 0.1;
    double integratedSum = 0.0;
    std::int64_t integratedCount = 0;
    double shortTermSum = 0.0;
    std::int64_t shortTermCount = 0;
    std::vector<float> sorted;
    double momentaryMax = -120.0, shortTermMax = -120.0, truePeakMax = -120.0;
    double integrated = -120.0, plr = 0.0, range = 0.0, rangeLow = -120.0, rangeHigh = -120.0;
  };
  static void PrepareHistory(PreparedHistory& prepared);
  void AdoptHistory(PreparedHistory& prepared);
  // Integrated loudness and loudness range over 100 ms blocks [begin, end)
  // of the history (the selected range of the graph). Takes the mutex.
  RangeReading MeasureRange(std::int32_t begin, std::int32_t end) const;
  // Integrated loudness, PLR, loudness range and the dialogue-gated
  // integrated value over everything measured since the reset, with the
  // final gates. The live readings keep their per-step rule; this is the
  // value for the end of a programme. Takes the mutex.
  ProgrammeValues ExactProgramme() const;
  // Ends a programme (a file measured to its end): the integrated, PLR,
  // loudness-range and dialogue-integrated readings take the values of
  // ExactProgramme() until more audio is processed or the engine is reset.
  void FinishProgramme();
  // True after FinishProgramme() until more audio or a reset.
  bool ProgrammeFinished() const;

  // The 24 K-weighting filters' active coefficients {a1, a2, b0, b1, b2}.
  std::array<double, 5> ActiveCoefficients(int channel, int stage) const;

  DialogueGate& Dialogue() { return *dialogue_; }

 private:
  // Runs frames sample instants from offset through the chain.
  void Run(const double* const* channels, int offset, int frames);
  // Runs the samples gathered by ProcessSample.
  void Flush();
  // End of a 10 ms and/or 100 ms step at timeline position `last`.
  void EndOfStep(std::int64_t last, bool end10, bool end100);
  void Step10(std::int64_t last, double momentaryPower, double shortTermPower);
  void Step100(std::int64_t last, double momentaryPower, double shortTermPower);

  std::unique_ptr<EngineCore> core_;
  std::unique_ptr<DialogueGate> dialogue_;
  mutable EngineMutex mutex_;
  MeasurementHistory history_;
};

}  // namespace velorum
