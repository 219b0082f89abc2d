#include "graphics/IGraphicsWin.h"

#include <cairo-win32.h>
#include <commctrl.h>
#include <commdlg.h>
#include <ole2.h>
#include <shellapi.h>
#include <shlobj.h>
#include <windowsx.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <mutex>
#include <vector>

#include "graphics/IDropTargetH.h"
#include "graphics/IPlatformMapping.h"
#include "graphics/tgraphics_text.h"

namespace {

constexpr wchar_t kWndClassName[] = L"IPlugWndClass";
constexpr UINT_PTR kTimerId = 2;
constexpr UINT kTimerPeriodMs = 1000 / 160;  // 6 ms

// Process-wide state, each part under its own lock: the window-class count,
// the memory fonts and the font cache.
std::mutex& ClassLock() {
  static std::mutex m;
  return m;
}
std::mutex& MemFontLock() {
  static std::mutex m;
  return m;
}
std::mutex& FontCacheLock() {
  static std::mutex m;
  return m;
}
int gOpenEditors = 0;
std::vector<HANDLE>& MemFonts() {
  static std::vector<HANDLE> v;
  return v;
}
std::map<std::string, IGraphicsWin::Font>& FontCache() {
  static std::map<std::string, IGraphicsWin::Font> m;
  return m;
}

HINSTANCE ThisModule() {
  HMODULE h = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&ThisModule), &h);
  return h;
}

void ReleaseProcessFonts() {
  {
    std::lock_guard<std::mutex> lock(FontCacheLock());
    for (auto& [key, f] : FontCache()) {
      if (f.face) cairo_font_face_destroy(f.face);
      if (f.hfont) DeleteObject(f.hfont);
    }
    FontCache().clear();
  }
  {
    std::lock_guard<std::mutex> lock(MemFontLock());
    for (HANDLE h : MemFonts()) RemoveFontMemResourceEx(h);
    MemFonts().clear();
  }
  tgraphics_text::release_faces();
}

// The first editor registers the class and the embedded fonts; the last one
// gives them back.
bool AcquireWindowClass(HINSTANCE instance, WNDPROC proc) {
  bool first = false;
  {
    std::lock_guard<std::mutex> lock(ClassLock());
    if (gOpenEditors == 0) {
      WNDCLASSW wc{};
      wc.style = CS_DBLCLKS | CS_OWNDC;
      wc.lpfnWndProc = proc;
      wc.hInstance = instance;
      wc.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
      wc.lpszClassName = kWndClassName;
      if (!RegisterClassW(&wc) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) return false;
      first = true;
    }
    ++gOpenEditors;
  }
  if (first) {
    for (const auto& name : tgraphics_text::font_names()) {
      const unsigned char* data = nullptr;
      size_t size = 0;
      if (tgraphics_text::font_bytes(name, data, size)) IGraphicsWin::LoadFontFromMemory(name, data, size);
    }
  }
  return true;
}

void ReleaseWindowClass(HINSTANCE instance) {
  bool last = false;
  {
    std::lock_guard<std::mutex> lock(ClassLock());
    if (gOpenEditors > 0 && --gOpenEditors == 0) {
      UnregisterClassW(kWndClassName, instance);
      last = true;
    }
  }
  if (last) ReleaseProcessFonts();
}

}  // namespace

std::unique_ptr<IGraphics> IGraphics::Create(void* instance, int width, int height, int fps) {
  return std::make_unique<IGraphicsWin>(static_cast<HINSTANCE>(instance), width, height, fps);
}

IGraphicsWin::IGraphicsWin(HINSTANCE instance, int width, int height, int fps)
    : IGraphics(width, height, fps), mHInstance(instance ? instance : ThisModule()) {}

IGraphicsWin::~IGraphicsWin() {
  CloseWindow();
}

// ---------------------------------------------------------------- text

std::string IGraphicsWin::Utf8FromWide(const wchar_t* text) {
  if (!text || !*text) return {};
  const int n = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (n <= 1) return {};
  std::string out(static_cast<size_t>(n - 1), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), n, nullptr, nullptr);
  return out;
}

std::wstring IGraphicsWin::WideFromUtf8(const std::string& text) {
  if (text.empty()) return {};
  const int n = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
  if (n <= 1) return {};
  std::wstring out(static_cast<size_t>(n - 1), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, out.data(), n);
  return out;
}

// ---------------------------------------------------------------- scale

float IGraphicsWin::ScreenScaleForWindow(HWND parent) {
  using GetDpiForMonitorFn = HRESULT(WINAPI*)(HMONITOR, int, UINT*, UINT*);
  using GetProcessDpiAwarenessFn = HRESULT(WINAPI*)(HANDLE, int*);
  double dpiX = 0.0, dpiY = 0.0;
  if (HMODULE shcore = LoadLibraryW(L"Shcore.dll")) {
    auto getDpi = reinterpret_cast<GetDpiForMonitorFn>(
        reinterpret_cast<void*>(GetProcAddress(shcore, "GetDpiForMonitor")));
    auto getAwareness = reinterpret_cast<GetProcessDpiAwarenessFn>(
        reinterpret_cast<void*>(GetProcAddress(shcore, "GetProcessDpiAwareness")));
    if (getDpi) {
      int awareness = 0;
      if (getAwareness) getAwareness(nullptr, &awareness);
      const HWND w = awareness != 2 || !parent ? GetDesktopWindow() : parent;
      UINT x = 0, y = 0;
      if (getDpi(MonitorFromWindow(w, MONITOR_DEFAULTTONEAREST), 0 /* effective DPI */, &x, &y) == S_OK) {
        dpiX = x;
        dpiY = y;
      }
    }
    FreeLibrary(shcore);
  }
  if (dpiX <= 0.0 || dpiY <= 0.0) {
    HDC dc = GetDC(nullptr);
    dpiX = GetDeviceCaps(dc, LOGPIXELSX);
    dpiY = GetDeviceCaps(dc, LOGPIXELSY);
    ReleaseDC(nullptr, dc);
  }
  return iplatform::ScreenScaleFromDpi(dpiX, dpiY);
}

// ---------------------------------------------------------------- fonts

bool IGraphicsWin::LoadFontFromMemory(const std::string& name, const void* data, size_t size) {
  (void)name;
  std::lock_guard<std::mutex> lock(MemFontLock());
  DWORD count = 0;
  HANDLE h = AddFontMemResourceEx(const_cast<void*>(data), static_cast<DWORD>(size), nullptr, &count);
  if (!h) return false;
  MemFonts().push_back(h);
  return true;
}

std::string IGraphicsWin::FontCacheKey(const std::string& name, double scale) {
  char suffix[32];
  std::snprintf(suffix, sizeof suffix, "-%.1fx", scale);
  return name + suffix;
}

IGraphicsWin::Font* IGraphicsWin::GetCachedFont(const std::string& name, double scale) {
  const std::string key = FontCacheKey(name, scale);
  std::lock_guard<std::mutex> lock(FontCacheLock());
  auto it = FontCache().find(key);
  if (it != FontCache().end()) return &it->second;
  tg_font_info info;
  if (!tgraphics_text::info(name, info)) return nullptr;
  // The logical description of the registered memory font.
  LOGFONTW lf{};
  lf.lfHeight = -static_cast<LONG>(std::lround(12.0 * scale));
  lf.lfWeight = info.bold ? FW_BOLD : FW_NORMAL;
  if (info.style.find("Semibold") != std::string::npos || info.style.find("SemiBold") != std::string::npos)
    lf.lfWeight = FW_SEMIBOLD;
  if (info.style.find("ExtraBold") != std::string::npos || info.style.find("Extrabold") != std::string::npos)
    lf.lfWeight = FW_EXTRABOLD;
  lf.lfItalic = info.italic ? TRUE : FALSE;
  lf.lfCharSet = DEFAULT_CHARSET;
  lf.lfQuality = ANTIALIASED_QUALITY;
  const std::wstring family = WideFromUtf8(info.family);
  wcsncpy(lf.lfFaceName, family.c_str(), LF_FACESIZE - 1);
  HFONT hfont = CreateFontIndirectW(&lf);
  if (!hfont) return nullptr;
  cairo_font_face_t* face = cairo_win32_font_face_create_for_hfont(hfont);
  if (cairo_font_face_status(face) != CAIRO_STATUS_SUCCESS) {
    cairo_font_face_destroy(face);
    DeleteObject(hfont);
    return nullptr;
  }
  Font& f = FontCache()[key];
  f.hfont = hfont;
  f.face = face;
  f.scale = scale;
  return &f;
}

int IGraphicsWin::OpenEditorCount() {
  std::lock_guard<std::mutex> lock(ClassLock());
  return gOpenEditors;
}

// ---------------------------------------------------------------- window

cairo_surface_t* IGraphicsWin::CreateBackBuffer(int width, int height) {
  if (mUseDDB && mPlugWnd) {
    HDC dc = GetDC(mPlugWnd);
    cairo_surface_t* s = cairo_win32_surface_create_with_ddb(dc, CAIRO_FORMAT_RGB24, width, height);
    ReleaseDC(mPlugWnd, dc);
    if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) return s;
    cairo_surface_destroy(s);
  }
  return cairo_win32_surface_create_with_dib(CAIRO_FORMAT_RGB24, width, height);
}

void* IGraphicsWin::OpenWindow(void* parent) {
  RECT prev{};
  bool reuse = false;
  if (mPlugWnd) {
    // A second window of this editor takes the place of the first.
    GetWindowRect(mPlugWnd, &prev);
    MapWindowPoints(HWND_DESKTOP, GetParent(mPlugWnd), reinterpret_cast<POINT*>(&prev), 2);
    reuse = true;
    CloseWindow();
  }
  mParentWnd = static_cast<HWND>(parent);
  mScreenScale = ScreenScaleForWindow(mParentWnd);

  if (!AcquireWindowClass(mHInstance, StaticWndProc)) return nullptr;
  const int w = WindowWidth(), h = WindowHeight();
  const int x = reuse ? prev.left : 0, y = reuse ? prev.top : 0;
  mPlugWnd =
      CreateWindowExW(0, kWndClassName, L"IPlug", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS | WS_CLIPCHILDREN,
                      x, y, w, h, mParentWnd, nullptr, mHInstance, this);
  if (!mPlugWnd) {
    ReleaseWindowClass(mHInstance);
    return nullptr;
  }

  if (DragAndDropEnabled()) {
    OleInitialize(nullptr);
    mDropTarget = new IDropTargetH(mPlugWnd);
    if (RegisterDragDrop(mPlugWnd, mDropTarget) != S_OK) {
      mDropTarget->Release();
      mDropTarget = nullptr;
    }
  }

  NotifyWindowOpened();

  mTooltipsActive = false;
  if (TooltipsEnabled()) {
    INITCOMMONCONTROLSEX icc{sizeof(INITCOMMONCONTROLSEX), ICC_WIN95_CLASSES};
    if (InitCommonControlsEx(&icc)) {
      mTooltipWnd = CreateWindowExW(0, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_NOPREFIX | TTS_ALWAYSTIP,
                                    CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, mPlugWnd,
                                    nullptr, mHInstance, nullptr);
    }
    if (mTooltipWnd) {
      SetWindowPos(mTooltipWnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
      TOOLINFOW ti{};
      ti.cbSize = TTTOOLINFOW_V2_SIZE;
      ti.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
      ti.hwnd = mPlugWnd;
      ti.uId = reinterpret_cast<UINT_PTR>(mPlugWnd);
      ti.lpszText = const_cast<LPWSTR>(L"");
      mTooltipsActive = SendMessageW(mTooltipWnd, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&ti)) != 0;
    }
    if (!mTooltipsActive) {
      if (mTooltipWnd) DestroyWindow(mTooltipWnd);
      mTooltipWnd = nullptr;
      EnableTooltips(false);
    }
  }
  return mPlugWnd;
}

void IGraphicsWin::CloseWindow() {
  if (!mPlugWnd) return;
  CloseEdit(false);
  if (mCursorHidden) ShowMouseCursor();
  if (mDropTarget) {
    RevokeDragDrop(mPlugWnd);
    mDropTarget->Release();
    mDropTarget = nullptr;
    OleUninitialize();
  }
  if (mTooltipWnd) DestroyWindow(mTooltipWnd);
  mTooltipWnd = nullptr;
  mTooltipShown = false;
  DestroyWindow(mPlugWnd);  // ends the timer
  mPlugWnd = nullptr;
  ReleaseBackBuffer();
  ReleaseWindowClass(mHInstance);
}

LRESULT CALLBACK IGraphicsWin::StaticWndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
  // No exception may unwind into the host's message loop: a message whose
  // handling failed is given to the default procedure instead.
  try {
    return GuardedWndProc(hwnd, msg, wParam, lParam);
  } catch (...) {
    return DefWindowProcW(hwnd, msg, wParam, lParam);
  }
}

LRESULT IGraphicsWin::GuardedWndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
  if (msg == WM_CREATE) {
    auto* cs = reinterpret_cast<CREATESTRUCTW*>(lParam);
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(cs->lpCreateParams));
    SetTimer(hwnd, kTimerId, kTimerPeriodMs, nullptr);
    return 0;
  }
  auto* self = reinterpret_cast<IGraphicsWin*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  if (!self || self->mPlugWnd != hwnd) return DefWindowProcW(hwnd, msg, wParam, lParam);
  return self->WndProc(hwnd, msg, wParam, lParam);
}

IMouseMod IGraphicsWin::Mods(WPARAM wParam) const {
  IMouseMod m;
  m.L = wParam & MK_LBUTTON;
  m.R = wParam & MK_RBUTTON;
  m.S = wParam & MK_SHIFT;
  m.C = wParam & MK_CONTROL;
  m.A = GetKeyState(VK_MENU) < 0;
  return m;
}

void IGraphicsWin::ToUnits(LPARAM lParam, float& x, float& y) const {
  const float s = DrawScale();
  x = static_cast<float>(GET_X_LPARAM(lParam)) / s;
  y = static_cast<float>(GET_Y_LPARAM(lParam)) / s;
}

void IGraphicsWin::OnTimer() {
  IRECT r;
  if (!IsDirty(r)) return;
  const IRECT px = r.Scaled(DrawScale()).Outset();
  RECT rc{static_cast<LONG>(px.L), static_cast<LONG>(px.T), static_cast<LONG>(px.R), static_cast<LONG>(px.B)};
  InvalidateRect(mPlugWnd, &rc, FALSE);
  if (mTextEntryWnd) {
    RECT er;
    GetWindowRect(mTextEntryWnd, &er);
    MapWindowPoints(HWND_DESKTOP, mPlugWnd, reinterpret_cast<POINT*>(&er), 2);
    ValidateRect(mPlugWnd, &er);
  }
  UpdateWindow(mPlugWnd);
}

void IGraphicsWin::OnPaint() {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(mPlugWnd, &ps);
  const RECT& rc = ps.rcPaint;
  const float s = DrawScale();
  const IRECT units(rc.left / s, rc.top / s, rc.right / s, rc.bottom / s);
  Draw(units);
  if (cairo_surface_t* back = BackBuffer()) {
    if (HDC src = cairo_win32_surface_get_dc(back))
      BitBlt(dc, rc.left, rc.top, rc.right - rc.left, rc.bottom - rc.top, src, rc.left, rc.top, SRCCOPY);
  }
  EndPaint(mPlugWnd, &ps);
}

void IGraphicsWin::ShowTooltip() {
  if (!mTooltipWnd) return;
  const std::wstring text = WideFromUtf8(GetTooltipAt(GetMouseOver()));
  if (text.empty()) return;
  TOOLINFOW ti{};
  ti.cbSize = TTTOOLINFOW_V2_SIZE;
  ti.hwnd = mPlugWnd;
  ti.uId = reinterpret_cast<UINT_PTR>(mPlugWnd);
  ti.lpszText = const_cast<LPWSTR>(text.c_str());
  SendMessageW(mTooltipWnd, TTM_UPDATETIPTEXTW, 0, reinterpret_cast<LPARAM>(&ti));
  mTooltipShown = true;
}

void IGraphicsWin::HideTooltip() {
  if (!mTooltipWnd || !mTooltipShown) return;
  TOOLINFOW ti{};
  ti.cbSize = TTTOOLINFOW_V2_SIZE;
  ti.hwnd = mPlugWnd;
  ti.uId = reinterpret_cast<UINT_PTR>(mPlugWnd);
  ti.lpszText = nullptr;
  SendMessageW(mTooltipWnd, TTM_UPDATETIPTEXTW, 0, reinterpret_cast<LPARAM>(&ti));
  mTooltipShown = false;
}

void IGraphicsWin::ApplyCursor() {
  if (mCursorHidden) return;
  LPCWSTR id = reinterpret_cast<LPCWSTR>(IDC_ARROW);
  switch (GetCursorAt(GetMouseOver())) {
    case ICursor::Hand:
      id = reinterpret_cast<LPCWSTR>(IDC_HAND);
      break;
    case ICursor::SizeWE:
      id = reinterpret_cast<LPCWSTR>(IDC_SIZEWE);
      break;
    case ICursor::SizeNS:
      id = reinterpret_cast<LPCWSTR>(IDC_SIZENS);
      break;
    case ICursor::SizeNWSE:
      id = reinterpret_cast<LPCWSTR>(IDC_SIZENWSE);
      break;
    case ICursor::IBeam:
      id = reinterpret_cast<LPCWSTR>(IDC_IBEAM);
      break;
    default:
      break;
  }
  SetCursor(LoadCursorW(nullptr, id));
}

LRESULT IGraphicsWin::WndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
  std::lock_guard<std::recursive_mutex> lock(GetLock());
  switch (msg) {
    case WM_TIMER:
      if (wParam == kTimerId) OnTimer();
      return 0;
    case WM_PAINT:
      OnPaint();
      return 0;
    case WM_SIZE:
      InvalidateRect(hwnd, nullptr, FALSE);
      UpdateWindow(hwnd);
      return 0;
    case WM_KILLFOCUS:
      // Focus moving to our own text entry is not a loss.
      if (!mTextEntryWnd || reinterpret_cast<HWND>(wParam) != mTextEntryWnd) OnFocusLost();
      return 0;
    case WM_ERASEBKGND:
    case WM_SETFOCUS:
    case 0x02E0:  // WM_DPICHANGED: the scale is taken only on opening
      return 0;
    case WM_LBUTTONDOWN:
    case WM_RBUTTONDOWN:
    case WM_MBUTTONDOWN: {
      HideTooltip();
      if (mTextEntryWnd) {
        // A press outside the text entry closes it, keeping what was typed.
        if (msg != WM_MBUTTONDOWN) CloseEdit(true);
        return 0;
      }
      SetFocus(hwnd);
      SetCapture(hwnd);
      float x, y;
      ToUnits(lParam, x, y);
      mLastX = x;
      mLastY = y;
      OnMouseDown(x, y, Mods(wParam));
      return 0;
    }
    case WM_LBUTTONUP:
    case WM_RBUTTONUP:
    case WM_MBUTTONUP: {
      ReleaseCapture();
      float x, y;
      ToUnits(lParam, x, y);
      IMouseMod m = Mods(wParam);
      m.L = m.L || msg == WM_LBUTTONUP;
      m.R = m.R || msg == WM_RBUTTONUP;
      OnMouseUp(x, y, m);
      return 0;
    }
    case WM_LBUTTONDBLCLK: {
      float x, y;
      ToUnits(lParam, x, y);
      OnMouseDblClick(x, y, Mods(wParam));
      return 0;
    }
    case WM_MOUSEMOVE: {
      float x, y;
      ToUnits(lParam, x, y);
      bool changed = false;
      if (wParam & (MK_LBUTTON | MK_RBUTTON | MK_MBUTTON)) {
        OnMouseDrag(x, y, x - mLastX, y - mLastY, Mods(wParam));
      } else {
        changed = OnMouseOver(x, y, Mods(wParam));
        if (changed && mTooltipShown) HideTooltip();
        if (changed) ApplyCursor();
      }
      mLastX = x;
      mLastY = y;
      TRACKMOUSEEVENT tme{sizeof(TRACKMOUSEEVENT), TME_LEAVE, hwnd, HOVER_DEFAULT};
      if (TooltipsEnabled() && mTooltipsActive && changed) tme.dwFlags |= TME_HOVER;
      TrackMouseEvent(&tme);
      return 0;
    }
    case WM_MOUSEHOVER:
      ShowTooltip();
      return 0;
    case WM_MOUSELEAVE:
      HideTooltip();
      OnMouseOut();
      return 0;
    case WM_MOUSEWHEEL: {
      const float d = static_cast<float>(GET_WHEEL_DELTA_WPARAM(wParam)) / 120.0f;
      POINT pt{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
      RECT wr;
      GetWindowRect(hwnd, &wr);
      const float s = DrawScale();
      const float x = static_cast<float>(pt.x - wr.left) / s, y = static_cast<float>(pt.y - wr.top) / s;
      if (!mTextEntryWnd) OnMouseWheel(x, y, Mods(GET_KEYSTATE_WPARAM(wParam)), d);
      return 0;
    }
    case WM_SETCURSOR:
      if (LOWORD(lParam) == HTCLIENT) {
        if (mCursorHidden)
          SetCursor(nullptr);
        else
          ApplyCursor();
        return TRUE;
      }
      break;
    case WM_KEYDOWN: {
      const int key = iplatform::KeyCodeFromVirtualKey(static_cast<int>(wParam));
      const bool handled = key != KEY_NONE && OnKeyDown(mLastX, mLastY, key);
      if (!handled) {
        // Host shortcuts keep working while the editor has the focus.
        if (HWND top = GetAncestor(hwnd, GA_ROOT); top && top != hwnd) SendMessageW(top, msg, wParam, lParam);
      }
      return 0;
    }
    case IDropTargetH::kDropMessage: {
      auto* target = reinterpret_cast<IDropTargetH*>(wParam);
      POINT pt;
      GetCursorPos(&pt);
      ScreenToClient(hwnd, &pt);
      const float s = DrawScale();
      OnDrop(target->Paths(), target->IsDirectory(), static_cast<float>(pt.x) / s,
             static_cast<float>(pt.y) / s);
      return 0;
    }
    default:
      break;
  }
  return DefWindowProcW(hwnd, msg, wParam, lParam);
}

// ---------------------------------------------------------------- services

void IGraphicsWin::HideMouseCursor() {
  if (mCursorHidden) return;
  POINT p;
  GetCursorPos(&p);
  mHiddenX = p.x;
  mHiddenY = p.y;
  mCursorHidden = true;
  while (ShowCursor(FALSE) >= 0) {
  }
}

void IGraphicsWin::ShowMouseCursor() {
  if (!mCursorHidden) return;
  SetCursorPos(mHiddenX, mHiddenY);
  while (ShowCursor(TRUE) < 0) {
  }
  mCursorHidden = false;
}

bool IGraphicsWin::GetTextFromClipboard(std::string& text) {
  text.clear();
  if (!IsClipboardFormatAvailable(CF_UNICODETEXT)) return false;
  if (!OpenClipboard(mPlugWnd)) return false;
  bool ok = false;
  if (HANDLE h = GetClipboardData(CF_UNICODETEXT)) {
    if (const auto* w = static_cast<const wchar_t*>(GlobalLock(h))) {
      text = Utf8FromWide(w);
      ok = true;
      GlobalUnlock(h);
    }
  }
  CloseClipboard();
  return ok;
}

bool IGraphicsWin::SetTextInClipboard(const std::string& text) {
  if (!OpenClipboard(mPlugWnd)) return false;
  EmptyClipboard();
  bool ok = false;
  // 8-bit text with its terminating zero, in movable memory.
  if (HGLOBAL mem = GlobalAlloc(GMEM_MOVEABLE, text.size() + 1)) {
    if (char* p = static_cast<char*>(GlobalLock(mem))) {
      memcpy(p, text.c_str(), text.size() + 1);
      GlobalUnlock(mem);
      ok = SetClipboardData(CF_TEXT, mem) != nullptr;
    }
    if (!ok) GlobalFree(mem);
  }
  CloseClipboard();
  return ok;
}

void IGraphicsWin::ResizeWindow(int width, int height) {
  if (!mPlugWnd) return;
  RECT r;
  GetClientRect(mPlugWnd, &r);
  const int dw = width - (r.right - r.left), dh = height - (r.bottom - r.top);
  if (dw == 0 && dh == 0) return;
  const UINT flags = SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE;
  SetWindowPos(mPlugWnd, nullptr, 0, 0, width, height, flags);
  HWND w = GetParent(mPlugWnd);
  for (int level = 0; level < 2 && w; ++level) {
    const LONG_PTR style = GetWindowLongPtrW(w, GWL_STYLE), ex = GetWindowLongPtrW(w, GWL_EXSTYLE);
    if (!(style & WS_CHILD) || (ex & WS_EX_MDICHILD)) break;
    RECT wr;
    GetWindowRect(w, &wr);
    SetWindowPos(w, nullptr, 0, 0, wr.right - wr.left + dw, wr.bottom - wr.top + dh, flags);
    w = GetParent(w);
  }
  InvalidateRect(mPlugWnd, nullptr, FALSE);
  UpdateWindow(mPlugWnd);
}

LRESULT CALLBACK IGraphicsWin::EditProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
  auto* self = reinterpret_cast<IGraphicsWin*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  if (!self) return DefWindowProcW(hwnd, msg, wParam, lParam);
  if (msg == WM_KEYDOWN && (wParam == VK_RETURN || wParam == VK_ESCAPE)) {
    try {
      self->CloseEdit(wParam == VK_RETURN);
    } catch (...) {
      // The entry is gone either way; nothing may reach the host's loop.
    }
    return 0;
  }
  if (msg == WM_CHAR && (wParam == VK_RETURN || wParam == VK_ESCAPE)) return 0;
  return CallWindowProcW(self->mDefEditProc, hwnd, msg, wParam, lParam);
}

void IGraphicsWin::CreateTextEntry(IControl* control, const IRECT& r, const std::string& text,
                                   const std::string& font, float size) {
  if (!mPlugWnd || !control) return;
  CloseEdit(false);
  const IRECT px = r.Scaled(DrawScale()).Outset();
  mTextEntryWnd = CreateWindowExW(0, L"EDIT", WideFromUtf8(text).c_str(),
                                  WS_CHILD | WS_VISIBLE | WS_BORDER | ES_AUTOHSCROLL | ES_LEFT,
                                  static_cast<int>(px.L), static_cast<int>(px.T), static_cast<int>(px.W()),
                                  static_cast<int>(px.H()), mPlugWnd, nullptr, mHInstance, nullptr);
  if (!mTextEntryWnd) return;
  mEditControl = control;
  if (Font* f = GetCachedFont(font, double(size) * double(DrawScale()) / 12.0)) {
    SendMessageW(mTextEntryWnd, WM_SETFONT, reinterpret_cast<WPARAM>(f->hfont), TRUE);
  }
  SetWindowLongPtrW(mTextEntryWnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  mDefEditProc = reinterpret_cast<WNDPROC>(
      SetWindowLongPtrW(mTextEntryWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&EditProc)));
  SendMessageW(mTextEntryWnd, EM_SETSEL, 0, -1);
  SetFocus(mTextEntryWnd);
}

void IGraphicsWin::CloseEdit(bool commit) {
  if (!mTextEntryWnd) return;
  HWND edit = mTextEntryWnd;
  IControl* control = mEditControl;
  mTextEntryWnd = nullptr;
  mEditControl = nullptr;
  std::string text;
  if (commit) {
    const int n = GetWindowTextLengthW(edit);
    std::wstring w(static_cast<size_t>(n) + 1, L'\0');
    GetWindowTextW(edit, w.data(), n + 1);
    text = Utf8FromWide(w.c_str());
  }
  SetWindowLongPtrW(edit, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(mDefEditProc));
  DestroyWindow(edit);
  if (mPlugWnd) SetFocus(mPlugWnd);
  SetAllControlsDirty();
  if (commit && control) control->OnTextEntryCompletion(text);
}

std::string IGraphicsWin::PromptForFile(bool save, const std::string& extension, const std::string& directory,
                                        const std::string& fileName) {
  wchar_t file[MAX_PATH] = {};
  // A save dialog proposes the name; one that doesn't fit is left out.
  const std::wstring proposed = save ? WideFromUtf8(fileName) : std::wstring();
  if (proposed.size() < MAX_PATH && proposed.find_first_of(L"\\/:") == std::wstring::npos)
    proposed.copy(file, proposed.size());
  const std::wstring ext = WideFromUtf8(extension), dir = WideFromUtf8(directory);
  std::wstring filter;
  if (!ext.empty()) {
    filter = L"*." + ext;
    filter.push_back(L'\0');
    filter += L"*." + ext;
    filter.push_back(L'\0');
  }
  filter += L"All files";
  filter.push_back(L'\0');
  filter += L"*.*";
  filter.push_back(L'\0');
  OPENFILENAMEW ofn{};
  ofn.lStructSize = sizeof ofn;
  ofn.hwndOwner = mPlugWnd;
  ofn.lpstrFilter = filter.c_str();
  ofn.lpstrFile = file;
  ofn.nMaxFile = MAX_PATH;
  ofn.lpstrInitialDir = dir.empty() ? nullptr : dir.c_str();
  ofn.lpstrDefExt = ext.empty() ? nullptr : ext.c_str();
  ofn.Flags = OFN_EXPLORER | OFN_NOCHANGEDIR | (save ? 0 : OFN_FILEMUSTEXIST);
  const BOOL ok = save ? GetSaveFileNameW(&ofn) : GetOpenFileNameW(&ofn);
  return ok ? Utf8FromWide(file) : std::string();
}

std::string IGraphicsWin::PromptForFolder(const std::string& title) {
  const std::wstring t = WideFromUtf8(title);
  BROWSEINFOW bi{};
  bi.hwndOwner = mPlugWnd;
  bi.lpszTitle = t.c_str();
  bi.ulFlags = BIF_RETURNONLYFSDIRS | BIF_NEWDIALOGSTYLE;
  PIDLIST_ABSOLUTE pidl = SHBrowseForFolderW(&bi);
  if (!pidl) return {};
  wchar_t path[MAX_PATH] = {};
  const bool ok = SHGetPathFromIDListW(pidl, path);
  CoTaskMemFree(pidl);
  return ok ? Utf8FromWide(path) : std::string();
}

bool IGraphicsWin::PromptForColor(unsigned& argb) {
  static COLORREF custom[16] = {};
  CHOOSECOLORW cc{};
  cc.lStructSize = sizeof cc;
  cc.hwndOwner = mPlugWnd;
  cc.rgbResult = RGB((argb >> 16) & 0xff, (argb >> 8) & 0xff, argb & 0xff);
  cc.lpCustColors = custom;
  cc.Flags = CC_FULLOPEN | CC_RGBINIT;
  if (!ChooseColorW(&cc)) return false;
  argb = 0xff000000u | (unsigned{GetRValue(cc.rgbResult)} << 16) | (unsigned{GetGValue(cc.rgbResult)} << 8) |
         unsigned{GetBValue(cc.rgbResult)};
  return true;
}

bool IGraphicsWin::OpenFolderWithItem(const std::string& path) {
  const std::wstring args = L"/select,\"" + WideFromUtf8(path) + L"\"";
  return reinterpret_cast<INT_PTR>(
             ShellExecuteW(nullptr, L"open", L"explorer.exe", args.c_str(), nullptr, SW_SHOWNORMAL)) > 32;
}

bool IGraphicsWin::OpenURL(const std::string& url) {
  return reinterpret_cast<INT_PTR>(ShellExecuteW(nullptr, L"open", WideFromUtf8(url).c_str(), nullptr,
                                                 nullptr, SW_SHOWNORMAL)) > 32;
}
