// Writes a corpus of mutated audio files: seeds of every format the library
// decoders read (made here with libsndfile from a generated tone and noise),
// and `count` mutations of each, chosen by a seeded generator so that a
// corpus is the same on every machine.
//   velorum_fuzz_corpus OUTDIR SEED COUNT
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

struct Seed {
  const char* name;
  int format;
};

const Seed kSeeds[] = {
    {"pcm16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
    {"float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
    {"ext24.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
    {"pcm16.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
    {"pcm16.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
    {"pcm16.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
    {"float.aifc", SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
    {"pcm16.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
    {"vorbis.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {"layer3.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
};

std::string Encode(const Seed& seed, const std::string& scratch) {
  const int rate = 16000, frames = rate / 2;
  std::vector<float> audio(static_cast<size_t>(frames) * 2);
  std::mt19937 noise(3);
  std::uniform_real_distribution<float> u(-0.05f, 0.05f);
  for (int i = 0; i < frames; ++i)
    for (int c = 0; c < 2; ++c)
      audio[static_cast<size_t>(i * 2 + c)] = static_cast<float>(0.3 * std::sin(0.2 * i + c)) + u(noise);
  SF_INFO info{};
  info.samplerate = rate;
  info.channels = 2;
  info.format = seed.format;
  SNDFILE* f = sf_open(scratch.c_str(), SFM_WRITE, &info);
  if (!f) return {};
  sf_writef_float(f, audio.data(), frames);
  sf_close(f);
  std::ifstream in(scratch, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// One mutation of `data`, of the kind `kind`.
std::string Mutate(std::string data, int kind, std::mt19937& random) {
  if (data.empty()) return data;
  auto at = [&](size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random); };
  const size_t size = data.size();
  switch (kind) {
    case 0:  // cut anywhere
      data.resize(at(size));
      break;
    case 1:  // a few bytes anywhere
      for (int i = 0, n = 1 + static_cast<int>(at(8)); i < n; ++i)
        data[at(size)] = static_cast<char>(random());
      break;
    case 2: {  // a header field set to an extreme
      static const uint32_t extremes[] = {0u,          1u,          7u,          255u,
                                          0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 44100u * 1000u};
      const uint32_t v = extremes[at(std::size(extremes))];
      const size_t p = at(std::min<size_t>(size, 128));
      for (size_t i = 0; i < 4 && p + i < size; ++i) data[p + i] = static_cast<char>(v >> (8 * i));
      break;
    }
    case 3:  // bytes of the header
      for (int i = 0, n = 1 + static_cast<int>(at(4)); i < n; ++i)
        data[at(std::min<size_t>(size, 256))] = static_cast<char>(random());
      break;
    case 4: {  // a range zeroed
      const size_t p = at(size);
      std::fill(data.begin() + static_cast<std::ptrdiff_t>(p),
                data.begin() + static_cast<std::ptrdiff_t>(std::min(size, p + 1 + at(4096))), '\0');
      break;
    }
    default: {  // a slice repeated elsewhere
      const size_t from = at(size), length = std::min(size - from, 1 + at(512));
      data.insert(at(size), data.substr(from, length));
      break;
    }
  }
  return data;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s OUTDIR SEED COUNT\n", argv[0]);
    return 64;
  }
  const std::filesystem::path out = argv[1];
  const unsigned seed = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10));
  const int count = std::atoi(argv[3]);
  std::error_code ec;
  std::filesystem::remove_all(out, ec);
  std::filesystem::create_directories(out);
  std::mt19937 random(seed);
  int written = 0;
  for (const Seed& s : kSeeds) {
    const std::string original = Encode(s, (out / ("scratch-" + std::string(s.name))).string());
    std::filesystem::remove(out / ("scratch-" + std::string(s.name)), ec);
    if (original.empty()) continue;  // a format this libsndfile cannot write
    std::ofstream(out / ("seed-" + std::string(s.name)), std::ios::binary) << original;
    for (int i = 0; i < count; ++i) {
      const std::string name = std::to_string(i) + "-" + s.name;
      std::ofstream(out / name, std::ios::binary) << Mutate(original, i % 6, random);
      ++written;
    }
  }
  std::ofstream(out / ".complete") << written << "\n";
  std::printf("%d mutated files in %s\n", written, out.string().c_str());
  return written > 0 ? 0 : 1;
}
