#include "cli/VersionCommand.h"

#include "presets/GlobalSettings.h"
#include "update/UpdateCheck.h"
#include "velorum/Version.h"

namespace velorum {

int RunVersionCommand(const std::vector<std::string>& args, std::FILE* out, std::FILE* err) {
  bool check = false;
  for (const std::string& a : args) {
    if (a == "--check") {
      check = true;
    } else {
      std::fprintf(err, "velorum: unknown option %s\nTry 'velorum --help'.\n", a.c_str());
      return 64;
    }
  }
  std::fprintf(out, "velorum %s\n", kVersionText);
  if (!check) return 0;
  // An explicit request: fetched now, whatever the day's schedule and the
  // editor's switch; the news the editor would show is printed too.
  const std::string folder = SettingsFolder();
  const CheckOutcome outcome = RunUpdateCheck(folder, CheckMode::Now, UnixNow());
  if (!outcome.manifest) {
    std::fprintf(err, "velorum: the update check failed: %s\n", outcome.error.c_str());
    return 2;
  }
  UpdateSettings settings = UpdateSettings::Read(folder);
  settings.checkForUpdates = true;
  const UpdateNotices notices = NoticesFrom(*outcome.manifest, settings, false);
  if (notices.newer) {
    std::fprintf(out, "Velorum %s: a newer version is available.\nDownload: %s\n",
                 notices.newer->Text().c_str(), notices.download.c_str());
    if (!notices.notes.empty()) std::fprintf(out, "%s\n", notices.notes.c_str());
  } else {
    std::fprintf(out, "This is the newest version.\n");
  }
  for (const NewsItem& n : notices.news) {
    std::fprintf(out, "\nNews %s: %s\n", n.date.c_str(), n.title.c_str());
    if (!n.text.empty()) std::fprintf(out, "%s\n", n.text.c_str());
    if (!n.link.empty()) std::fprintf(out, "%s\n", n.link.c_str());
  }
  return 0;
}

}  // namespace velorum
