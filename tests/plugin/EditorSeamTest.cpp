// The editor seam: the dispatcher's editor opcodes reach an editor made by
// the registered factory (here a recording fake, linked in-process).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/MeterParams.h"

namespace velorum {
namespace {

struct EditorLog {
  std::vector<std::string> calls;
  void* parent = nullptr;
  float scale = 0.0f;
  int dirty = 0;
  std::vector<int> params;
};
EditorLog gLog;

class FakeEditor : public IEditor {
 public:
  explicit FakeEditor(IPlugBase& plug) : mPlug(plug) {
    mRect.right = 900;
    mRect.bottom = 600;
  }
  bool Open(void* parent) override {
    gLog.calls.push_back("open");
    gLog.parent = parent;
    return true;
  }
  void Close() override { gLog.calls.push_back("close"); }
  const EditorRect& Rect() const override { return mRect; }
  void SetContentScale(float scale) override { gLog.scale = scale; }
  void RefreshScaling() override { gLog.calls.push_back("scale"); }
  void OnParamChanged(int index) override { gLog.params.push_back(index); }
  void SetAllDirty() override { ++gLog.dirty; }

 private:
  IPlugBase& mPlug;
  EditorRect mRect;
};

std::unique_ptr<IEditor> MakeFake(IPlugBase& plug) {
  return std::make_unique<FakeEditor>(plug);
}

intptr_t NoHost(vst::AEffect*, int32_t, int32_t, intptr_t, void*, float) {
  return 0;
}

TEST(EditorSeam, DispatcherDrivesTheRegisteredEditor) {
  gLog = EditorLog{};
  RegisterEditorFactory(&MakeFake);
  auto* plug = new LoudnessMeterPlugin(&NoHost);
  vst::AEffect* e = &plug->AEffectRecord();
  EXPECT_EQ(e->flags & vst::kFlagHasEditor, vst::kFlagHasEditor);

  vst::ERect* rect = nullptr;
  EXPECT_EQ(e->dispatcher(e, vst::effEditGetRect, 0, 0, &rect, 0.f), 0);  // not opened yet
  EXPECT_EQ(rect, nullptr);

  int window = 0;
  EXPECT_EQ(e->dispatcher(e, vst::effEditOpen, 0, 0, &window, 0.f), 1);
  EXPECT_EQ(gLog.parent, &window);
  ASSERT_EQ(e->dispatcher(e, vst::effEditGetRect, 0, 0, &rect, 0.f), 1);
  ASSERT_NE(rect, nullptr);
  EXPECT_EQ(rect->right, 900);
  EXPECT_EQ(rect->bottom, 600);
  EXPECT_EQ(e->dispatcher(e, vst::effVendorSpecific, 0x50726553, 0x41654373, nullptr, 1.5f), 1);
  EXPECT_EQ(gLog.scale, 1.5f);

  // Parameter changes and restored states reach the open editor.
  plug->SetParam(param::kTarget, -16.0);
  EXPECT_NE(std::find(gLog.params.begin(), gLog.params.end(), param::kTarget), gLog.params.end());
  void* data = nullptr;
  const intptr_t size = e->dispatcher(e, vst::effGetChunk, 1, 0, &data, 0.f);
  const std::vector<uint8_t> chunk(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + size);
  const int dirtyBefore = gLog.dirty;
  EXPECT_EQ(e->dispatcher(e, vst::effSetChunk, 1, size, const_cast<uint8_t*>(chunk.data()), 0.f), 1);
  EXPECT_GT(gLog.dirty, dirtyBefore);

  EXPECT_EQ(e->dispatcher(e, vst::effEditClose, 0, 0, nullptr, 0.f), 1);
  EXPECT_EQ(gLog.calls, (std::vector<std::string>{"open", "scale", "close"}));
  e->dispatcher(e, vst::effClose, 0, 0, nullptr, 0.f);
  RegisterEditorFactory(nullptr);
}

}  // namespace
}  // namespace velorum
