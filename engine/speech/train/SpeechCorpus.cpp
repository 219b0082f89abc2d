#include "engine/speech/train/SpeechCorpus.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace velorum::speechcorpus {

std::string DefaultCacheDir() {
  if (const char* d = std::getenv("VELORUM_SPEECH_DATA"); d && *d) return d;
  const char* home = std::getenv("HOME");
  return std::string(home ? home : ".") + "/.cache/velorum/speech-data";
}

std::vector<Stream> LoadStreams(const std::string& cacheDir, const std::string& set) {
  std::vector<Stream> out;
  std::ifstream in(cacheDir + "/" + set + ".txt");
  std::string line;
  auto full = [&](const std::string& p) { return p.empty() || p[0] == '/' ? p : cacheDir + "/" + p; };
  while (std::getline(in, line)) {
    std::istringstream ls(line);
    Stream s;
    if (!(ls >> s.name >> s.category >> s.label >> s.mix)) continue;
    ls >> s.stem;
    s.mix = full(s.mix);
    s.stem = full(s.stem);
    out.push_back(std::move(s));
  }
  return out;
}

std::vector<float> ReadF32(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return {};
  const std::streamoff bytes = in.tellg();
  std::vector<float> out(static_cast<std::size_t>(bytes) / sizeof(float));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(out.data()), static_cast<std::streamsize>(out.size() * sizeof(float)));
  return out;
}

}  // namespace velorum::speechcorpus
