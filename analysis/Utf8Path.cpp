#include "analysis/Utf8Path.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace velorum {

#ifdef _WIN32

std::wstring WidePath(const std::string& utf8) {
  if (utf8.empty() || utf8.size() > 0x7FFFFFFF) return std::wstring();
  const int size = static_cast<int>(utf8.size());
  const int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), size, nullptr, 0);
  if (n <= 0) return std::wstring();
  std::wstring wide(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), size, wide.data(), n);
  return wide;
}

std::FILE* OpenFileUtf8(const std::string& path, const char* mode) {
  const std::wstring wide = WidePath(path);
  const std::wstring wideMode = WidePath(mode);
  if (wide.empty() || wideMode.empty()) return nullptr;
  return _wfopen(wide.c_str(), wideMode.c_str());
}

SNDFILE* OpenSoundFileUtf8(const std::string& path, int mode, SF_INFO* info) {
  const std::wstring wide = WidePath(path);
  return wide.empty() ? nullptr : sf_wchar_open(wide.c_str(), mode, info);
}

bool PathExistsUtf8(const std::string& path) {
  const std::wstring wide = WidePath(path);
  return !wide.empty() && GetFileAttributesW(wide.c_str()) != INVALID_FILE_ATTRIBUTES;
}

FileAccess CheckFileUtf8(const std::string& path) {
  const std::wstring wide = WidePath(path);
  const DWORD attributes = wide.empty() ? INVALID_FILE_ATTRIBUTES : GetFileAttributesW(wide.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    const DWORD e = GetLastError();
    return e == ERROR_ACCESS_DENIED ? FileAccess::Denied : FileAccess::Missing;
  }
  if (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) return FileAccess::NotRegular;
  const HANDLE h =
      CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE)
    return GetLastError() == ERROR_ACCESS_DENIED ? FileAccess::Denied : FileAccess::Missing;
  const DWORD type = GetFileType(h);
  CloseHandle(h);
  return type == FILE_TYPE_DISK ? FileAccess::Readable : FileAccess::NotRegular;
}

bool ReplaceFileUtf8(const std::string& from, const std::string& to) {
  const std::wstring source = WidePath(from);
  const std::wstring target = WidePath(to);
  return !source.empty() && !target.empty() &&
         MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED) != 0;
}

bool RemoveFileUtf8(const std::string& path) {
  const std::wstring wide = WidePath(path);
  return !wide.empty() && DeleteFileW(wide.c_str()) != 0;
}

#else

std::FILE* OpenFileUtf8(const std::string& path, const char* mode) {
  return std::fopen(path.c_str(), mode);
}

SNDFILE* OpenSoundFileUtf8(const std::string& path, int mode, SF_INFO* info) {
  return sf_open(path.c_str(), mode, info);
}

bool PathExistsUtf8(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

FileAccess CheckFileUtf8(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return errno == EACCES ? FileAccess::Denied : FileAccess::Missing;
  if (!S_ISREG(st.st_mode)) return FileAccess::NotRegular;
  // Opening without blocking: the file is regular, so this never waits.
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? FileAccess::Missing : FileAccess::Denied;
  ::close(fd);
  return FileAccess::Readable;
}

bool ReplaceFileUtf8(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool RemoveFileUtf8(const std::string& path) {
  return std::remove(path.c_str()) == 0;
}

#endif

}  // namespace velorum
