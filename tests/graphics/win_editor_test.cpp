// The Windows editor window (run under wine): window class counting, the
// timer's painting, mouse, wheel and key messages, the host's key
// pass-through, OLE drops, the clipboard and resizing up the parent chain.
#include <cairo-win32.h>
#include <gtest/gtest.h>
#include <shlobj.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "GraphicsTestUtil.h"
#include "graphics/IDropTargetH.h"
#include "graphics/IGraphicsWin.h"
#include "graphics/tgraphics.h"

namespace {

std::vector<UINT> gHostKeys;

LRESULT CALLBACK HostProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
  if (msg == WM_KEYDOWN) gHostKeys.push_back(static_cast<UINT>(wParam));
  return DefWindowProcW(hwnd, msg, wParam, lParam);
}

// The host's main window and a child frame inside it, as hosts have.
struct Host {
  HWND top = nullptr, frame = nullptr;
  Host() {
    WNDCLASSW wc{};
    wc.lpfnWndProc = HostProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = L"VelorumTestHost";
    RegisterClassW(&wc);
    top = CreateWindowExW(0, L"VelorumTestHost", L"host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 600, 400,
                          nullptr, nullptr, wc.hInstance, nullptr);
    frame = CreateWindowExW(0, L"VelorumTestHost", L"frame", WS_CHILD | WS_VISIBLE, 0, 0, 400, 300, top,
                            nullptr, wc.hInstance, nullptr);
  }
  ~Host() { DestroyWindow(top); }
};

void Pump(int ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (std::chrono::steady_clock::now() < end) {
    MSG m;
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&m);
      DispatchMessageW(&m);
    }
    Sleep(2);
  }
}

struct Recorder : IControl {
  explicit Recorder(const IRECT& r) : IControl(r) {}
  void Draw(tgraphics& g) override {
    ++draws;
    g.set_color(0.9, 0.1, 0.1);
    g.rectangle(mRECT.L, mRECT.T, mRECT.W(), mRECT.H());
    g.fill();
  }
  void OnMouseDown(float x, float y, const IMouseMod& m) override {
    downX = x;
    downY = y;
    mod = m;
  }
  void OnMouseWheel(float, float, const IMouseMod&, float d) override { wheel += d; }
  bool OnKeyDown(float, float, int key) override {
    keys.push_back(key);
    return key >= KEY_ALPHA_A;
  }
  bool AcceptsDrop() const override { return true; }
  bool OnDrop(const std::vector<std::string>& p, const std::vector<int>& d, float, float) override {
    paths = p;
    dirs = d;
    return true;
  }
  int draws = 0;
  float downX = -1, downY = -1, wheel = 0;
  IMouseMod mod;
  std::vector<int> keys;
  std::vector<std::string> paths;
  std::vector<int> dirs;
};

bool ClassRegistered() {
  WNDCLASSEXW wc{};
  wc.cbSize = sizeof wc;
  HMODULE self = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&ClassRegistered), &self);
  return GetClassInfoExW(self, L"IPlugWndClass", &wc) != 0;
}

// A data object holding a drop-file block, as the shell hands one over.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class FileDrop : public IDataObject {
 public:
  explicit FileDrop(const std::vector<std::wstring>& names, bool offersFiles = true) : files_(offersFiles) {
    size_t chars = 1;
    for (const auto& n : names) chars += n.size() + 1;
    mem_ = GlobalAlloc(GHND, sizeof(DROPFILES) + chars * sizeof(wchar_t));
    auto* df = static_cast<DROPFILES*>(GlobalLock(mem_));
    df->pFiles = sizeof(DROPFILES);
    df->fWide = TRUE;
    auto* p = reinterpret_cast<wchar_t*>(df + 1);
    for (const auto& n : names) {
      wcscpy(p, n.c_str());
      p += n.size() + 1;
    }
    *p = 0;
    GlobalUnlock(mem_);
  }
  virtual ~FileDrop() { GlobalFree(mem_); }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE GetData(FORMATETC* f, STGMEDIUM* m) override {
    if (f->cfFormat != CF_HDROP || !files_) return DV_E_FORMATETC;
    // Hand over a copy: the receiver releases the medium.
    const SIZE_T size = GlobalSize(mem_);
    HGLOBAL copy = GlobalAlloc(GHND, size);
    memcpy(GlobalLock(copy), GlobalLock(mem_), size);
    GlobalUnlock(copy);
    GlobalUnlock(mem_);
    m->tymed = TYMED_HGLOBAL;
    m->hGlobal = copy;
    m->pUnkForRelease = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* f) override {
    return f->cfFormat == CF_HDROP && files_ ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD, IEnumFORMATETC**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DUnadvise(DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA**) override { return E_NOTIMPL; }

 private:
  HGLOBAL mem_;
  bool files_;
};
#pragma GCC diagnostic pop

}  // namespace

TEST(IGraphicsWin, TwoEditorsRegisterTheWindowClassOnce) {
  Host host;
  ASSERT_NE(host.frame, nullptr);
  auto a = IGraphics::Create(nullptr, 300, 200, 60);
  auto b = IGraphics::Create(nullptr, 300, 200, 60);
  EXPECT_FALSE(ClassRegistered());
  ASSERT_NE(a->OpenWindow(host.frame), nullptr);
  EXPECT_TRUE(ClassRegistered());
  ASSERT_NE(b->OpenWindow(host.top), nullptr);
  EXPECT_EQ(IGraphicsWin::OpenEditorCount(), 2);
  a->CloseWindow();
  EXPECT_TRUE(ClassRegistered());
  EXPECT_EQ(IGraphicsWin::OpenEditorCount(), 1);
  b->CloseWindow();
  EXPECT_FALSE(ClassRegistered());
  EXPECT_EQ(IGraphicsWin::OpenEditorCount(), 0);
  // A parent that is not a window: no window, and the class count is given back.
  EXPECT_EQ(a->OpenWindow(reinterpret_cast<void*>(static_cast<uintptr_t>(0xdead0))), nullptr);
  EXPECT_EQ(IGraphicsWin::OpenEditorCount(), 0);
  EXPECT_FALSE(ClassRegistered());
}

TEST(IGraphicsWin, TimerPaintsAndMessagesReachTheControls) {
  Host host;
  auto g = IGraphics::Create(nullptr, 300, 200, 60);
  auto* r = g->Attach<Recorder>(IRECT(20, 20, 120, 80));
  HWND wnd = static_cast<HWND>(g->OpenWindow(host.frame));
  ASSERT_NE(wnd, nullptr);
  EXPECT_EQ(GetParent(wnd), host.frame);
  wchar_t cls[64] = {};
  GetClassNameW(wnd, cls, 64);
  EXPECT_STREQ(cls, L"IPlugWndClass");
  Pump(100);
  EXPECT_GE(r->draws, 1);
  ASSERT_NE(g->BackBuffer(), nullptr);
  cairo_surface_t* img = cairo_win32_surface_get_image(g->BackBuffer());
  ASSERT_NE(img, nullptr);
  const uint32_t px = PixelAt(img, 30, 30);
  EXPECT_TRUE(Red(px) > 220 && Green(px) < 40 && Blue(px) < 40) << std::hex << px;
  IRECT dirty;
  EXPECT_FALSE(g->IsDirty(dirty));

  const float s = g->DrawScale();
  SendMessageW(wnd, WM_LBUTTONDOWN, MK_LBUTTON | MK_SHIFT, MAKELPARAM(int(70 * s), int(50 * s)));
  SendMessageW(wnd, WM_LBUTTONUP, 0, MAKELPARAM(int(70 * s), int(50 * s)));
  EXPECT_FLOAT_EQ(r->downX, 70.f);
  EXPECT_FLOAT_EQ(r->downY, 50.f);
  EXPECT_TRUE(r->mod.L);
  EXPECT_TRUE(r->mod.S);
  EXPECT_FALSE(r->mod.C);
  RECT wr;
  GetWindowRect(wnd, &wr);
  SendMessageW(wnd, WM_MOUSEWHEEL, MAKEWPARAM(0, 240),
               MAKELPARAM(wr.left + int(50 * s), wr.top + int(40 * s)));
  SendMessageW(wnd, WM_MOUSEWHEEL, MAKEWPARAM(0, static_cast<WORD>(-120)),
               MAKELPARAM(wr.left + 50, wr.top + 40));
  EXPECT_FLOAT_EQ(r->wheel, 1.f);

  // "a" and "A" are the same virtual key, code 15; F1 goes to the host's main window.
  gHostKeys.clear();
  SendMessageW(wnd, WM_KEYDOWN, 'A', 0);
  SendMessageW(wnd, WM_KEYDOWN, VK_F1, 0);
  SendMessageW(wnd, WM_KEYDOWN, VK_SPACE, 0);
  EXPECT_EQ(r->keys, (std::vector<int>{15, KEY_SPACE}));
  EXPECT_EQ(gHostKeys, (std::vector<UINT>{VK_F1, VK_SPACE}));
  g->CloseWindow();

  // The device-dependent back buffer paints the same.
  static_cast<IGraphicsWin&>(*g).UseDeviceDependentBitmap(true);
  wnd = static_cast<HWND>(g->OpenWindow(host.frame));
  ASSERT_NE(wnd, nullptr);
  const int before = r->draws;
  Pump(100);
  EXPECT_GT(r->draws, before);
  HDC dc = GetDC(wnd);
  const COLORREF c = GetPixel(dc, 30, 30);
  ReleaseDC(wnd, dc);
  EXPECT_GT(GetRValue(c), 200) << std::hex << c;
  EXPECT_LT(GetGValue(c), 40);
  g->CloseWindow();
}

TEST(IGraphicsWin, DroppedFilesAndAFolderArriveWithDirectoryFlags) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::path(VELORUM_BINARY_DIR) / "win_drop_test";
  fs::remove_all(dir);
  fs::create_directories(dir / "a folder");
  for (const char* f : {"one.wav", "two three.flac", "four.mp3"}) std::ofstream(dir / f) << "x";
  std::vector<std::wstring> names;
  for (const char* f : {"one.wav", "two three.flac", "four.mp3", "a folder"})
    names.push_back((dir / f).wstring());

  Host host;
  auto g = IGraphics::Create(nullptr, 300, 200, 60);
  g->EnableDragAndDrop(true);
  auto* r = g->Attach<Recorder>(IRECT(0, 0, 300, 200));
  HWND wnd = static_cast<HWND>(g->OpenWindow(host.frame));
  ASSERT_NE(wnd, nullptr);

  FileDrop data(names);
  auto* target = new IDropTargetH(wnd);
  DWORD effect = 0;
  EXPECT_EQ(target->DragEnter(&data, 0, POINTL{10, 10}, &effect), S_OK);
  EXPECT_EQ(effect, DWORD{DROPEFFECT_COPY});
  EXPECT_EQ(target->Drop(&data, 0, POINTL{10, 10}, &effect), S_OK);
  ASSERT_EQ(r->paths.size(), 4u);
  EXPECT_EQ(r->paths[1], IGraphicsWin::Utf8FromWide(names[1].c_str()));
  EXPECT_EQ(r->dirs, (std::vector<int>{0, 0, 0, 1}));
  // Data without file names (text dragged from an editor): refused, nothing delivered.
  r->paths.clear();
  FileDrop text({L"C:\\x.wav"}, /*offersFiles=*/false);
  EXPECT_EQ(target->DragEnter(&text, 0, POINTL{10, 10}, &effect), S_OK);
  EXPECT_EQ(effect, DWORD{DROPEFFECT_NONE});
  EXPECT_EQ(target->Drop(&text, 0, POINTL{10, 10}, &effect), E_FAIL);
  EXPECT_TRUE(r->paths.empty());
  target->Release();
  g->CloseWindow();
}

TEST(IGraphicsWin, ClipboardCursorFontsAndResizing) {
  Host host;
  auto g = IGraphics::Create(nullptr, 300, 200, 60);
  HWND wnd = static_cast<HWND>(g->OpenWindow(host.frame));
  ASSERT_NE(wnd, nullptr);

  // Written as 8-bit text, read back as Unicode text.
  ASSERT_TRUE(g->SetTextInClipboard("-23.0 LUFS"));
  std::string text;
  EXPECT_TRUE(g->GetTextFromClipboard(text));
  EXPECT_EQ(text, "-23.0 LUFS");

  SetCursorPos(100, 60);
  g->HideMouseCursor();
  SetCursorPos(200, 150);
  g->HideMouseCursor();
  SetCursorPos(250, 180);
  g->ShowMouseCursor();
  POINT p;
  GetCursorPos(&p);
  EXPECT_EQ(p.x, 100);
  EXPECT_EQ(p.y, 60);
  EXPECT_GE(ShowCursor(TRUE), 1);  // visible again
  ShowCursor(FALSE);

  EXPECT_EQ(IGraphicsWin::FontCacheKey("Roboto-Regular", 1.0), "Roboto-Regular-1.0x");
  EXPECT_EQ(IGraphicsWin::FontCacheKey("OpenSans-Bold", 1.25), "OpenSans-Bold-1.2x");
  IGraphicsWin::Font* f = IGraphicsWin::GetCachedFont("Roboto-Regular", 1.0);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(IGraphicsWin::GetCachedFont("Roboto-Regular", 1.0), f);
  EXPECT_DOUBLE_EQ(f->scale, 1.0);
  // The platform font really is the embedded one, registered from memory.
  for (const char* name : {"Roboto-Regular", "OpenSans-ExtraBold"}) {
    IGraphicsWin::Font* font = IGraphicsWin::GetCachedFont(name, 2.0);
    ASSERT_NE(font, nullptr);
    HDC dc = CreateCompatibleDC(nullptr);
    HGDIOBJ old = SelectObject(dc, font->hfont);
    wchar_t face[LF_FACESIZE] = {};
    GetTextFaceW(dc, LF_FACESIZE, face);
    SelectObject(dc, old);
    DeleteDC(dc);
    const std::wstring family = std::string(name) == "Roboto-Regular" ? L"Roboto" : L"Open Sans";
    EXPECT_EQ(std::wstring(face).substr(0, family.size()), family);
  }

  // Resizing grows the child frame by the same amount but not the main window.
  RECT top0, frame0;
  GetWindowRect(host.top, &top0);
  GetWindowRect(host.frame, &frame0);
  g->ResizeWindow(360, 230);
  RECT c, top1, frame1;
  GetClientRect(wnd, &c);
  EXPECT_EQ(c.right, 360);
  EXPECT_EQ(c.bottom, 230);
  GetWindowRect(host.top, &top1);
  GetWindowRect(host.frame, &frame1);
  EXPECT_EQ(frame1.right - frame1.left, frame0.right - frame0.left + 60);
  EXPECT_EQ(frame1.bottom - frame1.top, frame0.bottom - frame0.top + 30);
  EXPECT_EQ(top1.right - top1.left, top0.right - top0.left);
  g->CloseWindow();
}

TEST(IGraphicsWin, TooltipsShowOnHoverAndHideOnTheNextControl) {
  for (bool enabled : {true, false}) {
    Host host;
    auto g = IGraphics::Create(nullptr, 300, 200, 60);
    g->EnableTooltips(enabled);
    g->Attach<Recorder>(IRECT(0, 0, 300, 200));
    g->Attach<Recorder>(IRECT(20, 20, 120, 80))->SetTooltip("Integrated loudness");
    HWND wnd = static_cast<HWND>(g->OpenWindow(host.frame));
    ASSERT_NE(wnd, nullptr);
    auto& win = static_cast<IGraphicsWin&>(*g);
    const float s = g->DrawScale();
    SendMessageW(wnd, WM_MOUSEMOVE, 0, MAKELPARAM(int(60 * s), int(40 * s)));
    SendMessageW(wnd, WM_MOUSEHOVER, 0, MAKELPARAM(int(60 * s), int(40 * s)));
    EXPECT_EQ(win.TooltipShown(), enabled);
    SendMessageW(wnd, WM_MOUSEMOVE, 0, MAKELPARAM(int(200 * s), int(150 * s)));
    EXPECT_FALSE(win.TooltipShown());  // hidden at once on the next control
    g->CloseWindow();
  }
}
