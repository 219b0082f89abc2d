// The export writer: the replace question, files held by another program,
// files that can't be created, UTF-8 names.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "export/ExportWriter.h"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

namespace velorum {
namespace {

namespace fs = std::filesystem;

std::string utf8(const fs::path& p) {
  const std::u8string s = p.u8string();
  return std::string(s.begin(), s.end());
}

fs::path fromUtf8(const std::string& s) {
  return fs::path(std::u8string(s.begin(), s.end()));
}

// A fresh folder under the system's temporary folder, removed afterwards.
class TempDir {
 public:
  TempDir() {
    static std::atomic<int> counter{0};
    dir_ = fs::temp_directory_path() /
           ("velorum-export-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) +
            "-" + std::to_string(counter++));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string file(const std::string& name) const { return utf8(dir_) + "/" + name; }
  std::string path() const { return utf8(dir_); }

 private:
  fs::path dir_;
};

std::string slurp(const std::string& path) {
  std::ifstream in(fromUtf8(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Another program's hold on a file: an exclusive lock, or on Windows an open
// handle that lets others read but not replace it.
class Holder {
 public:
  Holder(const std::string& path, bool shareRead) {
#ifdef _WIN32
    const std::u16string wide = fromUtf8(path).u16string();
    handle_ =
        CreateFileW(reinterpret_cast<const wchar_t*>(wide.c_str()), GENERIC_READ | GENERIC_WRITE,
                    shareRead ? FILE_SHARE_READ : 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    held_ = handle_ != INVALID_HANDLE_VALUE;
#else
    (void)shareRead;
    fd_ = ::open(path.c_str(), O_RDWR);
    held_ = fd_ >= 0 && ::flock(fd_, LOCK_EX) == 0;
#endif
  }
  ~Holder() {
#ifdef _WIN32
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
#else
    if (fd_ >= 0) ::close(fd_);
#endif
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;
  bool held() const {
    return held_;
  }

 private:
#ifdef _WIN32
  HANDLE handle_ = INVALID_HANDLE_VALUE;
#else
  int fd_ = -1;
#endif
  bool held_ = false;
};

TEST(ExportWriter, NewFileIsWrittenWithoutAQuestion) {
  TempDir dir;
  const std::string path = dir.file("summary.txt");
  bool asked = false;
  EXPECT_EQ(WriteExportFile(path, "abc", [&](const std::string&) { return asked = true; }),
            ExportStatus::Written);
  EXPECT_FALSE(asked);
  EXPECT_EQ(slurp(path), "abc");
}

TEST(ExportWriter, ExistingFileIsReplacedOnlyAfterYes) {
  TempDir dir;
  const std::string path = dir.file("log.csv");
  ASSERT_EQ(WriteExportFile(path, "old"), ExportStatus::Written);
  std::string question;
  EXPECT_EQ(WriteExportFile(path, "new",
                            [&](const std::string& q) {
                              question = q;
                              return false;
                            }),
            ExportStatus::Declined);
  EXPECT_EQ(question, "This file already exists. Do you want to replace the existing file?");
  EXPECT_EQ(slurp(path), "old");
  EXPECT_EQ(WriteExportFile(path, "new", [](const std::string&) { return true; }), ExportStatus::Written);
  EXPECT_EQ(slurp(path), "new");
  EXPECT_FALSE(fs::exists(fromUtf8(path + ".part")));
}

TEST(ExportWriter, HeldFileIsInUse) {
  TempDir dir;
  const std::string path = dir.file("open.csv");
  ASSERT_EQ(WriteExportFile(path, "held"), ExportStatus::Written);
  EXPECT_FALSE(FileInUse(path));
  for (bool shareRead : {false, true}) {
    {
      Holder holder(path, shareRead);
      ASSERT_TRUE(holder.held());
      EXPECT_TRUE(FileInUse(path));
      const ExportStatus status = WriteExportFile(path, "x");
      EXPECT_EQ(status, ExportStatus::InUse) << "shared read " << shareRead;
      EXPECT_STREQ(ExportStatusMessage(status),
                   "The file is in use. Please close all applications that have opened this file!");
    }
    EXPECT_EQ(slurp(path), "held");
    EXPECT_FALSE(FileInUse(path));
  }
  EXPECT_EQ(WriteExportFile(path, "x"), ExportStatus::Written);
  EXPECT_EQ(slurp(path), "x");
}

TEST(ExportWriter, UncreatableFileGivesTheMessage) {
  TempDir dir;
  for (const std::string& path : {dir.file("missing/folder/out.csv"), dir.path()}) {
    const ExportStatus status = WriteExportFile(path, "x");
    EXPECT_EQ(status, ExportStatus::CouldNotCreate) << path;
    EXPECT_STREQ(ExportStatusMessage(status), "A new file could not be created. Please try again.");
  }
  EXPECT_FALSE(FileInUse(dir.file("nothing-here.csv")));
}

TEST(ExportWriter, Utf8NamesAreKept) {
  TempDir dir;
  const std::string path = dir.file("Lautst\xc3\xa4rke \xe2\x80\x93 Trailer_Summary.txt");
  ASSERT_EQ(WriteExportFile(path, "first"), ExportStatus::Written);
  EXPECT_TRUE(fs::exists(fromUtf8(path)));
  EXPECT_EQ(slurp(path), "first");
  EXPECT_EQ(WriteExportFile(path, "second", [](const std::string&) { return true; }), ExportStatus::Written);
  EXPECT_EQ(slurp(path), "second");
}

}  // namespace
}  // namespace velorum
