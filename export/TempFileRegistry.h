#pragma once
// The temporary files being written at this moment, so that a program that
// is interrupted (Ctrl-C, a kill) can remove them before it ends. Registering
// and removing are thread-safe; RemoveRegisteredTempFiles() only calls
// async-signal-safe functions on Linux, so a signal handler may call it.
#include <string>

namespace velorum {

// Returns a slot number for UnregisterTempFile, or -1 when every slot is taken
// or the path is too long (the file is then simply not removed on a signal).
int RegisterTempFile(const std::string& path);
void UnregisterTempFile(int slot);
// Removes every registered file.
void RemoveRegisteredTempFiles();

// Registers a path for its lifetime.
class TempFileGuard {
 public:
  explicit TempFileGuard(const std::string& path) : mSlot(RegisterTempFile(path)) {}
  ~TempFileGuard() { UnregisterTempFile(mSlot); }
  TempFileGuard(const TempFileGuard&) = delete;
  TempFileGuard& operator=(const TempFileGuard&) = delete;

 private:
  int mSlot;
};

}  // namespace velorum
