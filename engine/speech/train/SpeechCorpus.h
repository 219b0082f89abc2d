#pragma once
// The speech classifier's training and evaluation material as make-mixtures.py
// leaves it in the cache: 16 kHz mono 32-bit float streams listed one a line
// in <cache>/<set>.txt as
//   <name> <category> <label> <mix file> [<speech stem file>]
// with label 1 for streams that carry speech throughout (with the pauses of
// dialogue) and 0 for streams without speech.

#include <string>
#include <vector>

namespace velorum::speechcorpus {

struct Stream {
  std::string name;
  std::string category;
  int label = 0;
  std::string mix;
  std::string stem;  // empty when there is no separate speech stem
};

// $VELORUM_SPEECH_DATA or $HOME/.cache/velorum/speech-data.
std::string DefaultCacheDir();
// Reads <cache>/<set>.txt; empty when missing. Relative file names are taken
// from the cache folder.
std::vector<Stream> LoadStreams(const std::string& cacheDir, const std::string& set);
// Native-endian 32-bit floats of a file; empty when it cannot be read.
std::vector<float> ReadF32(const std::string& path);

}  // namespace velorum::speechcorpus
