// The Linux crash reporter: signal handlers chained in front of the host's.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>

#include "plugin/CrashReporter.h"
#include "plugin/MinidumpWriter.h"
#include "presets/GlobalSettings.h"

namespace velorum {
namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr int kSignalCount = sizeof(kSignals) / sizeof(kSignals[0]);
constexpr size_t kAltStackBytes = 64 * 1024;
constexpr size_t kAbortScanBytes = 16 * 1024;

struct Range {
  uintptr_t begin = 0, end = 0;
};
// The executable segments of this module.
Range gCode[8];
int gCodeCount = 0;
char gFolder[2048];  // "<settings>/Crash Reports"
struct sigaction gPrevious[kSignalCount];
std::atomic<bool> gInstalled{false};
std::atomic<bool> gReporting{false};
std::mutex gInstallLock;

bool InModule(uintptr_t address) {
  for (int i = 0; i < gCodeCount; ++i)
    if (address >= gCode[i].begin && address < gCode[i].end) return true;
  return false;
}

int FindCode(dl_phdr_info* info, size_t, void*) {
  const auto self = reinterpret_cast<uintptr_t>(&InModule);
  Range found[8];
  int count = 0;
  bool mine = false;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& ph = info->dlpi_phdr[i];
    if (ph.p_type != PT_LOAD || !(ph.p_flags & PF_X) || count == 8) continue;
    const uintptr_t begin = info->dlpi_addr + ph.p_vaddr;
    found[count++] = {begin, begin + ph.p_memsz};
    mine = mine || (self >= begin && self < begin + ph.p_memsz);
  }
  if (!mine) return 0;
  memcpy(gCode, found, sizeof(found));
  gCodeCount = count;
  return 1;
}

// abort() reaches the handler from the C library: the fault is the plug-in's
// when a return address into its code lies near the top of the stack.
// Reads raw stack words, sanitizer red zones included.
__attribute__((no_sanitize("address", "thread"))) bool AbortFromModule(const ucontext_t& uc) {
  const uintptr_t sp = uintptr_t(uc.uc_mcontext.gregs[REG_RSP]);
  uintptr_t end = minidump::MappingEnd(sp);
  if (end == 0) return false;
  if (end - sp > kAbortScanBytes) end = sp + kAbortScanBytes;
  for (uintptr_t p = (sp + 7) & ~uintptr_t(7); p + 8 <= end; p += 8)
    if (InModule(*reinterpret_cast<const uintptr_t*>(p))) return true;
  return false;
}

// "<folder>/Velorum-<unix seconds>-<pid>.dmp", built without allocation.
void ReportPath(char* out, size_t size) {
  auto append = [&](const char* s) {
    const size_t used = strlen(out);
    strncat(out, s, size - used - 1);
  };
  auto number = [&](unsigned long long v) {
    char digits[24];
    int n = 0;
    do digits[n++] = char('0' + v % 10);
    while ((v /= 10) > 0);
    char text[24];
    for (int i = 0; i < n; ++i) text[i] = digits[n - 1 - i];
    text[n] = '\0';
    append(text);
  };
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  out[0] = '\0';
  append(gFolder);
  append("/Velorum-");
  number((unsigned long long)now.tv_sec);
  append("-");
  number((unsigned long long)getpid());
  append(".dmp");
}

void WriteReport(int signal, siginfo_t* info, ucontext_t* uc) {
  static char path[sizeof(gFolder) + 64];
  mkdir(gFolder, 0700);
  ReportPath(path, sizeof(path));
  const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return;
  minidump::Fault fault;
  fault.signal = signal;
  fault.info = info;
  fault.context = uc;
  fault.threadId = uint32_t(syscall(SYS_gettid));
  const bool ok = minidump::Write(fd, fault);
  close(fd);
  if (!ok) unlink(path);  // half a report helps no one
}

int SignalIndex(int signal) {
  for (int i = 0; i < kSignalCount; ++i)
    if (kSignals[i] == signal) return i;
  return -1;
}

void RestorePrevious() {
  for (int i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &gPrevious[i], nullptr);
}

void OnSignal(int signal, siginfo_t* info, void* context) {
  const int saved = errno;
  auto* uc = static_cast<ucontext_t*>(context);
  const int index = SignalIndex(signal);
  const bool sent = info->si_code <= 0;  // kill, raise, abort: not an instruction fault
  const uintptr_t pc = uintptr_t(uc->uc_mcontext.gregs[REG_RIP]);
  const bool ours = InModule(pc) || (signal == SIGABRT && sent && AbortFromModule(*uc));
  if (ours && !gReporting.exchange(true)) WriteReport(signal, info, uc);
  const struct sigaction& previous = gPrevious[index];
  if (!ours && (previous.sa_flags & SA_SIGINFO) && previous.sa_sigaction) {
    // Someone else's fault: the previous handler sees it as if alone.
    previous.sa_sigaction(signal, info, context);
    errno = saved;
    return;
  }
  if (!ours && !(previous.sa_flags & SA_SIGINFO) && previous.sa_handler != SIG_DFL &&
      previous.sa_handler != SIG_IGN) {
    previous.sa_handler(signal);
    errno = saved;
    return;
  }
  // Back to the handlers before ours. A faulting instruction faults again on
  // return and reaches them with its own context; a sent signal is sent again
  // (it stays pending until this handler returns).
  RestorePrevious();
  gInstalled = false;
  if (sent) syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), signal);
  errno = saved;
}

thread_local bool tGuarded = false;

}  // namespace

void GuardCrashThread() {
  if (tGuarded) return;
  tGuarded = true;
  stack_t current{};
  if (sigaltstack(nullptr, &current) != 0 || !(current.ss_flags & SS_DISABLE)) return;  // the thread has one
  void* memory = mmap(nullptr, kAltStackBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return;
  stack_t stack{};
  stack.ss_sp = memory;
  stack.ss_size = kAltStackBytes;
  // Kept for the thread's life: a host thread outlives any one call into the
  // plug-in, and the stack must stay valid while the handler may run.
  if (sigaltstack(&stack, nullptr) != 0) munmap(memory, kAltStackBytes);
}

void InstallCrashReporter() {
  GuardCrashThread();
  std::lock_guard<std::mutex> guard(gInstallLock);
  if (gInstalled) return;
  if (gCodeCount == 0 && dl_iterate_phdr(&FindCode, nullptr) == 0) return;
  const std::string folder = CrashReportFolder(SettingsFolder(false));
  if (folder.size() + 1 > sizeof(gFolder)) return;
  memcpy(gFolder, folder.c_str(), folder.size() + 1);
  minidump::Prepare();
  struct sigaction action {};
  action.sa_sigaction = &OnSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigfillset(&action.sa_mask);
  for (int i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &action, &gPrevious[i]);
  gInstalled = true;
}

void UninstallCrashReporter() {
  std::lock_guard<std::mutex> guard(gInstallLock);
  if (!gInstalled) return;
  // Only where our handler is still the one in place.
  for (int i = 0; i < kSignalCount; ++i) {
    struct sigaction current {};
    if (sigaction(kSignals[i], nullptr, &current) == 0 && (current.sa_flags & SA_SIGINFO) &&
        current.sa_sigaction == &OnSignal)
      sigaction(kSignals[i], &gPrevious[i], nullptr);
  }
  gInstalled = false;
}

}  // namespace velorum
