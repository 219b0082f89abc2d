// WriteState and ReadState of the meter; the layout is described in MeterState.h.
#include "plugin/MeterState.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <ctime>
#include <memory>
#include <mutex>

#include "engine/ChannelLayouts.h"
#include "history/HistorySnapshot.h"
#include "plugin/HistorySerializer.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "presets/LoudnessStandards.h"
#include "velorum/Version.h"

namespace velorum {

// Everything of a state body, read without touching the plug-in and applied
// only when the whole body has been read successfully.
struct ParsedMeterState {
  int32_t version = 0;
  MeterReadings readings;
  int64_t measuredSamples = 0;
  int32_t resetTimeOfDay = 0;
  int32_t resetCounter = 0;
  double sampleRate = 44100.0;
  bool compressed = false;
  bool historyIncluded = false;
  LoudnessEngine::PreparedHistory prepared;
  int32_t jumpCount = 0;
  std::string title, notes;
  std::vector<double> channelPeaks;
  int64_t position = 0;
  int32_t systemOffsetSeconds = 0;
  int32_t systemStartSeconds = 0;
  int32_t shownStandard = kDefaultStandardIndex;
  std::string shownCustom;  // name of a custom preset shown (500..999)
  std::vector<uint32_t> samplePeaks;
  bool resetPending = false;
  int32_t abActive = 0;
  std::vector<uint8_t> abBlob;
  IPlugBase::ParamTail params;
};

namespace {

double Finite(double v, double fallback) {
  return std::isfinite(v) ? v : fallback;
}

// Counters read from a state stay far from the ends of their types, so that
// they can be counted on.
constexpr int32_t kMaxCounter32 = 1000000000;
constexpr int64_t kMaxCounter64 = int64_t(1) << 60;

double ValidRate(double rate) {
  return rate > 0.0 && rate <= 768000.0 ? rate : 44100.0;
}

// Sections 1 to 6 and the history flags.
int ParseHead(const ByteChunk& chunk, int pos, ParsedMeterState& s) {
  namespace sv = state_version;
  MeterReadings& r = s.readings;
  for (double* v : {&r.integrated, &r.loudnessRange, &r.loudnessRangeLow, &r.loudnessRangeHigh, &r.plr,
                    &r.momentaryMax, &r.shortTermMax, &r.truePeakMax, &r.integratedDialogue}) {
    pos = chunk.GetDouble(*v, pos);
  }
  if (s.version < sv::kLongSampleCounter) {
    int32_t count = 0;
    pos = chunk.GetInt32(count, pos);
    s.measuredSamples = count;
  } else {
    pos = chunk.GetInt64(s.measuredSamples, pos);
  }
  pos = chunk.GetInt32(s.resetTimeOfDay, pos);
  pos = chunk.GetInt32(s.resetCounter, pos);
  pos = chunk.GetDouble(s.sampleRate, pos);
  uint8_t one = 0, zero = 0, compressed = 0, included = 0;
  pos = chunk.GetByte(one, pos);
  pos = chunk.GetByte(zero, pos);
  pos = chunk.GetByte(compressed, pos);
  pos = chunk.GetByte(included, pos);
  s.compressed = compressed != 0;
  s.historyIncluded = included != 0;
  return pos;
}

// Sections 8 to 15.
int ParseTail(const ByteChunk& chunk, int pos, ParsedMeterState& s) {
  namespace sv = state_version;
  if (s.version >= sv::kJumpCounter) pos = chunk.GetInt32(s.jumpCount, pos);
  if (s.version >= sv::kTexts) {
    std::vector<uint8_t> bytes;
    pos = chunk.GetByteRun(bytes, pos);
    s.title.assign(bytes.begin(), bytes.end());
    pos = chunk.GetByteRun(bytes, pos);
    s.notes.assign(bytes.begin(), bytes.end());
  }
  if (s.version >= sv::kChannelPeaks) pos = chunk.GetDoubleArray(s.channelPeaks, pos);
  if (s.version >= sv::kEngineSetup) {
    std::vector<uint16_t> setup, dialogue;
    pos = chunk.GetU16Array(setup, pos);
    pos = chunk.GetU16Array(dialogue, pos);
  }
  if (s.version >= sv::kTransport) {
    std::string modeName;
    int64_t zero1 = 0, zero2 = 0, start = 0;
    double offset = 0.0;
    pos = chunk.GetText(modeName, pos);
    pos = chunk.GetInt64(s.position, pos);
    pos = chunk.GetInt64(zero1, pos);
    pos = chunk.GetInt64(zero2, pos);
    pos = chunk.GetDouble(offset, pos);
    pos = chunk.GetInt64(start, pos);
    s.systemOffsetSeconds = static_cast<int32_t>(std::clamp(Finite(offset, 0.0), -86400.0, 86400.0));
    s.systemStartSeconds = static_cast<int32_t>(std::clamp<int64_t>(start, 0, 86400));
  }
  if (s.version >= sv::kRecord) {
    std::string t1, t2, t3;
    pos = chunk.GetText(t1, pos);
    pos = chunk.GetText(t2, pos);
    pos = chunk.GetText(t3, pos);
    int32_t recordSize = 0;
    pos = chunk.GetInt32(recordSize, pos);
    if (recordSize != 56) pos = -1;
    int64_t fields[6] = {};
    for (int64_t& f : fields) pos = chunk.GetInt64(f, pos);
    double rate = 0.0;
    pos = chunk.GetDouble(rate, pos);
    int32_t layout = 0, mode = 0;
    pos = chunk.GetInt32(layout, pos);
    pos = chunk.GetInt32(mode, pos);
    pos = chunk.GetU32Array(s.samplePeaks, pos);
    s.shownStandard = static_cast<int32_t>(std::clamp<int64_t>(fields[5], -1, 1000));
    if (s.shownStandard >= kFirstCustomPresetIndex && s.shownStandard <= kLastCustomPresetIndex &&
        CheckCustomPresetName(t2).empty())
      s.shownCustom = t2;
  }
  if (s.version >= sv::kPendingFlag) {
    uint8_t pending = 0;
    pos = chunk.GetByte(pending, pos);
    s.resetPending = pending != 0;
  }
  if (s.version >= sv::kJumpCounter) {
    pos = chunk.GetInt32(s.abActive, pos);
    pos = chunk.GetByteRun(s.abBlob, pos);
  }
  return pos;
}

// Values read from a state made safe to show and to count on.
void Sanitise(ParsedMeterState& s) {
  MeterReadings& r = s.readings;
  r.integrated = Finite(r.integrated, -120.0);
  r.loudnessRange = Finite(r.loudnessRange, 0.0);
  r.loudnessRangeLow = Finite(r.loudnessRangeLow, -120.0);
  r.loudnessRangeHigh = Finite(r.loudnessRangeHigh, -120.0);
  r.plr = Finite(r.plr, 0.0);
  r.momentaryMax = Finite(r.momentaryMax, -120.0);
  r.shortTermMax = Finite(r.shortTermMax, -120.0);
  r.truePeakMax = Finite(r.truePeakMax, -120.0);
  r.integratedDialogue = Finite(r.integratedDialogue, -120.0);
  r.speechContent = std::clamp(Finite(r.speechContent, 0.0), 0.0, 1.0);
  s.sampleRate = ValidRate(s.sampleRate);
  s.measuredSamples = std::clamp<int64_t>(s.measuredSamples, 0, kMaxCounter64);
  s.position = std::clamp<int64_t>(s.position, 0, kMaxCounter64);
  s.resetTimeOfDay = std::clamp(s.resetTimeOfDay, 0, 86399);
  s.resetCounter = std::clamp(s.resetCounter, 0, kMaxCounter32);
  s.jumpCount = std::clamp(s.jumpCount, 0, kMaxCounter32);
  for (double& p : s.channelPeaks) p = Finite(p, -120.0);
  s.channelPeaks.resize(kMaxChannels, -120.0);
}

void CopyCounts(Distribution& to, const Distribution& from) {
  to.bins = from.bins;
  to.lastIndex = from.lastIndex;
  to.previousIndex = from.previousIndex;
  to.redraw.store(true, std::memory_order_relaxed);
}

}  // namespace

bool LoudnessMeterPlugin::HistoryIncluded() const {
  const int mode = GetParam(param::kGraphSaving)->IntValue();
  return mode == 1 || (mode == 2 && GetParam(param::kGraphSavingKey)->IntValue() == 1);
}

// Saving: the small sections are written under the plug-in lock; the history
// is copied a slice at a time and compressed with no lock held, so the audio
// thread never waits for more than one slice.
bool LoudnessMeterPlugin::WriteState(ByteChunk& chunk) {
  std::lock_guard<std::recursive_mutex> state(StateMutex());
  ByteChunk head, tail;
  bool included = false, compress = true;
  {
    const StateHold hold(*this);
    WriteStateHead(head, included, compress);
    WriteStateTail(tail);
  }
  ByteChunk history;
  if (included) {
    MeasurementHistory copy;
    const HistorySnapshot::Stats stats = HistorySnapshot::Take(mEngine.History(), mEngine.Mutex(), copy);
    NoteSnapshot(stats.largestSlice);
    HistorySerializer::Write(copy, history, compress);
  }
  // The A/B blob only changes under the state mutex.
  const int32_t active = GetParam(param::kABState)->IntValue();
  ByteChunk ab;
  ab.PutInt32(active);
  ab.PutByteRun(mABBlobs[active != 0 ? 0 : 1]);
  ByteChunk params;
  {
    const StateHold hold(*this);
    WriteParams(params);
  }
  chunk.Reserve(size_t(chunk.Size()) + size_t(head.Size()) + size_t(history.Size()) + size_t(tail.Size()) +
                size_t(ab.Size()) + size_t(params.Size()) + 256);
  for (const ByteChunk* part : {&head, &history, &tail, &ab, &params})
    chunk.PutRaw(part->Data(), size_t(part->Size()));
  return true;
}

void LoudnessMeterPlugin::WriteStateHead(ByteChunk& chunk, bool& included, bool& compress) {
  const MeterReadings r = Readings();
  chunk.PutInt32(kVersionDecimal);
  for (double v : {r.integrated, r.loudnessRange, r.loudnessRangeLow, r.loudnessRangeHigh, r.plr,
                   r.momentaryMax, r.shortTermMax, r.truePeakMax, r.integratedDialogue}) {
    chunk.PutDouble(v);
  }
  chunk.PutInt64(MeasuredSampleCount());
  chunk.PutInt32(mResetTimeOfDay);
  chunk.PutInt32(mResetCounter);
  chunk.PutDouble(mEngineRate);
  included = HistoryIncluded();
  compress = mCompressHistory;
  chunk.PutByte(1);
  chunk.PutByte(0);
  chunk.PutByte(compress ? 1 : 0);
  chunk.PutByte(included ? 1 : 0);
}

void LoudnessMeterPlugin::WriteStateTail(ByteChunk& chunk) {
  const MeterReadings r = Readings();
  const int64_t measured = MeasuredSampleCount();
  chunk.PutText(LayoutAt(mConfiguration).name);
  chunk.PutDouble(r.speechContent);

  chunk.PutInt32(mTransport.jumpCount);
  chunk.PutByteRun({reinterpret_cast<const uint8_t*>(mTitle.data()), mTitle.size()});
  chunk.PutByteRun({reinterpret_cast<const uint8_t*>(mNotes.data()), mNotes.size()});

  std::vector<double> peaks(kMaxChannels);
  for (int c = 0; c < kMaxChannels; ++c) {
    peaks[size_t(c)] = mRestoredShown ? mStoredChannelPeaks[size_t(c)] : mEngine.ChannelTruePeakMax(c);
  }
  chunk.PutDoubleArray(peaks);

  const std::vector<uint16_t> setup = {
      static_cast<uint16_t>(mConfiguration), static_cast<uint16_t>(LayoutAt(mConfiguration).channelCount),
      static_cast<uint16_t>(mEngine.EcoMode() ? 1 : 0), static_cast<uint16_t>(mEngine.MomentaryWindowMs())};
  const std::vector<uint16_t> dialogue = {
      static_cast<uint16_t>(std::lround(std::clamp(r.speechContent, 0.0, 1.0) * 10000.0))};
  chunk.PutU16Array(setup);
  chunk.PutU16Array(dialogue);

  chunk.PutText(HistogramModeName(mTransport.mode));
  chunk.PutInt64(mTransport.position);
  chunk.PutInt64(0);
  chunk.PutInt64(0);
  chunk.PutDouble(static_cast<double>(mTransport.systemOffsetSeconds));
  chunk.PutInt64(mTransport.systemStartSeconds);

  const int shown = ShownStandard();
  chunk.PutText(ShownPresetText(false));
  chunk.PutText(ShownPresetText(true));
  chunk.PutText(LayoutAt(mConfiguration).name);
  chunk.PutInt32(56);
  chunk.PutInt64(measured);
  chunk.PutInt64(mTransport.position);
  chunk.PutInt64(mResetTimeOfDay);
  chunk.PutInt64(mResetCounter);
  chunk.PutInt64(mTransport.jumpCount);
  chunk.PutInt64(shown);
  chunk.PutDouble(mEngineRate);
  chunk.PutInt32(mConfiguration);
  chunk.PutInt32(mTransport.mode);
  std::vector<uint32_t> samplePeaks(kMaxChannels);
  for (int c = 0; c < kMaxChannels; ++c) samplePeaks[size_t(c)] = std::bit_cast<uint32_t>(mPeaks.Maximum(c));
  chunk.PutU32Array(samplePeaks);

  chunk.PutByte(mTransport.resetPending ? 1 : 0);
}

int64_t LoudnessMeterPlugin::MeasuredSampleCount() const {
  return mRestoredShown ? mStoredMeasuredSamples : mEngine.MeasuredSamples() + mSampleOffset;
}

// Restoring: the body is read, decompressed and checked, and the history's
// sums and distributions rebuilt, with no lock held; the result is swapped in
// under the plug-in lock in a time that does not grow with the history.
int LoudnessMeterPlugin::ReadState(const ByteChunk& chunk, int pos) {
  std::lock_guard<std::recursive_mutex> state(StateMutex());
  auto s = std::make_unique<ParsedMeterState>();
  pos = chunk.GetInt32(s->version, pos);
  if (pos < 0 || s->version > kVersionDecimal || s->version < state_version::kOldest) pos = -1;
  pos = ParseHead(chunk, pos, *s);
  if (pos >= 0 && s->historyIncluded) {
    HistoryLimits limits;
    const double step10 = std::floor(ValidRate(s->sampleRate) / 100.0);
    limits.measuredSteps10 = s->measuredSamples > 0 ? int64_t(double(s->measuredSamples) / step10) : 0;
    pos = HistorySerializer::Read(chunk, pos, s->compressed, s->prepared.history, limits);
  }
  std::string layoutName;
  pos = chunk.GetText(layoutName, pos);
  pos = chunk.GetDouble(s->readings.speechContent, pos);
  pos = ParseTail(chunk, pos, *s);
  if (pos >= 0) pos = ParseParams(chunk, pos, s->params);
  if (pos < 0) {
    OnStateRefused();
    return -1;
  }
  Sanitise(*s);
  // A restored state never starts the calibration signal.
  if (size_t(param::kGenerator) < s->params.values.size()) {
    s->params.values[size_t(param::kGenerator)] = CalibrationSource::kOff;
    s->params.present[size_t(param::kGenerator)] = true;
  }
  LoudnessDistribution loudness;
  TruePeakDistribution truePeak;
  DynamicsDistribution dynamics;
  if (s->historyIncluded) {
    const auto gate = size_t(param::kRelativeGate);
    s->prepared.relativeGate = RelativeGateFactor(
        s->params.present[gate] ? GetParam(param::kRelativeGate)->Constrain(s->params.values[gate])
                                : GetParam(param::kRelativeGate)->Value());
    LoudnessEngine::PrepareHistory(s->prepared);
    loudness.Rebuild(s->prepared.history);
    truePeak.Rebuild(s->prepared.history);
    dynamics.Rebuild(s->prepared.history);
  }
  {
    const StateHold hold(*this);
    ApplyParams(s->params);
    ApplyEngineSettings();
    ApplyConfiguration();
    ResetMeasurementCore(true);
    if (s->historyIncluded) {
      mPristine = false;
      mEngine.AdoptHistory(s->prepared);
      {
        EngineLock lock(mEngine.Mutex());
        mEngine.MutableHistory().timelineMode = mEngine.TimelineMode();
      }
      CopyCounts(mLoudness, loudness);
      CopyCounts(mTruePeak, truePeak);
      CopyCounts(mDynamics, dynamics);
    }
    ApplyParsedState(*s);
  }
  // The replaced measurement is freed here, with no lock held.
  s.reset();
  return pos;
}

void LoudnessMeterPlugin::ApplyParsedState(ParsedMeterState& s) {
  mStoredReadings = s.readings;
  mStoredMeasuredSamples = s.measuredSamples;
  mStoredChannelPeaks = s.channelPeaks;
  mRestoredShown = true;
  mResetTimeOfDay = s.resetTimeOfDay;
  mResetCounter = s.resetCounter;
  GetParam(param::kResetTimeOfDay)->Set(mResetTimeOfDay);
  mTransport.jumpCount = s.jumpCount;
  mTransport.position = s.position;
  mTransport.systemOffsetSeconds = s.systemOffsetSeconds;
  mTransport.systemStartSeconds = s.systemStartSeconds;
  mTransport.resetPending = s.resetPending;
  mShownStandard.store(s.shownStandard, std::memory_order_relaxed);
  {
    std::lock_guard<std::mutex> name(mShownCustomLock);
    mShownCustom = std::move(s.shownCustom);
  }
  mTitle = std::move(s.title);
  mNotes = std::move(s.notes);
  std::vector<float> maxima(kMaxChannels, 0.0f);
  for (size_t c = 0; c < s.samplePeaks.size() && c < size_t(kMaxChannels); ++c) {
    maxima[c] = std::bit_cast<float>(s.samplePeaks[c]);
  }
  mPeaks.RestoreMaxima(maxima.data(), kMaxChannels);
  mABBlobs[s.abActive != 0 ? 0 : 1].swap(s.abBlob);
  GetParam(param::kElapsedSeconds)->Set(static_cast<double>(mTransport.position) / mEngineRate);
  mWarmUp.store(false, std::memory_order_relaxed);
}

void LoudnessMeterPlugin::OnStateRefused() {
  const StateHold hold(*this);
  ResetMeasurementCore(true);
  SetAllEditorControlsDirty();
}

void LoudnessMeterPlugin::NoteSnapshot(size_t largestSlice) {
  const auto slice = static_cast<int64_t>(largestSlice);
  if (slice > mSnapshotSliceMax.load(std::memory_order_relaxed)) mSnapshotSliceMax.store(slice);
}

namespace {

// Time on the calling thread's own clock, so that a hold is measured by the
// work done in it and not by the time a loaded machine preempted the thread
// (the steady clock where there is no thread clock).
int64_t ThreadNowNs() {
#if defined(CLOCK_THREAD_CPUTIME_ID) && !defined(_WIN32)
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return int64_t(t.tv_sec) * 1000000000 + t.tv_nsec;
#else
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
#endif
}

int64_t WallNowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void KeepMax(std::atomic<int64_t>& max, int64_t v) {
  if (v > max.load(std::memory_order_relaxed)) max.store(v, std::memory_order_relaxed);
}

}  // namespace

LoudnessMeterPlugin::StateHold::StateHold(LoudnessMeterPlugin& plug)
    : mPlug(plug), mGuard(plug.Lock()), mStart(WallNowNs()), mStartCpu(ThreadNowNs()) {}

LoudnessMeterPlugin::StateHold::~StateHold() {
  KeepMax(mPlug.mStateHoldMaxNs, WallNowNs() - mStart);
  KeepMax(mPlug.mStateHoldMaxCpuNs, ThreadNowNs() - mStartCpu);
}

}  // namespace velorum
