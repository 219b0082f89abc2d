#include "plugin/MinidumpWriter.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

namespace velorum::minidump {
namespace {

// Stream types and sizes of the public minidump format.
constexpr uint32_t kSignature = 0x504d444d;  // "MDMP"
constexpr uint32_t kVersion = 0xa793;
constexpr uint32_t kThreadListStream = 3, kModuleListStream = 4, kMemoryListStream = 5, kExceptionStream = 6,
                   kSystemInfoStream = 7, kMiscInfoStream = 15;
constexpr uint32_t kMemoryListSize = 4 + 16, kMiscInfoSize = 24;
constexpr uint32_t kHeaderSize = 32, kDirectoryEntrySize = 12, kStreams = 6;
constexpr uint32_t kSystemInfoSize = 56, kExceptionStreamSize = 168, kThreadSize = 48;
constexpr uint32_t kContextSize = 1232, kModuleSize = 108;
constexpr uint32_t kContextAmd64Full = 0x0010000F;  // AMD64 | CONTROL | INTEGER | SEGMENTS | FLOATING_POINT
constexpr uint16_t kArchitectureAmd64 = 9;
constexpr uint32_t kPlatformLinux = 0x8201;
constexpr uint32_t kStackBytes = 32 * 1024;

constexpr int kMaxModules = 256, kMaxName = 255;
struct Module {
  uint64_t base, end;
  char name[kMaxName + 1];
  uint32_t nameLength;
};
// Static: filled by the handler thread only (the reporter lets one fault in).
Module gModules[kMaxModules];
int gModuleCount = 0;
char gReadBuffer[4096];
char gLine[1024];
uint8_t gContext[kContextSize];
long gCpuCount = 0;

uint64_t Hex(const char*& p) {
  uint64_t v = 0;
  for (;; ++p) {
    const char c = *p;
    const int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    if (d < 0) return v;
    v = v * 16 + uint64_t(d);
  }
}

void SkipField(const char*& p) {
  while (*p && *p != ' ') ++p;
  while (*p == ' ') ++p;
}

// Calls `line` for every line of /proc/self/maps (long lines cut).
template <typename F>
void ForEachMapping(F&& line) {
  const int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  size_t used = 0;
  for (;;) {
    const ssize_t n = read(fd, gReadBuffer, sizeof(gReadBuffer));
    if (n <= 0) break;
    for (ssize_t i = 0; i < n; ++i) {
      if (gReadBuffer[i] != '\n') {
        if (used + 1 < sizeof(gLine)) gLine[used++] = gReadBuffer[i];
        continue;
      }
      gLine[used] = '\0';
      line(gLine);
      used = 0;
    }
  }
  close(fd);
}

// "start-end perms offset dev inode path": mapped files, one module from the
// mapping at offset 0 to the end of the last mapping of the same file.
void ReadModules() {
  gModuleCount = 0;
  ForEachMapping([](const char* line) {
    const char* p = line;
    const uint64_t start = Hex(p);
    ++p;
    const uint64_t end = Hex(p);
    SkipField(p);
    SkipField(p);  // perms
    const uint64_t offset = Hex(p);
    SkipField(p);
    SkipField(p);  // dev
    SkipField(p);  // inode
    if (*p != '/') return;
    size_t length = strlen(p);
    if (length > kMaxName) length = kMaxName;
    Module* last = gModuleCount > 0 ? &gModules[gModuleCount - 1] : nullptr;
    if (last && last->nameLength == length && memcmp(last->name, p, length) == 0 && offset != 0) {
      if (end > last->end) last->end = end;
      return;
    }
    if (offset != 0 || gModuleCount == kMaxModules) return;
    Module& m = gModules[gModuleCount++];
    m.base = start;
    m.end = end;
    memcpy(m.name, p, length);
    m.name[length] = '\0';
    m.nameLength = uint32_t(length);
  });
}

class Out {
 public:
  explicit Out(int fd) : mFd(fd) {}
  void Bytes(const void* data, size_t n) {
    const char* p = static_cast<const char*>(data);
    while (n > 0 && mOk) {
      // The raw system call: a sanitizer's write() would check the stack
      // bytes copied here against its own poisoning and stop the report.
      const ssize_t w = syscall(SYS_write, mFd, p, n);
      if (w <= 0) {
        mOk = false;
        return;
      }
      p += w;
      n -= size_t(w);
      mOffset += uint32_t(w);
    }
  }
  void U16(uint16_t v) { Bytes(&v, 2); }
  void U32(uint32_t v) { Bytes(&v, 4); }
  void U64(uint64_t v) { Bytes(&v, 8); }
  void Zeros(size_t n) {
    static const char kZero[64] = {};
    while (n > 0) {
      const size_t k = n < sizeof(kZero) ? n : sizeof(kZero);
      Bytes(kZero, k);
      n -= k;
    }
  }
  void PadTo(uint32_t offset) { Zeros(offset > mOffset ? offset - mOffset : 0); }
  void Location(uint32_t size, uint32_t rva) {
    U32(size);
    U32(rva);
  }
  uint32_t Offset() const { return mOffset; }
  bool Ok() const { return mOk; }

 private:
  int mFd;
  uint32_t mOffset = 0;
  bool mOk = true;
};

// The UTF-8 name as UTF-16 code units, passed one by one to `emit`;
// returns their count.
template <typename F>
uint32_t Utf16(const char* s, uint32_t length, F&& emit) {
  uint32_t units = 0;
  for (uint32_t i = 0; i < length;) {
    const uint8_t c = uint8_t(s[i]);
    const uint32_t extra = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : c >= 0xc0 ? 1 : 0;
    uint32_t cp = extra == 0 ? c : c & (0x3f >> extra);
    for (uint32_t k = 1; k <= extra && i + k < length; ++k) cp = (cp << 6) | (uint8_t(s[i + k]) & 0x3f);
    i += extra + 1;
    if (cp >= 0x10000) {
      emit(uint16_t(0xd800 + ((cp - 0x10000) >> 10)));
      emit(uint16_t(0xdc00 + ((cp - 0x10000) & 0x3ff)));
      units += 2;
    } else {
      emit(uint16_t(cp));
      ++units;
    }
  }
  return units;
}

uint32_t NameBytes(const Module& m) {
  return (4 + 2 * Utf16(m.name, m.nameLength, [](uint16_t) {}) + 2 + 3) & ~3u;
}

template <typename T>
void Put(uint8_t* at, T value) {
  memcpy(at, &value, sizeof(T));
}

// The thread's registers as an AMD64 CONTEXT record.
void BuildContext(const ucontext_t& uc) {
  memset(gContext, 0, sizeof(gContext));
  const greg_t* g = uc.uc_mcontext.gregs;
  Put<uint32_t>(gContext + 48, kContextAmd64Full);
  const uint64_t segments = uint64_t(g[REG_CSGSFS]);
  Put<uint16_t>(gContext + 56, uint16_t(segments));        // cs
  Put<uint16_t>(gContext + 62, uint16_t(segments >> 32));  // fs
  Put<uint16_t>(gContext + 64, uint16_t(segments >> 16));  // gs
  Put<uint32_t>(gContext + 68, uint32_t(g[REG_EFL]));
  const int order[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                         REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};
  for (int i = 0; i < 16; ++i) Put<uint64_t>(gContext + 120 + 8 * i, uint64_t(g[order[i]]));
  Put<uint64_t>(gContext + 248, uint64_t(g[REG_RIP]));
  if (uc.uc_mcontext.fpregs) {
    memcpy(gContext + 256, uc.uc_mcontext.fpregs, 512);  // the FXSAVE area
    Put<uint32_t>(gContext + 52, uc.uc_mcontext.fpregs->mxcsr);
  }
}

void WriteHeader(Out& out, uint32_t when, const uint32_t rva[kStreams], const uint32_t size[kStreams]) {
  static const uint32_t kTypes[kStreams] = {kSystemInfoStream, kExceptionStream,  kMemoryListStream,
                                            kMiscInfoStream,   kThreadListStream, kModuleListStream};
  out.U32(kSignature);
  out.U32(kVersion);
  out.U32(kStreams);
  out.U32(kHeaderSize);
  out.U32(0);  // checksum
  out.U32(when);
  out.U64(0);  // flags: MiniDumpNormal
  for (uint32_t i = 0; i < kStreams; ++i) {
    out.U32(kTypes[i]);
    out.Location(size[i], rva[i]);
  }
}

void WriteSystemInfo(Out& out, uint32_t csdRva) {
  out.U16(kArchitectureAmd64);
  out.U16(0);
  out.U16(0);
  const long cpus = gCpuCount;
  const uint8_t count = uint8_t(cpus > 0 && cpus < 255 ? cpus : 0), productType = 0;
  out.Bytes(&count, 1);
  out.Bytes(&productType, 1);
  out.U32(0);
  out.U32(0);
  out.U32(0);
  out.U32(kPlatformLinux);
  out.U32(csdRva);
  out.U16(0);
  out.U16(0);
  out.Zeros(24);  // CPU information
}

void WriteException(Out& out, const Fault& f, uint32_t contextRva) {
  out.U32(f.threadId);
  out.U32(0);
  out.U32(uint32_t(f.signal));  // the signal, as minidumps from Linux record it
  out.U32(uint32_t(f.info->si_code));
  out.U64(0);
  out.U64(uint64_t(f.context->uc_mcontext.gregs[REG_RIP]));  // the faulting instruction
  out.U32(1);
  out.U32(0);
  out.U64(reinterpret_cast<uint64_t>(f.info->si_addr));  // the faulting data address
  out.Zeros(14 * 8);
  out.Location(kContextSize, contextRva);
}

}  // namespace

void Prepare() {
  gCpuCount = sysconf(_SC_NPROCESSORS_ONLN);
}

uintptr_t MappingEnd(uintptr_t address) {
  uintptr_t found = 0;
  ForEachMapping([&](const char* line) {
    const char* p = line;
    const uint64_t start = Hex(p);
    ++p;
    const uint64_t end = Hex(p);
    if (address >= start && address < end) found = end;
  });
  return found;
}

bool Write(int fd, const Fault& f) {
  ReadModules();
  BuildContext(*f.context);
  const uint64_t sp = uint64_t(f.context->uc_mcontext.gregs[REG_RSP]);
  const uint64_t stackStart = sp >= 128 ? sp - 128 : 0;  // with the red zone below the stack pointer
  const uint64_t stackEnd = MappingEnd(stackStart) > 0 ? MappingEnd(stackStart) : stackStart;
  const uint32_t stackBytes =
      uint32_t(stackEnd - stackStart < kStackBytes ? stackEnd - stackStart : kStackBytes);

  // Where everything goes, in the order written.
  const uint32_t systemRva = kHeaderSize + kStreams * kDirectoryEntrySize;
  const uint32_t csdRva = systemRva + kSystemInfoSize;
  const uint32_t exceptionRva = csdRva + 8;
  const uint32_t memoryRva = exceptionRva + kExceptionStreamSize;
  const uint32_t miscRva = memoryRva + kMemoryListSize;
  const uint32_t threadsRva = miscRva + kMiscInfoSize;
  const uint32_t contextRva = (threadsRva + 4 + kThreadSize + 15) & ~15u;
  const uint32_t modulesRva = contextRva + kContextSize;
  const uint32_t modulesSize = 4 + kModuleSize * uint32_t(gModuleCount);
  uint32_t namesEnd = modulesRva + modulesSize;
  for (int i = 0; i < gModuleCount; ++i) namesEnd += NameBytes(gModules[i]);
  const uint32_t stackRva = (namesEnd + 15) & ~15u;

  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  Out out(fd);
  const uint32_t rva[kStreams] = {systemRva, exceptionRva, memoryRva, miscRva, threadsRva, modulesRva};
  const uint32_t size[kStreams] = {kSystemInfoSize, kExceptionStreamSize, kMemoryListSize,
                                   kMiscInfoSize,   4 + kThreadSize,      modulesSize};
  WriteHeader(out, uint32_t(now.tv_sec), rva, size);
  WriteSystemInfo(out, csdRva);
  out.Zeros(8);  // the empty service-pack string
  WriteException(out, f, contextRva);
  out.U32(1);  // the memory list: the faulting thread's stack, for debuggers that unwind it
  out.U64(stackStart);
  out.Location(stackBytes, stackRva);
  out.U32(kMiscInfoSize);  // misc information: the process id
  out.U32(1);              // MINIDUMP_MISC1_PROCESS_ID
  out.U32(uint32_t(getpid()));
  out.Zeros(12);
  out.U32(1);  // the thread list: the faulting thread
  out.U32(f.threadId);
  out.Zeros(12);  // suspend count, priority class, priority
  out.U64(0);     // TEB
  out.U64(stackStart);
  out.Location(stackBytes, stackRva);
  out.Location(kContextSize, contextRva);
  out.PadTo(contextRva);
  out.Bytes(gContext, kContextSize);
  out.U32(uint32_t(gModuleCount));
  uint32_t nameRva = modulesRva + modulesSize;
  for (int i = 0; i < gModuleCount; ++i) {
    const Module& m = gModules[i];
    out.U64(m.base);
    out.U32(uint32_t(m.end - m.base));
    out.U32(0);  // checksum
    out.U32(0);  // time stamp
    out.U32(nameRva);
    out.Zeros(52 + 8 + 8 + 16);  // version information, CodeView and misc records, reserved
    nameRva += NameBytes(m);
  }
  for (int i = 0; i < gModuleCount; ++i) {
    const Module& m = gModules[i];
    out.U32(2 * Utf16(m.name, m.nameLength, [](uint16_t) {}));
    Utf16(m.name, m.nameLength, [&out](uint16_t unit) { out.U16(unit); });
    out.U16(0);
    out.PadTo((out.Offset() + 3) & ~3u);
  }
  out.PadTo(stackRva);
  // The stack lies inside one readable mapping; a failed write is padded.
  const uint32_t before = out.Offset();
  out.Bytes(reinterpret_cast<const void*>(stackStart), stackBytes);
  if (!out.Ok()) return false;
  return out.Offset() == before + stackBytes;
}

}  // namespace velorum::minidump
