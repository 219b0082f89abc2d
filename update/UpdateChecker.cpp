#include "update/UpdateChecker.h"

namespace velorum {

UpdateChecker::UpdateChecker(std::string folder, CheckMode mode, int64_t now) {
  mThread = std::thread([this, folder = std::move(folder), mode, now] {
    CheckOutcome outcome;
    try {
      outcome = RunUpdateCheck(folder, mode, now, &mCancel);
    } catch (...) {
      outcome.error = "the check failed";
    }
    std::lock_guard<std::mutex> guard(mLock);
    mOutcome = std::move(outcome);
    mFinished = true;
    mDone.notify_all();
  });
}

UpdateChecker::~UpdateChecker() {
  mCancel.Cancel();
  if (mThread.joinable()) mThread.join();
}

std::optional<CheckOutcome> UpdateChecker::Take() {
  std::lock_guard<std::mutex> guard(mLock);
  std::optional<CheckOutcome> out = std::move(mOutcome);
  mOutcome.reset();
  return out;
}

void UpdateChecker::Wait() {
  std::unique_lock<std::mutex> guard(mLock);
  mDone.wait(guard, [this] { return mFinished; });
}

}  // namespace velorum
