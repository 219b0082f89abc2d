// Crash reports: when code of this module faults (the faulting instruction
// lies in the plug-in's own binary), a minidump is written into
// "Crash Reports" in the settings folder and the fault then goes on to the
// host's own handling, as if the reporter were not there. Faults elsewhere in
// the host are left alone and write nothing. Nothing is ever sent anywhere.
//
// Linux: a signal handler on an alternate stack for SIGSEGV, SIGBUS, SIGFPE,
// SIGILL and SIGABRT, chained to the handlers installed before it; it writes
// the dump with async-signal-safe calls and no allocation, then restores the
// previous handler and re-raises. Windows: a vectored exception handler that
// writes the dump with MiniDumpWriteDump (dbghelp loaded when the reporter is
// installed) and lets the search go on to the host's handlers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velorum {

inline constexpr const char* kCrashReportFolderName = "Crash Reports";

// Installs the reporter once per process (later calls only guard the calling
// thread). Called when the host creates the plug-in.
void InstallCrashReporter();
// Removes it again if still installed; the module calls it when unloaded.
void UninstallCrashReporter();
// Linux: gives the calling thread an alternate signal stack when it has none,
// so that a stack overflow in the plug-in can be reported. Cheap after the
// first call on a thread; nothing on Windows.
void GuardCrashThread();

// The settings folder's "Crash Reports" folder (not created).
std::string CrashReportFolder(const std::string& settingsFolder);

// The reports in `folder` (file names ending in ".dmp") written after
// `sinceSeconds` (Unix time), newest first.
struct CrashReportFile {
  std::string path;
  int64_t writtenSeconds = 0;
};
std::vector<CrashReportFile> CrashReportsSince(const std::string& folder, int64_t sinceSeconds);

}  // namespace velorum
