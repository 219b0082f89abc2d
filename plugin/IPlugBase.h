// The plug-in base: the internal parameter list, the presets (VST2 programs),
// the plug-in lock, the host identity and the editor seam. The VST2 boundary
// (IPlugVST) derives from it and the meter derives from that; everything the
// boundary needs from the meter is reached through the virtual operations here.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "plugin/ByteChunk.h"
#include "plugin/HostTable.h"
#include "plugin/IEditor.h"
#include "plugin/IParam.h"
#include "plugin/RecursiveSpinLock.h"
#include "plugin/VstAbi.h"

namespace velorum {

class IPlugBase {
 public:
  struct Preset {
    std::string name;
    ByteChunk state;
    bool initialized = false;
  };

  IPlugBase(vst::HostCallback host, int numParams, int numPresets);
  virtual ~IPlugBase();
  IPlugBase(const IPlugBase&) = delete;
  IPlugBase& operator=(const IPlugBase&) = delete;

  // Parameters.
  int NParams() const { return static_cast<int>(mParams.size()); }
  IParam* GetParam(int index);
  const IParam* GetParam(int index) const;
  double ParamValue(int index) const;
  // Stores a value through the parameter's constraint and informs the plug-in
  // (OnParamChange) and the editor.
  void SetParam(int index, double value);
  int ParamCountA() const { return mCountA; }
  int ParamCountB() const { return NParams() - mCountA; }
  // The auxiliary list stored beside the parameters (see WriteParams).
  virtual std::vector<double> AuxValues() const { return {}; }
  virtual void SetAuxValues(const std::vector<double>& /*values*/) {}

  // State: the whole plug-in state as a body of bytes (implemented by the meter).
  virtual bool WriteState(ByteChunk& chunk) = 0;
  // Returns the position after the state, or -1 when it is refused.
  virtual int ReadState(const ByteChunk& chunk, int start) = 0;
  // The parameter tail of the state.
  void WriteParams(ByteChunk& chunk) const;
  int ReadParams(const ByteChunk& chunk, int start);
  // ReadParams in two steps: the tail is read without touching anything
  // (ParseParams, -1 when damaged), then stored through the constraints.
  struct ParamTail {
    std::vector<double> aux;
    std::vector<double> values;  // one per current parameter; absent ones keep their value
    std::vector<bool> present;
  };
  int ParseParams(const ByteChunk& chunk, int start, ParamTail& tail) const;
  void ApplyParams(const ParamTail& tail);
  // Called when a state chunk is refused at any level: the meter starts a
  // fresh measurement.
  virtual void OnStateRefused() {}

  // Presets.
  int NPresets() const { return static_cast<int>(mPresets.size()); }
  int CurrentPreset() const { return mCurrentPreset; }
  std::string PresetName(int index) const;
  bool RestorePreset(int index);
  void ModifyCurrentPreset();
  void RenameCurrentPreset(const char* name);
  // Fills every preset slot from the current state under `name`.
  void MakeDefaultPresets(const char* name);
  bool SerializePresets(ByteChunk& chunk);
  int UnserializePresets(const ByteChunk& chunk, int start);
  bool PresetChunks() const { return mPresetChunks; }

  // Called by the boundary.
  virtual void OnOpen() {}
  virtual void OnReset() {}
  virtual void OnParamChange(int /*index*/) {}
  virtual void OnRestoreState();
  virtual void OnPresetsModified() {}
  virtual void OnBlockSize(int blockSize) { mBlockSize = blockSize; }
  virtual void OnEditorOpened() {}
  virtual void OnEditorClosing() {}
  virtual void ProcessBlock(double** inputs, double** outputs, int frames) = 0;
  virtual bool IsInstrument() const { return false; }
  virtual bool HandlesMidi() const { return false; }
  virtual int TailSize() const { return 0; }
  // A second query besides the host identity: a small code describing the
  // plug-in's processing context (see LoudnessMeterPlugin).
  virtual int ProcessingContext() const { return 0; }

  // Sample rate and block size as the host set them.
  double SampleRate() const { return mSampleRate; }
  void SetSampleRateValue(double rate) { mSampleRate = rate; }
  int BlockSize() const { return mBlockSize; }

  // Host.
  vst::HostCallback Host() const { return mHost; }
  intptr_t CallHost(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                    float opt = 0.f);
  // Identified lazily on first demand and remembered.
  HostCode GetHost();
  int HostVersion();  // 0xMMmmpp
  const std::string& HostVersionText();
  // Reads the host's time information, or null when the host has none.
  const vst::VstTimeInfo* HostTimeInfo();

  // Lock.
  RecursiveSpinLock& Lock() { return mLock; }
  // Serialises the state and preset calls among themselves. They run outside
  // the plug-in lock, which they take only in short steps so that audio
  // processing goes on while a long measurement is saved or restored. Taken
  // before the plug-in lock, never while holding it.
  std::recursive_mutex& StateMutex() { return mStateMutex; }

  // Editor seam.
  IEditor* Editor();  // creates it on first demand through the registered factory
  IEditor* ExistingEditor() const { return mEditorPtr.load(std::memory_order_acquire); }
  void InformEditorOfParamChange(int index);
  void SetAllEditorControlsDirty();

  // The AEffect record the host talks to (set by the boundary).
  vst::AEffect* Effect() { return mEffect; }

 protected:
  void SetParamCountA(int count) { mCountA = count; }
  // Closes and destroys the editor; the most derived plug-in calls this
  // first in its destructor, while everything the editor reads still exists.
  void DestroyEditor();
  void SetEffect(vst::AEffect* effect) { mEffect = effect; }
  bool mPresetChunks = false;

 private:
  void IdentifyHostOnce();

  vst::HostCallback mHost;
  vst::AEffect* mEffect = nullptr;
  std::vector<IParam> mParams;
  int mCountA = 0;
  std::vector<Preset> mPresets;
  int mCurrentPreset = 0;
  RecursiveSpinLock mLock;
  std::recursive_mutex mStateMutex;
  double mSampleRate = 44100.0;
  int mBlockSize = 1024;
  HostCode mHostCode = kHostUninitialized;
  int mHostVersion = 0;
  std::string mHostVersionText;
  // Created on the user-interface thread, read from the audio thread through
  // the atomic pointer; destroyed with the plug-in.
  std::mutex mEditorMutex;
  std::unique_ptr<IEditor> mEditor;
  std::atomic<IEditor*> mEditorPtr{nullptr};
  bool mEditorTried = false;
};

}  // namespace velorum
