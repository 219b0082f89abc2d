#pragma once
// File names are UTF-8 text everywhere in the program. The narrow C library
// calls take them as they are on Linux, but on Windows they would be read in
// the ANSI code page, so every file that the decoders and the normaliser open,
// test, rename or remove goes through these, which use the wide calls there.
#include <sndfile.h>

#include <cstdio>
#include <string>

namespace velorum {

#ifdef _WIN32
// The UTF-16 form of a UTF-8 path; empty when the text is not valid UTF-8.
std::wstring WidePath(const std::string& utf8);
#endif

// std::fopen with a UTF-8 path.
std::FILE* OpenFileUtf8(const std::string& path, const char* mode);
// libsndfile's sf_open with a UTF-8 path.
SNDFILE* OpenSoundFileUtf8(const std::string& path, int mode, SF_INFO* info);
bool PathExistsUtf8(const std::string& path);

// Whether a path names a file the decoders may open: missing, unreadable, not
// a regular file (a folder, a pipe or a device, which could block a reader
// forever), or a readable regular file.
enum class FileAccess { Readable, Missing, Denied, NotRegular };
FileAccess CheckFileUtf8(const std::string& path);
// Moves `from` to `to`, replacing a file of that name.
bool ReplaceFileUtf8(const std::string& from, const std::string& to);
bool RemoveFileUtf8(const std::string& path);

}  // namespace velorum
