// A small VST2 host for tests and the velorum-host program: loads a plug-in
// binary the way a DAW does (dlopen / LoadLibrary, VSTPluginMain, effOpen,
// sample rate, block size, resume), answers the host callbacks with a
// scriptable transport, streams audio through the float or double process
// callbacks, and saves and restores program and bank chunks.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "plugin/VstAbi.h"

namespace velorum::harness {

// The loaded binary. Unloaded when destroyed (after every instance is closed).
class PluginModule {
 public:
  static std::unique_ptr<PluginModule> Load(const std::string& path, std::string* error = nullptr);
  ~PluginModule();
  using EntryPoint = vst::AEffect* (*)(vst::HostCallback);
  EntryPoint Entry() const { return mEntry; }

 private:
  PluginModule() = default;
  void* mHandle = nullptr;
  EntryPoint mEntry = nullptr;
};

// The host's transport, turned into a VstTimeInfo for every getTime call.
struct Transport {
  bool playing = false;
  bool recording = false;
  double position = 0.0;  // samples
  double tempo = 120.0;
  bool loop = false;
  double loopStart = 0.0;  // samples
  double loopEnd = 0.0;
  bool advance = true;  // the host moves the position after each block while playing
};

class HostedPlugin {
 public:
  // Creates an instance and brings it up: effOpen, sample rate, block size, resume.
  static std::unique_ptr<HostedPlugin> Create(PluginModule& module, double sampleRate = 48000.0,
                                              int blockSize = 512,
                                              const std::string& hostProduct = "Velorum Host");
  ~HostedPlugin();  // suspend and effClose

  vst::AEffect* Effect() const { return mEffect; }
  intptr_t Dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                    float opt = 0.f);
  double SampleRate() const { return mSampleRate; }
  int NumInputs() const { return mEffect->numInputs; }
  int NumOutputs() const { return mEffect->numOutputs; }

  // Connects `channels` inputs and outputs (effSetSpeakerArrangement); returns the answer.
  intptr_t SetChannels(int channels);
  void SetSampleRate(double rate);

  // Audio: in/out are [channel][frame]; missing channels are fed silence and
  // extra outputs are discarded. Blocks larger than the data are cut.
  void ProcessFloat(const std::vector<std::vector<float>>& in, std::vector<std::vector<float>>& out,
                    int offset, int frames);
  void ProcessDouble(const std::vector<std::vector<double>>& in, std::vector<std::vector<double>>& out,
                     int offset, int frames);
  // Runs a whole signal in blocks of the given sizes (cycled), honouring the
  // transport's loop by splitting a block at the loop end as hosts do.
  void RunFloat(const std::vector<std::vector<float>>& in, std::vector<std::vector<float>>& out,
                const std::vector<int>& blockSizes);
  void RunDouble(const std::vector<std::vector<double>>& in, std::vector<std::vector<double>>& out,
                 const std::vector<int>& blockSizes);

  // Chunks (program when `program`, else bank).
  std::vector<uint8_t> SaveChunk(bool program = true);
  intptr_t LoadChunk(const std::vector<uint8_t>& bytes, bool program = true);

  // Transport, read by the plug-in through audioMasterGetTime.
  Transport& HostTransport() { return mTransport; }
  void SetTimeInfoAvailable(bool available) { mTimeInfoAvailable = available; }

  // Host callback statistics.
  int CallbackCount(int32_t opcode) const;

 private:
  HostedPlugin() = default;
  static intptr_t Callback(vst::AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                           float opt);
  intptr_t Answer(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);
  void AdvanceTransport(int frames);
  int FramesUntilLoopEnd(int frames) const;
  void RunBlocks(int total, const std::vector<int>& sizes, const std::function<void(int, int)>& part);

  vst::AEffect* mEffect = nullptr;
  double mSampleRate = 48000.0;
  int mBlockSize = 512;
  std::string mProduct;
  Transport mTransport;
  bool mTimeInfoAvailable = true;
  vst::VstTimeInfo mTime{};
  mutable std::mutex mCountMutex;
  std::map<int32_t, int> mCounts;
  std::vector<std::vector<float>> mSpareInF, mSpareOutF;
  std::vector<std::vector<double>> mSpareInD, mSpareOutD;
  std::vector<float*> mInPtrsF, mOutPtrsF;
  std::vector<double*> mInPtrsD, mOutPtrsD;
};

}  // namespace velorum::harness
