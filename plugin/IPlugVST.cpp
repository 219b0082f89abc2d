#include "plugin/IPlugVST.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>

#include "plugin/CrashReporter.h"
#include "plugin/Trace.h"
#include "velorum/Version.h"

namespace velorum {

namespace {

constexpr int kScratchFrames = 8192 / int(sizeof(double));  // 8,192 bytes per channel
constexpr intptr_t kVendorHandled = 0xBEEF;
constexpr int32_t kVendorContentScale = 0x50726553;  // with value 0x41654373
constexpr intptr_t kVendorContentScaleValue = 0x41654373;

void CopyText(void* ptr, const char* text, size_t capacity) {
  if (!ptr || capacity == 0) return;
  auto* out = static_cast<char*>(ptr);
  std::strncpy(out, text ? text : "", capacity - 1);
  out[capacity - 1] = '\0';
}

// The editor's rectangle is handed to the host as an ERect.
static_assert(sizeof(EditorRect) == sizeof(vst::ERect));
static_assert(offsetof(EditorRect, bottom) == offsetof(vst::ERect, bottom));

// The key-name record of effGetMidiKeyName.
struct MidiKeyName {
  int32_t thisProgramIndex;
  int32_t thisKeyNumber;
  char keyName[64];
  int32_t reserved;
  int32_t flags;
};

}  // namespace

IPlugVST::IPlugVST(vst::HostCallback host, int numParams, int numPresets, std::vector<ChannelIO> channelIO,
                   int32_t uniqueID, const char* effectName, const char* vendorName, const char* productName)
    : IPlugBase(host, numParams, numPresets),
      mChannelIO(std::move(channelIO)),
      mEffectName(effectName),
      mVendorName(vendorName),
      mProductName(productName) {
  if (mChannelIO.empty()) mChannelIO.push_back({2, 2});
  int maxIn = 0, maxOut = 0;
  bool mono = false;
  for (const ChannelIO& io : mChannelIO) {
    maxIn = std::max(maxIn, io.inputs);
    maxOut = std::max(maxOut, io.outputs);
    mono = mono || io.inputs == 1;
  }
  maxIn = std::clamp(maxIn, 0, 24);
  maxOut = std::clamp(maxOut, 0, 24);

  mAEffect.magic = vst::kEffectMagic;
  mAEffect.dispatcher = &DispatcherThunk;
  mAEffect.process = &ProcessThunk;
  mAEffect.setParameter = &SetParameterThunk;
  mAEffect.getParameter = &GetParameterThunk;
  mAEffect.processReplacing = &ProcessReplacingThunk;
  mAEffect.processDoubleReplacing = &ProcessDoubleThunk;
  mAEffect.numPrograms = 1;
  mAEffect.numParams = 0;  // no internal parameter is published to the host
  mAEffect.numInputs = maxIn;
  mAEffect.numOutputs = maxOut;
  mAEffect.flags = vst::kFlagCanReplacing | vst::kFlagProgramChunks | vst::kFlagCanDoubleReplacing;
  if (mono) mAEffect.flags |= vst::kFlagCanMono;
  if (RegisteredEditorFactory()) mAEffect.flags |= vst::kFlagHasEditor;
  mAEffect.initialDelay = 0;
  mAEffect.ioRatio = 1.0f;
  mAEffect.object = this;
  mAEffect.uniqueID = uniqueID;
  mAEffect.version = kVersionDecimal;
  SetEffect(&mAEffect);

  mInConnected.assign(size_t(maxIn), 1);
  mOutConnected.assign(size_t(maxOut), 1);
  mInPins.assign(size_t(maxIn), nullptr);
  mOutPins.assign(size_t(maxOut), nullptr);
  mInPtrs.assign(size_t(maxIn), nullptr);
  mOutPtrs.assign(size_t(maxOut), nullptr);
  mInScratch.assign(size_t(maxIn), std::vector<double>(kScratchFrames, 0.0));
  mOutScratch.assign(size_t(maxOut), std::vector<double>(kScratchFrames, 0.0));
  mSilence.assign(kScratchFrames, 0.0);
  mDiscard.assign(kScratchFrames, 0.0);
  OnBlockSize(1024);
  UpdateArrangements();
}

IPlugVST::~IPlugVST() {
  mAEffect.object = nullptr;
}

IPlugVST* IPlugVST::FromEffect(vst::AEffect* effect) {
  GuardCrashThread();  // once per host thread: the crash handler's own stack
  return effect ? static_cast<IPlugVST*>(effect->object) : nullptr;
}

bool IPlugVST::InputConnected(int pin) const {
  return pin >= 0 && pin < NInputPins() && mInConnected[size_t(pin)];
}
bool IPlugVST::OutputConnected(int pin) const {
  return pin >= 0 && pin < NOutputPins() && mOutConnected[size_t(pin)];
}

int IPlugVST::DeclaredOutputs() const {
  int n = 0;
  while (n < NOutputPins() && mOutConnected[size_t(n)]) ++n;
  return n;
}

// ---------------------------------------------------------------- dispatcher

intptr_t IPlugVST::DispatcherThunk(vst::AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                   float opt) {
  IPlugVST* plug = FromEffect(e);
  if (!plug) return 0;
  return plug->Dispatch(opcode, index, value, ptr, opt);
}

intptr_t IPlugVST::Dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  try {
    switch (opcode) {
      case vst::effEditGetRect: {
        // The editor is made when the host first opens it; before that there
        // is no rectangle to give.
        IEditor* editor = ExistingEditor();
        if (!ptr || !editor) return 0;
        *static_cast<const EditorRect**>(ptr) = &editor->Rect();
        return 1;
      }
      case vst::effEditIdle:
      case vst::effIdle:
        return 0;
      case vst::effClose:
        Lock().Lock();
        Lock().ReleaseAll();
        delete this;
        return 0;
      default:
        break;
    }
    if (opcode < 0 || opcode > vst::effGetSpeakerArrangement) return 0;
    // Saving and restoring may take long (a day of history): those calls
    // hold the state mutex and take the plug-in lock themselves, in short
    // steps, so that audio goes on meanwhile. The preset calls take the state
    // mutex too, always before the plug-in lock.
    std::unique_lock<std::recursive_mutex> state(StateMutex(), std::defer_lock);
    switch (opcode) {
      case vst::effSetProgram:
      case vst::effGetChunk:
      case vst::effSetChunk:
        state.lock();
        return DispatchLocked(opcode, index, value, ptr, opt);
      case vst::effGetProgram:
      case vst::effSetProgramName:
      case vst::effGetProgramName:
      case vst::effGetProgramNameIndexed:
        state.lock();
        break;
      default:
        break;
    }
    SpinLockGuard guard(Lock());
    return DispatchLocked(opcode, index, value, ptr, opt);
  } catch (const std::exception&) {
    return 0;
  } catch (...) {
    return 0;
  }
}

intptr_t IPlugVST::DispatchLocked(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  switch (opcode) {
    case vst::effOpen:
      OnOpen();
      return 0;
    case vst::effSetProgram:
      if (!PresetChunks()) ModifyCurrentPreset();
      return RestorePreset(static_cast<int>(value)) ? 1 : 0;
    case vst::effGetProgram:
      return CurrentPreset();
    case vst::effSetProgramName:
      if (ptr) RenameCurrentPreset(static_cast<const char*>(ptr));
      OnPresetsModified();
      return 0;
    case vst::effGetProgramName:
      CopyText(ptr, PresetName(CurrentPreset()).c_str(), 24);
      return 0;
    case vst::effGetParamLabel:
    case vst::effGetParamDisplay:
    case vst::effGetParamName: {
      const IParam* p = GetParam(index);
      if (!p || !ptr) return 0;
      const std::string text = opcode == vst::effGetParamLabel     ? p->Label()
                               : opcode == vst::effGetParamDisplay ? p->DisplayText()
                                                                   : p->Name();
      CopyText(ptr, text.c_str(), 9);
      return 0;
    }
    case vst::effSetSampleRate:
      SetSampleRateValue(static_cast<double>(opt));
      OnReset();
      return 0;
    case vst::effSetBlockSize:
      OnBlockSize(static_cast<int>(value));
      OnReset();
      return 0;
    case vst::effMainsChanged:
      if (value == 0) OnReset();
      return 0;
    case vst::effEditOpen: {
      IEditor* editor = Editor();
      if (!editor) return 0;
      editor->Open(ptr);
      OnEditorOpened();
      editor->RefreshScaling();
      return 1;
    }
    case vst::effEditClose: {
      IEditor* editor = ExistingEditor();
      if (!editor) return 0;
      OnEditorClosing();
      editor->Close();
      return 1;
    }
    case vst::effIdentify:
      return 0x4E764566;
    case vst::effGetChunk:
      return GetChunk(static_cast<void**>(ptr), index == 0);
    case vst::effSetChunk:
      return SetChunk(ptr, value, index == 0);
    case vst::effProcessEvents:
      return 0;  // the meter uses no MIDI
    case vst::effCanBeAutomated:
      return 1;
    case vst::effString2Parameter: {
      IParam* p = GetParam(index);
      if (index < 0 || !p || !ptr) return 0;
      if (!p->SetFromText(static_cast<const char*>(ptr))) return 0;
      OnParamChange(index);
      InformEditorOfParamChange(index);
      return 1;
    }
    case vst::effGetProgramNameIndexed:
      if (index < 0 || index >= NPresets()) return 0;
      CopyText(ptr, PresetName(index).c_str(), 24);
      return 1;
    case vst::effGetInputProperties:
      return PinProperties(true, index, ptr);
    case vst::effGetOutputProperties:
      return PinProperties(false, index, ptr);
    case vst::effGetPlugCategory:
      return IsInstrument() ? 2 : 1;
    case vst::effSetSpeakerArrangement:
      return SetSpeakerArrangement(reinterpret_cast<const vst::VstSpeakerArrangement*>(value),
                                   static_cast<const vst::VstSpeakerArrangement*>(ptr));
    case vst::effGetEffectName:
      CopyText(ptr, mEffectName, 32);
      return 1;
    case vst::effGetVendorString:
      CopyText(ptr, mVendorName, 64);
      return 1;
    case vst::effGetProductString:
      CopyText(ptr, mProductName, 64);
      return 1;
    case vst::effGetVendorVersion:
      return kVersionDecimal;
    case vst::effVendorSpecific:
      if (index == kVendorContentScale && value == kVendorContentScaleValue) {
        if (IEditor* editor = ExistingEditor()) editor->SetContentScale(opt);
        return 1;
      }
      if (index == 7 || index == 8) {
        IParam* p = GetParam(static_cast<int>(value));
        if (!p || !ptr) return 0;
        if (index == 7) {
          CopyText(ptr, p->DisplayText().c_str(), 64);
        } else if (p->SetFromText(static_cast<const char*>(ptr))) {
          OnParamChange(static_cast<int>(value));
        }
        return kVendorHandled;
      }
      return VendorQuery(index, value, ptr, opt);
    case vst::effCanDo:
      return CanDo(static_cast<const char*>(ptr));
    case vst::effGetTailSize:
      return TailSize();
    case vst::effGetVstVersion:
      return 2400;
    case vst::effGetMidiKeyName:
      if (ptr) static_cast<MidiKeyName*>(ptr)->keyName[0] = '\0';
      return 0;
    case vst::effGetSpeakerArrangement:
      if (value) *reinterpret_cast<void**>(value) = &mInArrangement;
      if (ptr) *static_cast<void**>(ptr) = &mOutArrangement;
      return value && ptr ? 1 : 0;
    default:
      return 0;
  }
}

intptr_t IPlugVST::CanDo(const char* text) {
  if (!text) return 0;
  Trace("IPlugVST::VSTDispatcher", "VSTCanDo(%s)", text);
  const std::string s(text);
  if (s == "supportsViewDpiScaling" || s == "receiveVstTimeInfo") return 1;
  if (HandlesMidi() && (s == "sendVstEvents" || s == "sendVstMidiEvent" || s == "receiveVstEvents" ||
                        s == "receiveVstMidiEvent")) {
    return 1;
  }
  if (s == "hasCockosExtensions") {
    mHostExtensions |= 1u;
    return static_cast<intptr_t>(0xBEEF0000);
  }
  if (s == "hasCockosViewAsConfig") {
    mHostExtensions |= 2u;
    return static_cast<intptr_t>(0xBEEF0000);
  }
  return 0;
}

intptr_t IPlugVST::PinProperties(bool input, int32_t pin, void* ptr) {
  const int pins = input ? NInputPins() : NOutputPins();
  if (pin < 0 || pin >= pins || !ptr) return 0;
  auto* props = static_cast<vst::VstPinProperties*>(ptr);
  std::memset(props, 0, sizeof *props);
  std::snprintf(props->label, sizeof props->label, input ? "Input %d" : "Output %d", pin + 1);
  const int number = std::clamp(pin + 1, 1, 99);
  std::snprintf(props->shortLabel, sizeof props->shortLabel, input ? "In%d" : "Out%d", number);
  props->flags = vst::kPinIsActive;
  const int connected = input ? NInputPins() : DeclaredOutputs();
  if (connected >= 2 && pin < 2) props->flags |= vst::kPinIsStereo;
  props->arrangementType = connected == 1 ? 0 : connected == 2 ? 1 : -2;
  return 1;
}

intptr_t IPlugVST::SetSpeakerArrangement(const vst::VstSpeakerArrangement* in,
                                         const vst::VstSpeakerArrangement* out) {
  if (!in || !out) return 0;
  const int nIn = in->numChannels, nOut = out->numChannels;
  const bool accepted = std::any_of(mChannelIO.begin(), mChannelIO.end(), [&](const ChannelIO& io) {
    return io.inputs == nIn && io.outputs == nOut;
  });
  if (!accepted) return 0;
  for (int i = 0; i < NInputPins(); ++i) mInConnected[size_t(i)] = i < nIn ? 1 : 0;
  for (int i = 0; i < NOutputPins(); ++i) mOutConnected[size_t(i)] = i < nOut ? 1 : 0;
  UpdateArrangements();
  OnChannelConfigChanged();
  return 1;
}

void IPlugVST::UpdateArrangements() {
  auto fill = [](SpeakerArrangement24& a, int channels) {
    std::memset(&a, 0, sizeof a);
    a.numChannels = channels;
    a.type = channels == 1 ? 0 : channels == 2 ? 1 : -2;
    for (int i = 0; i < channels && i < 24; ++i) std::snprintf(a.speakers[i].name, 64, "%d", i + 1);
  };
  int nIn = 0;
  while (nIn < NInputPins() && mInConnected[size_t(nIn)]) ++nIn;
  fill(mInArrangement, nIn);
  fill(mOutArrangement, DeclaredOutputs());
}

// -------------------------------------------------------------------- chunks

intptr_t IPlugVST::GetChunk(void** data, bool isBank) {
  if (!data) return 0;
  ByteChunk& chunk = isBank ? mBankChunk : mProgramChunk;
  chunk.Clear();
  chunk.PutInt32(kChunkMagic);
  chunk.PutInt32(kChunkVersion);
  bool ok = false;
  if (isBank) {
    ModifyCurrentPreset();
    ok = SerializePresets(chunk);
  } else {
    ok = WriteState(chunk);
  }
  if (!ok) return 0;
  *data = chunk.Data();
  return chunk.Size();
}

intptr_t IPlugVST::SetChunk(const void* data, intptr_t size, bool isBank) {
  if (size < 0 || (size > 0 && !data) || size > intptr_t(0x7FFFFFF0)) {
    OnStateRefused();
    return 0;
  }
  ByteChunk& chunk = isBank ? mBankChunk : mProgramChunk;
  chunk.Assign(data, size_t(size));
  int pos = 0;
  int32_t version = 0;
  int32_t magic = 0;
  if (chunk.Size() >= 4 && chunk.GetInt32(magic, 0) >= 0 && magic == kChunkMagic) {
    pos = chunk.GetInt32(version, 4);  // -1 when shorter than 8 bytes
  }
  if (pos >= 0 && version >= kChunkVersion && isBank) {
    pos = UnserializePresets(chunk, pos);
  } else if (pos >= 0) {
    pos = ReadState(chunk, pos);
    if (pos >= 0) ModifyCurrentPreset();
  }
  if (pos < 0) {
    // Whatever the level of the refusal, the meter starts afresh.
    OnStateRefused();
    return 0;
  }
  OnRestoreState();
  return 1;
}

// ------------------------------------------------------------------- process

void IPlugVST::EnsureScratch(int frames) {
  const size_t need = size_t(std::max(frames, 0));
  if (need <= mSilence.size()) return;
  for (auto& b : mInScratch) b.resize(need, 0.0);
  for (auto& b : mOutScratch) b.resize(need, 0.0);
  mSilence.assign(need, 0.0);
  mDiscard.resize(need, 0.0);
}

void IPlugVST::RunProcessBlock(int frames) {
  try {
    ProcessBlock(mInPins.data(), mOutPins.data(), frames);
  } catch (...) {
    // Nothing may cross the host boundary; the outputs carry silence instead.
    for (double* out : mOutPins) std::fill(out, out + frames, 0.0);
  }
}

void IPlugVST::WantMidi() {
  if (HandlesMidi()) CallHost(vst::audioMasterWantMidi, 0, 1);
}

void IPlugVST::PointPins(double* const* hostInputs, double* const* hostOutputs) {
  // Unconnected pins carry no audio: they read the shared silence and write
  // to the shared discard buffer, with no per-call work.
  for (int i = 0; i < NInputPins(); ++i) {
    double* src = hostInputs && mInConnected[size_t(i)] ? hostInputs[i] : nullptr;
    mInPins[size_t(i)] = src ? src : mSilence.data();
  }
  for (int o = 0; o < NOutputPins(); ++o) {
    double* dst = hostOutputs && mOutConnected[size_t(o)] ? hostOutputs[o] : nullptr;
    mOutPins[size_t(o)] = dst ? dst : mDiscard.data();
  }
}

void IPlugVST::ProcessFloat(float** inputs, float** outputs, int32_t frames, bool accumulate) {
  SpinLockGuard guard(Lock());
  WantMidi();
  frames = std::max(frames, 0);
  EnsureScratch(frames);
  for (int i = 0; i < NInputPins(); ++i) mInPtrs[size_t(i)] = nullptr;
  for (int i = 0; i < NInputPins(); ++i) {
    const float* src = inputs && mInConnected[size_t(i)] ? inputs[i] : nullptr;
    if (!src) continue;
    double* dst = mInScratch[size_t(i)].data();
    for (int32_t n = 0; n < frames; ++n) dst[n] = static_cast<double>(src[n]);
    mInPtrs[size_t(i)] = dst;
  }
  for (int o = 0; o < NOutputPins(); ++o) mOutPtrs[size_t(o)] = mOutScratch[size_t(o)].data();
  PointPins(mInPtrs.data(), mOutPtrs.data());
  RunProcessBlock(frames);
  for (int o = 0; o < NOutputPins(); ++o) {
    float* dst = outputs ? outputs[o] : nullptr;
    if (!dst) continue;
    if (!mOutConnected[size_t(o)]) {
      // Pins the host did not connect still get silence, never stale data.
      if (!accumulate) std::fill(dst, dst + frames, 0.0f);
      continue;
    }
    const double* src = mOutScratch[size_t(o)].data();
    if (accumulate) {
      for (int32_t n = 0; n < frames; ++n) dst[n] += static_cast<float>(src[n]);
    } else {
      for (int32_t n = 0; n < frames; ++n) dst[n] = static_cast<float>(src[n]);
    }
  }
}

void IPlugVST::ProcessDouble(double** inputs, double** outputs, int32_t frames) {
  SpinLockGuard guard(Lock());
  WantMidi();
  frames = std::max(frames, 0);
  EnsureScratch(frames);
  PointPins(inputs, outputs);
  RunProcessBlock(frames);
  for (int o = 0; o < NOutputPins(); ++o) {
    double* dst = outputs ? outputs[o] : nullptr;
    if (dst && !mOutConnected[size_t(o)]) std::fill(dst, dst + frames, 0.0);
  }
}

void IPlugVST::ProcessThunk(vst::AEffect* e, float** inputs, float** outputs, int32_t frames) {
  if (IPlugVST* plug = FromEffect(e)) plug->ProcessFloat(inputs, outputs, frames, true);
}

void IPlugVST::ProcessReplacingThunk(vst::AEffect* e, float** inputs, float** outputs, int32_t frames) {
  if (IPlugVST* plug = FromEffect(e)) plug->ProcessFloat(inputs, outputs, frames, false);
}

void IPlugVST::ProcessDoubleThunk(vst::AEffect* e, double** inputs, double** outputs, int32_t frames) {
  if (IPlugVST* plug = FromEffect(e)) plug->ProcessDouble(inputs, outputs, frames);
}

void IPlugVST::SetParameterThunk(vst::AEffect* e, int32_t index, float value) {
  IPlugVST* plug = FromEffect(e);
  if (!plug) return;
  SpinLockGuard guard(plug->Lock());
  if (IParam* p = plug->GetParam(index)) {
    p->SetNormalized(static_cast<double>(value));
    plug->OnParamChange(index);
  }
}

float IPlugVST::GetParameterThunk(vst::AEffect* e, int32_t index) {
  IPlugVST* plug = FromEffect(e);
  if (!plug) return 0.f;
  SpinLockGuard guard(plug->Lock());
  const IParam* p = plug->GetParam(index);
  return p ? static_cast<float>(p->GetNormalized()) : 0.f;
}

}  // namespace velorum
