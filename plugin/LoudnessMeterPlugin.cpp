#include "plugin/LoudnessMeterPlugin.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>

#include "engine/ChannelLayouts.h"
#include "engine/DialogueGate.h"
#include "history/HistorySnapshot.h"
#include "plugin/VendorQuery.h"
#include "presets/GlobalSettings.h"
#include "presets/LoudnessStandards.h"

namespace velorum {

namespace {

std::vector<ChannelIO> MeterChannelConfigs() {
  std::vector<ChannelIO> io;
  for (int n = 1; n <= kMaxChannels; ++n) io.push_back({n, n});
  return io;
}

}  // namespace

double LoudnessMeterPlugin::RelativeGateFactor(int choice) {
  const int n = static_cast<int>(std::size(kRelativeGateChoicesLU));
  const int lu = choice >= 0 && choice < n ? kRelativeGateChoicesLU[choice] : -10;
  return std::pow(10.0, lu / 10.0);
}

LoudnessMeterPlugin::LoudnessMeterPlugin(vst::HostCallback host)
    : IPlugVST(host, param::kCount, 1, MeterChannelConfigs(), kUniqueID, kEffectName, kVendorName,
               kProductName) {
  DeclareMeterParams(*this);
  SetParamCountA(param::kCountA);
  mEngine.SetSampleRate(SampleRate());
  mEngineRate = SampleRate();
  mStoredChannelPeaks.assign(kMaxChannels, -120.0);
  mConnectedInputs = NInputPins();
  mConnectedOutputs = NOutputPins();
  ResetMeasurementCore(true);
  ApplyEngineSettings();
  ApplyConfiguration();
  // A new instance starts with the user's default preset; a state restored
  // afterwards brings its own values.
  ApplyDefaultPreset(SettingsFolder(false));
  mKeeper = std::thread([this] { KeepHistoryRoom(); });
}

LoudnessMeterPlugin::~LoudnessMeterPlugin() {
  {
    std::lock_guard<std::mutex> guard(mKeeperMutex);
    mKeeperStop = true;
  }
  mKeeperWake.notify_all();
  if (mKeeper.joinable()) mKeeper.join();
  DestroyEditor();
}

void LoudnessMeterPlugin::KeepHistoryRoom() {
  // The audio thread reads the history under the plug-in lock and writes it
  // under the engine mutex: the arrays are replaced holding both.
  struct BothLocks {
    LoudnessMeterPlugin& plug;
    void lock() {
      plug.Lock().Lock();
      plug.mEngine.Mutex().lock();
    }
    void unlock() {
      plug.mEngine.Mutex().unlock();
      plug.Lock().Unlock();
    }
  } locks{*this};
  // A quarter of an hour of steps: far more than the time between two looks.
  constexpr size_t kHeadroom10 = 90000;
  std::unique_lock<std::mutex> guard(mKeeperMutex);
  while (!mKeeperWake.wait_for(guard, std::chrono::milliseconds(200), [this] { return mKeeperStop; })) {
    guard.unlock();
    try {
      HistorySnapshot::GrowAhead(mEngine.MutableHistory(), locks, kHeadroom10);
    } catch (...) {
      // Out of memory: the audio thread grows the arrays itself as before.
    }
    guard.lock();
  }
}

// ------------------------------------------------------------- configuration

void LoudnessMeterPlugin::ApplySampleRate() {
  const double requested = SampleRate();
  // At a rate the meter cannot measure, audio passes through and the meter
  // keeps its last valid rate, inactive, instead of producing inf or NaN.
  const bool supported = requested >= kMinRate && requested <= kMaxRate;
  mRateSupported.store(supported, std::memory_order_relaxed);
  double rate = supported ? requested : mEngineRate;
  if (!(rate >= kMinRate && rate <= kMaxRate)) rate = 44100.0;
  if (rate != mEngineRate) {
    mEngine.SetSampleRate(rate);
    mEngineRate = rate;
  }
  GetParam(param::kSampleRate)->Set(rate);
  mGenerator.Select(mGenerator.Signal(), rate);
}

void LoudnessMeterPlugin::OnReset() {
  SpinLockGuard guard(Lock());
  ApplySampleRate();
}

void LoudnessMeterPlugin::ApplyEngineSettings() {
  mEngine.SetEcoMode(ParamValue(param::kEcoTruePeak) >= 0.5);
  if (GetParam(param::kMomentaryWindowMs)->IntValue() != mEngine.MomentaryWindowMs()) {
    mEngine.SetMomentaryWindowMs(GetParam(param::kMomentaryWindowMs)->IntValue());
  }
  mEngine.SetRelativeGateFactor(RelativeGateFactor(GetParam(param::kRelativeGate)->IntValue()));
  mEngine.Dialogue().SetGateMode(
      static_cast<DialogueGateMode>(std::clamp(GetParam(param::kGateMode)->IntValue(), 0, 2)));
  mEngine.Dialogue().SetMinDialogPercent(ParamValue(param::kMinDialogPercent));
  mTransport.mode = std::clamp(GetParam(param::kHistogramMode)->IntValue(), 0, 3);
  mTransport.resetOnJump = ParamValue(param::kResetOnJump) >= 0.5;
  mEngine.SetTimelineMode(mTransport.mode == kModeTimeCode || mTransport.mode == kModeSystem);
  mGenerator.Select(GetParam(param::kGenerator)->IntValue(), mEngineRate);
}

int LoudnessMeterPlugin::ConfigurationFor(int requested) const {
  if (requested >= 0 && requested < LayoutCount()) return requested;
  // Automatic (1000) or unknown: derive the layout from the connected inputs.
  return LayoutForChannelCount(mConnectedInputs > 0 ? mConnectedInputs : 1);
}

void LoudnessMeterPlugin::ApplyConfiguration() {
  const int config = ConfigurationFor(GetParam(param::kChannelConfig)->IntValue());
  if (config == mConfiguration) return;
  mConfiguration = config;
  mEngine.SetLayout(config);
  mPristine = false;  // the next reset also sets up the chain for the new layout
  GetParam(param::kConfigInUse)->Set(config);
  InformEditorOfParamChange(param::kChannelConfig);
}

void LoudnessMeterPlugin::OnChannelConfigChanged() {
  SpinLockGuard guard(Lock());
  int n = 0;
  while (n < NInputPins() && InputConnected(n)) ++n;
  mConnectedInputs = n > 0 ? n : NInputPins();
  ApplyConfiguration();
}

void LoudnessMeterPlugin::OnParamChange(int index) {
  SpinLockGuard guard(Lock());
  switch (index) {
    case param::kEcoTruePeak:
    case param::kMomentaryWindowMs:
    case param::kRelativeGate:
    case param::kGateMode:
    case param::kMinDialogPercent:
    case param::kHistogramMode:
    case param::kResetOnJump:
    case param::kGenerator:
      ApplyEngineSettings();
      break;
    case param::kChannelConfig:
      ApplyConfiguration();
      break;
    default:
      break;
  }
}

int LoudnessMeterPlugin::ProcessingContext() const {
  return mGenerator.Active() ? kContextCalibrationSignal : 0;
}

std::vector<double> LoudnessMeterPlugin::AuxValues() const {
  return mDisplayState;
}

void LoudnessMeterPlugin::SetAuxValues(const std::vector<double>& values) {
  for (size_t i = 0; i < mDisplayState.size() && i < values.size(); ++i) {
    mDisplayState[i] = std::isfinite(values[i]) ? values[i] : 0.0;
  }
}

int LoudnessMeterPlugin::ApplyStandardIndex(int index) {
  if (index >= kFirstCustomPresetIndex && index <= kLastCustomPresetIndex) {
    // The folder is read before the lock is taken: the audio thread waits for it.
    const std::optional<CustomPresetEntry> entry = CustomPresetStore(SettingsFolder(false)).AtIndex(index);
    if (!entry) return static_cast<int>(ApplyResult::kUnknown);
    ApplyCustomPresetAs(entry->preset, index);
    return static_cast<int>(ApplyResult::kCustomPreset);
  }
  SpinLockGuard guard(Lock());
  const ApplyResult result = ApplyStandard(index, [this](int p, double v) { SetParam(p, v); });
  if (result == ApplyResult::kApplied) {
    mShownStandard.store(index, std::memory_order_relaxed);
    {
      std::lock_guard<std::mutex> name(mShownCustomLock);
      mShownCustom.clear();
    }
    GetParam(param::kStandard)->Set(index);
    InformEditorOfParamChange(param::kStandard);
  }
  return static_cast<int>(result);
}

void LoudnessMeterPlugin::ApplyCustomPresetAs(const CustomPreset& preset, int index) {
  SpinLockGuard guard(Lock());
  velorum::ApplyCustomPreset(preset, [this](int p, double v) { SetParam(p, v); });
  mShownStandard.store(index, std::memory_order_relaxed);
  {
    std::lock_guard<std::mutex> name(mShownCustomLock);
    mShownCustom = preset.name;
  }
  GetParam(param::kStandard)->Set(index);
  InformEditorOfParamChange(param::kStandard);
}

bool LoudnessMeterPlugin::ApplyDefaultPreset(const std::string& settingsFolder) try {
  const std::optional<DefaultPreset> preset = ReadDefaultPreset(settingsFolder);
  if (!preset) return false;
  if (preset->index < kFirstCustomPresetIndex || preset->index > kLastCustomPresetIndex)
    return ApplyStandardIndex(preset->index) == static_cast<int>(ApplyResult::kApplied);
  // A custom preset is found by its name; its place in the list moves as
  // presets are added and deleted.
  const CustomPresetStore store(settingsFolder);
  const std::vector<CustomPresetEntry> list = store.List();
  for (size_t i = 0; i < list.size(); ++i) {
    if (SameCustomPresetName(list[i].preset.name, preset->name)) {
      ApplyCustomPresetAs(list[i].preset, kFirstCustomPresetIndex + static_cast<int>(i));
      return true;
    }
  }
  return false;
} catch (...) {
  // Settings that cannot be read leave the instance as declared.
  return false;
}

std::string LoudnessMeterPlugin::ShownCustomPreset() const {
  std::lock_guard<std::mutex> name(mShownCustomLock);
  return mShownCustom;
}

void LoudnessMeterPlugin::ForgetCustomPreset(const std::string& name) {
  std::lock_guard<std::mutex> guard(mShownCustomLock);
  if (SameCustomPresetName(mShownCustom, name)) mShownCustom.clear();
}

std::string LoudnessMeterPlugin::ShownPresetText(bool menuText) const {
  const int shown = ShownStandard();
  if (shown >= kFirstCustomPresetIndex && shown <= kLastCustomPresetIndex) return ShownCustomPreset();
  const LoudnessStandard* s = FindStandard(shown);
  if (!s) return {};
  return menuText || !s->shortName ? s->menuText : s->shortName;
}

// ------------------------------------------------------------------- readings

MeterReadings LoudnessMeterPlugin::EngineReadings() const {
  MeterReadings r;
  r.integrated = mEngine.Integrated();
  r.loudnessRange = mEngine.LoudnessRange();
  r.loudnessRangeLow = mEngine.LoudnessRangeLow();
  r.loudnessRangeHigh = mEngine.LoudnessRangeHigh();
  r.plr = mEngine.Plr();
  r.momentaryMax = mEngine.MomentaryMax();
  r.shortTermMax = mEngine.ShortTermMax();
  r.truePeakMax = mEngine.TruePeakMax();
  r.integratedDialogue = mEngine.IntegratedDialogue();
  r.speechContent = mEngine.SpeechContent();
  return r;
}

MeterReadings LoudnessMeterPlugin::Readings() const {
  return mRestoredShown ? mStoredReadings : EngineReadings();
}

// ---------------------------------------------------------------------- reset

void LoudnessMeterPlugin::ResetMeasurementCore(bool clearPosition) {
  // Clearing the engine is costly (it rebuilds its signal chain); a meter that
  // has measured nothing since its last reset is clear already.
  if (!mPristine) {
    mEngine.Reset();
    mLoudness.Clear(-1);
    mTruePeak.Clear(-1);
    mDynamics.Clear(-1);
    mPristine = true;
  }
  mWarmUp.store(true, std::memory_order_relaxed);
  if (clearPosition) mTransport.position = 0;
  mTransport.jumpCount = 0;
  mTransport.resetPending = false;
  mTransport.ClearBlockFlags();
  mResetTimeOfDay = LocalTimeOfDaySeconds();
  mTransport.systemStartSeconds = mResetTimeOfDay;
  mResetCounter = mResetCounter < std::numeric_limits<int32_t>::max() ? mResetCounter + 1 : 0;
  mNonFinite.store(0, std::memory_order_relaxed);
  mRestoredShown = false;
  mStoredReadings = MeterReadings{};
  mSampleOffset = 0;
  std::fill(mStoredChannelPeaks.begin(), mStoredChannelPeaks.end(), -120.0);
  mPeaks.Reset();
  GetParam(param::kResetTimeOfDay)->Set(mResetTimeOfDay);
  GetParam(param::kElapsedSeconds)->Set(static_cast<double>(mTransport.position) / mEngineRate);
}

void LoudnessMeterPlugin::ResetMeasurement() {
  SpinLockGuard guard(Lock());
  ResetMeasurementCore(true);
  SetAllEditorControlsDirty();
}

// ------------------------------------------------------------------ processing

void LoudnessMeterPlugin::ProcessBlock(double** inputs, double** outputs, int frames) {
  SpinLockGuard guard(Lock());
  mInProcess.store(1);
  frames = std::max(frames, 0);

  int n = 0;
  while (n < NInputPins() && InputConnected(n)) ++n;
  mConnectedInputs = n > 0 ? n : NInputPins();
  n = 0;
  while (n < NOutputPins() && OutputConnected(n)) ++n;
  mConnectedOutputs = n > 0 ? n : NOutputPins();

  if (Suspended()) {
    UpdateDistributions();
    mInProcess.store(0);
    const int declared = DeclaredOutputs() > 0 ? DeclaredOutputs() : NOutputPins();
    for (int c = 0; c < declared; ++c) std::fill(outputs[c], outputs[c] + frames, 0.0);
    return;
  }

  // A configuration chosen in the editor is applied between blocks.
  IParam* pending = GetParam(param::kPendingConfig);
  if (pending->IntValue() != -1 && ParamValue(param::kAllowConfigSwitch) >= 0.5) {
    const int config = pending->IntValue();
    pending->Set(-1);
    GetParam(param::kChannelConfig)->Set(config);
    InformEditorOfParamChange(param::kPendingConfig);
    InformEditorOfParamChange(param::kChannelConfig);
    ApplyConfiguration();
    ResetMeasurementCore(true);
    SetAllEditorControlsDirty();
  }

  // Pass-through. While a calibration signal plays, the host audio is only
  // kept on the other outputs when the user asked for it; otherwise they are silent.
  const bool pass =
      !(ProcessingContext() == kContextCalibrationSignal && ParamValue(param::kGeneratorKeepsHost) < 0.5);
  int passed = mConnectedInputs;
  if (GetHost() == kHostSoundForge) passed = std::min(passed, 2);
  for (int c = 0; c < mConnectedOutputs; ++c) {
    double* out = outputs[c];
    if (pass && c < passed) {
      if (out != inputs[c]) std::copy(inputs[c], inputs[c] + frames, out);
    } else {
      std::fill(out, out + frames, 0.0);
    }
  }

  MeasureBlock(inputs, frames);
  UpdateDistributions();

  if (mGenerator.Active() && mConnectedOutputs >= 1) {
    mGenerator.Fill(outputs[0], frames);
    if (mConnectedOutputs >= 2) std::copy(outputs[0], outputs[0] + frames, outputs[1]);
  }
  mInProcess.store(0);
}

std::string LoudnessMeterPlugin::StatusLine() const {
  if (RateSupported()) return {};
  char text[160];
  std::snprintf(text, sizeof text, "METER INACTIVE: HOST SAMPLE RATE %.0f HZ IS OUTSIDE 8 TO 768 KHZ",
                SampleRate());
  return text;
}

double** LoudnessMeterPlugin::FiniteInputs(double** inputs, int frames) {
  constexpr uint64_t kExponent = 0x7FF0000000000000ull;
  const int channels = std::min(mConnectedInputs, kMaxChannels);
  int64_t found = 0;
  for (int c = 0; c < channels; ++c) {
    const double* in = inputs[c];
    if (!in) continue;
    int64_t bad = 0;
    for (int i = 0; i < frames; ++i) bad += (std::bit_cast<uint64_t>(in[i]) & kExponent) == kExponent;
    if (bad == 0) continue;
    if (found == 0) {
      // A rare event: the clean copies are made only when it happens.
      mCleanInputs.resize(size_t(channels));
      mCleanPins.assign(inputs, inputs + channels);
    }
    found += bad;
    std::vector<double>& clean = mCleanInputs[size_t(c)];
    if (clean.size() < size_t(frames)) clean.resize(size_t(frames));
    for (int i = 0; i < frames; ++i) clean[size_t(i)] = std::isfinite(in[i]) ? in[i] : 0.0;
    mCleanPins[size_t(c)] = clean.data();
  }
  if (found == 0) return inputs;
  mNonFinite.fetch_add(found, std::memory_order_relaxed);
  return mCleanPins.data();
}

void LoudnessMeterPlugin::MeasureBlock(double** inputs, int frames) {
  SpinLockGuard guard(Lock());
  if (!RateSupported()) return;
  // Non-finite samples (a glitch upstream) are measured as silence, so one of
  // them cannot poison the filters and the running sums.
  inputs = FiniteInputs(inputs, std::max(frames, 0));
  ApplyConfiguration();
  mEngine.SetInputCount(mConnectedInputs);

  OnBlockSize(frames > 0 ? frames : BlockSize());
  TransportTracker::Context context;
  context.sampleRate = mEngineRate;
  context.frames = frames;
  context.hostCode36 = GetHost() == kHostPremiere;
  context.timeOfDaySeconds = mTransport.mode == kModeSystem ? LocalTimeOfDaySeconds() : 0;
  mTransport.Refresh(HostTimeInfo(), context);

  if (!Suspended()) mPeaks.Feed(inputs, mConnectedInputs, frames, mEngineRate);

  TransportTracker& t = mTransport;
  const bool measuring = Measuring();
  const bool restartOption =
      ParamValue(param::kRestartOnJump) >= 0.5 || ParamValue(param::kRestartOnLocate) >= 0.5;
  // The rules below are applied to sample 0 on its own and then to the rest of
  // the block at once: after the first sample nothing they depend on changes
  // within a block (the one-block flags are cleared by the first advance, and
  // a reset only happens on a sample that advances).
  auto run = [&](int first, int count) {
    if (t.resetPending && t.playing && measuring) {
      // The tracker has already placed the timeline for this start or jump.
      ResetMeasurementCore(false);
      GetParam(param::kMeasurementReset)->Set(1.0);
      InformEditorOfParamChange(param::kMeasurementReset);
      SetAllEditorControlsDirty();
    }
    const bool transportJump = ((t.mode == kModeElapsed || t.mode == kModeSystem) && t.jumped && !t.looped) ||
                               (t.mode == kModeTimeCode && t.jumped);
    if (transportJump && t.playing && measuring && t.mode != kModeContinuous && restartOption) {
      mEngine.RestartSignalChain();
    }
    if (!(t.mode == kModeTimeCode && !t.playing)) {
      const int64_t index = std::max<int64_t>(0, t.position);
      if (mEngine.TimelinePosition() != index) mEngine.SetTimelinePosition(index);
      const bool measured = t.playing ? measuring : (t.mode == kModeContinuous && measuring);
      if (measured) {
        if (t.restart) mEngine.MoveTimelineOrigin(index);
        if (mRestoredShown) {
          // From now on the engine's readings are shown again; the count of
          // measured samples continues from the restored one.
          mRestoredShown = false;
          mSampleOffset = mStoredMeasuredSamples - mEngine.MeasuredSamples();
        }
        mPristine = false;
        mEngine.ProcessBlock(inputs, first, count);
      }
    }
    if (measuring && (t.mode == kModeContinuous || t.playing)) {
      t.position += count;
      t.ClearBlockFlags();
    }
  };
  if (frames > 0) run(0, 1);
  if (frames > 1) run(1, frames - 1);

  IParam* elapsed = GetParam(param::kElapsedSeconds);
  elapsed->Set(static_cast<double>(t.position) / mEngineRate);
  InformEditorOfParamChange(param::kElapsedSeconds);

  // The readouts show the integrated value of the chosen gate mode.
  double shown = mEngine.Dialogue().GatedIntegrated(Readings().integrated);
  const double selBegin = mDisplayState[0], selEnd = mDisplayState[1];
  if (selEnd > selBegin && !mRestoredShown) {
    const double blocksPerSecond = 10.0;
    const auto begin = static_cast<int32_t>(std::clamp(selBegin * blocksPerSecond, 0.0, 2.0e9));
    const auto end = static_cast<int32_t>(std::clamp(selEnd * blocksPerSecond, 0.0, 2.0e9));
    shown = mEngine.MeasureRange(begin, end).integrated;
  }
  GetParam(param::kShownIntegrated)->Set(shown);
  InformEditorOfParamChange(param::kShownIntegrated);
}

void LoudnessMeterPlugin::UpdateDistributions() {
  const MeasurementHistory& history = mEngine.History();
  mLoudness.Update(history);
  mTruePeak.Update(history);
  mDynamics.Update(history);
  mWarmUp.store(mEngine.Steps100() < 31 && !mRestoredShown, std::memory_order_relaxed);
}

// -------------------------------------------------------------- vendor query

intptr_t LoudnessMeterPlugin::VendorQuery(int32_t index, intptr_t /*value*/, void* ptr, float /*opt*/) {
  if (index != kVendorQueryIndex || !ptr) return 0;
  auto* request = static_cast<VendorRequest*>(ptr);
  switch (request->command) {
    case kQueryGetParam:
      if (!GetParam(request->index)) return 0;
      request->value = ParamValue(request->index);
      return 1;
    case kQuerySetParam:
      if (!GetParam(request->index)) return 0;
      SetParam(request->index, request->value);
      return 1;
    case kQueryApplyStandard:
      request->value = ApplyStandardIndex(request->index);
      return 1;
    case kQueryReset:
      ResetMeasurement();
      return 1;
    case kQuerySuspend:
      SetSuspended(request->value != 0.0);
      return 1;
    case kQueryShownStandard:
      request->value = ShownStandard();
      return 1;
    case kQueryBin:
    case kQueryBinTotal: {
      const int kind = request->command == kQueryBin ? request->index / 1000 : request->index;
      const Distribution* d = kind == 0   ? static_cast<const Distribution*>(&mLoudness)
                              : kind == 1 ? static_cast<const Distribution*>(&mTruePeak)
                              : kind == 2 ? static_cast<const Distribution*>(&mDynamics)
                                          : nullptr;
      if (!d) return 0;
      if (request->command == kQueryBin) {
        request->value = d->Bins()[request->index % 1000];
      } else {
        double sum = 0.0;
        for (int b = 0; b < d->BinCount(); ++b) sum += static_cast<double>(d->Bins()[b]);
        request->value = sum;
      }
      return 1;
    }
    case kQueryReading: {
      const MeterReadings r = Readings();
      switch (request->index) {
        case kReadingIntegrated:
          request->value = r.integrated;
          break;
        case kReadingMomentary:
          request->value = mEngine.Momentary();
          break;
        case kReadingShortTerm:
          request->value = mEngine.ShortTerm();
          break;
        case kReadingMomentaryMax:
          request->value = r.momentaryMax;
          break;
        case kReadingShortTermMax:
          request->value = r.shortTermMax;
          break;
        case kReadingLoudnessRange:
          request->value = r.loudnessRange;
          break;
        case kReadingTruePeakMax:
          request->value = r.truePeakMax;
          break;
        case kReadingPlr:
          request->value = r.plr;
          break;
        case kReadingPosition:
          request->value = static_cast<double>(mTransport.position);
          break;
        case kReadingMeasuredSamples:
          request->value = static_cast<double>(mRestoredShown ? mStoredMeasuredSamples
                                                              : mEngine.MeasuredSamples() + mSampleOffset);
          break;
        case kReadingBlocks: {
          EngineLock lock(mEngine.Mutex());
          request->value = static_cast<double>(mEngine.History().Size100());
          break;
        }
        case kReadingWarmUp:
          request->value = HistogramWarmUp() ? 1.0 : 0.0;
          break;
        case kReadingSuspended:
          request->value = Suspended() ? 1.0 : 0.0;
          break;
        case kReadingInProcess:
          request->value = InProcess() ? 1.0 : 0.0;
          break;
        case kReadingNonFinite:
          request->value = static_cast<double>(NonFiniteSamples());
          break;
        case kReadingStateHoldMaxUs:
          request->value = static_cast<double>(mStateHoldMaxNs.load(std::memory_order_relaxed)) / 1000.0;
          break;
        case kReadingStateHoldMaxCpuUs:
          request->value = static_cast<double>(mStateHoldMaxCpuNs.load(std::memory_order_relaxed)) / 1000.0;
          break;
        case kReadingSnapshotSlice:
          request->value = static_cast<double>(mSnapshotSliceMax.load(std::memory_order_relaxed));
          break;
        case kReadingRateSupported:
          request->value = RateSupported() ? 1.0 : 0.0;
          break;
        default:
          if (request->index >= kReadingPeakHold0 && request->index < kReadingPeakHold0 + kMaxChannels) {
            request->value = mPeaks.Hold(request->index - kReadingPeakHold0);
            break;
          }
          return 0;
      }
      return 1;
    }
    default:
      return 0;
  }
}

}  // namespace velorum
