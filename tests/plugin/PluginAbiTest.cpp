// The VST2 boundary as a host sees it, through the real plug-in binary.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "MeterHost.h"

namespace velorum::testing {
namespace {

std::string Text(harness::HostedPlugin& h, int32_t opcode, int32_t index = 0) {
  char text[256];
  std::memset(text, 'x', sizeof text);
  h.Dispatch(opcode, index, 0, text);
  text[255] = '\0';
  return text;
}

intptr_t CanDo(harness::HostedPlugin& h, const char* what) {
  return h.Dispatch(vst::effCanDo, 0, 0, const_cast<char*>(what));
}

TEST(PluginBoundary, RecordFieldsAndIdentity) {
  MeterHost meter(48000.0, 0);
  harness::HostedPlugin& h = meter.Host();
  const vst::AEffect* e = h.Effect();
  EXPECT_EQ(e->magic, 0x56737450);
  // Replacing, program chunks, double replacing, mono; the editor flag only
  // when an editor library is linked in.
  EXPECT_EQ(e->flags & ~vst::kFlagHasEditor, 0x1030 | 0x8);
  EXPECT_EQ(e->numParams, 0);
  EXPECT_EQ(e->numPrograms, 1);
  EXPECT_EQ(e->numInputs, 24);
  EXPECT_EQ(e->numOutputs, 24);
  EXPECT_EQ(e->initialDelay, 0);
  EXPECT_EQ(e->ioRatio, 1.0f);
  EXPECT_EQ(e->version, 20506);
  EXPECT_EQ(e->uniqueID, ('V' << 24) | ('l' << 16) | ('R' << 8) | 'm');
  EXPECT_NE(e->processReplacing, nullptr);
  EXPECT_NE(e->processDoubleReplacing, nullptr);
  EXPECT_NE(e->process, nullptr);

  EXPECT_EQ(h.Dispatch(vst::effIdentify), 0x4E764566);
  EXPECT_EQ(h.Dispatch(vst::effGetVstVersion), 2400);
  EXPECT_EQ(h.Dispatch(vst::effGetVendorVersion), 20506);
  EXPECT_EQ(h.Dispatch(vst::effGetPlugCategory), 1);
  EXPECT_EQ(h.Dispatch(vst::effGetProgram), 0);
  EXPECT_EQ(Text(h, vst::effGetEffectName), "Velorum");
  EXPECT_EQ(Text(h, vst::effGetProductString), "Velorum");
  EXPECT_FALSE(Text(h, vst::effGetVendorString).empty());
  EXPECT_EQ(Text(h, vst::effGetProgramName), "Empty");
  EXPECT_EQ(Text(h, vst::effGetProgramNameIndexed, 0), "Empty");
  EXPECT_EQ(h.Dispatch(vst::effGetProgramNameIndexed, 5, 0, nullptr), 0);
  EXPECT_EQ(h.Dispatch(vst::effCanBeAutomated, 17), 1);
  EXPECT_EQ(h.Dispatch(vst::effGetTailSize), 0);

  h.Dispatch(vst::effSetProgramName, 0, 0, const_cast<char*>("Mix A"));
  EXPECT_EQ(Text(h, vst::effGetProgramName), "Mix A");
}

TEST(PluginBoundary, CanDoAnswers) {
  MeterHost meter(48000.0, 0);
  harness::HostedPlugin& h = meter.Host();
  EXPECT_EQ(CanDo(h, "supportsViewDpiScaling"), 1);
  EXPECT_EQ(CanDo(h, "receiveVstTimeInfo"), 1);
  // The meter handles no MIDI.
  for (const char* midi : {"sendVstEvents", "sendVstMidiEvent", "receiveVstEvents", "receiveVstMidiEvent"}) {
    EXPECT_EQ(CanDo(h, midi), 0) << midi;
  }
  EXPECT_EQ(CanDo(h, "hasCockosExtensions"), static_cast<intptr_t>(0xBEEF0000));
  EXPECT_EQ(CanDo(h, "hasCockosViewAsConfig"), static_cast<intptr_t>(0xBEEF0000));
  EXPECT_EQ(CanDo(h, "receiveVstTimeInfo "), 0);  // exact comparison
  EXPECT_EQ(CanDo(h, "bypass"), 0);
  EXPECT_EQ(h.Dispatch(vst::effCanDo, 0, 0, nullptr), 0);
}

TEST(PluginBoundary, UnusedAndOutOfRangeOpcodesReturnZero) {
  MeterHost meter(48000.0, 0);
  harness::HostedPlugin& h = meter.Host();
  char scratch[512] = {};
  for (int32_t op = 70; op < 400; ++op) EXPECT_EQ(h.Dispatch(op, 1, 1, scratch, 1.0f), 0) << op;
  for (int32_t op : {9,  16, 17, 18, 20, 21, 28, 30, 31, 32, 36, 37, 38, 39, 40, 41, 43,
                     44, 46, 54, 55, 56, 57, 59, 60, 61, 62, 63, 64, 65, 67, 68, -1, -1000}) {
    EXPECT_EQ(h.Dispatch(op, 0, 0, nullptr, 0.0f), 0) << op;
  }
  EXPECT_EQ(h.Dispatch(vst::effEditIdle), 0);
  EXPECT_EQ(h.Dispatch(vst::effIdle), 0);
  EXPECT_EQ(h.Dispatch(vst::effVendorSpecific, 12345, 0, nullptr), 0);
  // The plug-in still works afterwards.
  EXPECT_EQ(h.Dispatch(vst::effIdentify), 0x4E764566);
}

TEST(PluginBoundary, EditorRectWithoutEditorIsRefused) {
  MeterHost meter(48000.0, 0);
  void* rect = nullptr;
  EXPECT_EQ(meter.Host().Dispatch(vst::effEditGetRect, 0, 0, &rect), 0);
  EXPECT_EQ(rect, nullptr);
  EXPECT_EQ(meter.Host().Dispatch(vst::effEditGetRect, 0, 0, nullptr), 0);
}

TEST(PluginBoundary, PinsAndSpeakerArrangements) {
  MeterHost meter(48000.0, 0);
  harness::HostedPlugin& h = meter.Host();
  vst::VstPinProperties pin{};
  EXPECT_EQ(h.Dispatch(vst::effGetInputProperties, 0, 0, &pin), 1);
  EXPECT_STREQ(pin.label, "Input 1");
  EXPECT_EQ(h.Dispatch(vst::effGetOutputProperties, 23, 0, &pin), 1);
  EXPECT_STREQ(pin.label, "Output 24");
  EXPECT_EQ(h.Dispatch(vst::effGetInputProperties, 24, 0, &pin), 0);
  EXPECT_EQ(h.Dispatch(vst::effGetInputProperties, -1, 0, &pin), 0);

  for (int n : {1, 2, 6, 24}) EXPECT_EQ(h.SetChannels(n), 1) << n;
  EXPECT_EQ(h.SetChannels(25), 0);
  EXPECT_EQ(h.SetChannels(0), 0);

  h.SetChannels(6);
  vst::VstSpeakerArrangement* in = nullptr;
  vst::VstSpeakerArrangement* out = nullptr;
  EXPECT_EQ(h.Dispatch(vst::effGetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&in), &out), 1);
  ASSERT_NE(in, nullptr);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(in->numChannels, 6);
  EXPECT_EQ(out->numChannels, 6);
}

TEST(PluginBoundary, EveryInstanceIsIndependentAndClosesCleanly) {
  // Several instances alive at once, created and closed in mixed order.
  auto a = std::make_unique<MeterHost>(44100.0, 2);
  auto b = std::make_unique<MeterHost>(96000.0, 1);
  a->SetParam(17, -16.0);
  EXPECT_EQ(b->Param(17), -23.0);
  a.reset();
  auto c = std::make_unique<MeterHost>(48000.0, 2);
  EXPECT_EQ(c->Param(17), -23.0);
  EXPECT_EQ(b->Param(145), 96000.0);
}

}  // namespace
}  // namespace velorum::testing
