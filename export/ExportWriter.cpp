#include "export/ExportWriter.h"

#include <cstdio>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace velorum {

#ifdef _WIN32
namespace {

// Paths are UTF-8 throughout; the wide-character file functions take UTF-16.
// An invalid UTF-8 path comes back empty, which no file function accepts.
std::wstring Widen(const std::string& path) {
  if (path.empty()) return {};
  const int size = static_cast<int>(path.size());
  const int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), size, nullptr, 0);
  if (n <= 0) return {};
  std::wstring out(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), size, out.data(), n);
  return out;
}

}  // namespace

bool FileInUse(const std::string& path) {
  const std::wstring wide = Widen(path);
  if (wide.empty()) return false;
  // Opening without sharing fails while any other handle to the file is
  // open, whatever it was opened for: the programs that would keep the file
  // from being replaced.
  const HANDLE h =
      CreateFileW(wide.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
  }
  CloseHandle(h);
  return false;
}

ExportStatus WriteExportFile(const std::string& path, const std::string& content,
                             const std::function<bool(const std::string&)>& confirmReplace) {
  const std::wstring target = Widen(path);
  if (target.empty()) return ExportStatus::CouldNotCreate;
  const DWORD attributes = GetFileAttributesW(target.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES) {
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return ExportStatus::CouldNotCreate;
    if (confirmReplace && !confirmReplace(kReplaceQuestion)) return ExportStatus::Declined;
    if (FileInUse(path)) return ExportStatus::InUse;
  }
  const std::wstring temp = target + L".part";
  std::FILE* f = _wfopen(temp.c_str(), L"wb");
  if (!f) return ExportStatus::CouldNotCreate;
  const bool written = std::fwrite(content.data(), 1, content.size(), f) == content.size();
  const bool closed = std::fclose(f) == 0;
  if (!written || !closed || !MoveFileExW(temp.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING)) {
    const DWORD error = GetLastError();
    DeleteFileW(temp.c_str());
    // Another program opened the file between the check and the move.
    if (written && closed && (error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION))
      return ExportStatus::InUse;
    return ExportStatus::CouldNotCreate;
  }
  return ExportStatus::Written;
}

#else

bool FileInUse(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ETXTBSY || errno == EBUSY;
  bool busy = false;
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0)
    busy = errno == EWOULDBLOCK;
  else
    ::flock(fd, LOCK_UN);
  // A POSIX record lock held by another process counts as well.
  struct flock probe {};
  probe.l_type = F_WRLCK;
  probe.l_whence = SEEK_SET;
  if (!busy && ::fcntl(fd, F_GETLK, &probe) == 0 && probe.l_type != F_UNLCK) busy = true;
  ::close(fd);
  return busy;
}

ExportStatus WriteExportFile(const std::string& path, const std::string& content,
                             const std::function<bool(const std::string&)>& confirmReplace) {
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return ExportStatus::CouldNotCreate;
    if (confirmReplace && !confirmReplace(kReplaceQuestion)) return ExportStatus::Declined;
    if (FileInUse(path)) return ExportStatus::InUse;
  }
  const std::string temp = path + ".part";
  std::FILE* f = std::fopen(temp.c_str(), "wb");
  if (!f) return ExportStatus::CouldNotCreate;
  const bool written = std::fwrite(content.data(), 1, content.size(), f) == content.size();
  const bool closed = std::fclose(f) == 0;
  if (!written || !closed || std::rename(temp.c_str(), path.c_str()) != 0) {
    std::remove(temp.c_str());
    return ExportStatus::CouldNotCreate;
  }
  return ExportStatus::Written;
}

#endif

const char* ExportStatusMessage(ExportStatus status) {
  switch (status) {
    case ExportStatus::InUse:
      return kInUseMessage;
    case ExportStatus::CouldNotCreate:
      return kCouldNotCreateMessage;
    default:
      return "";
  }
}

}  // namespace velorum
