#pragma once
// Standard input ("-") as a file: the readers open files by name and seek in
// them, so the stream is copied into a temporary file first (any format the
// readers take: WAV, FLAC, or whatever FFmpeg reads from a stream). The file
// is removed when the object goes.
#include <string>

namespace velorum {

class StandardInput {
 public:
  StandardInput() = default;
  ~StandardInput();
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

  // Copies all of standard input; false when nothing could be read or written.
  bool save();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace velorum
