#include "ui/DesktopOpen.h"

#ifdef _WIN32
// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on
#else
#include <spawn.h>
#include <sys/wait.h>
#endif

namespace velorum::ui {

#ifdef _WIN32
bool OpenWithDesktop(const std::string& target) {
  std::wstring wide(target.size(), L'\0');
  const int n =
      MultiByteToWideChar(CP_UTF8, 0, target.data(), int(target.size()), wide.data(), int(wide.size()));
  if (n <= 0) return false;
  wide.resize(size_t(n));
  for (wchar_t& c : wide)
    if (c == L'/' && wide.find(L"://") == std::wstring::npos) c = L'\\';
  const auto result = reinterpret_cast<INT_PTR>(
      ShellExecuteW(nullptr, L"open", wide.c_str(), nullptr, nullptr, SW_SHOWNORMAL));
  return result > 32;
}
#else
extern "C" char** environ;

bool OpenWithDesktop(const std::string& target) {
  // A shell that starts xdg-open in the background and exits at once: the
  // editor reaps it here and never waits for the browser. The target is an
  // argument, never part of the command text.
  const char* argv[] = {"/bin/sh", "-c", "xdg-open \"$1\" >/dev/null 2>&1 &", "sh", target.c_str(), nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) != 0) return false;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
#endif

}  // namespace velorum::ui
