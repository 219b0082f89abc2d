#include "graphics/IGraphicsX11.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/cursorfont.h>
#include <X11/keysym.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "graphics/IPlatformMapping.h"
#include "graphics/IXDnD.h"
#include "graphics/tgraphics.h"

std::unique_ptr<IGraphics> IGraphics::Create(void* instance, int width, int height, int fps) {
  (void)instance;
  return std::make_unique<IGraphicsX11>(width, height, fps);
}

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kTimerPeriod = std::chrono::milliseconds(1000 / 160);  // 6 ms
constexpr auto kHoverTime = std::chrono::milliseconds(600);
constexpr long kDoubleClickMs = 400;

// X errors on the editor's own connections (a parent window the host has
// already destroyed, a clipboard owner that went away) must never end the
// host: they are recorded and ignored. Errors on other connections go to the
// handler that was there before.
std::mutex gDisplaysLock;
std::map<Display*, bool> gDisplays;  // our connections -> an error was seen
XErrorHandler gPreviousHandler = nullptr;
bool gHandlerInstalled = false;

int EditorXError(Display* d, XErrorEvent* e) {
  XErrorHandler previous = nullptr;
  {
    std::lock_guard<std::mutex> lock(gDisplaysLock);
    auto it = gDisplays.find(d);
    if (it != gDisplays.end()) {
      it->second = true;
      return 0;
    }
    previous = gPreviousHandler;
  }
  return previous ? previous(d, e) : 0;
}

void AdoptDisplay(Display* d) {
  std::lock_guard<std::mutex> lock(gDisplaysLock);
  gDisplays[d] = false;
  if (!gHandlerInstalled) {
    // Installed once and left in place: putting the old one back later could
    // undo a handler the host set in the meantime.
    gPreviousHandler = XSetErrorHandler(EditorXError);
    gHandlerInstalled = true;
  }
}

// Whether an error was seen on the connection since the last call.
bool TakeXError(Display* d) {
  std::lock_guard<std::mutex> lock(gDisplaysLock);
  auto it = gDisplays.find(d);
  if (it == gDisplays.end()) return false;
  const bool seen = it->second;
  it->second = false;
  return seen;
}

void ForgetDisplay(Display* d) {
  std::lock_guard<std::mutex> lock(gDisplaysLock);
  gDisplays.erase(d);
}

// ---------------------------------------------------------------- dialogs

// A dialog program run as a child: argv as given (no shell), standard input
// from /dev/null, standard error discarded, standard output into a pipe. It
// runs in a process group of its own so that ending it also ends whatever it
// started, and with default signal dispositions and an empty signal mask
// whatever the host set for itself.
class DialogProcess {
 public:
  DialogProcess() = default;
  DialogProcess(const DialogProcess&) = delete;
  DialogProcess& operator=(const DialogProcess&) = delete;
  ~DialogProcess() {
    if (mPid > 0) End();
    CloseOutput();
  }

  // False when the program could not be started (not installed).
  bool Start(const std::vector<std::string>& args) {
    if (args.empty()) return false;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attr);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &all);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    std::vector<std::string> copy = args;
    std::vector<char*> argv;
    for (std::string& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int rc = posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    close(fds[1]);
    if (rc != 0) {
      close(fds[0]);
      return false;
    }
    mPid = pid;
    mOut = fds[0];
    fcntl(mOut, F_SETFL, fcntl(mOut, F_GETFL) | O_NONBLOCK);
    return true;
  }

  int Output() const { return mOut; }
  bool Running() const { return mPid > 0; }

  // Reads what is there; false once the output is closed or too long for a
  // path (the program is then ended).
  bool ReadSome() {
    if (mOut < 0) return false;
    char buf[4096];
    for (;;) {
      const ssize_t n = read(mOut, buf, sizeof buf);
      if (n > 0) {
        mText.append(buf, static_cast<size_t>(n));
        if (mText.size() > kMaxOutput) {
          mText.clear();
          End();
          CloseOutput();
          return false;
        }
        continue;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
      CloseOutput();  // end of output or an error
      return false;
    }
  }

  // Whether the program has ended (reaps it without waiting).
  bool Reap() {
    if (mPid <= 0) return true;
    int status = 0;
    const pid_t r = waitpid(mPid, &status, WNOHANG);
    if (r == 0) return false;
    if (r == mPid) {
      mExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    } else if (errno == ECHILD) {
      // The host reaps its children itself (SIGCHLD ignored): the status is
      // lost, and a path on the output is the only answer there is.
      mExitCode = mText.empty() ? 1 : 0;
    } else if (errno == EINTR) {
      return false;
    }
    mPid = -1;
    return true;
  }

  // Ends the program and its children: TERM, then KILL after a second.
  void End() {
    if (mPid <= 0) return;
    kill(-mPid, SIGTERM);
    const auto deadline = Clock::now() + std::chrono::seconds(1);
    while (!Reap() && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (mPid > 0) {
      kill(-mPid, SIGKILL);
      waitpid(mPid, nullptr, 0);
      mPid = -1;
    }
    mExitCode = -1;
  }

  int ExitCode() const { return mExitCode; }
  const std::string& Text() const { return mText; }

 private:
  static constexpr size_t kMaxOutput = 64 * 1024;
  void CloseOutput() {
    if (mOut >= 0) close(mOut);
    mOut = -1;
  }
  pid_t mPid = -1;
  int mOut = -1;
  int mExitCode = -1;
  std::string mText;
};

// Only plain extensions make filters; anything else would be read as filter
// syntax by the dialogs.
bool PlainExtension(const std::string& ext) {
  if (ext.empty() || ext.size() > 16) return false;
  for (const char c : ext)
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))) return false;
  return true;
}

std::string Upper(std::string s) {
  for (char& c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return s;
}

std::string Lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

// A directory to start in, ending in '/', so that the dialogs show its
// contents instead of proposing its name as the file name.
std::string StartFolder(const std::string& directory) {
  if (directory.empty()) return {};
  return directory.back() == '/' ? directory : directory + "/";
}

// A save dialog proposes `name` (a plain file name) in the start folder.
std::string StartPath(const std::string& dir, const std::string& name, bool save) {
  const bool plainName = !name.empty() && name.find('/') == std::string::npos && name != "." && name != "..";
  if (!save || !plainName) return StartFolder(dir);
  return dir.empty() ? name : StartFolder(dir) + name;
}

// No --attach: zenity 3.91 and later reject it (and with it the whole call).
// No --confirm-overwrite: the editor asks before it replaces a file.
std::vector<std::string> ZenityArgs(bool save, const std::string& ext, const std::string& dir,
                                    const std::string& name) {
  std::vector<std::string> a = {"zenity", "--file-selection",
                                save ? "--title=Save File" : "--title=Open File"};
  if (save) a.emplace_back("--save");
  const std::string start = StartPath(dir, name, save);
  if (!start.empty()) a.push_back("--filename=" + start);
  if (PlainExtension(ext)) {
    const std::string lo = Lower(ext), up = Upper(ext);
    a.push_back("--file-filter=" + up + " files (*." + lo + ") | *." + lo + " *." + up);
    a.emplace_back("--file-filter=All files | *");
  }
  return a;
}

std::vector<std::string> KdialogArgs(bool save, const std::string& ext, const std::string& dir,
                                     const std::string& name, unsigned long owner) {
  std::vector<std::string> a = {"kdialog", "--title", save ? "Save File" : "Open File"};
  if (owner) {
    a.emplace_back("--attach");
    a.push_back(std::to_string(owner));
  }
  a.emplace_back(save ? "--getsavefilename" : "--getopenfilename");
  const std::string start = StartPath(dir, name, save);
  if (!start.empty() || PlainExtension(ext)) a.push_back(start.empty() ? std::string(".") : start);
  if (PlainExtension(ext)) {
    const std::string lo = Lower(ext), up = Upper(ext);
    a.push_back("*." + lo + " *." + up + "|" + up + " files (*." + lo + ")");
  }
  return a;
}

bool OnPath(const char* program) {
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "/usr/local/bin:/usr/bin:/bin";
  size_t begin = 0;
  while (begin <= dirs.size()) {
    const size_t end = std::min(dirs.find(':', begin), dirs.size());
    std::string d = dirs.substr(begin, end - begin);
    if (d.empty()) d = ".";
    const std::string full = d + "/" + program;
    struct stat st {};
    if (stat(full.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(full.c_str(), X_OK) == 0) return true;
    begin = end + 1;
  }
  return false;
}

}  // namespace

struct IGraphicsX11::Impl {
  IGraphicsX11* g;
  Display* dpy = nullptr;
  Window root = 0, parent = 0, win = 0;
  Visual* visual = nullptr;
  GC gc = nullptr;
  int depth = 24;
  std::thread thread;
  std::atomic<bool> stop{false};
  int wake[2] = {-1, -1};
  std::atomic<long> ticks{0};
  bool windowGone = false;             // destroyed with its parent before we closed it
  std::atomic<bool> prompting{false};  // a file dialog is up
  int winW = 0, winH = 0;

  Atom aClipboard = 0, aUtf8 = 0, aTargets = 0, aSelProp = 0;
  Atom aXdndAware = 0, aXdndEnter = 0, aXdndPosition = 0, aXdndStatus = 0, aXdndLeave = 0, aXdndDrop = 0,
       aXdndFinished = 0, aXdndSelection = 0, aXdndActionCopy = 0, aXdndTypeList = 0, aUriList = 0;

  // pointer
  float lastX = 0.f, lastY = 0.f;
  Time lastClickTime = 0;
  std::set<unsigned> forwardedKeys;

  // cursor
  bool cursorHidden = false;
  int hiddenX = 0, hiddenY = 0;
  Cursor blankCursor = 0;
  std::map<ICursor, Cursor> cursors;
  ICursor shownCursor = ICursor::Arrow;

  // clipboard
  std::mutex clipLock;
  std::string clipText;

  // drag and drop
  Window dndSource = 0;
  bool dndAccept = false;
  int dndX = 0, dndY = 0;

  // tooltip
  Window tipWin = 0;
  bool tipShown = false;
  Clock::time_point hoverSince{};
  bool hoverPending = false;

  explicit Impl(IGraphicsX11* owner) : g(owner) {}

  float Scale() const { return g->DrawScale(); }

  static IMouseMod Mods(unsigned state) {
    IMouseMod m;
    m.L = state & Button1Mask;
    m.R = state & Button3Mask;
    m.S = state & ShiftMask;
    m.C = state & ControlMask;
    m.A = state & Mod1Mask;
    return m;
  }

  void InternAtoms() {
    aClipboard = XInternAtom(dpy, "CLIPBOARD", False);
    aUtf8 = XInternAtom(dpy, "UTF8_STRING", False);
    aTargets = XInternAtom(dpy, "TARGETS", False);
    aSelProp = XInternAtom(dpy, "VELORUM_SELECTION", False);
    aXdndAware = XInternAtom(dpy, "XdndAware", False);
    aXdndEnter = XInternAtom(dpy, "XdndEnter", False);
    aXdndPosition = XInternAtom(dpy, "XdndPosition", False);
    aXdndStatus = XInternAtom(dpy, "XdndStatus", False);
    aXdndLeave = XInternAtom(dpy, "XdndLeave", False);
    aXdndDrop = XInternAtom(dpy, "XdndDrop", False);
    aXdndFinished = XInternAtom(dpy, "XdndFinished", False);
    aXdndSelection = XInternAtom(dpy, "XdndSelection", False);
    aXdndActionCopy = XInternAtom(dpy, "XdndActionCopy", False);
    aXdndTypeList = XInternAtom(dpy, "XdndTypeList", False);
    aUriList = XInternAtom(dpy, "text/uri-list", False);
  }

  Cursor ShapeCursor(ICursor c) {
    auto it = cursors.find(c);
    if (it != cursors.end()) return it->second;
    unsigned shape = XC_left_ptr;
    switch (c) {
      case ICursor::Hand:
        shape = XC_hand2;
        break;
      case ICursor::SizeWE:
        shape = XC_sb_h_double_arrow;
        break;
      case ICursor::SizeNS:
        shape = XC_sb_v_double_arrow;
        break;
      case ICursor::SizeNWSE:
        shape = XC_bottom_right_corner;
        break;
      case ICursor::IBeam:
        shape = XC_xterm;
        break;
      default:
        break;
    }
    const Cursor cur = XCreateFontCursor(dpy, shape);
    cursors[c] = cur;
    return cur;
  }

  void ApplyCursor(ICursor c) {
    shownCursor = c;
    if (!cursorHidden) XDefineCursor(dpy, win, ShapeCursor(c));
  }

  // ------------------------------------------------------------ painting

  // Copies a region of an ARGB image to a window. On the usual 24-bit
  // true-colour visuals the image's memory is handed to the server as it is;
  // other visuals get their pixels converted one by one.
  void PutImage(Window target, cairo_surface_t* img, int x, int y, int w, int h) {
    cairo_surface_flush(img);
    const int iw = cairo_image_surface_get_width(img), ih = cairo_image_surface_get_height(img);
    x = std::max(0, x);
    y = std::max(0, y);
    w = std::min(w, iw - x);
    h = std::min(h, ih - y);
    if (w <= 0 || h <= 0) return;
    unsigned char* data = cairo_image_surface_get_data(img);
    const int stride = cairo_image_surface_get_stride(img);
    const bool direct = (depth == 24 || depth == 32) && visual->red_mask == 0xff0000 &&
                        visual->green_mask == 0xff00 && visual->blue_mask == 0xff;
    if (direct) {
      XImage* xi =
          XCreateImage(dpy, visual, static_cast<unsigned>(depth), ZPixmap, 0, reinterpret_cast<char*>(data),
                       static_cast<unsigned>(iw), static_cast<unsigned>(ih), 32, stride);
      if (!xi) return;
      xi->byte_order = LSBFirst;  // cairo's pixels are native 32-bit words
      XPutImage(dpy, target, gc, xi, x, y, x, y, static_cast<unsigned>(w), static_cast<unsigned>(h));
      xi->data = nullptr;  // the image's memory stays cairo's
      XDestroyImage(xi);
    } else {
      XImage* xi = XCreateImage(dpy, visual, static_cast<unsigned>(depth), ZPixmap, 0, nullptr,
                                static_cast<unsigned>(w), static_cast<unsigned>(h), 32, 0);
      if (!xi) return;
      xi->data = static_cast<char*>(malloc(static_cast<size_t>(xi->bytes_per_line) * static_cast<size_t>(h)));
      auto channel = [](unsigned long mask, unsigned v) {
        if (!mask) return 0ul;
        int shift = 0;
        while (!(mask & 1ul)) {
          mask >>= 1;
          ++shift;
        }
        int bits = 0;
        while (mask & 1ul) {
          mask >>= 1;
          ++bits;
        }
        return static_cast<unsigned long>(v >> (8 - std::min(bits, 8))) << shift;
      };
      for (int j = 0; j < h; ++j) {
        const auto* row = reinterpret_cast<const uint32_t*>(data + (y + j) * stride);
        for (int i = 0; i < w; ++i) {
          const uint32_t p = row[x + i];
          XPutPixel(xi, i, j,
                    channel(visual->red_mask, (p >> 16) & 0xff) |
                        channel(visual->green_mask, (p >> 8) & 0xff) | channel(visual->blue_mask, p & 0xff));
        }
      }
      XPutImage(dpy, target, gc, xi, 0, 0, x, y, static_cast<unsigned>(w), static_cast<unsigned>(h));
      XDestroyImage(xi);
    }
  }

  void Blit(const IRECT& units) {
    cairo_surface_t* back = g->BackBuffer();
    if (!back || windowGone) return;
    const IRECT px = units.Scaled(Scale()).Outset();
    PutImage(win, back, static_cast<int>(px.L), static_cast<int>(px.T), static_cast<int>(px.W()),
             static_cast<int>(px.H()));
    XFlush(dpy);
  }

  void Tick() {
    ++ticks;
    if (hoverPending && !tipShown && Clock::now() - hoverSince >= kHoverTime) {
      hoverPending = false;
      ShowTooltip();
    }
    IRECT r;
    if (g->IsDirty(r)) {
      g->Draw(r);
      Blit(r);
    }
  }

  // ------------------------------------------------------------ tooltip

  void ShowTooltip() {
    const std::string text = g->GetTooltipAt(g->GetMouseOver());
    if (text.empty() || !g->TooltipsEnabled() || visual != DefaultVisual(dpy, DefaultScreen(dpy))) return;
    Window r, c;
    int rx = 0, ry = 0, wx = 0, wy = 0;
    unsigned mask = 0;
    XQueryPointer(dpy, win, &r, &c, &rx, &ry, &wx, &wy, &mask);
    const double s = Scale();
    const double size = 11.0;
    cairo_surface_t* probe = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
    double tw = 0.0;
    {
      tgraphics m(probe, 1, 1, 1.0);
      m.set_font("OpenSans-Regular", size);
      tw = m.text_extents(text).x_advance;
    }
    cairo_surface_destroy(probe);
    const int w = static_cast<int>(std::ceil((tw + 12.0) * s)), h = static_cast<int>(std::ceil(22.0 * s));
    XSetWindowAttributes a{};
    a.override_redirect = True;
    a.background_pixel = 0xffffe1;
    a.border_pixel = 0x000000;
    a.event_mask = ExposureMask;
    tipWin = XCreateWindow(dpy, root, rx + 12, ry + 18, static_cast<unsigned>(w), static_cast<unsigned>(h), 1,
                           CopyFromParent, InputOutput, CopyFromParent,
                           CWOverrideRedirect | CWBackPixel | CWBorderPixel | CWEventMask, &a);
    XMapRaised(dpy, tipWin);
    XSync(dpy, False);
    cairo_surface_t* ts = cairo_image_surface_create(CAIRO_FORMAT_RGB24, w, h);
    {
      tgraphics t(ts, w / s, h / s, s);
      t.set_color(1.0, 1.0, 0.88);
      t.paint();
      t.draw_text(text, {6.0, 0.0, tw + 6.0, 22.0}, "OpenSans-Regular", size, {0, 0, 0, 1});
    }
    PutImage(tipWin, ts, 0, 0, w, h);
    cairo_surface_destroy(ts);
    XFlush(dpy);
    tipShown = true;
  }

  void HideTooltip() {
    hoverPending = false;
    if (tipWin) XDestroyWindow(dpy, tipWin);
    tipWin = 0;
    tipShown = false;
  }

  // ------------------------------------------------------------ events

  void OnButtonPress(const XButtonEvent& e) {
    HideTooltip();
    const float x = e.x / Scale(), y = e.y / Scale();
    IMouseMod mod = Mods(e.state);
    if (e.button == Button4 || e.button == Button5) {
      if (!g->IsTextEntryOpen()) g->OnMouseWheel(x, y, mod, e.button == Button4 ? 1.f : -1.f);
      return;
    }
    if (e.button > Button3) return;
    mod.L = e.button == Button1;
    mod.R = e.button == Button3;
    if (!g->IsTextEntryOpen()) {
      // Made a round trip: the server must have moved the focus before the
      // click can open a text entry, or the first keys typed into the entry
      // could still go to the window that had the focus.
      XSetInputFocus(dpy, win, RevertToParent, e.time);
      XSync(dpy, False);
    }
    lastX = x;
    lastY = y;
    if (e.button == Button1 && lastClickTime && e.time - lastClickTime < kDoubleClickMs &&
        !g->IsTextEntryOpen()) {
      lastClickTime = 0;
      g->OnMouseDblClick(x, y, mod);
      return;
    }
    if (e.button == Button1) lastClickTime = e.time;
    g->OnMouseDown(x, y, mod);
  }

  void OnButtonRelease(const XButtonEvent& e) {
    if (e.button > Button3) return;
    IMouseMod mod = Mods(e.state);
    mod.L = e.button == Button1;
    mod.R = e.button == Button3;
    g->OnMouseUp(e.x / Scale(), e.y / Scale(), mod);
  }

  void OnMotion(XMotionEvent e) {
    XEvent next;
    while (XCheckTypedWindowEvent(dpy, win, MotionNotify, &next)) e = next.xmotion;  // newest only
    const float x = e.x / Scale(), y = e.y / Scale();
    const IMouseMod mod = Mods(e.state);
    if (e.state & (Button1Mask | Button2Mask | Button3Mask)) {
      g->OnMouseDrag(x, y, x - lastX, y - lastY, mod);
    } else if (g->OnMouseOver(x, y, mod)) {
      if (tipShown) HideTooltip();
      ApplyCursor(g->GetCursorAt(g->GetMouseOver()));
      hoverPending = g->TooltipsEnabled() && g->GetMouseOver() >= 0;
      hoverSince = Clock::now();
    }
    lastX = x;
    lastY = y;
  }

  Window TopLevel() {
    // The window just below the root on the way up from ours: the host's main window.
    Window w = parent;
    for (int guard = 0; guard < 64 && w && w != root; ++guard) {
      Window r = 0, p = 0, *kids = nullptr;
      unsigned n = 0;
      if (!XQueryTree(dpy, w, &r, &p, &kids, &n)) break;
      if (kids) XFree(kids);
      if (p == r || p == 0) return w;
      w = p;
    }
    return w;
  }

  void Forward(XKeyEvent e) {
    const Window top = TopLevel();
    if (!top || top == root) return;
    e.window = top;
    e.send_event = True;
    XEvent ev;
    ev.xkey = e;
    XSendEvent(dpy, top, False, e.type == KeyPress ? KeyPressMask : KeyReleaseMask, &ev);
    XFlush(dpy);
  }

  void OnKey(XKeyEvent e) {
    char buf[32] = {};
    KeySym ks = NoSymbol;
    const int n = XLookupString(&e, buf, sizeof(buf) - 1, &ks, nullptr);
    if (e.type == KeyRelease) {
      if (forwardedKeys.erase(e.keycode)) Forward(e);
      return;
    }
    if (g->IsTextEntryOpen()) {
      if (ks == XK_Return || ks == XK_KP_Enter)
        g->CloseTextEntry(true);
      else if (ks == XK_Escape)
        g->CloseTextEntry(false);
      else if (ks == XK_BackSpace)
        g->OnTextEntryBackspace();
      else if (n > 0 && static_cast<unsigned char>(buf[0]) >= 32 && buf[0] != 127)
        g->OnTextEntryChar(std::string(buf, n));
      return;
    }
    const int key = iplatform::KeyCodeFromKeySym(ks);
    if (key != KEY_NONE && g->OnKeyDown(lastX, lastY, key)) return;
    forwardedKeys.insert(e.keycode);
    Forward(e);
  }

  void OnSelectionRequest(const XSelectionRequestEvent& r) {
    XSelectionEvent reply{};
    reply.type = SelectionNotify;
    reply.display = r.display;
    reply.requestor = r.requestor;
    reply.selection = r.selection;
    reply.target = r.target;
    reply.time = r.time;
    reply.property = None;
    const Atom prop = r.property != None ? r.property : r.target;
    if (r.selection == aClipboard) {
      if (r.target == aTargets) {
        const Atom targets[] = {aTargets, aUtf8, XA_STRING};
        XChangeProperty(dpy, r.requestor, prop, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(targets), 3);
        reply.property = prop;
      } else if (r.target == aUtf8 || r.target == XA_STRING) {
        std::lock_guard<std::mutex> lock(clipLock);
        XChangeProperty(dpy, r.requestor, prop, r.target, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(clipText.data()),
                        static_cast<int>(clipText.size()));
        reply.property = prop;
      }
    }
    XEvent ev;
    ev.xselection = reply;
    XSendEvent(dpy, r.requestor, False, NoEventMask, &ev);
    XFlush(dpy);
  }

  void SendXdnd(Window to, Atom type, long l1, long l2, long l3, long l4) {
    XEvent ev{};
    ev.xclient.type = ClientMessage;
    ev.xclient.display = dpy;
    ev.xclient.window = to;
    ev.xclient.message_type = type;
    ev.xclient.format = 32;
    ev.xclient.data.l[0] = static_cast<long>(win);
    ev.xclient.data.l[1] = l1;
    ev.xclient.data.l[2] = l2;
    ev.xclient.data.l[3] = l3;
    ev.xclient.data.l[4] = l4;
    XSendEvent(dpy, to, False, NoEventMask, &ev);
    XFlush(dpy);
  }

  bool SourceOffersUriList(const XClientMessageEvent& e) {
    if (e.data.l[1] & 1) {
      Atom type = 0;
      int format = 0;
      unsigned long count = 0, after = 0;
      unsigned char* data = nullptr;
      bool found = false;
      if (XGetWindowProperty(dpy, static_cast<Window>(e.data.l[0]), aXdndTypeList, 0, 1024, False, XA_ATOM,
                             &type, &format, &count, &after, &data) == Success &&
          data) {
        const Atom* atoms = reinterpret_cast<const Atom*>(data);  // format 32 is returned as longs
        for (unsigned long i = 0; i < count; ++i) found = found || atoms[i] == aUriList;
      }
      if (data) XFree(data);
      return found;
    }
    for (int i = 2; i <= 4; ++i)
      if (static_cast<Atom>(e.data.l[i]) == aUriList) return true;
    return false;
  }

  void OnClientMessage(const XClientMessageEvent& e) {
    if (e.message_type == aXdndEnter) {
      dndSource = static_cast<Window>(e.data.l[0]);
      dndAccept = g->DragAndDropEnabled() && SourceOffersUriList(e);
    } else if (e.message_type == aXdndPosition) {
      dndSource = static_cast<Window>(e.data.l[0]);
      const int rx = static_cast<int>((e.data.l[2] >> 16) & 0xffff),
                ry = static_cast<int>(e.data.l[2] & 0xffff);
      Window child = 0;
      XTranslateCoordinates(dpy, root, win, rx, ry, &dndX, &dndY, &child);
      SendXdnd(dndSource, aXdndStatus, dndAccept ? 3 : 2, 0, 0,
               dndAccept ? static_cast<long>(aXdndActionCopy) : 0);
    } else if (e.message_type == aXdndLeave) {
      dndSource = 0;
      dndAccept = false;
    } else if (e.message_type == aXdndDrop) {
      dndSource = static_cast<Window>(e.data.l[0]);
      if (dndAccept)
        XConvertSelection(dpy, aXdndSelection, aUriList, aSelProp, win, static_cast<Time>(e.data.l[2]));
      else
        SendXdnd(dndSource, aXdndFinished, 0, 0, 0, 0);
    }
  }

  void OnSelectionNotify(const XSelectionEvent& e) {
    if (e.selection != aXdndSelection) return;
    bool delivered = false;
    if (e.property != None) {
      Atom type = 0;
      int format = 0;
      unsigned long count = 0, after = 0;
      unsigned char* data = nullptr;
      if (XGetWindowProperty(dpy, win, e.property, 0, 1 << 20, True, AnyPropertyType, &type, &format, &count,
                             &after, &data) == Success &&
          data && format == 8) {
        const std::string list(reinterpret_cast<const char*>(data), count);
        const std::vector<std::string> paths = ixdnd::PathsFromUriList(list);
        std::vector<int> dirs;
        for (const auto& p : paths) dirs.push_back(ixdnd::IsDirectory(p) ? 1 : 0);
        if (!paths.empty()) delivered = g->OnDrop(paths, dirs, dndX / Scale(), dndY / Scale());
      }
      if (data) XFree(data);
    }
    if (dndSource)
      SendXdnd(dndSource, aXdndFinished, delivered ? 1 : 0,
               delivered ? static_cast<long>(aXdndActionCopy) : 0, 0, 0);
    dndSource = 0;
  }

  void Handle(XEvent& e) {
    switch (e.type) {
      case Expose:
        if (e.xexpose.window == win) {
          const float s = Scale();
          const IRECT r =
              IRECT::FromXYWH(e.xexpose.x / s, e.xexpose.y / s, e.xexpose.width / s, e.xexpose.height / s);
          if (g->BackBuffer())
            Blit(r);
          else
            g->SetAllControlsDirty();
        }
        break;
      case ConfigureNotify:
        if (e.xconfigure.window == win && (e.xconfigure.width != winW || e.xconfigure.height != winH)) {
          winW = e.xconfigure.width;
          winH = e.xconfigure.height;
          g->SetAllControlsDirty();
        }
        break;
      case DestroyNotify:
        if (e.xdestroywindow.window == win) windowGone = true;
        break;
      case ButtonPress:
        OnButtonPress(e.xbutton);
        break;
      case ButtonRelease:
        OnButtonRelease(e.xbutton);
        break;
      case MotionNotify:
        OnMotion(e.xmotion);
        break;
      case LeaveNotify:
        if (e.xcrossing.mode == NotifyNormal && !(e.xcrossing.state & (Button1Mask | Button3Mask))) {
          HideTooltip();
          g->OnMouseOut();
        }
        break;
      case KeyPress:
      case KeyRelease:
        OnKey(e.xkey);
        break;
      case FocusOut:
        if (e.xfocus.window == win && e.xfocus.mode == NotifyNormal) g->OnFocusLost();
        break;
      case SelectionRequest:
        OnSelectionRequest(e.xselectionrequest);
        break;
      case SelectionClear: {
        std::lock_guard<std::mutex> lock(clipLock);
        clipText.clear();
        break;
      }
      case SelectionNotify:
        OnSelectionNotify(e.xselection);
        break;
      case ClientMessage:
        OnClientMessage(e.xclient);
        break;
      default:
        break;
    }
  }

  // Waits for a dialog's answer. With `modal` (on the window's own thread)
  // the window goes on drawing and answering the server meanwhile, and drops
  // the user's presses, moves and key presses; a button or key release that
  // ends a gesture begun before the dialog still arrives. Closing the window
  // ends the dialog; false then.
  bool WaitForDialog(DialogProcess& dialog, bool modal) {
    auto next = Clock::now() + kTimerPeriod;
    bool outputOpen = true;
    for (;;) {
      if (modal && stop) {
        dialog.End();
        return false;
      }
      if (!outputOpen && dialog.Reap()) return true;
      pollfd fds[3];
      nfds_t n = 0;
      const int outIndex = outputOpen ? static_cast<int>(n) : -1;
      if (outputOpen) fds[n++] = {dialog.Output(), POLLIN, 0};
      if (modal) {
        fds[n++] = {ConnectionNumber(dpy), POLLIN, 0};
        if (wake[0] >= 0) fds[n++] = {wake[0], POLLIN, 0};
      }
      int timeout = outputOpen ? 200 : 5;
      if (modal) {
        const auto toTick =
            std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
        timeout = std::clamp(static_cast<int>(toTick), 0, timeout);
        if (XPending(dpy)) timeout = 0;
      }
      for (nfds_t i = 0; i < n; ++i) fds[i].revents = 0;
      poll(fds, n, timeout);
      if (outIndex >= 0 && fds[outIndex].revents) outputOpen = dialog.ReadSome();
      if (!outputOpen && !dialog.Running()) return true;  // ended for a too-long answer
      if (!modal) continue;
      for (nfds_t i = 1; i < n; ++i)
        if (fds[i].fd == wake[0] && (fds[i].revents & POLLIN)) DrainWakePipe();
      HandlePendingEvents(true);
      TickWhenDue(next);
    }
  }

  void DrainWakePipe() {
    char b[16];
    while (read(wake[0], b, sizeof b) == static_cast<ssize_t>(sizeof b)) {
    }
  }

  // Handles the queued events; behind a modal dialog presses, motion and key
  // presses are dropped.
  void HandlePendingEvents(bool modal) {
    while (XPending(dpy)) {
      XEvent e;
      XNextEvent(dpy, &e);
      if (modal && (e.type == ButtonPress || e.type == MotionNotify || e.type == KeyPress)) continue;
      Handle(e);
    }
  }

  // The window timer: a tick when `next` has come, and the next one a period
  // later (or a period from now after a stall).
  void TickWhenDue(Clock::time_point& next) {
    const auto now = Clock::now();
    if (now < next) return;
    next += kTimerPeriod;
    if (next < now) next = now + kTimerPeriod;
    Tick();
  }

  void Run() {
    auto next = Clock::now() + kTimerPeriod;
    pollfd fds[2] = {{ConnectionNumber(dpy), POLLIN, 0}, {wake[0], POLLIN, 0}};
    while (!stop) {
      const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
      if (!XPending(dpy)) {
        fds[0].revents = fds[1].revents = 0;
        poll(fds, 2, wait > 0 ? static_cast<int>(wait) : 0);
        if (fds[1].revents & POLLIN) DrainWakePipe();
      }
      if (stop) break;
      // An exception would end the thread and the host with it: the failed
      // event or tick is dropped and the loop goes on.
      try {
        std::lock_guard<std::recursive_mutex> lock(g->GetLock());
        HandlePendingEvents(false);
        TickWhenDue(next);
      } catch (...) {
        next = Clock::now() + kTimerPeriod;
      }
    }
  }
};

IGraphicsX11::IGraphicsX11(int width, int height, int fps)
    : IGraphics(width, height, fps), mImpl(std::make_unique<Impl>(this)) {}

IGraphicsX11::~IGraphicsX11() {
  CloseWindow();
}

bool IGraphicsX11::WindowIsOpen() const {
  return mImpl->win != 0;
}
void* IGraphicsX11::GetWindow() const {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(mImpl->win));
}
long IGraphicsX11::TimerTicks() const {
  return mImpl->ticks;
}

void* IGraphicsX11::OpenWindow(void* parentHandle) {
  Impl& m = *mImpl;
  int x = 0, y = 0;
  if (m.win) {
    // A second open takes the place of the first window.
    XWindowAttributes a;
    if (XGetWindowAttributes(m.dpy, m.win, &a)) {
      x = a.x;
      y = a.y;
    }
    CloseWindow();
  }
  XInitThreads();
  m.dpy = XOpenDisplay(nullptr);
  if (!m.dpy) return nullptr;
  m.InternAtoms();
  m.root = DefaultRootWindow(m.dpy);
  m.parent = parentHandle ? static_cast<Window>(reinterpret_cast<uintptr_t>(parentHandle)) : m.root;

  const double dpi = iplatform::XftDpiFromResources(XResourceManagerString(m.dpy));
  mScreenScale = iplatform::ScreenScaleFromDpi(dpi > 0.0 ? dpi : 96.0, dpi > 0.0 ? dpi : 96.0);
  m.winW = WindowWidth();
  m.winH = WindowHeight();

  XSetWindowAttributes attrs{};
  attrs.background_pixmap = None;
  attrs.bit_gravity = NorthWestGravity;
  attrs.event_mask = ExposureMask | StructureNotifyMask | ButtonPressMask | ButtonReleaseMask |
                     PointerMotionMask | LeaveWindowMask | EnterWindowMask | KeyPressMask | KeyReleaseMask |
                     FocusChangeMask;
  AdoptDisplay(m.dpy);
  // The child shares the parent's visual and depth.
  XWindowAttributes pa{};
  bool failed = true;
  if (XGetWindowAttributes(m.dpy, m.parent, &pa) && pa.visual && !TakeXError(m.dpy)) {
    m.visual = pa.visual;
    m.depth = pa.depth;
    failed = false;
  }
  if (!failed)
    m.win = XCreateWindow(m.dpy, m.parent, x, y, static_cast<unsigned>(m.winW), static_cast<unsigned>(m.winH),
                          0, CopyFromParent, InputOutput, CopyFromParent,
                          CWBackPixmap | CWBitGravity | CWEventMask, &attrs);
  XSync(m.dpy, False);
  failed = failed || TakeXError(m.dpy) || !m.win;
  if (failed) {
    ForgetDisplay(m.dpy);
    XCloseDisplay(m.dpy);
    m.dpy = nullptr;
    m.win = 0;
    return nullptr;
  }
  if (DragAndDropEnabled()) {
    const Atom version = 5;
    XChangeProperty(m.dpy, m.win, m.aXdndAware, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&version), 1);
  }
  char blank[1] = {0};
  Pixmap bm = XCreateBitmapFromData(m.dpy, m.win, blank, 1, 1);
  XColor black{};
  m.blankCursor = XCreatePixmapCursor(m.dpy, bm, bm, &black, &black, 0, 0);
  XFreePixmap(m.dpy, bm);
  m.ApplyCursor(ICursor::Arrow);
  XMapWindow(m.dpy, m.win);
  m.gc = XCreateGC(m.dpy, m.win, 0, nullptr);
  XFlush(m.dpy);

  NotifyWindowOpened();
  if (pipe(m.wake) != 0) m.wake[0] = m.wake[1] = -1;
  m.stop = false;
  m.thread = std::thread([&m] { m.Run(); });
  return GetWindow();
}

void IGraphicsX11::CloseWindow() {
  Impl& m = *mImpl;
  if (!m.win) return;
  m.stop = true;
  if (m.wake[1] >= 0) {
    const char c = 1;
    [[maybe_unused]] const ssize_t n = write(m.wake[1], &c, 1);
  }
  if (m.thread.joinable()) m.thread.join();
  std::lock_guard<std::recursive_mutex> lock(GetLock());
  CloseTextEntry(false);
  m.HideTooltip();
  if (m.cursorHidden) ShowMouseCursor();
  if (m.gc) XFreeGC(m.dpy, m.gc);
  m.gc = nullptr;
  if (!m.windowGone) XDestroyWindow(m.dpy, m.win);
  XSync(m.dpy, False);
  m.win = 0;
  m.windowGone = false;
  for (auto& [shape, cur] : m.cursors) XFreeCursor(m.dpy, cur);
  m.cursors.clear();
  if (m.blankCursor) XFreeCursor(m.dpy, m.blankCursor);
  m.blankCursor = 0;
  XSync(m.dpy, False);
  ForgetDisplay(m.dpy);
  XCloseDisplay(m.dpy);
  m.dpy = nullptr;
  for (int& fd : m.wake) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
  ReleaseBackBuffer();
}

void IGraphicsX11::HideMouseCursor() {
  Impl& m = *mImpl;
  std::lock_guard<std::recursive_mutex> lock(GetLock());
  if (!m.win || m.cursorHidden) return;
  Window r, c;
  int wx = 0, wy = 0;
  unsigned mask = 0;
  XQueryPointer(m.dpy, m.root, &r, &c, &m.hiddenX, &m.hiddenY, &wx, &wy, &mask);
  m.cursorHidden = true;
  XDefineCursor(m.dpy, m.win, m.blankCursor);
  XFlush(m.dpy);
}

void IGraphicsX11::ShowMouseCursor() {
  Impl& m = *mImpl;
  std::lock_guard<std::recursive_mutex> lock(GetLock());
  if (!m.win || !m.cursorHidden) return;
  m.cursorHidden = false;
  XWarpPointer(m.dpy, None, m.root, 0, 0, 0, 0, m.hiddenX, m.hiddenY);
  XDefineCursor(m.dpy, m.win, m.ShapeCursor(m.shownCursor));
  XSync(m.dpy, False);
}

bool IGraphicsX11::SetTextInClipboard(const std::string& text) {
  Impl& m = *mImpl;
  if (!m.win) return false;
  {
    std::lock_guard<std::mutex> lock(m.clipLock);
    m.clipText = text;
  }
  XSetSelectionOwner(m.dpy, m.aClipboard, m.win, CurrentTime);
  const bool owner = XGetSelectionOwner(m.dpy, m.aClipboard) == m.win;
  XFlush(m.dpy);
  return owner;
}

bool IGraphicsX11::GetTextFromClipboard(std::string& text) {
  Impl& m = *mImpl;
  text.clear();
  if (!m.win) return false;
  if (XGetSelectionOwner(m.dpy, m.aClipboard) == m.win) {
    std::lock_guard<std::mutex> lock(m.clipLock);
    text = m.clipText;
    return true;
  }
  // Ask the owner through a connection of our own, so that the answer does
  // not land in the window's event loop.
  Display* d = XOpenDisplay(DisplayString(m.dpy));
  if (!d) return false;
  AdoptDisplay(d);
  const Atom clip = XInternAtom(d, "CLIPBOARD", False), utf8 = XInternAtom(d, "UTF8_STRING", False),
             prop = XInternAtom(d, "VELORUM_SELECTION", False);
  const Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
  XConvertSelection(d, clip, utf8, prop, w, CurrentTime);
  XFlush(d);
  bool ok = false;
  const auto deadline = Clock::now() + std::chrono::milliseconds(1000);
  while (Clock::now() < deadline) {
    XEvent e;
    if (XCheckTypedWindowEvent(d, w, SelectionNotify, &e)) {
      if (e.xselection.property != None) {
        Atom type = 0;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(d, w, prop, 0, 1 << 20, True, AnyPropertyType, &type, &format, &count, &after,
                               &data) == Success &&
            data && type == utf8 && format == 8) {
          text.assign(reinterpret_cast<const char*>(data), count);
          ok = true;
        }
        if (data) XFree(data);
      }
      break;
    }
    pollfd fd{ConnectionNumber(d), POLLIN, 0};
    poll(&fd, 1, 10);
  }
  XDestroyWindow(d, w);
  XSync(d, False);
  ForgetDisplay(d);
  XCloseDisplay(d);
  return ok;
}

void IGraphicsX11::ResizeWindow(int width, int height) {
  Impl& m = *mImpl;
  if (!m.win || width <= 0 || height <= 0) return;
  std::lock_guard<std::recursive_mutex> lock(GetLock());
  if (width == m.winW && height == m.winH) return;
  const int dw = width - m.winW, dh = height - m.winH;
  XResizeWindow(m.dpy, m.win, static_cast<unsigned>(width), static_cast<unsigned>(height));
  m.winW = width;
  m.winH = height;
  // The host's windows around the editor grow by the same amount: at most two
  // levels up, and never a top-level window (the window manager owns those).
  Window w = m.parent;
  for (int level = 0; level < 2 && w && w != m.root; ++level) {
    Window r = 0, p = 0, *kids = nullptr;
    unsigned n = 0;
    if (!XQueryTree(m.dpy, w, &r, &p, &kids, &n)) break;
    if (kids) XFree(kids);
    if (p == r) break;
    XWindowAttributes a;
    if (!XGetWindowAttributes(m.dpy, w, &a)) break;
    XResizeWindow(m.dpy, w, static_cast<unsigned>(std::max(1, a.width + dw)),
                  static_cast<unsigned>(std::max(1, a.height + dh)));
    w = p;
  }
  SetAllControlsDirty();
  XFlush(m.dpy);
}

bool IGraphicsX11::TooltipShown() const {
  std::lock_guard<std::recursive_mutex> lock(const_cast<IGraphicsX11*>(this)->GetLock());
  return mImpl->tipShown;
}

static bool SpawnXdgOpen(const std::string& arg) {
  if (arg.empty()) return false;
  pid_t pid = 0;
  char prog[] = "xdg-open";
  std::string a = arg;
  char* argv[] = {prog, a.data(), nullptr};
  if (posix_spawnp(&pid, prog, nullptr, nullptr, argv, environ) != 0) return false;
  // xdg-open hands over to the desktop's opener and returns at once.
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool IGraphicsX11::OpenFolderWithItem(const std::string& path) {
  const auto slash = path.find_last_of('/');
  return SpawnXdgOpen(slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash));
}

bool IGraphicsX11::OpenURL(const std::string& url) {
  return SpawnXdgOpen(url);
}

bool IGraphicsX11::FileDialogAvailable() {
  return OnPath("zenity") || OnPath("kdialog");
}

std::string IGraphicsX11::PromptForFile(bool save, const std::string& extension, const std::string& directory,
                                        const std::string& fileName) {
  Impl& m = *mImpl;
  // One dialog at a time: a second request while one is up is a cancel.
  if (m.prompting.exchange(true)) return {};
  const bool modal = m.win && m.thread.joinable() && m.thread.get_id() == std::this_thread::get_id();
  unsigned long owner = 0;
  if (m.win && modal) {
    const Window top = m.TopLevel();
    if (top && top != m.root) owner = top;
  }
  std::string chosen;
  for (int tool = 0; tool < 2; ++tool) {
    DialogProcess dialog;
    if (!dialog.Start(tool == 0 ? ZenityArgs(save, extension, directory, fileName)
                                : KdialogArgs(save, extension, directory, fileName, owner)))
      continue;                                  // not installed: the next one
    if (!m.WaitForDialog(dialog, modal)) break;  // the window closed
    // 127: a wrapper on PATH that found no program to run.
    if (dialog.ExitCode() == 127 && dialog.Text().empty()) continue;
    if (dialog.ExitCode() == 0) {
      chosen = dialog.Text();
      // The answer is the path and a newline. A file name may hold anything
      // but '\0' and '/', newlines too, so only the final newline goes.
      if (!chosen.empty() && chosen.back() == '\n') chosen.pop_back();
      if (chosen.find('\0') != std::string::npos || chosen.empty() || chosen[0] != '/') chosen.clear();
    }
    break;
  }
  m.prompting = false;
  return chosen;
}
