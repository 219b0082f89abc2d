// The VST2 boundary: the AEffect record handed to the host, the dispatcher
// that answers the host's opcodes, the audio callbacks that adapt the host's
// float or double buffers to double-precision pin lists, and the chunk calls
// that carry the plug-in state behind a "tffp" header.
#pragma once

#include <cstdint>
#include <vector>

#include "plugin/IPlugBase.h"
#include "plugin/VstAbi.h"

namespace velorum {

// Chunk header: the int32 magic (bytes "tffp") and the chunk version.
inline constexpr int32_t kChunkMagic = 0x70666674;
inline constexpr int32_t kChunkVersion = 0x00010000;

struct ChannelIO {
  int inputs;
  int outputs;
};

// Speaker arrangement with room for every pin of the plug-in; its header has
// the public layout, so a pointer to it is handed out as VstSpeakerArrangement*.
struct SpeakerArrangement24 {
  int32_t type;
  int32_t numChannels;
  vst::VstSpeakerProperties speakers[24];
};

class IPlugVST : public IPlugBase {
 public:
  IPlugVST(vst::HostCallback host, int numParams, int numPresets, std::vector<ChannelIO> channelIO,
           int32_t uniqueID, const char* effectName, const char* vendorName, const char* productName);
  ~IPlugVST() override;

  vst::AEffect& AEffectRecord() { return mAEffect; }
  static IPlugVST* FromEffect(vst::AEffect* effect);

  int NInputPins() const { return static_cast<int>(mInConnected.size()); }
  int NOutputPins() const { return static_cast<int>(mOutConnected.size()); }
  bool InputConnected(int pin) const;
  bool OutputConnected(int pin) const;
  const std::vector<ChannelIO>& ChannelConfigs() const { return mChannelIO; }
  // Outputs of the configuration in use (the number of connected output pins).
  int DeclaredOutputs() const;
  unsigned HostExtensions() const { return mHostExtensions; }

  // The dispatcher, callable by the static trampoline and by tests.
  intptr_t Dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);

  // A vendor-specific query (effVendorSpecific with an index of the plug-in's
  // own); returns 0 when not handled.
  virtual intptr_t VendorQuery(int32_t /*index*/, intptr_t /*value*/, void* /*ptr*/, float /*opt*/) {
    return 0;
  }

 protected:
  // Called after effSetSpeakerArrangement changed the connected pins.
  virtual void OnChannelConfigChanged() {}

 private:
  static intptr_t DispatcherThunk(vst::AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                  float opt);
  static void ProcessThunk(vst::AEffect* e, float** inputs, float** outputs, int32_t frames);
  static void ProcessReplacingThunk(vst::AEffect* e, float** inputs, float** outputs, int32_t frames);
  static void ProcessDoubleThunk(vst::AEffect* e, double** inputs, double** outputs, int32_t frames);
  static void SetParameterThunk(vst::AEffect* e, int32_t index, float value);
  static float GetParameterThunk(vst::AEffect* e, int32_t index);

  intptr_t DispatchLocked(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);
  intptr_t GetChunk(void** data, bool isBank);
  intptr_t SetChunk(const void* data, intptr_t size, bool isBank);
  intptr_t CanDo(const char* text);
  intptr_t PinProperties(bool input, int32_t pin, void* ptr);
  intptr_t SetSpeakerArrangement(const vst::VstSpeakerArrangement* in, const vst::VstSpeakerArrangement* out);
  void UpdateArrangements();
  void ProcessFloat(float** inputs, float** outputs, int32_t frames, bool accumulate);
  void ProcessDouble(double** inputs, double** outputs, int32_t frames);
  void EnsureScratch(int frames);
  void PointPins(double* const* hostInputs, double* const* hostOutputs);
  void WantMidi();
  void RunProcessBlock(int frames);

  vst::AEffect mAEffect{};
  std::vector<ChannelIO> mChannelIO;
  const char* mEffectName;
  const char* mVendorName;
  const char* mProductName;
  std::vector<uint8_t> mInConnected, mOutConnected;
  std::vector<double*> mInPins, mOutPins;
  std::vector<double*> mInPtrs, mOutPtrs;  // the float path's converted buffers, null for no audio
  std::vector<std::vector<double>> mInScratch, mOutScratch;
  std::vector<double> mSilence, mDiscard;
  SpeakerArrangement24 mInArrangement{}, mOutArrangement{};
  ByteChunk mProgramChunk, mBankChunk;
  unsigned mHostExtensions = 0;
};

}  // namespace velorum
