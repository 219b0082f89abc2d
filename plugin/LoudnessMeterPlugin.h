// The meter plug-in: passes the host's audio through unchanged, measures it
// with the loudness engine under the rules of the histogram modes, keeps the
// three distributions up to date, feeds the peak meters, plays calibration
// signals on demand, and saves and restores its whole state.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine/LoudnessEngine.h"
#include "history/Distributions.h"
#include "plugin/CalibrationSource.h"
#include "plugin/IPlugVST.h"
#include "plugin/MeterParams.h"
#include "plugin/PeakMeterFeed.h"
#include "plugin/TransportTracker.h"
#include "presets/CustomPresets.h"

namespace velorum {

inline constexpr int32_t kUniqueID = 0x566C526D;  // "VlRm"
inline constexpr const char* kEffectName = "Velorum";
inline constexpr const char* kVendorName = "Velorum Audio";
inline constexpr const char* kProductName = "Velorum";

// Processing-context code meaning "a calibration signal is playing".
inline constexpr int kContextCalibrationSignal = 5;

// What the readouts show: the engine's readings, or after a restore the
// readings saved with the state until new audio is measured.
struct MeterReadings {
  double integrated = -120.0;
  double loudnessRange = 0.0;
  double loudnessRangeLow = -120.0;
  double loudnessRangeHigh = -120.0;
  double plr = 0.0;
  double momentaryMax = -120.0;
  double shortTermMax = -120.0;
  double truePeakMax = -120.0;
  double integratedDialogue = -120.0;
  double speechContent = 0.0;
};

struct ParsedMeterState;

class LoudnessMeterPlugin : public IPlugVST {
 public:
  explicit LoudnessMeterPlugin(vst::HostCallback host);
  ~LoudnessMeterPlugin() override;

  // IPlugBase
  bool WriteState(ByteChunk& chunk) override;
  int ReadState(const ByteChunk& chunk, int start) override;
  void OnStateRefused() override;
  void ProcessBlock(double** inputs, double** outputs, int frames) override;
  void OnReset() override;
  void OnParamChange(int index) override;
  int ProcessingContext() const override;
  std::vector<double> AuxValues() const override;
  void SetAuxValues(const std::vector<double>& values) override;
  intptr_t VendorQuery(int32_t index, intptr_t value, void* ptr, float opt) override;

  // The measuring half of ProcessBlock.
  void MeasureBlock(double** inputs, int frames);
  void UpdateDistributions();
  // Clears engine, history, distributions and timeline; takes the lock.
  void ResetMeasurement();
  // The same without the lock and optionally keeping the timeline position.
  void ResetMeasurementCore(bool clearPosition);

  // Editor-facing state.
  LoudnessEngine& Engine() { return mEngine; }
  const LoudnessDistribution& LoudnessBins() const { return mLoudness; }
  const TruePeakDistribution& TruePeakBins() const { return mTruePeak; }
  const DynamicsDistribution& DynamicsBins() const { return mDynamics; }
  bool HistogramWarmUp() const { return mWarmUp.load(std::memory_order_relaxed); }
  const PeakMeterFeed& PeakMeters() const { return mPeaks; }
  MeterReadings Readings() const;
  void SetSuspended(bool on) { mSuspended.store(on ? 1 : 0); }
  bool Suspended() const { return mSuspended.load() != 0; }
  bool InProcess() const { return mInProcess.load() != 0; }
  bool Measuring() const { return ParamValue(param::kPaused) < 0.5; }
  int64_t Position() const { return mTransport.position; }
  // Applies standards-table item `index` (see presets/LoudnessStandards.h);
  // 500..999 apply the custom preset at that place of the sorted list.
  // Returns the ApplyResult as an integer (kUnknown for a missing preset).
  int ApplyStandardIndex(int index);
  // Applies a custom preset and shows it under `index` (500..999).
  void ApplyCustomPresetAs(const CustomPreset& preset, int index);
  // Applies the "Default Preset Index" of the settings in `settingsFolder`;
  // a new instance does this once, before any state is restored.
  bool ApplyDefaultPreset(const std::string& settingsFolder);
  // The standards item whose short name the closed menu shows.
  int ShownStandard() const { return mShownStandard.load(std::memory_order_relaxed); }
  // The name of the custom preset shown (kept with the state, so that a
  // project shows the preset it was made with even after the presets have
  // changed); empty when a built-in item is shown or the preset was deleted.
  std::string ShownCustomPreset() const;
  // Forgets the shown custom preset when it is `name` (it was deleted).
  void ForgetCustomPreset(const std::string& name);
  // The shown item's short name or menu text as the state keeps it.
  std::string ShownPresetText(bool menuText) const;
  // Names saved with the measurement (UTF-8).
  void SetTitle(std::string title) { mTitle = std::move(title); }
  void SetNotes(std::string notes) { mNotes = std::move(notes); }
  // Host sample rates the meter measures at; outside them audio passes
  // through and the meter stays inactive.
  static constexpr double kMinRate = 8000.0;
  static constexpr double kMaxRate = 768000.0;
  bool RateSupported() const { return mRateSupported.load(std::memory_order_relaxed); }
  // A line for the editor's status: empty while the meter measures normally.
  std::string StatusLine() const;
  // Non-finite input samples measured as silence since the last reset.
  int64_t NonFiniteSamples() const { return mNonFinite.load(std::memory_order_relaxed); }

 protected:
  void OnChannelConfigChanged() override;

 private:
  void ApplyConfiguration();
  void ApplyEngineSettings();
  void ApplySampleRate();
  int ConfigurationFor(int requested) const;
  bool HistoryIncluded() const;
  MeterReadings EngineReadings() const;
  static double RelativeGateFactor(int choice);
  // State writing and reading (MeterState.cpp).
  void WriteStateHead(ByteChunk& chunk, bool& included, bool& compress);
  void WriteStateTail(ByteChunk& chunk);
  void ApplyParsedState(ParsedMeterState& s);
  int64_t MeasuredSampleCount() const;
  void NoteSnapshot(size_t largestSlice);
  // The plug-in lock as state calls take it: held for short steps only, the
  // longest hold is kept for tests and benchmarks.
  class StateHold {
   public:
    explicit StateHold(LoudnessMeterPlugin& plug);
    ~StateHold();
    StateHold(const StateHold&) = delete;
    StateHold& operator=(const StateHold&) = delete;

   private:
    LoudnessMeterPlugin& mPlug;
    SpinLockGuard mGuard;
    int64_t mStart;
    int64_t mStartCpu;
  };
  // A helper thread that gives the history room to grow before the audio
  // thread runs out of it, so that the audio thread never copies a long
  // history into a larger buffer.
  void KeepHistoryRoom();
  // Input channels with every non-finite sample of the block replaced by
  // silence, or `inputs` itself when the block is clean.
  double** FiniteInputs(double** inputs, int frames);

  LoudnessEngine mEngine;
  LoudnessDistribution mLoudness;
  TruePeakDistribution mTruePeak;
  DynamicsDistribution mDynamics;
  TransportTracker mTransport;
  PeakMeterFeed mPeaks;
  CalibrationSource mGenerator;

  std::atomic<uint8_t> mInProcess{0};
  std::atomic<uint8_t> mSuspended{0};
  std::atomic<bool> mWarmUp{true};
  std::atomic<bool> mRateSupported{true};
  std::atomic<int64_t> mNonFinite{0};
  std::atomic<int64_t> mStateHoldMaxNs{0};     // wall clock
  std::atomic<int64_t> mStateHoldMaxCpuNs{0};  // the holding thread's own time
  std::atomic<int64_t> mSnapshotSliceMax{0};
  std::vector<std::vector<double>> mCleanInputs;  // FiniteInputs' buffers
  std::vector<double*> mCleanPins;
  std::mutex mKeeperMutex;
  std::condition_variable mKeeperWake;
  bool mKeeperStop = false;
  std::thread mKeeper;  // last: started when everything it uses exists
  std::atomic<int> mShownStandard{29};
  mutable std::mutex mShownCustomLock;  // the editor reads the name while the host may restore a state
  std::string mShownCustom;
  int32_t mConnectedInputs = 0;
  int32_t mConnectedOutputs = 0;
  int mConfiguration = -1;  // layout the engine measures with
  double mEngineRate = 0.0;
  bool mPristine = false;  // nothing measured or restored since the last engine reset

  // Readings and counters restored from a state; shown until new audio is
  // measured (mRestoredShown), so a restored project reads as it was saved.
  MeterReadings mStoredReadings;
  bool mRestoredShown = false;
  int64_t mStoredMeasuredSamples = 0;
  std::vector<double> mStoredChannelPeaks;
  int64_t mSampleOffset = 0;  // samples measured before the state was restored
  int32_t mResetTimeOfDay = 0;
  int32_t mResetCounter = 0;
  bool mCompressHistory = true;
  std::string mTitle, mNotes;
  std::array<std::vector<uint8_t>, 2> mABBlobs;
  std::vector<double> mDisplayState{0.0, 0.0, 1.0, 0.0};  // selection start/end (s), zoom, scroll
};

}  // namespace velorum
