// The X11 editor window under a private Xvfb: opened as the child of a host
// window, driven with XTest input and XDND/clipboard clients, and checked by a
// screenshot of what it drew.
#include <cairo.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "GraphicsTestUtil.h"
#include "XvfbServer.h"
#include "graphics/IGraphics.h"
#include "graphics/IGraphicsResize.h"
#include "graphics/IGraphicsX11.h"
#include "graphics/tgraphics.h"

// Xlib's macros (None, Bool, Status) break gtest's templates: X11 comes last.
// clang-format off
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
// clang-format on

namespace {

using namespace std::chrono_literals;

XvfbServer* gServer = nullptr;

class XvfbEnvironment : public testing::Environment {
 public:
  void SetUp() override { gServer = new XvfbServer(); }
  void TearDown() override {
    delete gServer;
    gServer = nullptr;
  }
};
const auto* const kEnv = testing::AddGlobalTestEnvironment(new XvfbEnvironment);

// A control that fills its rectangle and records what reaches it.
struct Recorder : IControl {
  Recorder(const IRECT& r, tg_color c) : IControl(r), color(c) {}
  void Draw(tgraphics& g) override {
    g.set_color(color);
    g.rectangle(mRECT.L, mRECT.T, mRECT.W(), mRECT.H());
    g.fill();
    if (!label.empty())
      g.draw_text(label, {mRECT.L, mRECT.T, mRECT.W(), mRECT.H()}, "OpenSans-Bold", 14, {1, 1, 1, 1},
                  tg_align::center);
  }
  void OnMouseDown(float x, float y, const IMouseMod& m) override {
    downs.push_back({x, y});
    lastMod = m;
  }
  void OnMouseUp(float, float, const IMouseMod&) override { ++ups; }
  void OnMouseDblClick(float, float, const IMouseMod&) override { ++doubles; }
  void OnMouseDrag(float, float, float dX, float dY, const IMouseMod&) override {
    dragX += dX;
    dragY += dY;
  }
  void OnMouseWheel(float, float, const IMouseMod&, float d) override { wheel += d; }
  bool OnKeyDown(float, float, int key) override {
    keys.push_back(key);
    return key >= KEY_ALPHA_A;  // letters only; everything else goes on to the host
  }
  bool AcceptsDrop() const override { return true; }
  bool OnDrop(const std::vector<std::string>& p, const std::vector<int>& d, float, float) override {
    paths = p;
    dirs = d;
    return true;
  }
  tg_color color;
  std::string label;
  std::vector<tg_point> downs;
  IMouseMod lastMod;
  int ups = 0, doubles = 0;
  float dragX = 0.f, dragY = 0.f, wheel = 0.f;
  std::vector<int> keys;
  std::vector<std::string> paths;
  std::vector<int> dirs;
};

// Waits until `cond` holds (checked under the editor's lock) or 3 s pass.
bool WaitFor(IGraphics& g, const std::function<bool()>& cond) {
  const auto end = std::chrono::steady_clock::now() + 3s;
  while (std::chrono::steady_clock::now() < end) {
    {
      std::lock_guard<std::recursive_mutex> lock(g.GetLock());
      if (cond()) return true;
    }
    std::this_thread::sleep_for(5ms);
  }
  return false;
}

// The host: a display connection and a top-level window for the editor.
struct Host {
  Display* dpy = nullptr;
  Window win = 0;
  explicit Host(int w = 400, int h = 300) {
    dpy = XOpenDisplay(nullptr);
    if (!dpy) return;
    win = XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), 0, 0, static_cast<unsigned>(w),
                              static_cast<unsigned>(h), 0, 0, 0x202020);
    XSelectInput(dpy, win, KeyPressMask | KeyReleaseMask | StructureNotifyMask);
    XMapWindow(dpy, win);
    XSync(dpy, False);
  }
  ~Host() {
    if (dpy) {
      XDestroyWindow(dpy, win);
      XCloseDisplay(dpy);
    }
  }
  void* handle() const { return reinterpret_cast<void*>(static_cast<uintptr_t>(win)); }
  void Move(int x, int y) {
    XTestFakeMotionEvent(dpy, -1, x, y, CurrentTime);
    XSync(dpy, False);
  }
  void Button(unsigned b, bool down) {
    XTestFakeButtonEvent(dpy, b, down ? True : False, CurrentTime);
    XSync(dpy, False);
  }
  void Click(unsigned b) {
    Button(b, true);
    Button(b, false);
  }
  void Key(KeySym ks, bool shift = false) {
    const KeyCode shiftCode = XKeysymToKeycode(dpy, XK_Shift_L), code = XKeysymToKeycode(dpy, ks);
    if (shift) XTestFakeKeyEvent(dpy, shiftCode, True, CurrentTime);
    XTestFakeKeyEvent(dpy, code, True, CurrentTime);
    XTestFakeKeyEvent(dpy, code, False, CurrentTime);
    if (shift) XTestFakeKeyEvent(dpy, shiftCode, False, CurrentTime);
    XSync(dpy, False);
  }
  // The window's pixels as an image.
  cairo_surface_t* Screenshot(int w, int h) {
    XImage* img =
        XGetImage(dpy, win, 0, 0, static_cast<unsigned>(w), static_cast<unsigned>(h), AllPlanes, ZPixmap);
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, w, h);
    if (!img) return s;
    unsigned char* data = cairo_image_surface_get_data(s);
    const int stride = cairo_image_surface_get_stride(s);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        reinterpret_cast<uint32_t*>(data + y * stride)[x] = 0xff000000u | (XGetPixel(img, x, y) & 0xffffffu);
    cairo_surface_mark_dirty(s);
    XDestroyImage(img);
    return s;
  }
};

struct Editor {
  std::unique_ptr<IGraphics> g;
  Recorder* background = nullptr;
  Recorder* button = nullptr;
  Editor(int w = 300, int h = 200) {
    g = IGraphics::Create(nullptr, w, h, 60);
    g->EnableDragAndDrop(true);
    background = g->Attach<Recorder>(IRECT(0.f, 0.f, float(w), float(h)), tg_color{0.25, 0.25, 0.25, 1});
    button = g->Attach<Recorder>(IRECT(20.f, 20.f, 120.f, 80.f), tg_color{0.9, 0.1, 0.1, 1});
    button->label = "LUFS";
    button->SetTooltip("Integrated loudness");
  }
  IGraphicsX11& x11() { return static_cast<IGraphicsX11&>(*g); }
};

bool IsRed(uint32_t p) {
  return Red(p) > 200 && Green(p) < 60 && Blue(p) < 60;
}

}  // namespace

class X11Editor : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(gServer && gServer->ok()) << "Xvfb could not be started";
    host = std::make_unique<Host>();
    ASSERT_NE(host->dpy, nullptr);
  }
  std::unique_ptr<Host> host;
};

TEST_F(X11Editor, OpensAsChildOfTheHostWindowAndDrawsFromItsOwnTimer) {
  Editor e;
  void* child = e.g->OpenWindow(host->handle());
  ASSERT_NE(child, nullptr);
  Window root = 0, parent = 0, *kids = nullptr;
  unsigned n = 0;
  XQueryTree(host->dpy, static_cast<Window>(reinterpret_cast<uintptr_t>(child)), &root, &parent, &kids, &n);
  if (kids) XFree(kids);
  EXPECT_EQ(parent, host->win);
  EXPECT_FLOAT_EQ(e.g->ScreenScale(), 1.0f);
  EXPECT_EQ(e.g->Rect(), IRECT(0.f, 0.f, 300.f, 200.f));

  // Nobody calls an idle hook: the window's own timer draws.
  ASSERT_TRUE(WaitFor(*e.g, [&] {
    IRECT r;
    return e.x11().TimerTicks() > 3 && !e.g->IsDirty(r);
  }));
  std::this_thread::sleep_for(50ms);
  cairo_surface_t* shot = host->Screenshot(400, 300);
  cairo_surface_write_to_png(shot, OutputPath("x11_editor_screenshot.png").c_str());
  EXPECT_TRUE(IsRed(PixelAt(shot, 30, 30)));                 // the button
  EXPECT_EQ(PixelAt(shot, 250, 150) & 0xffffff, 0x404040u);  // the editor's background
  EXPECT_EQ(PixelAt(shot, 350, 250) & 0xffffff, 0x202020u);  // the host window outside the editor
  const InkBox label = [&] {
    cairo_surface_t* part = cairo_surface_create_for_rectangle(shot, 20, 20, 100, 60);
    cairo_surface_t* img = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 100, 60);
    cairo_t* cr = cairo_create(img);
    cairo_set_source_surface(cr, part, 0, 0);
    cairo_paint(cr);
    cairo_destroy(cr);
    const InkBox box = FindInk(img, PixelAt(img, 2, 2));
    cairo_surface_destroy(img);
    cairo_surface_destroy(part);
    return box;
  }();
  EXPECT_GT(label.count, 50);  // the white label text on the button
  EXPECT_GT(label.left, 20);
  EXPECT_LT(label.right, 80);
  cairo_surface_destroy(shot);

  // A control marked dirty is drawn again at the next tick.
  {
    std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
    e.button->color = {0.1, 0.8, 0.1, 1};
    e.button->SetDirty();
  }
  ASSERT_TRUE(WaitFor(*e.g, [&] {
    IRECT r;
    return !e.g->IsDirty(r);
  }));
  std::this_thread::sleep_for(30ms);
  shot = host->Screenshot(400, 300);
  EXPECT_GT(Green(PixelAt(shot, 30, 30)), 180);
  cairo_surface_destroy(shot);

  e.g->CloseWindow();
  XQueryTree(host->dpy, host->win, &root, &parent, &kids, &n);
  if (kids) XFree(kids);
  EXPECT_EQ(n, 0u);  // the child window is gone
  EXPECT_FALSE(e.g->WindowIsOpen());
  // And it opens again.
  EXPECT_NE(e.g->OpenWindow(host->handle()), nullptr);
}

TEST_F(X11Editor, MouseWheelAndKeysReachTheControlsAndTheHostGetsTheRest) {
  Editor e;
  ASSERT_NE(e.g->OpenWindow(host->handle()), nullptr);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.x11().TimerTicks() > 2; }));

  host->Move(70, 50);
  host->Click(1);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.button->ups == 1; }));
  {
    std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
    ASSERT_EQ(e.button->downs.size(), 1u);
    EXPECT_FLOAT_EQ(float(e.button->downs[0].x), 70.f);
    EXPECT_FLOAT_EQ(float(e.button->downs[0].y), 50.f);
    EXPECT_TRUE(e.button->lastMod.L);
    EXPECT_FALSE(e.button->lastMod.R);
  }
  host->Click(1);  // within the double-click time
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.button->doubles == 1; }));

  std::this_thread::sleep_for(450ms);
  host->Button(1, true);
  host->Move(80, 55);
  host->Move(90, 60);
  host->Button(1, false);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.button->ups == 3; }));
  {
    std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
    EXPECT_FLOAT_EQ(e.button->dragX, 20.f);
    EXPECT_FLOAT_EQ(e.button->dragY, 10.f);
  }

  host->Click(4);  // wheel up
  host->Click(5);
  host->Click(4);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.button->wheel == 1.f; }));

  // "a" and "A" give the same code; F1 is not taken and goes to the host.
  host->Key(XK_a);
  host->Key(XK_a, true);
  host->Key(XK_space);
  host->Key(XK_F1);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.button->keys.size() + e.background->keys.size() >= 4; }));
  {
    std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
    ASSERT_EQ(e.button->keys.size(), 3u);                        // a, A, space; F1 has no code
    EXPECT_EQ(e.background->keys, std::vector<int>{KEY_SPACE});  // not taken by the button
    EXPECT_EQ(e.button->keys[0], 15);
    EXPECT_EQ(e.button->keys[1], 15);
    EXPECT_EQ(e.button->keys[2], KEY_SPACE);
  }
  const KeyCode f1 = XKeysymToKeycode(host->dpy, XK_F1), space = XKeysymToKeycode(host->dpy, XK_space);
  bool gotF1 = false, gotSpace = false, gotLetter = false;
  const auto end = std::chrono::steady_clock::now() + 2s;
  while (std::chrono::steady_clock::now() < end && !(gotF1 && gotSpace)) {
    while (XPending(host->dpy)) {
      XEvent ev;
      XNextEvent(host->dpy, &ev);
      if (ev.type != KeyPress || !ev.xkey.send_event) continue;
      gotF1 = gotF1 || ev.xkey.keycode == f1;
      gotSpace = gotSpace || ev.xkey.keycode == space;
      gotLetter = gotLetter || ev.xkey.keycode == XKeysymToKeycode(host->dpy, XK_a);
    }
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_TRUE(gotF1);
  EXPECT_TRUE(gotSpace);
  EXPECT_FALSE(gotLetter);  // taken by the control
}

TEST_F(X11Editor, ScreenScaleComesFromXftDpi) {
  Display* d = host->dpy;
  const char* res = "Xft.antialias:\t1\nXft.dpi:\t144\n";
  XChangeProperty(d, DefaultRootWindow(d), XA_RESOURCE_MANAGER, XA_STRING, 8, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(res), static_cast<int>(strlen(res)));
  XSync(d, False);
  Editor e(200, 100);
  void* child = e.g->OpenWindow(host->handle());
  XDeleteProperty(d, DefaultRootWindow(d), XA_RESOURCE_MANAGER);
  XSync(d, False);
  ASSERT_NE(child, nullptr);
  EXPECT_FLOAT_EQ(e.g->ScreenScale(), 1.5f);
  XWindowAttributes a;
  XGetWindowAttributes(d, static_cast<Window>(reinterpret_cast<uintptr_t>(child)), &a);
  EXPECT_EQ(a.width, 300);
  EXPECT_EQ(a.height, 150);
  ASSERT_TRUE(WaitFor(*e.g, [&] {
    IRECT r;
    return e.x11().TimerTicks() > 3 && !e.g->IsDirty(r);
  }));
  std::this_thread::sleep_for(30ms);
  cairo_surface_t* shot = host->Screenshot(400, 300);
  cairo_surface_write_to_png(shot, OutputPath("x11_editor_screenshot_144dpi.png").c_str());
  // The button at units (20,20)-(120,80) covers pixels (30,30)-(180,120).
  EXPECT_TRUE(IsRed(PixelAt(shot, 32, 32)));
  EXPECT_TRUE(IsRed(PixelAt(shot, 178, 118)));
  EXPECT_FALSE(IsRed(PixelAt(shot, 182, 122)));
  cairo_surface_destroy(shot);
  // Mouse positions come back in editor units.
  host->Move(150, 90);
  host->Click(1);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.button->ups == 1; }));
  std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
  EXPECT_FLOAT_EQ(float(e.button->downs.at(0).x), 100.f);
  EXPECT_FLOAT_EQ(float(e.button->downs.at(0).y), 60.f);
}

TEST_F(X11Editor, ClipboardGoesBothWays) {
  Editor e;
  ASSERT_NE(e.g->OpenWindow(host->handle()), nullptr);
  std::string text;
  ASSERT_TRUE(e.g->SetTextInClipboard("-23.0 LUFS"));
  // Another program asks for it.
  Display* d = host->dpy;
  const Atom clip = XInternAtom(d, "CLIPBOARD", False), utf8 = XInternAtom(d, "UTF8_STRING", False),
             prop = XInternAtom(d, "TEST_PROP", False);
  XConvertSelection(d, clip, utf8, prop, host->win, CurrentTime);
  XFlush(d);
  std::string received;
  const auto end = std::chrono::steady_clock::now() + 2s;
  while (std::chrono::steady_clock::now() < end && received.empty()) {
    XEvent ev;
    if (XCheckTypedWindowEvent(d, host->win, SelectionNotify, &ev) && ev.xselection.property != None) {
      Atom type;
      int format;
      unsigned long count, after;
      unsigned char* data = nullptr;
      XGetWindowProperty(d, host->win, prop, 0, 1024, True, AnyPropertyType, &type, &format, &count, &after,
                         &data);
      if (data) {
        received.assign(reinterpret_cast<char*>(data), count);
        XFree(data);
      }
    }
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_EQ(received, "-23.0 LUFS");
  ASSERT_TRUE(e.g->GetTextFromClipboard(text));
  EXPECT_EQ(text, "-23.0 LUFS");

  // Text that another program owns: served from a thread of the test.
  Display* other = XOpenDisplay(nullptr);
  ASSERT_NE(other, nullptr);
  const Window owner = XCreateSimpleWindow(other, DefaultRootWindow(other), 0, 0, 1, 1, 0, 0, 0);
  const Atom oclip = XInternAtom(other, "CLIPBOARD", False), outf8 = XInternAtom(other, "UTF8_STRING", False);
  XSetSelectionOwner(other, oclip, owner, CurrentTime);
  XSync(other, False);
  std::thread server([&] {
    const auto stop = std::chrono::steady_clock::now() + 2s;
    while (std::chrono::steady_clock::now() < stop) {
      XEvent ev;
      if (XCheckTypedWindowEvent(other, owner, SelectionRequest, &ev)) {
        const XSelectionRequestEvent& r = ev.xselectionrequest;
        XEvent reply{};
        reply.xselection.type = SelectionNotify;
        reply.xselection.requestor = r.requestor;
        reply.xselection.selection = r.selection;
        reply.xselection.target = r.target;
        reply.xselection.time = r.time;
        reply.xselection.property = None;
        if (r.target == outf8) {
          const char* s =
              "Momentary \xE2\x88\x92"
              "18 LU";
          XChangeProperty(other, r.requestor, r.property, outf8, 8, PropModeReplace,
                          reinterpret_cast<const unsigned char*>(s), static_cast<int>(strlen(s)));
          reply.xselection.property = r.property;
        }
        XSendEvent(other, r.requestor, False, NoEventMask, &reply);
        XFlush(other);
        return;
      }
      std::this_thread::sleep_for(2ms);
    }
  });
  const bool ok = e.g->GetTextFromClipboard(text);
  server.join();
  XDestroyWindow(other, owner);
  XCloseDisplay(other);
  EXPECT_TRUE(ok);
  EXPECT_EQ(text,
            "Momentary \xE2\x88\x92"
            "18 LU");
}

TEST_F(X11Editor, DroppedFilesAndAFolderArriveWithDirectoryFlags) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::path(VELORUM_BINARY_DIR) / "x11_drop_test";
  fs::remove_all(dir);
  fs::create_directories(dir / "a folder");
  for (const char* f : {"one.wav", "two three.flac", "four.mp3"}) std::ofstream(dir / f) << "x";
  std::string uris = "# dropped\r\n";
  for (const char* f : {"one.wav", "two%20three.flac", "four.mp3", "a%20folder"})
    uris += "file://" + (dir / f).string() + "\r\n";

  Editor e;
  void* child = e.g->OpenWindow(host->handle());
  ASSERT_NE(child, nullptr);
  const Window target = static_cast<Window>(reinterpret_cast<uintptr_t>(child));
  Display* d = host->dpy;
  Atom type;
  int format;
  unsigned long count, after;
  unsigned char* data = nullptr;
  ASSERT_EQ(XGetWindowProperty(d, target, XInternAtom(d, "XdndAware", False), 0, 1, False, XA_ATOM, &type,
                               &format, &count, &after, &data),
            Success);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(*reinterpret_cast<long*>(data), 5);
  XFree(data);

  // The test is the drag source.
  const Window source = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
  const Atom uriList = XInternAtom(d, "text/uri-list", False),
             selection = XInternAtom(d, "XdndSelection", False);
  XSetSelectionOwner(d, selection, source, CurrentTime);
  auto send = [&](const char* name, long l1, long l2, long l3, long l4) {
    XEvent ev{};
    ev.xclient.type = ClientMessage;
    ev.xclient.window = target;
    ev.xclient.message_type = XInternAtom(d, name, False);
    ev.xclient.format = 32;
    ev.xclient.data.l[0] = static_cast<long>(source);
    ev.xclient.data.l[1] = l1;
    ev.xclient.data.l[2] = l2;
    ev.xclient.data.l[3] = l3;
    ev.xclient.data.l[4] = l4;
    XSendEvent(d, target, False, NoEventMask, &ev);
    XFlush(d);
  };
  auto waitClient = [&](const char* name, XEvent& out) {
    const Atom a = XInternAtom(d, name, False);
    const auto end = std::chrono::steady_clock::now() + 2s;
    while (std::chrono::steady_clock::now() < end) {
      while (XPending(d)) {
        XEvent ev;
        XNextEvent(d, &ev);
        if (ev.type == SelectionRequest && ev.xselectionrequest.selection == selection) {
          const XSelectionRequestEvent& r = ev.xselectionrequest;
          XChangeProperty(d, r.requestor, r.property, uriList, 8, PropModeReplace,
                          reinterpret_cast<const unsigned char*>(uris.data()), static_cast<int>(uris.size()));
          XEvent reply{};
          reply.xselection.type = SelectionNotify;
          reply.xselection.requestor = r.requestor;
          reply.xselection.selection = r.selection;
          reply.xselection.target = r.target;
          reply.xselection.property = r.property;
          reply.xselection.time = r.time;
          XSendEvent(d, r.requestor, False, NoEventMask, &reply);
          XFlush(d);
        }
        if (ev.type == ClientMessage && ev.xclient.message_type == a) {
          out = ev;
          return true;
        }
      }
      std::this_thread::sleep_for(2ms);
    }
    return false;
  };
  // Client messages to the source window are delivered to the test's connection.
  send("XdndEnter", 5L << 24, static_cast<long>(uriList), 0, 0);
  send("XdndPosition", 0, (60L << 16) | 40L, CurrentTime,
       static_cast<long>(XInternAtom(d, "XdndActionCopy", False)));
  XEvent status;
  ASSERT_TRUE(waitClient("XdndStatus", status));
  EXPECT_EQ(status.xclient.data.l[1] & 1, 1);  // accepted
  send("XdndDrop", 0, CurrentTime, 0, 0);
  XEvent finished;
  ASSERT_TRUE(waitClient("XdndFinished", finished));
  EXPECT_EQ(finished.xclient.data.l[1] & 1, 1);
  XDestroyWindow(d, source);

  std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
  // The drop lands on the topmost control under (60, 40): the button.
  ASSERT_EQ(e.button->paths.size(), 4u);
  EXPECT_EQ(e.button->paths[1], (dir / "two three.flac").string());
  EXPECT_EQ(e.button->paths[3], (dir / "a folder").string());
  EXPECT_EQ(e.button->dirs, (std::vector<int>{0, 0, 0, 1}));
}

TEST_F(X11Editor, HiddenCursorComesBackWhereItWasHidden) {
  Editor e;
  ASSERT_NE(e.g->OpenWindow(host->handle()), nullptr);
  host->Move(100, 60);
  e.g->HideMouseCursor();
  host->Move(200, 150);
  e.g->HideMouseCursor();  // a second hide does nothing
  host->Move(250, 180);
  e.g->ShowMouseCursor();
  e.g->ShowMouseCursor();  // nor does a second show
  Window r, c;
  int rx = 0, ry = 0, wx = 0, wy = 0;
  unsigned mask = 0;
  XSync(host->dpy, False);
  XQueryPointer(host->dpy, DefaultRootWindow(host->dpy), &r, &c, &rx, &ry, &wx, &wy, &mask);
  EXPECT_EQ(rx, 100);
  EXPECT_EQ(ry, 60);
}

TEST_F(X11Editor, GuiScaleResizesTheWindowAndIsKept) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(VELORUM_BINARY_DIR) / "x11_guiscale";
  fs::remove_all(folder);
  fs::create_directories(folder);
  Editor e(200, 100);
  auto* resize = e.g->Attach<IGraphicsResize>(e.g.get(), folder.string());
  resize->AttachHandles();
  void* child = e.g->OpenWindow(host->handle());
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(resize->WindowWidth(), 200);
  resize->SetGUIScale(1.5f);
  XSync(host->dpy, False);
  XWindowAttributes a;
  XGetWindowAttributes(host->dpy, static_cast<Window>(reinterpret_cast<uintptr_t>(child)), &a);
  EXPECT_EQ(a.width, 300);
  EXPECT_EQ(a.height, 150);
  EXPECT_EQ(e.g->Rect(), IRECT(0.f, 0.f, 300.f, 150.f));
  float stored = 0.f;
  EXPECT_TRUE(IGraphicsResize::ReadScaleFile((folder / "GuiScale.ini").string(), stored));
  EXPECT_FLOAT_EQ(stored, 1.5f);
  ASSERT_TRUE(WaitFor(*e.g, [&] {
    IRECT r;
    return !e.g->IsDirty(r);
  }));
  std::this_thread::sleep_for(30ms);
  cairo_surface_t* shot = host->Screenshot(400, 300);
  EXPECT_TRUE(IsRed(PixelAt(shot, 178, 118)));
  cairo_surface_destroy(shot);
  e.g->CloseWindow();

  // A new editor starts at the kept scale.
  Editor again(200, 100);
  again.g->Attach<IGraphicsResize>(again.g.get(), folder.string());
  EXPECT_FLOAT_EQ(again.g->EditorScale(), 1.5f);
  EXPECT_EQ(again.g->WindowWidth(), 300);
}

TEST_F(X11Editor, HostDestroyingItsWindowFirstDoesNotEndTheProcess) {
  Editor e;
  auto frame = std::make_unique<Host>(320, 240);
  ASSERT_NE(e.g->OpenWindow(frame->handle()), nullptr);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.x11().TimerTicks() > 2; }));
  frame.reset();  // the host tears its window down, ours with it
  {
    std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
    e.g->SetAllControlsDirty();  // the next ticks draw into a window that is gone
  }
  std::this_thread::sleep_for(100ms);
  e.g->ResizeWindow(400, 300);
  e.g->CloseWindow();
  EXPECT_FALSE(e.g->WindowIsOpen());
  EXPECT_NE(e.g->OpenWindow(host->handle()), nullptr);  // and a new one opens normally
}

TEST_F(X11Editor, ADeadParentWindowGivesNoWindow) {
  Editor e;
  const Window dead = XCreateSimpleWindow(host->dpy, host->win, 0, 0, 10, 10, 0, 0, 0);
  XDestroyWindow(host->dpy, dead);
  XSync(host->dpy, False);
  EXPECT_EQ(e.g->OpenWindow(reinterpret_cast<void*>(static_cast<uintptr_t>(dead))), nullptr);
  EXPECT_FALSE(e.g->WindowIsOpen());
  EXPECT_NE(e.g->OpenWindow(host->handle()), nullptr);
}

TEST_F(X11Editor, TooltipShowsOnHoverAndHidesAtOnceOnTheNextControl) {
  for (bool enabled : {true, false}) {
    Editor e;
    e.g->EnableTooltips(enabled);
    ASSERT_NE(e.g->OpenWindow(host->handle()), nullptr);
    host->Move(250, 150);
    host->Move(60, 40);  // onto the button, which has a tooltip
    const bool shown = WaitFor(*e.g, [&] { return e.x11().TooltipShown(); });
    EXPECT_EQ(shown, enabled);
    if (!enabled) continue;
    host->Move(200, 150);  // onto the background
    EXPECT_TRUE(WaitFor(*e.g, [&] { return !e.x11().TooltipShown(); }));
    const auto t0 = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - t0 < 300ms) {
      EXPECT_FALSE(e.x11().TooltipShown());  // the background has no tooltip of its own
      std::this_thread::sleep_for(20ms);
    }
  }
}

namespace {
struct ValueField : Recorder {
  using Recorder::Recorder;
  void OnMouseDblClick(float, float, const IMouseMod&) override {
    GetGUI()->CreateTextEntry(this, mRECT, "-23");
  }
  void OnTextEntryCompletion(const std::string& text) override { typed = text; }
  std::string typed = "<none>";
};
}  // namespace

TEST_F(X11Editor, TextEntryTakesTypedTextUntilEnter) {
  Editor e;
  auto* field = e.g->Attach<ValueField>(IRECT(150.f, 20.f, 280.f, 50.f), tg_color{0.1, 0.1, 0.5, 1});
  ASSERT_NE(e.g->OpenWindow(host->handle()), nullptr);
  host->Move(200, 35);
  host->Click(1);
  host->Click(1);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.g->IsTextEntryOpen(); }));
  for (int i = 0; i < 3; ++i) host->Key(XK_BackSpace);
  for (KeySym k : {XK_1, XK_2, XK_period, XK_5}) host->Key(k);
  host->Click(4);  // the wheel does nothing while typing
  std::this_thread::sleep_for(50ms);
  cairo_surface_t* shot = host->Screenshot(400, 300);
  cairo_surface_write_to_png(shot, OutputPath("x11_editor_text_entry.png").c_str());
  EXPECT_EQ(PixelAt(shot, 152, 22) & 0xffffff, 0xffffffu);  // the entry box is drawn over the field
  cairo_surface_destroy(shot);
  host->Key(XK_Return);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return !e.g->IsTextEntryOpen(); }));
  std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
  EXPECT_EQ(field->typed, "12.5");
  EXPECT_FLOAT_EQ(field->wheel, 0.f);
}

// ------------------------------------------------------------ file dialogs

namespace {

// Fake zenity and kdialog: shell scripts in a folder that is the whole PATH
// while a test runs. Each records its arguments one per line and its process
// id, waits the prepared delay, prints the prepared answer byte for byte and
// exits with the prepared code.
struct FakeDialogs {
  std::filesystem::path dir;
  std::string oldPath;
  FakeDialogs(bool zenity, bool kdialog) {
    dir = std::filesystem::path(OutputPath("fake-dialogs-" + std::to_string(getpid())));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    for (const char* tool : {"zenity", "kdialog"}) {
      if ((tool[0] == 'z' && !zenity) || (tool[0] == 'k' && !kdialog)) continue;
      const std::filesystem::path script = dir / tool;
      std::ofstream(script) << "#!/bin/sh\n"
                               "d=${0%/*}\n"
                               "echo $$ > \"$d/pid\"\n"
                               "printf '%s\\n' \"${0##*/}\" > \"$d/args\"\n"
                               "for a in \"$@\"; do printf '%s\\n' \"$a\" >> \"$d/args\"; done\n"
                               ": > \"$d/started\"\n"
                               "/bin/sleep \"$(/bin/cat \"$d/delay\")\"\n"
                               "/bin/cat \"$d/answer\"\n"
                               "exit \"$(/bin/cat \"$d/code\")\"\n";
      std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    }
    Answer("", 1);
    const char* path = std::getenv("PATH");
    oldPath = path ? path : "";
    setenv("PATH", dir.c_str(), 1);
  }
  ~FakeDialogs() {
    setenv("PATH", oldPath.c_str(), 1);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  void Answer(const std::string& text, int code, double delaySeconds = 0.0) {
    std::filesystem::remove(dir / "started");
    std::filesystem::remove(dir / "args");
    std::ofstream(dir / "answer", std::ios::binary) << text;
    std::ofstream(dir / "code") << code << "\n";
    std::ofstream(dir / "delay") << delaySeconds << "\n";
  }
  bool Started() const { return std::filesystem::exists(dir / "started"); }
  // The program's name, then its arguments.
  std::vector<std::string> Args() const {
    std::vector<std::string> out;
    std::ifstream in(dir / "args");
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
  }
  pid_t Pid() const {
    pid_t pid = -1;
    std::ifstream(dir / "pid") >> pid;
    return pid;
  }
};

using Args = std::vector<std::string>;

}  // namespace

// The options arrive as separate arguments, never through a shell, so that
// folders and chosen paths with blanks, quotes and shell syntax stay intact.
TEST(X11FileDialog, ZenityGetsItsOptionsAsArgumentsAndPathsStayIntact) {
  FakeDialogs fake(true, true);
  IGraphicsX11 g(300, 200, 60);  // no window: the caller just waits
  const std::string folder = "/tmp/Loud \"mixes\" 'n' $(touch pwned) & more";
  const std::string chosen = "/tmp/My \"final\" mix; $(touch pwned) `id` \xC3\xA9t\xC3\xA9.csv";
  fake.Answer(chosen + "\n", 0);
  EXPECT_EQ(g.PromptForFile(true, "csv", folder, "Take \"1\" $(id).csv"), chosen);
  EXPECT_EQ(fake.Args(),
            (Args{"zenity", "--file-selection", "--title=Save File", "--save",
                  "--filename=" + folder + "/Take \"1\" $(id).csv",
                  "--file-filter=CSV files (*.csv) | *.csv *.CSV", "--file-filter=All files | *"}));
  EXPECT_FALSE(std::filesystem::exists("pwned"));
  EXPECT_FALSE(std::filesystem::exists(fake.dir / "pwned"));

  // Opening: no save options, and no filter without an extension.
  fake.Answer("/media/take 1.wav\n", 0);
  EXPECT_EQ(g.PromptForFile(false, "", "/media/"), "/media/take 1.wav");
  EXPECT_EQ(fake.Args(), (Args{"zenity", "--file-selection", "--title=Open File", "--filename=/media/"}));
  // An extension that is not a plain word makes no filter (it would be read
  // as filter syntax).
  fake.Answer("/media/a.wav\n", 0);
  EXPECT_EQ(g.PromptForFile(false, "wav | *", ""), "/media/a.wav");
  EXPECT_EQ(fake.Args(), (Args{"zenity", "--file-selection", "--title=Open File"}));
  EXPECT_TRUE(IGraphicsX11::FileDialogAvailable());
}

TEST(X11FileDialog, CancelAndUnusableAnswersGiveNothing) {
  FakeDialogs fake(true, false);
  IGraphicsX11 g(300, 200, 60);
  const struct {
    std::string text;
    int code;
    const char* why;
  } cases[] = {
      {"", 1, "cancelled"},
      {"/tmp/x.csv\n", 1, "a path with a failure code"},
      {"", 0, "nothing chosen"},
      {"\n", 0, "an empty line"},
      {"relative/x.csv\n", 0, "not an absolute path"},
      {std::string("/tmp/a\0b.csv\n", 13), 0, "a NUL inside"},
      {"/" + std::string(200000, 'a') + "\n", 0, "longer than any path"},
      {"/tmp/x.csv\n", 255, "the program failed"},
  };
  for (const auto& c : cases) {
    fake.Answer(c.text, c.code);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(g.PromptForFile(true, "csv", "/tmp"), "") << c.why;
    EXPECT_LT(std::chrono::steady_clock::now() - t0, 3s) << c.why;
  }
  // A file name may end in blanks: only the final newline goes.
  fake.Answer("/tmp/x.csv  \n", 0);
  EXPECT_EQ(g.PromptForFile(true, "csv", "/tmp"), "/tmp/x.csv  ");
}

TEST(X11FileDialog, KdialogWhenZenityIsMissingAndNothingWhenNeitherIs) {
  IGraphicsX11 g(300, 200, 60);
  {
    FakeDialogs fake(false, true);
    EXPECT_TRUE(IGraphicsX11::FileDialogAvailable());
    fake.Answer("/srv/exports/Velorum_History.csv\n", 0);
    EXPECT_EQ(g.PromptForFile(true, "csv", "/srv/exports", "Velorum_History.csv"),
              "/srv/exports/Velorum_History.csv");
    EXPECT_EQ(fake.Args(), (Args{"kdialog", "--title", "Save File", "--getsavefilename",
                                 "/srv/exports/Velorum_History.csv", "*.csv *.CSV|CSV files (*.csv)"}));
    // A proposed name with a folder in it is not proposed.
    fake.Answer("/srv/exports/x.csv\n", 0);
    EXPECT_EQ(g.PromptForFile(true, "csv", "/srv/exports", "../x.csv"), "/srv/exports/x.csv");
    EXPECT_EQ(fake.Args()[4], "/srv/exports/");
    fake.Answer("/srv/in put.flac\n", 0);
    EXPECT_EQ(g.PromptForFile(false, "", "/srv/"), "/srv/in put.flac");
    EXPECT_EQ(fake.Args(), (Args{"kdialog", "--title", "Open File", "--getopenfilename", "/srv/"}));
    fake.Answer("", 1);
    EXPECT_EQ(g.PromptForFile(false, "wav", ""), "");
    EXPECT_EQ(fake.Args(), (Args{"kdialog", "--title", "Open File", "--getopenfilename", ".",
                                 "*.wav *.WAV|WAV files (*.wav)"}));
  }
  {
    FakeDialogs none(false, false);
    EXPECT_FALSE(IGraphicsX11::FileDialogAvailable());
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(g.PromptForFile(true, "txt", "/tmp"), "");
    EXPECT_LT(std::chrono::steady_clock::now() - t0, 1s);
  }
}

namespace {
// A button that asks for a file when pressed, as the editor's "OPEN FILE" does.
struct OpenButton : Recorder {
  using Recorder::Recorder;
  void OnMouseDown(float x, float y, const IMouseMod& m) override {
    Recorder::OnMouseDown(x, y, m);
    answer = GetGUI()->PromptForFile(false, "wav", "/tmp");
    ++answers;
  }
  std::string answer;
  std::atomic<int> answers{0};
};

bool WaitUntil(const std::function<bool()>& cond, std::chrono::milliseconds limit = 3000ms) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (cond()) return true;
    std::this_thread::sleep_for(5ms);
  }
  return cond();
}
}  // namespace

// A click that opens the dialog runs it on the window's thread: the window
// stays modal behind it, goes on with its timer and repaints what is
// uncovered, drops presses meant for the editor, and closing the window ends
// the dialog instead of waiting for it.
TEST_F(X11Editor, FileDialogIsModalKeepsDrawingAndEndsWithTheWindow) {
  FakeDialogs fake(false, true);
  Editor e;
  auto* open = e.g->Attach<OpenButton>(IRECT(150.f, 20.f, 280.f, 80.f), tg_color{0.1, 0.1, 0.9, 1});
  ASSERT_NE(e.g->OpenWindow(host->handle()), nullptr);
  ASSERT_TRUE(WaitFor(*e.g, [&] { return e.x11().TimerTicks() > 2; }));

  // Answered after a moment: the path reaches the button.
  fake.Answer("/tmp/take 2.wav\n", 0, 0.3);
  host->Move(200, 50);
  host->Click(1);
  ASSERT_TRUE(WaitUntil([&] { return open->answers.load() == 1; }));
  {
    std::lock_guard<std::recursive_mutex> lock(e.g->GetLock());
    EXPECT_EQ(open->answer, "/tmp/take 2.wav");
  }
  // The dialog belongs to the host's top-level window.
  EXPECT_EQ(fake.Args(), (Args{"kdialog", "--title", "Open File", "--attach", std::to_string(host->win),
                               "--getopenfilename", "/tmp/", "*.wav *.WAV|WAV files (*.wav)"}));
  std::this_thread::sleep_for(500ms);  // not a double click

  // Left open: the window's thread is in the dialog.
  fake.Answer("/tmp/never.wav\n", 0, 60);
  host->Click(1);
  ASSERT_TRUE(WaitUntil([&] { return fake.Started(); }));
  const long ticks = e.x11().TimerTicks();
  std::this_thread::sleep_for(150ms);
  EXPECT_GT(e.x11().TimerTicks(), ticks + 5);  // the timer goes on
  // Presses meant for the editor are dropped while the dialog is up.
  host->Move(60, 150);
  host->Click(1);
  // Covered and uncovered again, the editor is painted again.
  XUnmapWindow(host->dpy, host->win);
  XSync(host->dpy, False);
  std::this_thread::sleep_for(50ms);
  XMapWindow(host->dpy, host->win);
  XSync(host->dpy, False);
  std::this_thread::sleep_for(150ms);
  cairo_surface_t* shot = host->Screenshot(400, 300);
  EXPECT_TRUE(IsRed(PixelAt(shot, 30, 30)));
  EXPECT_GT(Blue(PixelAt(shot, 200, 50)), 200);
  cairo_surface_destroy(shot);
  EXPECT_EQ(open->answers.load(), 1);

  // The host closes the editor: the dialog ends and the close returns soon.
  const pid_t dialog = fake.Pid();
  ASSERT_GT(dialog, 0);
  const auto t0 = std::chrono::steady_clock::now();
  e.g->CloseWindow();
  EXPECT_LT(std::chrono::steady_clock::now() - t0, 2s);
  EXPECT_EQ(open->answers.load(), 2);
  EXPECT_EQ(open->answer, "");
  EXPECT_EQ(kill(dialog, 0), -1);  // ended and reaped
  EXPECT_TRUE(e.background->downs.empty());
  EXPECT_EQ(e.background->doubles, 0);
  EXPECT_EQ(open->downs.size(), 2u);
}
