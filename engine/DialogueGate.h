// Dialogue-gated measurement beside the level-gated one. A speech classifier
// (engine/speech) marks whether the dialogue channels (left, right and
// centre) carry speech; only speech contributes to the dialogue-gated
// powers, the integrated dialogue loudness and the dialogue loudness range,
// and the share of measured time with speech is the speech content.
//
// The engine owns one gate and calls it at fixed points of its processing:
//   Configure   on SetSampleRate, RestartSignalChain and Reset
//   Reset       on Reset (after Configure)
//   Process     per run of samples, once the channel powers are known
//   Step10      at the last sample of every 10 ms step; returns speech bits
//   Step100     at the last sample of every 100 ms step
//
// Classifiers: with one or two channels a single classifier listens to the
// mono sum of the dialogue channels and its flag governs both (a stereo pair
// counts as speech together); with three or more, left, right and centre have
// a classifier each. A classifier answers -1 (unknown) for its first 2.048 s.
//
// Integrated gate options ("INTEGRATED DIAL GATE"):
//   "10 LU"          the level-gated integrated loudness (-10 LU relative gate)
//   "DIAL ONLY"      the dialogue-gated integrated loudness, always
//   "DIAL-RELATIVE"  the dialogue-gated value while the speech content is at
//                    least "MIN DIALOG %" (default 20 %) and a dialogue value
//                    exists; otherwise the level-gated value.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "history/MeasurementHistory.h"

namespace velorum {

class DialogueResampler;
class DialogueWindowPair;
class SpeechClassifier;

struct DialogueStep100 {
  std::int32_t index100 = 0;  // block index (>= 0)
  std::int32_t start100 = 0;  // first measured block
  std::int64_t samplesSinceReset = 0;
  bool paused = false;
  bool timelineMode = false;
};

enum class DialogueGateMode : int { kTenLu = 0, kDialOnly = 1, kDialRelative = 2 };

class DialogueGate {
 public:
  static constexpr int kMaxDialogueChannels = 3;
  static constexpr double kDefaultMinDialogPercent = 20.0;
  static constexpr double kGate = 1e-7;  // -70 LUFS as offset power
  static constexpr int kRangeWarmUpSteps = 30;

  DialogueGate();
  ~DialogueGate();
  DialogueGate(const DialogueGate&) = delete;
  DialogueGate& operator=(const DialogueGate&) = delete;

  // rate: input sample rate; channels: processed channel count;
  // layout: index into the channel-layout table.
  void Configure(double rate, int channels, int layout);
  void Reset();

  // frames sample instants: raw[c][offset + i] is the raw input sample and
  // powers[c][i] the weighted K-filtered power of channel c at instant i.
  void Process(const double* const* raw, int offset, int frames, const double* const* powers, int channels);

  // Speech bits of the 10 ms step (1 when the step holds speech, else 0).
  std::uint8_t Step10(std::int32_t index10);

  // Writes the dialogue 100 ms histories of the block (history mutex held).
  void Step100(MeasurementHistory& history, const DialogueStep100& step);

  // Recomputes the sorted short-term powers, the readings and the speech
  // content from restored histories (history mutex held).
  void RebuildFromHistory(const MeasurementHistory& history);

  double Integrated() const { return integrated_.load(std::memory_order_relaxed); }
  double Range() const { return range_.load(std::memory_order_relaxed); }
  double RangeLow() const { return rangeLow_.load(std::memory_order_relaxed); }
  double RangeHigh() const { return rangeHigh_.load(std::memory_order_relaxed); }
  double SpeechContent() const { return speechContent_.load(std::memory_order_relaxed); }  // 0 .. 1
  double MomentaryPower() const { return momentaryPower_.load(std::memory_order_relaxed); }
  double ShortTermPower() const { return shortTermPower_.load(std::memory_order_relaxed); }

  // Gate options.
  void SetGateMode(DialogueGateMode mode) { mode_.store(static_cast<int>(mode), std::memory_order_relaxed); }
  DialogueGateMode GateMode() const {
    return static_cast<DialogueGateMode>(mode_.load(std::memory_order_relaxed));
  }
  // Clamped to 0 .. 100; NaN is ignored.
  void SetMinDialogPercent(double percent);
  // Switched off, Process ignores its input (for measuring its cost).
  void SetEnabled(bool on) { enabled_ = on; }
  bool Enabled() const { return enabled_; }
  double MinDialogPercent() const { return minDialog_.load(std::memory_order_relaxed); }
  // The integrated loudness the selected gate reports, given the engine's
  // level-gated value.
  double GatedIntegrated(double levelGated) const;

  // Dialogue channels (indices into the layout) and their speech flags
  // (-1 unknown, 0, 1).
  int DialogueChannelCount() const { return dialogueCount_; }
  int DialogueChannel(int d) const { return channel_[static_cast<std::size_t>(d)]; }
  int SpeechFlag(int d) const;

 private:
  void UpdateSpeechContent(const MeasurementHistory& h);
  bool FlagsKnown() const;
  void UpdateRange();
  double ScanIntegrated(const MeasurementHistory& h, std::int32_t start) const;

  double rate_ = 44100.0;
  int channels_ = 0;
  int layout_ = 0;
  int dialogueCount_ = 0;  // dialogue channels in use
  int classifierCount_ = 0;
  std::array<int, kMaxDialogueChannels> channel_{};
  std::int64_t step100_ = 0;
  std::int64_t latency_ = 0;       // classifier latency in input samples
  std::int64_t latencySteps_ = 0;  // ... in 100 ms steps
  std::int64_t samples_ = 0;       // input samples since Configure

  std::array<std::unique_ptr<DialogueResampler>, kMaxDialogueChannels> resampler_;
  std::array<std::unique_ptr<SpeechClassifier>, kMaxDialogueChannels> classifier_;
  // One window pair per classifier: with a single classifier it sums the
  // powers of all dialogue channels, which share its flag.
  std::array<std::unique_ptr<DialogueWindowPair>, kMaxDialogueChannels> windows_;
  std::vector<double> powerScratch_;
  std::vector<float> monoScratch_;
  std::vector<float> resampledScratch_;

  // Gating state.
  std::vector<float> sorted_;  // gated dialogue short-term powers, ascending
  std::int64_t steps100_ = 0;  // 100 ms steps since Reset
  std::int32_t firstIndex100_ = -1;
  std::int64_t blocks_ = 0;  // blocks written since Reset

  // Speech content bookkeeping over the 10 ms histories.
  std::int32_t countedStart_ = 0;
  std::int32_t countedEnd_ = 0;
  std::int64_t speechSteps_ = 0;
  std::int64_t measuredSteps_ = 0;
  bool recount_ = true;
  bool enabled_ = true;

  std::atomic<int> mode_{static_cast<int>(DialogueGateMode::kTenLu)};
  std::atomic<double> minDialog_{kDefaultMinDialogPercent};
  std::atomic<double> integrated_{-120.0};
  std::atomic<double> range_{0.0};
  std::atomic<double> rangeLow_{-120.0};
  std::atomic<double> rangeHigh_{-120.0};
  std::atomic<double> speechContent_{0.0};
  std::atomic<double> momentaryPower_{1e-12};
  std::atomic<double> shortTermPower_{1e-12};
};

}  // namespace velorum
