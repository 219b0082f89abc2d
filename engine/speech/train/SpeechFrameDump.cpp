// Writes the speech classifier's per-frame model inputs of every stream of a
// set, for train.py:
//
//   velorum_speech_frames <set> [cache-dir] [--logits]
//
// For each stream of <cache>/<set>.txt the file <mix>.in holds one record of
// SpeechFeatureLayout::kFrameInputs 32-bit floats per 32 ms frame, made by the
// classifier's own code, so that training sees exactly what the product
// computes. Existing .in files newer than their stream are kept. With
// --logits, <mix>.logit receives the built-in model's logit of every frame
// (to check the weight table against train.py).

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/speech/SpeechClassifier.h"
#include "engine/speech/train/SpeechCorpus.h"

namespace sc = velorum::speechcorpus;
namespace fs = std::filesystem;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: velorum_speech_frames <set> [cache-dir]\n");
    return 2;
  }
  const std::string cache = argc > 2 ? argv[2] : sc::DefaultCacheDir();
  const bool logits = argc > 3 && std::string(argv[3]) == "--logits";
  const std::vector<sc::Stream> streams = sc::LoadStreams(cache, argv[1]);
  if (streams.empty()) {
    std::fprintf(stderr, "velorum_speech_frames: no streams in %s/%s.txt\n", cache.c_str(), argv[1]);
    return 1;
  }
  using L = velorum::SpeechFeatureLayout;
  long long frames = 0;
  for (const sc::Stream& s : streams) {
    const std::string out = s.mix + ".in";
    std::error_code ec;
    if (!logits && fs::exists(out, ec) && fs::last_write_time(out, ec) >= fs::last_write_time(s.mix, ec))
      continue;
    const std::vector<float> audio = sc::ReadF32(s.mix);
    velorum::SpeechClassifier c;
    std::vector<float> rec, z;
    rec.reserve(audio.size() / L::kFrameSize * L::kFrameInputs);
    for (std::size_t at = 0; at + L::kFrameSize <= audio.size(); at += L::kFrameSize) {
      c.Push(audio.data() + at, L::kFrameSize);
      rec.insert(rec.end(), c.FrameInputs(), c.FrameInputs() + L::kFrameInputs);
      z.push_back(c.FrameLogit());
    }
    if (logits) {
      std::ofstream f(s.mix + ".logit", std::ios::binary);
      f.write(reinterpret_cast<const char*>(z.data()),
              static_cast<std::streamsize>(z.size() * sizeof(float)));
    }
    std::ofstream f(out + ".part", std::ios::binary);
    f.write(reinterpret_cast<const char*>(rec.data()),
            static_cast<std::streamsize>(rec.size() * sizeof(float)));
    f.close();
    fs::rename(out + ".part", out, ec);
    frames += static_cast<long long>(rec.size() / L::kFrameInputs);
  }
  std::printf("velorum_speech_frames: %zu streams, %lld new frames\n", streams.size(), frames);
  return 0;
}
