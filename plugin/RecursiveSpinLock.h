// The plug-in lock: a recursive spin lock made of a 32-bit owner thread id and
// a 32-bit recursion count. The dispatcher, the audio callbacks and the state
// reader and writer all take it, so host calls never overlap processing.
#pragma once

#include <atomic>
#include <cstdint>

namespace velorum {

// A small non-zero id for the calling thread, stable for its lifetime.
uint32_t CurrentThreadId32();

class RecursiveSpinLock {
 public:
  void Lock();
  // Returns false (and takes nothing) when another thread holds the lock.
  bool TryLock();
  void Unlock();

  // True when the calling thread holds the lock.
  bool HeldByCaller() const;

  // Drops the caller's hold entirely, whatever its depth (used when the
  // object that owns the lock is about to be destroyed).
  void ReleaseAll();

 private:
  std::atomic<uint32_t> mOwner{0};
  std::atomic<int32_t> mCount{0};
};

class SpinLockGuard {
 public:
  explicit SpinLockGuard(RecursiveSpinLock& lock) : mLock(lock) { mLock.Lock(); }
  ~SpinLockGuard() { mLock.Unlock(); }
  SpinLockGuard(const SpinLockGuard&) = delete;
  SpinLockGuard& operator=(const SpinLockGuard&) = delete;

 private:
  RecursiveSpinLock& mLock;
};

}  // namespace velorum
