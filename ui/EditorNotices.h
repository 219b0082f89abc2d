// The editor's notices: a crash report left by an earlier session (with a
// button that shows its folder), a newer version (with a button that opens
// the download page) and news items until dismissed. The update check runs
// on a thread of its own from the moment the editor opens; the notices wait
// until the editor is free (no message, no file analysis, no calibration
// signal) and then come one at a time in the editor's message box.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "ui/EditorHost.h"
#include "update/UpdateManifest.h"

namespace velorum {
class UpdateChecker;
}

namespace velorum::ui {

inline constexpr const char* kCrashReportsSeenKey = "Crash Reports Seen";

class EditorNotices {
 public:
  // `open` opens an address or folder (the desktop's, or a test's).
  EditorNotices(EditorHost& host, std::string settingsFolder, std::function<bool(const std::string&)> open);
  ~EditorNotices();

  // On opening the editor: looks for new crash reports and starts the update check.
  void Start();
  // On closing it: stops a check in progress.
  void Stop();
  // On every frame: takes the check's outcome and shows the next notice
  // when the editor is not `busy`.
  void Poll(bool busy);
  // Blocks until the update check has finished (tests).
  void WaitForCheck();
  size_t Pending() const { return mQueue.size(); }

 private:
  struct Notice {
    std::string text;
    std::vector<std::string> buttons;
    std::function<void(int)> answer;
  };
  void QueueCrashReports();
  void QueueUpdate(const ProductVersion& version, const std::string& download, const std::string& notes);
  void QueueNews(const NewsItem& item);

  EditorHost& mHost;
  std::string mFolder;
  std::function<bool(const std::string&)> mOpen;
  std::unique_ptr<UpdateChecker> mChecker;
  std::deque<Notice> mQueue;
};

}  // namespace velorum::ui
