#include "export/TempFileRegistry.h"

#include <atomic>
#include <cstring>

#ifdef _WIN32
#include "analysis/Utf8Path.h"
#else
#include <unistd.h>
#endif

namespace velorum {
namespace {

constexpr int kSlots = 64;
constexpr size_t kPathBytes = 4096;

enum : int { kFree = 0, kFilling = 1, kReady = 2 };

struct Slot {
  std::atomic<int> state{kFree};
  char path[kPathBytes];
};

Slot gSlots[kSlots];

}  // namespace

int RegisterTempFile(const std::string& path) {
  if (path.size() >= kPathBytes) return -1;
  for (int i = 0; i < kSlots; ++i) {
    int expected = kFree;
    if (gSlots[i].state.compare_exchange_strong(expected, kFilling)) {
      std::memcpy(gSlots[i].path, path.c_str(), path.size() + 1);
      gSlots[i].state.store(kReady);
      return i;
    }
  }
  return -1;
}

void UnregisterTempFile(int slot) {
  if (slot >= 0 && slot < kSlots) gSlots[slot].state.store(kFree);
}

void RemoveRegisteredTempFiles() {
  for (Slot& slot : gSlots) {
    if (slot.state.load() != kReady) continue;
#ifdef _WIN32
    RemoveFileUtf8(slot.path);
#else
    unlink(slot.path);
#endif
  }
}

}  // namespace velorum
