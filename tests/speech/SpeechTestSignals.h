#pragma once
// Test signals for the speech tests: a 13.5 s clip of espeak-ng dialogue
// (English then German, 16 kHz mono 16-bit WAV, kept in tests/speech/data),
// made once with
//   espeak-ng -v en-us -s 160 -w en.wav "The harbour lights came on one by one while
//     the ferry turned slowly towards the pier. Nobody on deck said a word until
//     the engines stopped."
//   espeak-ng -v de -s 150 -p 35 -w de.wav "Am Abend sassen wir noch lange zusammen
//     und sprachen ueber die Reise."
//   ffmpeg -i en.wav -i de.wav -filter_complex "[0:a]aresample=16000,apad=pad_dur=0.4[a];
//     [1:a]aresample=16000[b];[a][b]concat=n=2:v=0:a=1" -ac 1 -ar 16000 -c:a pcm_s16le
//     espeak-dialogue-16k.wav

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace velorum::testsignals {

// Samples of tests/speech/data/espeak-dialogue-16k.wav as floats in [-1, 1).
inline std::vector<float> EspeakDialogue16k() {
  const std::string path = std::string(VELORUM_SOURCE_DIR) + "/tests/speech/data/espeak-dialogue-16k.wav";
  std::vector<float> out;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return out;
  std::vector<unsigned char> bytes;
  unsigned char buf[65536];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
  std::fclose(f);
  // Find the "data" chunk of the RIFF file.
  std::size_t pos = 12;
  while (pos + 8 <= bytes.size()) {
    const std::uint32_t size = bytes[pos + 4] | (bytes[pos + 5] << 8) | (bytes[pos + 6] << 16) |
                               (static_cast<std::uint32_t>(bytes[pos + 7]) << 24);
    if (bytes[pos] == 'd' && bytes[pos + 1] == 'a' && bytes[pos + 2] == 't' && bytes[pos + 3] == 'a') {
      const std::size_t end = std::min(bytes.size(), pos + 8 + size);
      for (std::size_t i = pos + 8; i + 1 < end; i += 2)
        out.push_back(static_cast<float>(static_cast<std::int16_t>(bytes[i] | (bytes[i + 1] << 8))) /
                      32768.0f);
      break;
    }
    pos += 8 + size + (size & 1);
  }
  return out;
}

}  // namespace velorum::testsignals
