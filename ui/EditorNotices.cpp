#include "ui/EditorNotices.h"

#include "plugin/CrashReporter.h"
#include "presets/GlobalSettings.h"
#include "update/UpdateChecker.h"

namespace velorum::ui {
namespace {

constexpr size_t kNewsTextShown = 280;  // the message box holds a few lines

std::string Shortened(const std::string& text, size_t bytes) {
  if (text.size() <= bytes) return text;
  size_t cut = bytes;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xc0) == 0x80) --cut;  // whole UTF-8 characters
  return text.substr(0, cut) + "...";
}

}  // namespace

EditorNotices::EditorNotices(EditorHost& host, std::string folder,
                             std::function<bool(const std::string&)> open)
    : mHost(host), mFolder(std::move(folder)), mOpen(std::move(open)) {}

EditorNotices::~EditorNotices() {
  Stop();
}

void EditorNotices::Start() {
  if (mChecker) return;
  QueueCrashReports();
  try {
    mChecker = std::make_unique<UpdateChecker>(mFolder);
  } catch (...) {
    // No thread to spare: no notices this time.
  }
}

void EditorNotices::Stop() {
  mChecker.reset();
}

void EditorNotices::WaitForCheck() {
  if (mChecker) mChecker->Wait();
}

void EditorNotices::QueueCrashReports() {
  SettingsFile settings(mFolder);
  int64_t seen = 0;
  try {
    seen = std::stoll(settings.Get(kCrashReportsSeenKey).value_or("0"));
  } catch (...) {
    seen = 0;
  }
  const std::string folder = CrashReportFolder(mFolder);
  const std::vector<CrashReportFile> reports = CrashReportsSince(folder, seen);
  if (reports.empty()) return;
  const int64_t newest = reports.front().writtenSeconds;
  mQueue.push_back(
      {"The meter stopped after a fault in an earlier session. A crash report was saved on this "
       "computer; nothing was sent anywhere.",
       {"Show Folder", "OK"},
       [this, folder, newest](int answer) {
         SettingsFile file(mFolder);
         file.Set(kCrashReportsSeenKey, std::to_string(newest));
         file.Save();
         if (answer == 0) mOpen(folder);
       }});
}

void EditorNotices::QueueUpdate(const ProductVersion& version, const std::string& download,
                                const std::string& notes) {
  std::string text = "Velorum " + version.Text() + ": a newer version is available.";
  if (!notes.empty()) text += "\n" + Shortened(notes, kNewsTextShown);
  mQueue.push_back({text, {"Download", "Later"}, [this, version, download](int answer) {
                      MarkUpdateSeen(mFolder, version);
                      if (answer == 0) mOpen(download);
                    }});
}

void EditorNotices::QueueNews(const NewsItem& item) {
  std::string text = item.title;
  if (!item.text.empty()) text += "\n" + Shortened(item.text, kNewsTextShown);
  std::vector<std::string> buttons{"Dismiss", "Later"};
  if (!item.link.empty()) buttons.insert(buttons.begin(), "Read More");
  const bool link = !item.link.empty();
  mQueue.push_back({text, buttons, [this, item, link](int answer) {
                      const int dismiss = link ? 1 : 0;
                      if (link && answer == 0) mOpen(item.link);
                      if (answer <= dismiss)
                        DismissNews(mFolder, item.id);  // read or dismissed: not shown again
                    }});
}

void EditorNotices::Poll(bool busy) {
  if (mChecker) {
    if (std::optional<CheckOutcome> outcome = mChecker->Take()) {
      if (outcome->manifest) {
        const UpdateNotices notices = NoticesFrom(*outcome->manifest, UpdateSettings::Read(mFolder), true);
        if (notices.newer) QueueUpdate(*notices.newer, notices.download, notices.notes);
        for (const NewsItem& item : notices.news) QueueNews(item);
      }
    }
  }
  if (busy || mQueue.empty()) return;
  Notice next = std::move(mQueue.front());
  mQueue.pop_front();
  mHost.ShowMessage(next.text, next.buttons, std::move(next.answer));
}

}  // namespace velorum::ui
