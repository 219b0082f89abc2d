// The control model without a window: event routing, dirty regions, the
// editor scale and its file, the menus' items, and the pure mappings the
// Windows and X11 windows share (screen scale, key codes).
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "GraphicsTestUtil.h"
#include "graphics/IGraphics.h"
#include "graphics/IGraphicsResize.h"
#include "graphics/IPlatformMapping.h"
#include "graphics/tgraphics.h"

namespace {

// An editor with no window behind it.
class HeadlessGraphics : public IGraphics {
 public:
  using IGraphics::IGraphics;
  void* OpenWindow(void*) override {
    open = true;
    NotifyWindowOpened();
    return this;
  }
  void CloseWindow() override { open = false; }
  bool WindowIsOpen() const override { return open; }
  void* GetWindow() const override { return open ? const_cast<HeadlessGraphics*>(this) : nullptr; }
  void HideMouseCursor() override {}
  void ShowMouseCursor() override {}
  bool GetTextFromClipboard(std::string& t) override {
    t = clip;
    return !clip.empty();
  }
  bool SetTextInClipboard(const std::string& t) override {
    clip = t;
    return true;
  }
  void ResizeWindow(int w, int h) override { resizes.push_back({w, h}); }
  bool open = false;
  std::string clip;
  std::vector<std::pair<int, int>> resizes;
};

struct Probe : IControl {
  explicit Probe(const IRECT& r, bool takesKeys = false, bool drops = false)
      : IControl(r), keys(takesKeys), acceptsDrops(drops) {}
  void Draw(tgraphics& g) override {
    ++draws;
    g.set_color(0, 0, 1);
    g.rectangle(mRECT.L, mRECT.T, mRECT.W(), mRECT.H());
    g.fill();
  }
  void OnMouseDown(float x, float y, const IMouseMod&) override { log.push_back("down " + Pos(x, y)); }
  void OnMouseUp(float x, float y, const IMouseMod&) override { log.push_back("up " + Pos(x, y)); }
  void OnMouseDrag(float, float, float dX, float dY, const IMouseMod&) override {
    log.push_back("drag " + Pos(dX, dY));
  }
  void OnMouseOver(float, float, const IMouseMod&) override { ++overs; }
  void OnMouseOut() override { ++outs; }
  bool OnKeyDown(float, float, int key) override {
    pressed.push_back(key);
    return keys;
  }
  bool AcceptsDrop() const override { return acceptsDrops; }
  bool OnDrop(const std::vector<std::string>& p, const std::vector<int>&, float, float) override {
    dropped = p;
    return true;
  }
  void OnTextEntryCompletion(const std::string& t) override { typed = t; }
  static std::string Pos(float x, float y) { return std::to_string(int(x)) + "," + std::to_string(int(y)); }
  bool keys, acceptsDrops;
  int draws = 0, overs = 0, outs = 0;
  std::vector<std::string> log;
  std::vector<int> pressed;
  std::vector<std::string> dropped;
  std::string typed = "<none>";
};

std::filesystem::path TempFolder(const std::string& name) {
  const auto p = std::filesystem::path(VELORUM_BINARY_DIR) / name;
  std::filesystem::remove_all(p);
  std::filesystem::create_directories(p);
  return p;
}

}  // namespace

TEST(PlatformMapping, ScreenScaleIsDpiOver96ClampedToOneAndEight) {
  EXPECT_FLOAT_EQ(iplatform::ScreenScaleFromDpi(144, 144), 1.5f);
  EXPECT_FLOAT_EQ(iplatform::ScreenScaleFromDpi(72, 72), 1.0f);
  EXPECT_FLOAT_EQ(iplatform::ScreenScaleFromDpi(960, 960), 8.0f);
  EXPECT_FLOAT_EQ(iplatform::ScreenScaleFromDpi(96, 192), 2.0f);  // the larger of x and y
  EXPECT_FLOAT_EQ(iplatform::ScreenScaleFromDpi(0, 0), 1.0f);
  EXPECT_DOUBLE_EQ(iplatform::XftDpiFromResources("Xft.antialias:\t1\nXft.dpi:\t144\nXft.hinting: 1\n"),
                   144.0);
  EXPECT_DOUBLE_EQ(iplatform::XftDpiFromResources("Xft.dpi: 120.5"), 120.5);
  EXPECT_DOUBLE_EQ(iplatform::XftDpiFromResources("MyXft.dpi: 200\n"), 0.0);
  EXPECT_DOUBLE_EQ(iplatform::XftDpiFromResources("Xft.dpi: lots\n"), 0.0);
  EXPECT_DOUBLE_EQ(iplatform::XftDpiFromResources(nullptr), 0.0);
}

TEST(PlatformMapping, KeyCodesAreTheSameOnBothPlatforms) {
  // "a" and "A" are 15 through X11 keysyms and Windows virtual keys alike.
  EXPECT_EQ(iplatform::KeyCodeFromKeySym('a'), 15);
  EXPECT_EQ(iplatform::KeyCodeFromKeySym('A'), 15);
  EXPECT_EQ(iplatform::KeyCodeFromVirtualKey('A'), 15);
  EXPECT_EQ(iplatform::KeyCodeFromKeySym('z'), 40);
  EXPECT_EQ(iplatform::KeyCodeFromVirtualKey('Z'), 40);
  for (int d = 0; d <= 9; ++d) {
    EXPECT_EQ(iplatform::KeyCodeFromVirtualKey('0' + d), 5 + d);
    EXPECT_EQ(iplatform::KeyCodeFromKeySym(static_cast<unsigned long>('0' + d)), 5 + d);
  }
  const int vk[] = {0x20, 0x26, 0x28, 0x25, 0x27};  // space, up, down, left, right
  const unsigned long ks[] = {0x20, 0xff52, 0xff54, 0xff51, 0xff53};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(iplatform::KeyCodeFromVirtualKey(vk[i]), i);
    EXPECT_EQ(iplatform::KeyCodeFromKeySym(ks[i]), i);
  }
  // F1 has no code, so it goes on to the host; so do keypad digits on Windows
  // (0x61 is VK_NUMPAD1 there, not "a").
  EXPECT_EQ(iplatform::KeyCodeFromVirtualKey(0x70), KEY_NONE);
  EXPECT_EQ(iplatform::KeyCodeFromKeySym(0xffbe), KEY_NONE);
  EXPECT_EQ(iplatform::KeyCodeFromVirtualKey(0x61), KEY_NONE);
  EXPECT_EQ(iplatform::KeyCodeFromKeySym(0xe9), KEY_NONE);  // e acute
}

TEST(GuiScaleMenus, ItemsKeepTheirStoredIndices) {
  const char* labels[] = {"50%",  "65%",  "75%",  "85%",  "100%", "125%", "150%",
                          "175%", "200%", "250%", "300%", "350%", "400%"};
  const int indices[] = {0, 11, 1, 12, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  for (int i = 0; i < 13; ++i) {
    EXPECT_STREQ(kGuiScaleItems[i].label, labels[i]);
    EXPECT_EQ(kGuiScaleItems[i].index, indices[i]);
    EXPECT_FLOAT_EQ(GuiScaleForIndex(indices[i]), float(std::stoi(labels[i])) / 100.f);
    EXPECT_EQ(GuiScaleIndexFor(kGuiScaleItems[i].scale), indices[i]);
  }
  EXPECT_EQ(GuiScaleIndexFor(1.1f), -1);  // shown as "CUSTOM SCALING"
  EXPECT_STREQ(kCustomScalingLabel, "CUSTOM SCALING");
  EXPECT_FLOAT_EQ(GuiScaleForIndex(99), 1.f);
  const char* rates[] = {"EXTREMELY LOW", "VERY LOW", "LOW", "NORMAL", "HIGH", "VERY HIGH", "MAX"};
  for (int i = 0; i < 7; ++i) EXPECT_STREQ(kGraphsRefreshRateItems[i], rates[i]);
  for (int i = 1; i < 7; ++i)
    EXPECT_LT(GraphsTicksPerFrame(i), GraphsTicksPerFrame(i - 1));  // higher is faster
  EXPECT_EQ(GraphsTicksPerFrame(6), 1);
  EXPECT_EQ(GraphsTicksPerFrame(-1), GraphsTicksPerFrame(3));
}

TEST(GuiScaleFile, WrittenOnlyWhenTheScaleReallyChanges) {
  const auto folder = TempFolder("guiscale_write_once");
  const std::string file = (folder / "GuiScale.ini").string();
  HeadlessGraphics g(400, 200, 60);
  IGraphicsResize resize(&g, folder.string());
  EXPECT_FLOAT_EQ(resize.GetGUIScale(), 1.f);  // no file yet
  EXPECT_FALSE(std::filesystem::exists(file));

  resize.SetGUIScale(1.25f);
  ASSERT_TRUE(std::filesystem::exists(file));
  float stored = 0.f;
  ASSERT_TRUE(IGraphicsResize::ReadScaleFile(file, stored));
  EXPECT_FLOAT_EQ(stored, 1.25f);
  // Remove the file: a scale within 1e-7 of the stored one must not write it again.
  std::filesystem::remove(file);
  resize.SetGUIScale(static_cast<float>(1.2500000001));
  EXPECT_FALSE(std::filesystem::exists(file));
  resize.SetGUIScale(1.5f);
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(g.WindowWidth(), 600);
  EXPECT_EQ(resize.WindowWidth(), 600);
  EXPECT_EQ(resize.WindowHeight(), 300);

  // The next editor starts at the stored scale.
  HeadlessGraphics g2(400, 200, 60);
  IGraphicsResize again(&g2, folder.string());
  EXPECT_FLOAT_EQ(again.GetGUIScale(), 1.5f);
  EXPECT_EQ(g2.WindowHeight(), 300);
}

TEST(GuiScaleFile, UnreadableOrForeignContentMeansScaleOne) {
  const auto folder = TempFolder("guiscale_bad");
  const std::string file = (folder / "GuiScale.ini").string();
  float scale = 7.f;
  EXPECT_FALSE(IGraphicsResize::ReadScaleFile(file, scale));
  for (const char* content : {"[gui]\nGUI Scale=abc\n", "[other]\nGUI Scale=2.0\n", "GUI Scale=2.0\n",
                              "[gui]\nGUI Scale=1e30\n", "[gui]\nGUI Scale=-2\n", "\x01\x02\x03"}) {
    std::ofstream(file, std::ios::binary) << content;
    HeadlessGraphics g(100, 100, 60);
    IGraphicsResize r(&g, folder.string());
    EXPECT_FLOAT_EQ(r.GetGUIScale(), 1.f) << content;
  }
  std::ofstream(file, std::ios::binary) << "; comment\r\n[gui]\r\nGUI Scale = 2.000000\r\n";
  ASSERT_TRUE(IGraphicsResize::ReadScaleFile(file, scale));
  EXPECT_FLOAT_EQ(scale, 2.f);
  // A folder that cannot be written to: the scale still applies.
  HeadlessGraphics g(100, 100, 60);
  IGraphicsResize r(&g, (folder / "missing" / "deeper").string());
  r.SetGUIScale(2.f);
  EXPECT_FLOAT_EQ(g.EditorScale(), 2.f);
  EXPECT_EQ(g.WindowWidth(), 200);
}

TEST(IGraphicsRouting, MouseIsCapturedByTheControlPressed) {
  HeadlessGraphics g(200, 100, 60);
  auto* back = g.Attach<Probe>(IRECT(0, 0, 200, 100));
  auto* knob = g.Attach<Probe>(IRECT(10, 10, 50, 50));
  auto* hidden = g.Attach<Probe>(IRECT(0, 0, 200, 100));
  hidden->Hide(true);
  EXPECT_EQ(g.FindControl(20, 20), 1);
  EXPECT_EQ(g.FindControl(100, 80), 0);
  EXPECT_EQ(g.FindControl(300, 80), -1);

  g.OnMouseDown(20, 20, {});
  g.OnMouseDrag(120, 90, 100, 70, {});  // far outside the knob: still the knob's
  g.OnMouseUp(120, 90, {});
  EXPECT_EQ(knob->log, (std::vector<std::string>{"down 20,20", "drag 100,70", "up 120,90"}));
  EXPECT_TRUE(back->log.empty());

  EXPECT_TRUE(g.OnMouseOver(20, 20, {}));
  EXPECT_FALSE(g.OnMouseOver(25, 20, {}));
  EXPECT_TRUE(g.OnMouseOver(100, 80, {}));
  EXPECT_EQ(knob->overs, 2);
  EXPECT_EQ(knob->outs, 1);
  EXPECT_EQ(g.GetMouseOver(), 0);
  g.OnMouseOut();
  EXPECT_EQ(g.GetMouseOver(), -1);
  EXPECT_EQ(back->outs, 1);
}

TEST(IGraphicsRouting, KeysDropsAndTextEntry) {
  HeadlessGraphics g(200, 100, 60);
  auto* back = g.Attach<Probe>(IRECT(0, 0, 200, 100), /*takesKeys=*/false, /*drops=*/true);
  auto* field = g.Attach<Probe>(IRECT(10, 10, 50, 50), /*takesKeys=*/true);
  EXPECT_TRUE(g.OnKeyDown(100, 80, 15));  // the field takes it though not under the pointer
  EXPECT_EQ(back->pressed, std::vector<int>{15});
  EXPECT_EQ(field->pressed, std::vector<int>{15});
  EXPECT_FALSE(g.OnKeyDown(20, 20, KEY_NONE));  // nothing to pass: goes to the host

  // A drop lands on the control that takes drops, even beside the pointer.
  EXPECT_TRUE(g.OnDrop({"/a.wav", "/b"}, {0, 1}, 20, 20));
  EXPECT_EQ(back->dropped.size(), 2u);
  EXPECT_FALSE(g.OnDrop({}, {}, 20, 20));
  EXPECT_FALSE(g.OnDrop({"/a.wav"}, {0, 1}, 20, 20));  // lists that do not match are refused

  g.CreateTextEntry(field, IRECT(10, 10, 110, 30), "-2");
  ASSERT_TRUE(g.IsTextEntryOpen());
  g.OnTextEntryChar("3");
  g.OnTextEntryChar(".5");
  g.OnTextEntryBackspace();
  g.OnMouseWheel(20, 20, {}, 1.f);  // ignored while typing
  g.OnMouseDown(150, 80, {});       // a click outside closes it, keeping the text
  EXPECT_FALSE(g.IsTextEntryOpen());
  EXPECT_EQ(field->typed, "-23.");
  EXPECT_TRUE(back->log.empty());  // the click only closed the entry
}

TEST(IGraphicsRouting, DirtyControlsAreUnitedAndDrawnAtTheDrawScale) {
  HeadlessGraphics g(200, 100, 60);
  auto* a = g.Attach<Probe>(IRECT(10, 10, 30, 30));
  auto* b = g.Attach<Probe>(IRECT(100, 50, 150, 90));
  auto* c = g.Attach<Probe>(IRECT(160, 0, 200, 20));
  g.SetScreenScale(1.5f);
  g.SetEditorScale(2.f);
  EXPECT_EQ(g.Rect(), IRECT(0, 0, 600, 300));
  IRECT r;
  ASSERT_TRUE(g.IsDirty(r));
  EXPECT_EQ(r, IRECT(10, 0, 200, 90));
  g.Draw(r);
  EXPECT_FALSE(g.IsDirty(r));
  EXPECT_EQ(a->draws, 1);
  ASSERT_NE(g.BackBuffer(), nullptr);
  EXPECT_EQ(cairo_image_surface_get_width(g.BackBuffer()), 600);
  // b's rectangle (100,50)-(150,90) is at pixels (300,150)-(450,270).
  EXPECT_EQ(PixelAt(g.BackBuffer(), 301, 151), 0xff0000ffu);
  EXPECT_EQ(PixelAt(g.BackBuffer(), 449, 269), 0xff0000ffu);
  EXPECT_NE(PixelAt(g.BackBuffer(), 451, 271), 0xff0000ffu);

  b->SetDirty();
  ASSERT_TRUE(g.IsDirty(r));
  EXPECT_EQ(r, b->GetRECT());
  g.Draw(r);
  EXPECT_EQ(b->draws, 2);
  EXPECT_EQ(a->draws, 1);
  EXPECT_EQ(c->draws, 1);
  // Out-of-editor parts are not drawn for nothing.
  c->SetRECT(IRECT(190, -10, 260, 20));
  ASSERT_TRUE(g.IsDirty(r));
  EXPECT_EQ(r, IRECT(190, 0, 200, 20));
}

TEST(IGraphicsResize, HandlesFollowTheModeAndResizeTheEditor) {
  const auto folder = TempFolder("guiscale_handles");
  HeadlessGraphics g(400, 300, 60);
  auto* panel = g.Attach<Probe>(IRECT(10, 10, 100, 100));
  auto* resize = g.Attach<IGraphicsResize>(&g, folder.string());
  resize->AttachHandles();
  ASSERT_EQ(g.NControls(), 4);
  IControl* vertical = g.GetControl(2);
  IControl* horisontal = g.GetControl(3);
  EXPECT_NE(dynamic_cast<VerticalResizing*>(vertical), nullptr);
  EXPECT_NE(dynamic_cast<HorisontalResizing*>(horisontal), nullptr);
  EXPECT_EQ(vertical->GetRECT(), IRECT(0, 300 - IGraphicsResize::kHandleSize, 400, 300));
  EXPECT_FALSE(vertical->IsHidden());
  EXPECT_TRUE(horisontal->IsHidden());
  resize->SetResizeMode(true, 1);
  EXPECT_TRUE(vertical->IsHidden());
  EXPECT_FALSE(horisontal->IsHidden());
  resize->SetResizeMode(false, 0);
  EXPECT_TRUE(vertical->IsHidden());
  resize->SetResizeMode(true, 0);

  g.OpenWindow(nullptr);
  // Dragging the bottom strip down by 50 units makes the editor taller.
  g.OnMouseDown(200, 296, {});
  g.OnMouseDrag(200, 346, 0, 50, {});
  g.OnMouseUp(200, 346, {});
  EXPECT_EQ(g.Height(), 350);
  EXPECT_EQ(g.Width(), 400);
  ASSERT_FALSE(g.resizes.empty());
  EXPECT_EQ(g.resizes.back(), std::make_pair(400, 350));
  EXPECT_EQ(vertical->GetRECT(), IRECT(0, 350 - IGraphicsResize::kHandleSize, 400, 350));
  EXPECT_EQ(panel->GetRECT(), IRECT(10, 10, 100, 100));

  // Control-drag on the corner scales smoothly instead.
  IMouseMod ctrl;
  ctrl.C = true;
  const IRECT corner = resize->GetRECT();
  g.OnMouseDown(corner.L + 2, corner.T + 2, ctrl);
  g.OnMouseDrag(corner.L + 40, corner.T + 40, 38, 38, ctrl);
  g.OnMouseUp(corner.L + 40, corner.T + 40, ctrl);
  EXPECT_GT(resize->GetGUIScale(), 1.05f);
  EXPECT_EQ(g.Height(), 350);  // same units, more pixels
  EXPECT_EQ(g.WindowHeight(), static_cast<int>(std::lround(350 * resize->GetGUIScale())));
}

namespace {
struct Label : IControl {
  Label(const IRECT& r, std::string t) : IControl(r), text(std::move(t)) {}
  void Draw(tgraphics& g) override {
    g.set_color(0.1, 0.1, 0.1);
    g.rectangle(mRECT.L, mRECT.T, mRECT.W(), mRECT.H());
    g.fill();
    g.draw_text(text, {mRECT.L, mRECT.T, mRECT.W(), mRECT.H()}, "OpenSans-SemiBold", 16, {1, 1, 1, 1},
                tg_align::center);
  }
  std::string text;
};
}  // namespace

TEST(IGraphicsExport, TheSameControlsDrawPngSvgAndPdf) {
  HeadlessGraphics g(240, 80, 60);
  g.Attach<Label>(IRECT(0, 0, 240, 80), "Short-term -14.2 LUFS");
  const std::string png = OutputPath("export_editor.png"), pdf = OutputPath("export_editor.pdf"),
                    svg = OutputPath("export_editor.svg");
  ASSERT_TRUE(g.ExportPng(png, 2.0));
  ASSERT_TRUE(g.ExportPdf(pdf));
  ASSERT_TRUE(g.ExportSvg(svg));
  IRECT r;
  EXPECT_TRUE(g.IsDirty(r));  // an export leaves the window's pending redraw alone
  cairo_surface_t* img = cairo_image_surface_create_from_png(png.c_str());
  ASSERT_EQ(cairo_surface_status(img), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(img), 480);
  EXPECT_EQ(cairo_image_surface_get_height(img), 160);
  const InkBox text = FindInk(img, PixelAt(img, 1, 1));
  EXPECT_GT(text.count, 500);
  EXPECT_NEAR((text.left + text.right) / 2.0, 240.0, 4.0);
  cairo_surface_destroy(img);
  EXPECT_GT(std::filesystem::file_size(pdf), 1000u);
  EXPECT_GT(std::filesystem::file_size(svg), 1000u);
  EXPECT_FALSE(g.ExportPdf((std::filesystem::path(VELORUM_BINARY_DIR) / "no" / "such" / "dir.pdf").string()));
  EXPECT_FALSE(
      g.ExportPng((std::filesystem::path(VELORUM_BINARY_DIR) / "no" / "such" / "dir.png").string(), 1.0));
#ifndef _WIN32
  if (std::system("command -v pdftotext >/dev/null 2>&1") == 0) {
    const std::string txt = OutputPath("export_editor.txt");
    ASSERT_EQ(std::system(("pdftotext '" + pdf + "' '" + txt + "'").c_str()), 0);
    std::ifstream in(txt);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "Short-term -14.2 LUFS");
  }
#endif
}
