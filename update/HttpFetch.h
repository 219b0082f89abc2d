// One HTTP GET of a small document, loaded at run time from the system's
// HTTP library (libcurl.so.4 on Linux, WinHTTP on Windows), so the plug-in
// loads and works on a machine without it. Failures of every kind (no
// library, no network, proxy or TLS errors, HTTP errors, a body over the
// limit, a timeout, a cancel) come back as a short reason, never as an
// exception.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

namespace velorum {

// A cancel signal shared by the fetch and whoever waits for it. Cancel()
// sets the flag and runs the abort action the fetch registered (closing its
// handles), so a blocked fetch returns at once.
class FetchCancel {
 public:
  void Cancel();
  bool Cancelled() const { return mCancelled.load(); }
  // Registers (or with nullptr, clears) the action that breaks off a fetch in
  // progress; runs it at once when already cancelled.
  void SetAbort(std::function<void()> abort);

 private:
  std::atomic<bool> mCancelled{false};
  std::mutex mLock;
  std::function<void()> mAbort;
};

struct FetchOptions {
  size_t maxBytes = 64 * 1024;
  int timeoutMs = 10000;  // the whole exchange
  // Plain http to the loopback address (tests, a local mirror).
  bool allowLoopbackHttp = true;
  std::string userAgent;
  FetchCancel* cancel = nullptr;
};

struct FetchResult {
  bool ok = false;
  long status = 0;    // the HTTP status, 0 when none came
  std::string body;   // on success
  std::string error;  // on failure
};

FetchResult HttpGet(const std::string& url, const FetchOptions& options);

// Whether the system's HTTP library could be loaded.
bool HttpAvailable();

}  // namespace velorum
