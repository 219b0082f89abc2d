#include "export/ExportWriter.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velorum {

bool FileInUse(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno == ETXTBSY || errno == EBUSY;
    bool busy = false;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0)
        busy = errno == EWOULDBLOCK;
    else
        ::flock(fd, LOCK_UN);
    // A POSIX record lock held by another process counts as well.
    struct flock probe {};
    probe.l_type = F_WRLCK;
    probe.l_whence = SEEK_SET;
    if (!busy && ::fcntl(fd, F_GETLK, &probe) == 0 && probe.l_type != F_UNLCK)
        busy = true;
    ::close(fd);
    return busy;
}

ExportStatus WriteExportFile(const std::string& path, const std::string& content,
                             const std::function<bool(const std::string&)>& confirmReplace)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode))
            return ExportStatus::CouldNotCreate;
        if (confirmReplace && !confirmReplace(kReplaceQuestion))
            return ExportStatus::Declined;
        if (FileInUse(path))
            return ExportStatus::InUse;
    }
    const std::string temp = path + ".part";
    std::FILE* f = std::fopen(temp.c_str(), "wb");
    if (!f)
        return ExportStatus::CouldNotCreate;
    const bool written = std::fwrite(content.data(), 1, content.size(), f) == content.size();
    const bool closed = std::fclose(f) == 0;
    if (!written || !closed || std::rename(temp.c_str(), path.c_str()) != 0) {
        std::remove(temp.c_str());
        return ExportStatus::CouldNotCreate;
    }
    return ExportStatus::Written;
}

const char* ExportStatusMessage(ExportStatus status)
{
    switch (status) {
    case ExportStatus::InUse: return kInUseMessage;
    case ExportStatus::CouldNotCreate: return kCouldNotCreateMessage;
    default: return "";
    }
}

} // namespace velorum
