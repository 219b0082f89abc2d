#pragma once
// Whether a RIFF/WAVE, RF64 or AIFF/AIFC file states more sample data than
// it holds (cut off in a transfer). libsndfile shortens such files to what is
// there without saying so for every container, so the data chunk's stated
// size is compared with the file's size here. A stated size of 0 or all ones
// is the mark of a file written as a stream, not of a cut one.
#include <string>

namespace velorum {

bool DataRunsPastEnd(const std::string& path);

}  // namespace velorum
