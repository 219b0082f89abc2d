// The binary interface between a VST2 host and an effect: the AEffect record,
// the callback signatures, the opcode numbers and the records that travel
// through the dispatcher. Declared here from the published numbers and field
// layouts; every record is checked against its 64-bit size below.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velorum::vst {

struct AEffect;

using HostCallback = intptr_t (*)(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                  float opt);
using DispatcherProc = intptr_t (*)(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                    float opt);
using ProcessProc = void (*)(AEffect* effect, float** inputs, float** outputs, int32_t frames);
using ProcessDoubleProc = void (*)(AEffect* effect, double** inputs, double** outputs, int32_t frames);
using SetParameterProc = void (*)(AEffect* effect, int32_t index, float value);
using GetParameterProc = float (*)(AEffect* effect, int32_t index);

struct AEffect {
  int32_t magic;
  DispatcherProc dispatcher;
  ProcessProc process;  // accumulating, legacy
  SetParameterProc setParameter;
  GetParameterProc getParameter;
  int32_t numPrograms;
  int32_t numParams;
  int32_t numInputs;
  int32_t numOutputs;
  int32_t flags;
  intptr_t reserved1;
  intptr_t reserved2;
  int32_t initialDelay;
  int32_t realQualities;
  int32_t offQualities;
  float ioRatio;
  void* object;
  void* user;
  int32_t uniqueID;
  int32_t version;
  ProcessProc processReplacing;
  ProcessDoubleProc processDoubleReplacing;
  char future[56];
};

inline constexpr int32_t kEffectMagic = 0x56737450;  // "VstP"

// AEffect::flags
inline constexpr int32_t kFlagHasEditor = 1 << 0;
inline constexpr int32_t kFlagCanMono = 1 << 3;
inline constexpr int32_t kFlagCanReplacing = 1 << 4;
inline constexpr int32_t kFlagProgramChunks = 1 << 5;
inline constexpr int32_t kFlagIsSynth = 1 << 8;
inline constexpr int32_t kFlagCanDoubleReplacing = 1 << 12;

// Dispatcher opcodes (host to effect).
enum EffectOpcode : int32_t {
  effOpen = 0,
  effClose = 1,
  effSetProgram = 2,
  effGetProgram = 3,
  effSetProgramName = 4,
  effGetProgramName = 5,
  effGetParamLabel = 6,
  effGetParamDisplay = 7,
  effGetParamName = 8,
  effSetSampleRate = 10,
  effSetBlockSize = 11,
  effMainsChanged = 12,
  effEditGetRect = 13,
  effEditOpen = 14,
  effEditClose = 15,
  effEditIdle = 19,
  effIdentify = 22,
  effGetChunk = 23,
  effSetChunk = 24,
  effProcessEvents = 25,
  effCanBeAutomated = 26,
  effString2Parameter = 27,
  effGetProgramNameIndexed = 29,
  effGetInputProperties = 33,
  effGetOutputProperties = 34,
  effGetPlugCategory = 35,
  effSetSpeakerArrangement = 42,
  effGetEffectName = 45,
  effGetVendorString = 47,
  effGetProductString = 48,
  effGetVendorVersion = 49,
  effVendorSpecific = 50,
  effCanDo = 51,
  effGetTailSize = 52,
  effIdle = 53,
  effGetVstVersion = 58,
  effGetMidiKeyName = 66,
  effGetSpeakerArrangement = 69,
};

// Host callback opcodes (effect to host).
enum HostOpcode : int32_t {
  audioMasterAutomate = 0,
  audioMasterVersion = 1,
  audioMasterCurrentId = 2,
  audioMasterIdle = 3,
  audioMasterWantMidi = 6,
  audioMasterGetTime = 7,
  audioMasterSizeWindow = 15,
  audioMasterGetSampleRate = 16,
  audioMasterGetBlockSize = 17,
  audioMasterGetCurrentProcessLevel = 23,
  audioMasterGetVendorString = 32,
  audioMasterGetProductString = 33,
  audioMasterGetVendorVersion = 34,
  audioMasterCanDo = 37,
};

// Time information returned by audioMasterGetTime.
struct VstTimeInfo {
  double samplePos;
  double sampleRate;
  double nanoSeconds;
  double ppqPos;
  double tempo;
  double barStartPos;
  double cycleStartPos;
  double cycleEndPos;
  int32_t timeSigNumerator;
  int32_t timeSigDenominator;
  int32_t smpteOffset;
  int32_t smpteFrameRate;
  int32_t samplesToNextClock;
  int32_t flags;
};

// VstTimeInfo::flags, and the request mask passed as `value` to audioMasterGetTime.
inline constexpr int32_t kTransportChanged = 1 << 0;
inline constexpr int32_t kTransportPlaying = 1 << 1;
inline constexpr int32_t kTransportCycleActive = 1 << 2;
inline constexpr int32_t kTransportRecording = 1 << 3;
inline constexpr int32_t kNanosValid = 1 << 8;
inline constexpr int32_t kPpqPosValid = 1 << 9;
inline constexpr int32_t kTempoValid = 1 << 10;
inline constexpr int32_t kBarsValid = 1 << 11;
inline constexpr int32_t kCyclePosValid = 1 << 12;
inline constexpr int32_t kTimeSigValid = 1 << 13;

struct VstSpeakerProperties {
  float azimuth;
  float elevation;
  float radius;
  float reserved;
  char name[64];
  int32_t type;
  char future[28];
};

// A host may allocate more than eight speakers behind this header; only
// numChannels is read from records the host owns.
struct VstSpeakerArrangement {
  int32_t type;
  int32_t numChannels;
  VstSpeakerProperties speakers[8];
};

struct VstPinProperties {
  char label[64];
  int32_t flags;
  int32_t arrangementType;
  char shortLabel[8];
  char future[48];
};

inline constexpr int32_t kPinIsActive = 1 << 0;
inline constexpr int32_t kPinIsStereo = 1 << 1;
inline constexpr int32_t kPinUseSpeaker = 1 << 2;

// Editor rectangle handed out by effEditGetRect.
struct ERect {
  int16_t top;
  int16_t left;
  int16_t bottom;
  int16_t right;
};

// Event list of effProcessEvents (only the header is read).
struct VstEvents {
  int32_t numEvents;
  intptr_t reserved;
  void* events[2];
};

static_assert(sizeof(void*) == 8, "the plug-in is built for 64-bit hosts only");
static_assert(offsetof(AEffect, dispatcher) == 8);
static_assert(offsetof(AEffect, numPrograms) == 40);
static_assert(offsetof(AEffect, flags) == 56);
static_assert(offsetof(AEffect, initialDelay) == 80);
static_assert(offsetof(AEffect, ioRatio) == 92);
static_assert(offsetof(AEffect, object) == 96);
static_assert(offsetof(AEffect, uniqueID) == 112);
static_assert(offsetof(AEffect, processReplacing) == 120);
static_assert(offsetof(AEffect, future) == 136);
static_assert(sizeof(AEffect) == 192);
static_assert(sizeof(VstTimeInfo) == 88);
static_assert(sizeof(VstSpeakerProperties) == 112);
static_assert(sizeof(VstPinProperties) == 128);

}  // namespace velorum::vst
