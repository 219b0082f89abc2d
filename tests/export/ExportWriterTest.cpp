// The export writer: the replace question, files held by another program,
// files that can't be created.
#include "analysis/AudioFixtures.h"
#include "export/ExportWriter.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace velorum {
namespace {

std::string slurp(const std::string& path)
{
    std::string out;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        char buffer[256];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;)
            out.append(buffer, n);
        std::fclose(f);
    }
    return out;
}

TEST(ExportWriter, NewFileIsWrittenWithoutAQuestion)
{
    test::TempDir dir;
    const std::string path = dir.file("summary.txt");
    bool asked = false;
    EXPECT_EQ(WriteExportFile(path, "abc", [&](const std::string&) { return asked = true; }), ExportStatus::Written);
    EXPECT_FALSE(asked);
    EXPECT_EQ(slurp(path), "abc");
}

TEST(ExportWriter, ExistingFileIsReplacedOnlyAfterYes)
{
    test::TempDir dir;
    const std::string path = dir.file("log.csv");
    ASSERT_EQ(WriteExportFile(path, "old"), ExportStatus::Written);
    std::string question;
    EXPECT_EQ(WriteExportFile(path, "new", [&](const std::string& q) { question = q; return false; }),
              ExportStatus::Declined);
    EXPECT_EQ(question, "This file already exists. Do you want to replace the existing file?");
    EXPECT_EQ(slurp(path), "old");
    EXPECT_EQ(WriteExportFile(path, "new", [](const std::string&) { return true; }), ExportStatus::Written);
    EXPECT_EQ(slurp(path), "new");
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
}

TEST(ExportWriter, LockedFileIsInUse)
{
    test::TempDir dir;
    const std::string path = dir.file("open.csv");
    ASSERT_EQ(WriteExportFile(path, "held"), ExportStatus::Written);
    const int fd = ::open(path.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    const ExportStatus status = WriteExportFile(path, "x");
    EXPECT_EQ(status, ExportStatus::InUse);
    EXPECT_STREQ(ExportStatusMessage(status),
                 "The file is in use. Please close all applications that have opened this file!");
    ::close(fd);
    EXPECT_EQ(slurp(path), "held");
    EXPECT_EQ(WriteExportFile(path, "x"), ExportStatus::Written);
}

TEST(ExportWriter, UncreatableFileGivesTheMessage)
{
    test::TempDir dir;
    for (const std::string& path : {dir.file("missing/folder/out.csv"), dir.path()}) {
        const ExportStatus status = WriteExportFile(path, "x");
        EXPECT_EQ(status, ExportStatus::CouldNotCreate) << path;
        EXPECT_STREQ(ExportStatusMessage(status), "A new file could not be created. Please try again.");
    }
}

} // namespace
} // namespace velorum
