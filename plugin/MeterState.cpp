// WriteState and ReadState of the meter; the layout is described in MeterState.h.
#include <algorithm>
#include <bit>
#include <cmath>

#include "engine/ChannelLayouts.h"
#include "plugin/HistorySerializer.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/MeterState.h"
#include "presets/LoudnessStandards.h"
#include "velorum/Version.h"

namespace velorum {

namespace {

double Finite(double v, double fallback) { return std::isfinite(v) ? v : fallback; }

// Everything of a state body that is not applied until the whole body has
// been read successfully.
struct ParsedState {
  int32_t version = 0;
  MeterReadings readings;
  int64_t measuredSamples = 0;
  int32_t resetTimeOfDay = 0;
  int32_t resetCounter = 0;
  double sampleRate = 44100.0;
  bool compressed = false;
  bool historyIncluded = false;
  MeasurementHistory history;
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
};

}  // namespace

bool LoudnessMeterPlugin::HistoryIncluded() const {
  const int mode = GetParam(param::kGraphSaving)->IntValue();
  return mode == 1 || (mode == 2 && GetParam(param::kGraphSavingKey)->IntValue() == 1);
}

bool LoudnessMeterPlugin::WriteState(ByteChunk& chunk) {
  SpinLockGuard guard(Lock());
  // Size the chunk once so that the real write does not reallocate.
  if (!mSizing.exchange(true)) {
    ByteChunk scratch;
    WriteState(scratch);
    chunk.Reserve(size_t(chunk.Size()) + size_t(scratch.Size()) + 256);
    mSizing.store(false);
  }
  const MeterReadings r = Readings();
  const int64_t measured = mRestoredShown ? mStoredMeasuredSamples : mEngine.MeasuredSamples() + mSampleOffset;

  chunk.PutInt32(kVersionDecimal);
  for (double v : {r.integrated, r.loudnessRange, r.loudnessRangeLow, r.loudnessRangeHigh, r.plr, r.momentaryMax,
                   r.shortTermMax, r.truePeakMax, r.integratedDialogue}) {
    chunk.PutDouble(v);
  }
  chunk.PutInt64(measured);
  chunk.PutInt32(mResetTimeOfDay);
  chunk.PutInt32(mResetCounter);
  chunk.PutDouble(mEngineRate);

  const bool included = HistoryIncluded();
  chunk.PutByte(1);
  chunk.PutByte(0);
  chunk.PutByte(mCompressHistory ? 1 : 0);
  chunk.PutByte(included ? 1 : 0);
  if (included) {
    EngineLock lock(mEngine.Mutex());
    HistorySerializer::Write(mEngine.History(), chunk, mCompressHistory);
  }
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

  const int32_t active = GetParam(param::kABState)->IntValue();
  chunk.PutInt32(active);
  chunk.PutByteRun(mABBlobs[active != 0 ? 0 : 1]);

  WriteParams(chunk);
  return true;
}

int LoudnessMeterPlugin::ReadState(const ByteChunk& chunk, int pos) {
  SpinLockGuard guard(Lock());
  namespace sv = state_version;
  ParsedState s;
  pos = chunk.GetInt32(s.version, pos);
  if (pos < 0 || s.version > kVersionDecimal || s.version < sv::kOldest) {
    ResetMeasurementCore(true);
    return -1;
  }
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
  if (pos >= 0 && s.historyIncluded) pos = HistorySerializer::Read(chunk, pos, s.compressed, s.history);
  std::string layoutName;
  pos = chunk.GetText(layoutName, pos);
  pos = chunk.GetDouble(r.speechContent, pos);

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
  // The parameter tail is read into the live parameters: keep a copy to put
  // back when the tail turns out to be damaged.
  std::vector<double> saved(static_cast<size_t>(NParams()));
  for (int i = 0; i < NParams(); ++i) saved[size_t(i)] = ParamValue(i);
  const std::vector<double> savedAux = AuxValues();
  if (pos >= 0) pos = ReadParams(chunk, pos);
  if (pos < 0) {
    for (int i = 0; i < NParams(); ++i) GetParam(i)->Set(saved[size_t(i)]);
    SetAuxValues(savedAux);
    ResetMeasurementCore(true);
    return -1;
  }

  // Everything was read: apply it.
  if (!(s.sampleRate > 0.0 && s.sampleRate <= 768000.0)) s.sampleRate = 44100.0;
  ApplyEngineSettings();
  ApplyConfiguration();
  ResetMeasurementCore(true);
  if (s.historyIncluded) {
    mPristine = false;
    {
      EngineLock lock(mEngine.Mutex());
      s.history.timelineMode = mEngine.TimelineMode();
      mEngine.MutableHistory() = std::move(s.history);
    }
    mEngine.RebuildFromHistory();
    EngineLock lock(mEngine.Mutex());
    mLoudness.Rebuild(mEngine.History());
    mTruePeak.Rebuild(mEngine.History());
    mDynamics.Rebuild(mEngine.History());
  }
  auto finite = [](double v, double fallback) { return Finite(v, fallback); };
  r.integrated = finite(r.integrated, -120.0);
  r.loudnessRange = finite(r.loudnessRange, 0.0);
  r.loudnessRangeLow = finite(r.loudnessRangeLow, -120.0);
  r.loudnessRangeHigh = finite(r.loudnessRangeHigh, -120.0);
  r.plr = finite(r.plr, 0.0);
  r.momentaryMax = finite(r.momentaryMax, -120.0);
  r.shortTermMax = finite(r.shortTermMax, -120.0);
  r.truePeakMax = finite(r.truePeakMax, -120.0);
  r.integratedDialogue = finite(r.integratedDialogue, -120.0);
  r.speechContent = std::clamp(finite(r.speechContent, 0.0), 0.0, 1.0);
  mStoredReadings = r;
  mStoredMeasuredSamples = std::max<int64_t>(0, s.measuredSamples);
  mStoredChannelPeaks.assign(kMaxChannels, -120.0);
  for (size_t c = 0; c < s.channelPeaks.size() && c < size_t(kMaxChannels); ++c) {
    mStoredChannelPeaks[c] = finite(s.channelPeaks[c], -120.0);
  }
  mRestoredShown = true;
  mResetTimeOfDay = std::clamp(s.resetTimeOfDay, 0, 86399);
  mResetCounter = s.resetCounter;
  GetParam(param::kResetTimeOfDay)->Set(mResetTimeOfDay);
  mTransport.jumpCount = s.jumpCount;
  mTransport.position = std::max<int64_t>(0, s.position);
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
  mABBlobs[s.abActive != 0 ? 0 : 1] = std::move(s.abBlob);
  GetParam(param::kElapsedSeconds)->Set(static_cast<double>(mTransport.position) / mEngineRate);
  mWarmUp.store(false, std::memory_order_relaxed);
  return pos;
}

}  // namespace velorum
