// Writes a minidump of the faulting thread from a signal handler on Linux
// x86-64: header, stream directory, system information, exception stream,
// thread list with the faulting context and the top of its stack, and the
// module list read from /proc/self/maps, the stack also as a memory list,
// and the process id. Only async-signal-safe calls
// (open, read, write, close, clock_gettime) and static buffers: no
// allocation, no locks.
#pragma once

#include <signal.h>
#include <sys/ucontext.h>

#include <cstdint>

namespace velorum::minidump {

// What the handler knows of the fault.
struct Fault {
  int signal = 0;
  const siginfo_t* info = nullptr;
  const ucontext_t* context = nullptr;
  uint32_t threadId = 0;
};

// Reads what the handler cannot read safely (the processor count); called
// when the reporter is installed.
void Prepare();

// Writes the dump to the open file `fd`. Returns false when a write failed.
bool Write(int fd, const Fault& fault);

// The end of the readable mapping that holds `address` (a thread's stack),
// or 0; reads /proc/self/maps like Write.
uintptr_t MappingEnd(uintptr_t address);

}  // namespace velorum::minidump
