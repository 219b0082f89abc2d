#include "VstHost.h"

#include <algorithm>
#include <cstring>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace velorum::harness {

namespace {

// The instance being created: the plug-in may call back before VSTPluginMain
// has returned, when the host does not yet know the AEffect.
thread_local HostedPlugin* tCreating = nullptr;

#if defined(_WIN32)
std::string NativePath(const std::string& path) {
  if (path.empty() || path[0] != '/') return path;
  std::string p = "Z:" + path;
  std::replace(p.begin(), p.end(), '/', '\\');
  return p;
}
#endif

}  // namespace

std::unique_ptr<PluginModule> PluginModule::Load(const std::string& path, std::string* error) {
  std::unique_ptr<PluginModule> module(new PluginModule);
#if defined(_WIN32)
  HMODULE handle = LoadLibraryA(NativePath(path).c_str());
  if (!handle) {
    if (error) *error = "LoadLibrary failed with code " + std::to_string(GetLastError());
    return nullptr;
  }
  module->mHandle = handle;
  module->mEntry =
      reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(handle, "VSTPluginMain")));
#else
  int flags = RTLD_NOW | RTLD_LOCAL;
#if defined(__SANITIZE_ADDRESS__)
  // The plug-in pulls in system libraries (X11, FFmpeg, GnuTLS, ...) whose
  // process-lifetime allocations LeakSanitizer would report as leaks once
  // dlclose unmaps them; keep the module mapped so only real leaks show.
  flags |= RTLD_NODELETE;
#endif
  void* handle = dlopen(path.c_str(), flags);
  if (!handle) {
    if (error) *error = dlerror();
    return nullptr;
  }
  module->mHandle = handle;
  module->mEntry = reinterpret_cast<EntryPoint>(dlsym(handle, "VSTPluginMain"));
#endif
  if (!module->mEntry) {
    if (error) *error = "no VSTPluginMain";
    return nullptr;
  }
  return module;
}

PluginModule::~PluginModule() {
  if (!mHandle) return;
#if defined(_WIN32)
  FreeLibrary(static_cast<HMODULE>(mHandle));
#else
  dlclose(mHandle);
#endif
}

std::unique_ptr<HostedPlugin> HostedPlugin::Create(PluginModule& module, double sampleRate, int blockSize,
                                                   const std::string& hostProduct) {
  std::unique_ptr<HostedPlugin> host(new HostedPlugin);
  host->mSampleRate = sampleRate;
  host->mBlockSize = blockSize;
  host->mProduct = hostProduct;
  tCreating = host.get();
  vst::AEffect* effect = module.Entry()(&Callback);
  tCreating = nullptr;
  if (!effect || effect->magic != vst::kEffectMagic) return nullptr;
  effect->user = host.get();
  host->mEffect = effect;
  host->Dispatch(vst::effOpen);
  host->Dispatch(vst::effSetSampleRate, 0, 0, nullptr, static_cast<float>(sampleRate));
  host->Dispatch(vst::effSetBlockSize, 0, blockSize);
  host->Dispatch(vst::effMainsChanged, 0, 1);
  return host;
}

HostedPlugin::~HostedPlugin() {
  if (!mEffect) return;
  Dispatch(vst::effMainsChanged, 0, 0);
  Dispatch(vst::effClose);
}

intptr_t HostedPlugin::Dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  return mEffect->dispatcher(mEffect, opcode, index, value, ptr, opt);
}

intptr_t HostedPlugin::SetChannels(int channels) {
  std::vector<uint8_t> in(sizeof(vst::VstSpeakerArrangement) + 24 * sizeof(vst::VstSpeakerProperties)),
      out(in.size());
  auto* a = reinterpret_cast<vst::VstSpeakerArrangement*>(in.data());
  auto* b = reinterpret_cast<vst::VstSpeakerArrangement*>(out.data());
  a->numChannels = b->numChannels = channels;
  a->type = b->type = channels == 1 ? 0 : channels == 2 ? 1 : -2;
  return Dispatch(vst::effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(a), b);
}

void HostedPlugin::SetSampleRate(double rate) {
  mSampleRate = rate;
  Dispatch(vst::effSetSampleRate, 0, 0, nullptr, static_cast<float>(rate));
}

intptr_t HostedPlugin::Callback(vst::AEffect* effect, int32_t opcode, int32_t index, intptr_t value,
                                void* ptr, float opt) {
  HostedPlugin* host = effect && effect->user ? static_cast<HostedPlugin*>(effect->user) : tCreating;
  if (opcode == vst::audioMasterVersion) return 2400;
  if (!host) return 0;
  return host->Answer(opcode, index, value, ptr, opt);
}

intptr_t HostedPlugin::Answer(int32_t opcode, int32_t /*index*/, intptr_t /*value*/, void* ptr,
                              float /*opt*/) {
  {
    std::lock_guard<std::mutex> lock(mCountMutex);
    ++mCounts[opcode];
  }
  switch (opcode) {
    case vst::audioMasterGetTime: {
      if (!mTimeInfoAvailable) return 0;
      const Transport& t = mTransport;
      mTime = vst::VstTimeInfo{};
      mTime.samplePos = t.position;
      mTime.sampleRate = mSampleRate;
      mTime.tempo = t.tempo;
      mTime.ppqPos = t.position / mSampleRate * t.tempo / 60.0;
      mTime.cycleStartPos = t.loopStart / mSampleRate * t.tempo / 60.0;
      mTime.cycleEndPos = t.loopEnd / mSampleRate * t.tempo / 60.0;
      mTime.timeSigNumerator = 4;
      mTime.timeSigDenominator = 4;
      mTime.flags = vst::kTempoValid | vst::kPpqPosValid | vst::kTimeSigValid | vst::kCyclePosValid;
      if (t.playing) mTime.flags |= vst::kTransportPlaying;
      if (t.recording) mTime.flags |= vst::kTransportRecording;
      if (t.loop) mTime.flags |= vst::kTransportCycleActive;
      return reinterpret_cast<intptr_t>(&mTime);
    }
    case vst::audioMasterGetSampleRate:
      return static_cast<intptr_t>(mSampleRate);
    case vst::audioMasterGetBlockSize:
      return mBlockSize;
    case vst::audioMasterGetProductString:
    case vst::audioMasterGetVendorString:
      if (ptr) {
        const std::string& text =
            opcode == vst::audioMasterGetProductString ? mProduct : std::string("Velorum");
        std::strncpy(static_cast<char*>(ptr), text.c_str(), 63);
        static_cast<char*>(ptr)[63] = '\0';
      }
      return 1;
    case vst::audioMasterGetVendorVersion:
      return 10203;
    case vst::audioMasterGetCurrentProcessLevel:
      return 2;
    default:
      return 0;
  }
}

std::vector<uint8_t> HostedPlugin::SaveChunk(bool program) {
  void* data = nullptr;
  const intptr_t size = Dispatch(vst::effGetChunk, program ? 1 : 0, 0, &data);
  if (size <= 0 || !data) return {};
  const auto* p = static_cast<const uint8_t*>(data);
  return std::vector<uint8_t>(p, p + size);
}

intptr_t HostedPlugin::LoadChunk(const std::vector<uint8_t>& bytes, bool program) {
  std::vector<uint8_t> copy(bytes);  // the host's own buffer, as a DAW hands it over
  return Dispatch(vst::effSetChunk, program ? 1 : 0, static_cast<intptr_t>(copy.size()),
                  copy.empty() ? nullptr : copy.data());
}

int HostedPlugin::CallbackCount(int32_t opcode) const {
  std::lock_guard<std::mutex> lock(mCountMutex);
  auto it = mCounts.find(opcode);
  return it == mCounts.end() ? 0 : it->second;
}

void HostedPlugin::AdvanceTransport(int frames) {
  Transport& t = mTransport;
  if (!t.playing || !t.advance) return;
  t.position += frames;
  if (t.loop && t.loopEnd > t.loopStart && t.position >= t.loopEnd)
    t.position = t.loopStart + (t.position - t.loopEnd);
}

int HostedPlugin::FramesUntilLoopEnd(int frames) const {
  const Transport& t = mTransport;
  if (!t.playing || !t.loop || t.loopEnd <= t.loopStart || t.position >= t.loopEnd) return frames;
  const double left = t.loopEnd - t.position;
  return left < frames ? static_cast<int>(left) : frames;
}

namespace {

// Points the pin lists at the host's buffers: inputs copied from `in` (silence
// past its channels), outputs into scratch that CollectOutputs reads back.
template <typename T>
void PinLists(const std::vector<std::vector<T>>& in, int pinsIn, int pinsOut, int offset, int frames,
              std::vector<std::vector<T>>& spareIn, std::vector<std::vector<T>>& spareOut,
              std::vector<T*>& inPtrs, std::vector<T*>& outPtrs) {
  const size_t need = size_t(std::max(frames, 1));
  spareIn.resize(size_t(pinsIn));
  spareOut.resize(size_t(pinsOut));
  inPtrs.resize(size_t(pinsIn));
  outPtrs.resize(size_t(pinsOut));
  for (int c = 0; c < pinsIn; ++c) {
    std::vector<T>& buffer = spareIn[size_t(c)];
    if (buffer.size() < need) buffer.resize(need);
    if (size_t(c) < in.size()) {
      std::copy_n(in[size_t(c)].begin() + offset, frames, buffer.begin());
    } else {
      std::fill_n(buffer.begin(), frames, T(0));
    }
    inPtrs[size_t(c)] = buffer.data();
  }
  for (int c = 0; c < pinsOut; ++c) {
    std::vector<T>& buffer = spareOut[size_t(c)];
    if (buffer.size() < need) buffer.resize(need);
    // A value the plug-in must overwrite: leftovers would show in the tests.
    std::fill_n(buffer.begin(), frames, T(12345));
    outPtrs[size_t(c)] = buffer.data();
  }
}

template <typename T>
void CollectOutputs(std::vector<std::vector<T>>& out, const std::vector<std::vector<T>>& spareOut, int offset,
                    int frames) {
  for (size_t c = 0; c < out.size() && c < spareOut.size(); ++c) {
    if (out[c].size() < size_t(offset + frames)) out[c].resize(size_t(offset + frames));
    std::copy_n(spareOut[c].begin(), frames, out[c].begin() + offset);
  }
}

}  // namespace

void HostedPlugin::ProcessFloat(const std::vector<std::vector<float>>& in,
                                std::vector<std::vector<float>>& out, int offset, int frames) {
  PinLists(in, NumInputs(), NumOutputs(), offset, frames, mSpareInF, mSpareOutF, mInPtrsF, mOutPtrsF);
  mEffect->processReplacing(mEffect, mInPtrsF.data(), mOutPtrsF.data(), frames);
  CollectOutputs(out, mSpareOutF, offset, frames);
  AdvanceTransport(frames);
}

void HostedPlugin::ProcessDouble(const std::vector<std::vector<double>>& in,
                                 std::vector<std::vector<double>>& out, int offset, int frames) {
  PinLists(in, NumInputs(), NumOutputs(), offset, frames, mSpareInD, mSpareOutD, mInPtrsD, mOutPtrsD);
  mEffect->processDoubleReplacing(mEffect, mInPtrsD.data(), mOutPtrsD.data(), frames);
  CollectOutputs(out, mSpareOutD, offset, frames);
  AdvanceTransport(frames);
}

void HostedPlugin::RunFloat(const std::vector<std::vector<float>>& in, std::vector<std::vector<float>>& out,
                            const std::vector<int>& blockSizes) {
  RunBlocks(in.empty() ? 0 : static_cast<int>(in[0].size()), blockSizes,
            [&](int offset, int frames) { ProcessFloat(in, out, offset, frames); });
}

void HostedPlugin::RunDouble(const std::vector<std::vector<double>>& in,
                             std::vector<std::vector<double>>& out, const std::vector<int>& blockSizes) {
  RunBlocks(in.empty() ? 0 : static_cast<int>(in[0].size()), blockSizes,
            [&](int offset, int frames) { ProcessDouble(in, out, offset, frames); });
}

void HostedPlugin::RunBlocks(int total, const std::vector<int>& sizes,
                             const std::function<void(int, int)>& part) {
  const bool anyFrames =
      sizes.empty() || std::any_of(sizes.begin(), sizes.end(), [](int n) { return n > 0; });
  if (!anyFrames) return;
  size_t k = 0;
  int offset = 0;
  while (offset < total) {
    int frames = sizes.empty() ? 512 : sizes[k++ % sizes.size()];
    frames = std::clamp(frames, 0, total - offset);
    if (frames == 0) {
      part(offset, 0);
      continue;
    }
    while (frames > 0) {
      const int piece = std::max(1, FramesUntilLoopEnd(frames));
      part(offset, piece);
      offset += piece;
      frames -= piece;
    }
  }
}

}  // namespace velorum::harness
