#pragma once
// The speech corpus used to train and evaluate the speech classifier: the
// decoded files listed by prepare-data.sh, split deterministically into a
// training and an evaluation half by speaker group, and turned into long
// 16 kHz test streams (dialogue made of recorded lines with pauses, music
// tracks, sound-effect sequences and noises, and mixtures of them).

#include <cstdint>
#include <string>
#include <vector>

namespace velorum::speechcorpus {

enum class Kind { kSpeech, kMusic, kEffects };
enum class Split { kTrain, kEvaluation };

struct Entry {
  Kind kind;
  std::string group;
  std::string path;
};

struct Stream {
  std::string name;
  std::vector<float> audio;  // 16 kHz mono
};

// Default cache directory: $VELORUM_SPEECH_DATA or $HOME/.cache/velorum/speech-data.
std::string DefaultCacheDir();
// Reads <cache>/manifest.txt; empty when it is missing.
std::vector<Entry> LoadManifest(const std::string& cacheDir);
// The side of the split that a group belongs to. Dutch dialogue is all
// evaluation and Czech dialogue all training (different actors); every other
// group goes by a hash of its name, about 30 % to evaluation.
Split SplitOf(const Entry& e);
std::vector<float> ReadPcm(const std::string& path);

class Builder {
public:
  Builder(const std::vector<Entry>& manifest, Split split, std::uint32_t seed);

  // Dialogue streams: each speaker group's lines in random order, trimmed,
  // levelled to -23 dBFS RMS (+-3 dB) and joined with 0.1-0.6 s pauses, cut
  // into streams of about `seconds`.
  std::vector<Stream> Speech(double seconds);
  // One stream per music file, levelled to -23 dBFS RMS (+-6 dB).
  std::vector<Stream> Music();
  // Effects: sound effects in random order with 0-1 s gaps, cut into streams of
  // about `seconds`; plus white, pink and brown noise streams.
  std::vector<Stream> Effects(double seconds);

private:
  std::vector<Entry> speech_, music_, effects_;
  std::uint32_t seed_;
};

// speech + other scaled so that the RMS of `other` is `dbBelow` dB under the
// RMS of `speech`; `other` is looped or cut to the speech length.
std::vector<float> Mix(const std::vector<float>& speech, const std::vector<float>& other, double dbBelow);

// Runs a classifier over a stream and returns the window features every
// `hopSamples` after the classifier's latency, together with the decisions
// the classifier made at the same moments.
struct Windows {
  std::vector<std::vector<float>> features;
  std::vector<int> decisions;
};
Windows Classify(const std::vector<float>& audio, long long hopSamples, bool wantFeatures);

}  // namespace velorum::speechcorpus
