#include "EditorWindow.h"

#include <windows.h>

#include <chrono>

namespace velorum::harness {

// The host window's class: registered once per process; its procedure keeps
// the keys the editor hands up to the host.
struct HostWindowClass {
  static constexpr const wchar_t* kName = L"VelorumHarnessHost";

  static bool Register() {
    WNDCLASSW wc{};
    wc.lpfnWndProc = Proc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    wc.hbrBackground = reinterpret_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    wc.lpszClassName = kName;
    return RegisterClassW(&wc) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
  }

  static LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    if (msg == WM_KEYDOWN) {
      if (auto* self = reinterpret_cast<EditorWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA)))
        self->mHostKeys.push_back(static_cast<unsigned>(wParam));
      return 0;
    }
    return DefWindowProcW(hwnd, msg, wParam, lParam);
  }
};

namespace {

bool EditorRect(HostedPlugin& plugin, int& width, int& height) {
  vst::ERect* rect = nullptr;
  if (plugin.Dispatch(vst::effEditGetRect, 0, 0, &rect) == 0 || !rect) return false;
  width = rect->right - rect->left;
  height = rect->bottom - rect->top;
  return width > 0 && height > 0;
}

HWND Handle(void* p) {
  return static_cast<HWND>(p);
}

}  // namespace

std::unique_ptr<EditorWindow> EditorWindow::Open(HostedPlugin& plugin, std::string* error) {
  auto fail = [error](const std::string& why) {
    if (error) *error = why;
    return std::unique_ptr<EditorWindow>();
  };
  if (!(plugin.Effect()->flags & vst::kFlagHasEditor)) return fail("the plug-in has no editor");
  // Hosts ask for the size before opening, to make a window that fits; an
  // editor that is only made on opening has none yet, and the window starts
  // at a default size and is fitted afterwards.
  int width = 640, height = 400;
  EditorRect(plugin, width, height);
  if (!HostWindowClass::Register())
    return fail("RegisterClass failed with code " + std::to_string(GetLastError()));

  std::unique_ptr<EditorWindow> window(new EditorWindow(plugin));
  const DWORD style = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
  RECT frame{0, 0, width, height};
  AdjustWindowRect(&frame, style, FALSE);
  HWND top =
      CreateWindowExW(0, HostWindowClass::kName, L"Velorum harness", style, 0, 0, frame.right - frame.left,
                      frame.bottom - frame.top, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
  if (!top) return fail("CreateWindowEx failed with code " + std::to_string(GetLastError()));
  window->mTop = top;
  SetWindowLongPtrW(top, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(window.get()));
  ShowWindow(top, SW_SHOW);
  UpdateWindow(top);

  if (plugin.Dispatch(vst::effEditOpen, 0, 0, top) != 1) return fail("effEditOpen refused the window");
  window->mOpened = true;
  window->mEditor = GetWindow(top, GW_CHILD);
  if (!window->mEditor) return fail("the editor made no child window");
  if (!EditorRect(plugin, width, height)) return fail("effEditGetRect gave no rectangle after opening");
  frame = RECT{0, 0, width, height};
  AdjustWindowRect(&frame, style, FALSE);
  SetWindowPos(top, nullptr, 0, 0, frame.right - frame.left, frame.bottom - frame.top,
               SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  SetForegroundWindow(top);
  return window;
}

EditorWindow::~EditorWindow() {
  if (mOpened) mPlugin.Dispatch(vst::effEditClose);
  if (mTop) {
    SetWindowLongPtrW(Handle(mTop), GWLP_USERDATA, 0);
    DestroyWindow(Handle(mTop));
  }
  Pump(20);
}

int EditorWindow::Width() const {
  int w = 0, h = 0;
  return EditorRect(mPlugin, w, h) ? w : 0;
}

int EditorWindow::Height() const {
  int w = 0, h = 0;
  return EditorRect(mPlugin, w, h) ? h : 0;
}

void EditorWindow::Pump(int milliseconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  do {
    MSG m;
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&m);
      DispatchMessageW(&m);
    }
    if (mOpened) mPlugin.Dispatch(vst::effEditIdle);
    Sleep(2);
  } while (std::chrono::steady_clock::now() < end);
}

void EditorWindow::Click(int x, int y) {
  HWND editor = Handle(mEditor);
  const LPARAM at = MAKELPARAM(x, y);
  SendMessageW(editor, WM_MOUSEMOVE, 0, at);
  Pump(30);
  SendMessageW(editor, WM_LBUTTONDOWN, MK_LBUTTON, at);
  Pump(30);
  SendMessageW(editor, WM_LBUTTONUP, 0, at);
  Pump(120);
}

void EditorWindow::Key(unsigned virtualKey) {
  HWND editor = Handle(mEditor);
  const UINT scan = MapVirtualKeyW(virtualKey, 0);  // MAPVK_VK_TO_VSC
  SendMessageW(editor, WM_KEYDOWN, virtualKey, LPARAM(1) | LPARAM(scan) << 16);
  SendMessageW(editor, WM_KEYUP, virtualKey, LPARAM(1) | LPARAM(scan) << 16 | LPARAM(3) << 30);
  Pump(60);
}

Screenshot EditorWindow::Capture() const {
  Screenshot shot;
  HWND editor = Handle(mEditor);
  RECT client;
  if (!GetClientRect(editor, &client) || client.right <= 0 || client.bottom <= 0) return shot;
  const int w = client.right, h = client.bottom;
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
  info.bmiHeader.biWidth = w;
  info.bmiHeader.biHeight = -h;  // rows from the top
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  HDC source = GetDC(editor);
  HDC memory = CreateCompatibleDC(source);
  void* bits = nullptr;
  HBITMAP dib = CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  if (dib && bits) {
    HGDIOBJ old = SelectObject(memory, dib);
    if (BitBlt(memory, 0, 0, w, h, source, 0, 0, SRCCOPY)) {
      GdiFlush();
      shot.width = w;
      shot.height = h;
      const auto* p = static_cast<const uint32_t*>(bits);
      shot.pixels.assign(p, p + size_t(w) * size_t(h));
      for (uint32_t& px : shot.pixels) px &= 0x00ffffffu;
    }
    SelectObject(memory, old);
  }
  if (dib) DeleteObject(dib);
  DeleteDC(memory);
  ReleaseDC(editor, source);
  return shot;
}

bool EditorWindow::WaitForPaint(uint32_t colour, size_t minColours, int timeoutMs, Screenshot* shot) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  Screenshot last;
  bool painted = false;
  while (!painted && std::chrono::steady_clock::now() < end) {
    Pump(50);
    last = Capture();
    painted = last.Count(colour) > 0 && last.DistinctColours() >= minColours;
  }
  if (shot) *shot = std::move(last);
  return painted;
}

}  // namespace velorum::harness
