// The Windows crash reporter: a vectored exception handler that writes a
// minidump for faults whose instruction lies in this DLL and then lets the
// search for a handler go on, so the host's own handling runs as before.
#include <windows.h>
// dbghelp.h needs windows.h first.
#include <dbghelp.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

#include "plugin/CrashReporter.h"
#include "presets/GlobalSettings.h"

namespace velorum {
namespace {

using WriteDumpFn = BOOL(WINAPI*)(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                                  PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION);

uintptr_t gBase = 0, gEnd = 0;
PVOID gHandler = nullptr;
WriteDumpFn gWriteDump = nullptr;
wchar_t gFolder[1024];
std::atomic<bool> gReporting{false};
std::mutex gInstallLock;

bool IsFault(DWORD code) {
  switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
    case EXCEPTION_DATATYPE_MISALIGNMENT:
    case EXCEPTION_FLT_DIVIDE_BY_ZERO:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
    case EXCEPTION_PRIV_INSTRUCTION:
    case EXCEPTION_STACK_OVERFLOW:
      return true;
    default:
      return false;  // C++ exceptions, breakpoints and the like are not crashes
  }
}

struct DumpRequest {
  EXCEPTION_POINTERS* pointers;
  DWORD threadId;
};

DWORD WINAPI WriteDump(LPVOID parameter) {
  const auto* request = static_cast<DumpRequest*>(parameter);
  static wchar_t path[sizeof(gFolder) / sizeof(wchar_t) + 64];
  CreateDirectoryW(gFolder, nullptr);
  SYSTEMTIME t;
  GetSystemTime(&t);
  _snwprintf(path, sizeof(path) / sizeof(path[0]) - 1, L"%ls\\Velorum-%04u%02u%02u-%02u%02u%02u-%lu.dmp",
             gFolder, t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, GetCurrentProcessId());
  const HANDLE file =
      CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 1;
  MINIDUMP_EXCEPTION_INFORMATION info{request->threadId, request->pointers, FALSE};
  const BOOL ok =
      gWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &info, nullptr, nullptr);
  CloseHandle(file);
  if (!ok) DeleteFileW(path);
  return ok ? 0 : 1;
}

LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD* record = pointers->ExceptionRecord;
  const auto address = reinterpret_cast<uintptr_t>(record->ExceptionAddress);
  if (!IsFault(record->ExceptionCode) || address < gBase || address >= gEnd) return EXCEPTION_CONTINUE_SEARCH;
  if (!gWriteDump || gReporting.exchange(true)) return EXCEPTION_CONTINUE_SEARCH;
  DumpRequest request{pointers, GetCurrentThreadId()};
  if (record->ExceptionCode != EXCEPTION_STACK_OVERFLOW) {
    WriteDump(&request);
    return EXCEPTION_CONTINUE_SEARCH;
  }
  // The faulting thread has no stack left: a thread of its own writes the dump.
  if (HANDLE writer = CreateThread(nullptr, 256 * 1024, &WriteDump, &request, 0, nullptr)) {
    WaitForSingleObject(writer, 30000);
    CloseHandle(writer);
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

bool FindModuleRange() {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&OnException), &module))
    return false;
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
  const auto* nt =
      reinterpret_cast<const IMAGE_NT_HEADERS*>(reinterpret_cast<const char*>(module) + dos->e_lfanew);
  gBase = reinterpret_cast<uintptr_t>(module);
  gEnd = gBase + nt->OptionalHeader.SizeOfImage;
  return true;
}

}  // namespace

void GuardCrashThread() {}

void InstallCrashReporter() {
  std::lock_guard<std::mutex> guard(gInstallLock);
  if (gHandler) return;
  if (gEnd == 0 && !FindModuleRange()) return;
  if (!gWriteDump) {
    if (HMODULE dbghelp = LoadLibraryW(L"dbghelp.dll"))
      gWriteDump = reinterpret_cast<WriteDumpFn>(
          reinterpret_cast<void*>(GetProcAddress(dbghelp, "MiniDumpWriteDump")));
  }
  if (!gWriteDump) return;
  const std::string folder = CrashReportFolder(SettingsFolder(false));
  const int n =
      MultiByteToWideChar(CP_UTF8, 0, folder.c_str(), -1, gFolder, int(sizeof(gFolder) / sizeof(wchar_t)));
  if (n <= 0) return;
  for (wchar_t* c = gFolder; *c; ++c)
    if (*c == L'/') *c = L'\\';
  gHandler = AddVectoredExceptionHandler(1, &OnException);
}

void UninstallCrashReporter() {
  std::lock_guard<std::mutex> guard(gInstallLock);
  if (gHandler) RemoveVectoredExceptionHandler(gHandler);
  gHandler = nullptr;
}

}  // namespace velorum
