// Recursive lock that records its owning thread and a recursion count.
// Guards the measurement history between the audio thread and its readers.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace velorum {

class EngineMutex {
 public:
  void lock() {
    const auto me = std::this_thread::get_id();
    if (owner_.load(std::memory_order_acquire) == me) {
      ++count_;
      return;
    }
    mutex_.lock();
    owner_.store(me, std::memory_order_release);
    count_ = 1;
  }
  bool try_lock() {
    const auto me = std::this_thread::get_id();
    if (owner_.load(std::memory_order_acquire) == me) {
      ++count_;
      return true;
    }
    if (!mutex_.try_lock()) return false;
    owner_.store(me, std::memory_order_release);
    count_ = 1;
    return true;
  }
  void unlock() {
    if (--count_ == 0) {
      owner_.store(std::thread::id(), std::memory_order_release);
      mutex_.unlock();
    }
  }
  bool OwnedByCaller() const { return owner_.load(std::memory_order_acquire) == std::this_thread::get_id(); }
  int Count() const { return count_; }

 private:
  std::mutex mutex_;
  std::atomic<std::thread::id> owner_{};
  int count_ = 0;
};

// RAII guard: `EngineLock lock(engine.Mutex());`
using EngineLock = std::lock_guard<EngineMutex>;

}  // namespace velorum
