#include "plugin/IPlugBase.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>

namespace velorum {

namespace {
std::atomic<EditorFactory> gEditorFactory{nullptr};
}  // namespace

void RegisterEditorFactory(EditorFactory factory) {
  gEditorFactory.store(factory);
}
EditorFactory RegisteredEditorFactory() {
  return gEditorFactory.load();
}

IPlugBase::IPlugBase(vst::HostCallback host, int numParams, int numPresets)
    : mHost(host),
      mParams(size_t(std::max(0, numParams))),
      mCountA(std::max(0, numParams)),
      mPresets(size_t(std::max(1, numPresets))) {}

IPlugBase::~IPlugBase() {
  DestroyEditor();
}

void IPlugBase::DestroyEditor() {
  std::lock_guard<std::mutex> guard(mEditorMutex);
  mEditorPtr.store(nullptr, std::memory_order_release);
  mEditor.reset();
}

IParam* IPlugBase::GetParam(int index) {
  return index >= 0 && index < NParams() ? &mParams[size_t(index)] : nullptr;
}

const IParam* IPlugBase::GetParam(int index) const {
  return index >= 0 && index < NParams() ? &mParams[size_t(index)] : nullptr;
}

double IPlugBase::ParamValue(int index) const {
  const IParam* p = GetParam(index);
  return p ? p->Value() : 0.0;
}

void IPlugBase::SetParam(int index, double value) {
  IParam* p = GetParam(index);
  if (!p) return;
  p->Set(value);
  OnParamChange(index);
  InformEditorOfParamChange(index);
}

void IPlugBase::WriteParams(ByteChunk& chunk) const {
  const std::vector<double> aux = AuxValues();
  chunk.PutInt32(ParamCountA());
  chunk.PutInt32(ParamCountB());
  chunk.PutInt32(static_cast<int32_t>(aux.size()));
  for (double v : aux) chunk.PutDouble(v);
  for (const IParam& p : mParams) chunk.PutDouble(p.Value());
}

int IPlugBase::ReadParams(const ByteChunk& chunk, int pos) {
  ParamTail tail;
  pos = ParseParams(chunk, pos, tail);
  if (pos >= 0) ApplyParams(tail);
  return pos;
}

int IPlugBase::ParseParams(const ByteChunk& chunk, int pos, ParamTail& tail) const {
  int32_t countA = 0, countB = 0, countC = 0;
  pos = chunk.GetInt32(countA, pos);
  pos = chunk.GetInt32(countB, pos);
  pos = chunk.GetInt32(countC, pos);
  if (pos < 0 || countA < 0 || countB < 0 || countC < 0) return -1;
  // Every count must fit in what is left, before anything is read.
  const int64_t stored = int64_t(countA) + countB + countC;
  if (stored * 8 > int64_t(chunk.Size()) - pos) return -1;
  // Stored values beyond the current count of a group are skipped, so the
  // next group is still read from its own place.
  tail.aux = AuxValues();
  for (int32_t i = 0; i < countC && pos >= 0; ++i) {
    double v = 0.0;
    pos = chunk.GetDouble(v, pos);
    if (pos >= 0 && size_t(i) < tail.aux.size()) tail.aux[size_t(i)] = v;
  }
  tail.values.assign(size_t(NParams()), 0.0);
  tail.present.assign(size_t(NParams()), false);
  auto readGroup = [&](int32_t count, int first, int current) {
    for (int32_t i = 0; i < count && pos >= 0; ++i) {
      double v = 0.0;
      pos = chunk.GetDouble(v, pos);
      if (pos >= 0 && i < current) {
        tail.values[size_t(first + i)] = v;
        tail.present[size_t(first + i)] = true;
      }
    }
  };
  readGroup(countA, 0, ParamCountA());
  readGroup(countB, ParamCountA(), ParamCountB());
  return pos;
}

void IPlugBase::ApplyParams(const ParamTail& tail) {
  SetAuxValues(tail.aux);
  for (size_t i = 0; i < mParams.size() && i < tail.values.size(); ++i) {
    if (tail.present[i]) mParams[i].Set(tail.values[i]);
  }
}

std::string IPlugBase::PresetName(int index) const {
  if (index < 0 || index >= NPresets()) return {};
  return mPresets[size_t(index)].name;
}

bool IPlugBase::RestorePreset(int index) {
  if (index < 0 || index >= NPresets()) return false;
  std::lock_guard<std::recursive_mutex> guard(mStateMutex);
  mCurrentPreset = index;
  Preset& preset = mPresets[size_t(index)];
  if (!preset.initialized) return true;
  const bool ok = ReadState(preset.state, 0) >= 0;
  if (ok) OnRestoreState();
  return ok;
}

void IPlugBase::ModifyCurrentPreset() {
  std::lock_guard<std::recursive_mutex> guard(mStateMutex);
  Preset& preset = mPresets[size_t(mCurrentPreset)];
  preset.state.Clear();
  preset.initialized = WriteState(preset.state);
}

void IPlugBase::RenameCurrentPreset(const char* name) {
  if (!name) return;
  mPresets[size_t(mCurrentPreset)].name = std::string(name).substr(0, 23);
}

void IPlugBase::MakeDefaultPresets(const char* name) {
  std::lock_guard<std::recursive_mutex> guard(mStateMutex);
  ByteChunk state;
  const bool ok = WriteState(state);
  for (Preset& preset : mPresets) {
    preset.name = name;
    preset.state = state;
    preset.initialized = ok;
  }
}

// Bank layout: int32 preset count, int32 current preset, then per preset its
// name (text) and its state (byte run).
bool IPlugBase::SerializePresets(ByteChunk& chunk) {
  std::lock_guard<std::recursive_mutex> guard(mStateMutex);
  chunk.PutInt32(NPresets());
  chunk.PutInt32(mCurrentPreset);
  for (const Preset& preset : mPresets) {
    chunk.PutText(preset.name);
    chunk.PutByteRun(preset.state.Bytes());
  }
  return true;
}

int IPlugBase::UnserializePresets(const ByteChunk& chunk, int pos) {
  std::lock_guard<std::recursive_mutex> guard(mStateMutex);
  int32_t count = 0, current = 0;
  pos = chunk.GetInt32(count, pos);
  pos = chunk.GetInt32(current, pos);
  if (pos < 0 || count < 0) return -1;
  std::vector<Preset> loaded;
  for (int32_t i = 0; i < count && pos >= 0; ++i) {
    Preset preset;
    std::vector<uint8_t> bytes;
    pos = chunk.GetText(preset.name, pos);
    pos = chunk.GetByteRun(bytes, pos);
    preset.state.Assign(bytes.data(), bytes.size());
    preset.initialized = !bytes.empty();
    if (i < NPresets()) loaded.push_back(std::move(preset));
  }
  if (pos < 0) return -1;
  const int index = std::clamp(current, 0, NPresets() - 1);
  // Check the preset that becomes current before anything is replaced.
  if (size_t(index) < loaded.size() && loaded[size_t(index)].initialized &&
      ReadState(loaded[size_t(index)].state, 0) < 0) {
    return -1;
  }
  for (size_t i = 0; i < loaded.size(); ++i) mPresets[i] = std::move(loaded[i]);
  mCurrentPreset = index;
  return pos;
}

void IPlugBase::OnRestoreState() {
  SetAllEditorControlsDirty();
}

intptr_t IPlugBase::CallHost(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  if (!mHost) return 0;
  return mHost(mEffect, opcode, index, value, ptr, opt);
}

void IPlugBase::IdentifyHostOnce() {
  if (mHostCode != kHostUninitialized) return;
  char product[256] = {};
  CallHost(vst::audioMasterGetProductString, 0, 0, product);
  product[sizeof product - 1] = '\0';
  mHostCode = IdentifyHost(product);
  const int decimal = static_cast<int>(CallHost(vst::audioMasterGetVendorVersion));
  const int mm = decimal / 10000, mi = (decimal % 10000) / 100, pp = decimal % 100;
  mHostVersion = (mm << 16) | (mi << 8) | pp;
  char text[64];
  std::snprintf(text, sizeof text, "v%d.%d.%d", mm, mi, pp);
  mHostVersionText = text;
}

HostCode IPlugBase::GetHost() {
  IdentifyHostOnce();
  return mHostCode;
}

int IPlugBase::HostVersion() {
  IdentifyHostOnce();
  return mHostVersion;
}

const std::string& IPlugBase::HostVersionText() {
  IdentifyHostOnce();
  return mHostVersionText;
}

const vst::VstTimeInfo* IPlugBase::HostTimeInfo() {
  const intptr_t mask = vst::kPpqPosValid | vst::kTempoValid | vst::kCyclePosValid | vst::kBarsValid;
  return reinterpret_cast<const vst::VstTimeInfo*>(CallHost(vst::audioMasterGetTime, 0, mask));
}

IEditor* IPlugBase::Editor() {
  std::lock_guard<std::mutex> guard(mEditorMutex);
  if (!mEditor && !mEditorTried) {
    mEditorTried = true;
    if (EditorFactory factory = RegisteredEditorFactory()) {
      try {
        mEditor = factory(*this);
      } catch (...) {
        mEditor.reset();
      }
      mEditorPtr.store(mEditor.get(), std::memory_order_release);
    }
  }
  return mEditor.get();
}

void IPlugBase::InformEditorOfParamChange(int index) {
  if (IEditor* editor = ExistingEditor()) editor->OnParamChanged(index);
}

void IPlugBase::SetAllEditorControlsDirty() {
  if (IEditor* editor = ExistingEditor()) editor->SetAllDirty();
}

}  // namespace velorum
