#include "plugin/RecursiveSpinLock.h"

#include <thread>

namespace velorum {

uint32_t CurrentThreadId32() {
  static std::atomic<uint32_t> next{1};
  thread_local uint32_t id = 0;
  if (id == 0) {
    id = next.fetch_add(1, std::memory_order_relaxed);
    if (id == 0) id = next.fetch_add(1, std::memory_order_relaxed);
  }
  return id;
}

void RecursiveSpinLock::Lock() {
  const uint32_t self = CurrentThreadId32();
  if (mOwner.load(std::memory_order_acquire) != self) {
    unsigned spins = 0;
    for (;;) {
      uint32_t expected = 0;
      if (mOwner.compare_exchange_weak(expected, self, std::memory_order_acquire, std::memory_order_relaxed))
        break;
      if (++spins > 64) {
        std::this_thread::yield();
        spins = 0;
      }
    }
  }
  mCount.fetch_add(1, std::memory_order_relaxed);
}

bool RecursiveSpinLock::TryLock() {
  const uint32_t self = CurrentThreadId32();
  if (mOwner.load(std::memory_order_acquire) != self) {
    uint32_t expected = 0;
    if (!mOwner.compare_exchange_strong(expected, self, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
      return false;
    }
  }
  mCount.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void RecursiveSpinLock::Unlock() {
  if (mOwner.load(std::memory_order_relaxed) != CurrentThreadId32()) return;
  int32_t count = mCount.fetch_sub(1, std::memory_order_relaxed) - 1;
  if (count < 0) {
    mCount.store(0, std::memory_order_relaxed);
    count = 0;
  }
  if (count == 0) mOwner.store(0, std::memory_order_release);
}

bool RecursiveSpinLock::HeldByCaller() const {
  return mOwner.load(std::memory_order_acquire) == CurrentThreadId32();
}

void RecursiveSpinLock::ReleaseAll() {
  if (!HeldByCaller()) return;
  mCount.store(0, std::memory_order_relaxed);
  mOwner.store(0, std::memory_order_release);
}

}  // namespace velorum
