#include "update/HttpFetch.h"

namespace velorum {

void FetchCancel::Cancel() {
  mCancelled = true;
  std::lock_guard<std::mutex> guard(mLock);
  if (mAbort) mAbort();
}

void FetchCancel::SetAbort(std::function<void()> abort) {
  std::lock_guard<std::mutex> guard(mLock);
  mAbort = std::move(abort);
  if (mAbort && mCancelled.load()) mAbort();
}

}  // namespace velorum
