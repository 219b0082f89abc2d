// The editor's background update check: one thread per open editor that runs
// RunUpdateCheck and leaves its outcome for the editor's timer to take. The
// thread never touches the audio thread or the plug-in; destroying the
// checker cancels a fetch in progress and waits for the thread (within
// about 50 ms).
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "update/UpdateCheck.h"

namespace velorum {

class UpdateChecker {
 public:
  UpdateChecker(std::string folder, CheckMode mode = CheckMode::Scheduled, int64_t nowSeconds = UnixNow());
  ~UpdateChecker();
  UpdateChecker(const UpdateChecker&) = delete;
  UpdateChecker& operator=(const UpdateChecker&) = delete;

  // The outcome once the check has finished, exactly once; nothing before.
  std::optional<CheckOutcome> Take();
  // Blocks until the check has finished (the command line, tests).
  void Wait();

 private:
  FetchCancel mCancel;
  std::mutex mLock;
  std::condition_variable mDone;
  std::optional<CheckOutcome> mOutcome;
  bool mFinished = false;
  std::thread mThread;
};

}  // namespace velorum
