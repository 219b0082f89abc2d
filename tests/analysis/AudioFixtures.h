#pragma once
// Test helpers: a temporary folder, audio files written with libsndfile (UTF-8
// names on every platform), files converted with the ffmpeg command when it is
// installed, and the engine fed directly with the same samples.
#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"

namespace velorum::test {

class TempDir {
 public:
  TempDir() {
    std::error_code ec;
    const std::filesystem::path base = std::filesystem::temp_directory_path(ec);
    std::random_device seed;
    std::mt19937_64 random(seed());
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
      const std::filesystem::path dir = base / ("velorum-test-" + std::to_string(random()));
      if (std::filesystem::create_directory(dir, ec)) path_ = dir.generic_string();
    }
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Interleaved test programme: a 1 kHz tone whose level steps every second
// between -20 and -32 dBFS, with a different phase per channel.
inline std::vector<float> programme(int channels, int rate, int64_t frames) {
  std::vector<float> out(static_cast<size_t>(frames * channels));
  for (int64_t i = 0; i < frames; ++i) {
    const double t = static_cast<double>(i) / rate;
    const double level = (static_cast<int64_t>(t) % 2) ? 0.025 : 0.1;
    for (int c = 0; c < channels; ++c)
      out[static_cast<size_t>(i * channels + c)] =
          static_cast<float>(level * std::sin(2.0 * 3.14159265358979 * 1000.0 * t + 0.3 * c));
  }
  return out;
}

// libsndfile's open with a UTF-8 name; on Windows through the standard
// library's own conversion to the wide name.
inline SNDFILE* openSound(const std::string& path, int mode, SF_INFO* info) {
#ifdef _WIN32
  return sf_wchar_open(std::filesystem::path(std::u8string(path.begin(), path.end())).c_str(), mode, info);
#else
  return sf_open(path.c_str(), mode, info);
#endif
}

inline bool writeFile(const std::string& path, int format, int channels, int rate,
                      const std::vector<float>& samples) {
  SF_INFO info;
  std::memset(&info, 0, sizeof info);
  info.samplerate = rate;
  info.channels = channels;
  info.format = format;
  SNDFILE* f = openSound(path, SFM_WRITE, &info);
  if (!f) return false;
  const sf_count_t frames = static_cast<sf_count_t>(samples.size() / static_cast<size_t>(channels));
  const bool ok = frames == 0 || sf_writef_float(f, samples.data(), frames) == frames;
  return sf_close(f) == 0 && ok;
}

inline bool writeWav(const std::string& path, int channels, int rate, const std::vector<float>& samples,
                     int subtype = SF_FORMAT_PCM_24) {
  return writeFile(path, SF_FORMAT_WAV | subtype, channels, rate, samples);
}

// Reads a file back with libsndfile (the exact samples a lossless file holds).
inline std::vector<float> readBack(const std::string& path, int& channels, int& rate) {
  SF_INFO info;
  std::memset(&info, 0, sizeof info);
  SNDFILE* f = openSound(path, SFM_READ, &info);
  std::vector<float> out;
  if (!f) return out;
  out.resize(static_cast<size_t>(info.frames * info.channels));
  sf_readf_float(f, out.data(), info.frames);
  sf_close(f);
  channels = info.channels;
  rate = info.samplerate;
  return out;
}

// The ffmpeg command is a Linux tool here; the Windows tests don't look for it.
inline bool haveFfmpeg() {
#ifdef _WIN32
  return false;
#else
  static const bool have = std::system("ffmpeg -version >/dev/null 2>&1") == 0;
  return have;
#endif
}

// Converts with the ffmpeg command; false when ffmpeg is missing or fails.
inline bool ffmpegConvert(const std::string& in, const std::string& out, const std::string& codecArgs) {
  if (!haveFfmpeg()) return false;
  const std::string cmd =
      "ffmpeg -nostdin -loglevel error -y -i '" + in + "' " + codecArgs + " '" + out + "'";
  return std::system(cmd.c_str()) == 0;
}

// Writes MP3 with libsndfile when it was built with an MPEG encoder,
// otherwise through ffmpeg.
inline bool writeMp3(const std::string& path, const std::string& scratchWav, int channels, int rate,
                     const std::vector<float>& samples) {
  if (writeFile(path, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, channels, rate, samples)) return true;
  return writeWav(scratchWav, channels, rate, samples) &&
         ffmpegConvert(scratchWav, path, "-c:a libmp3lame -b:a 256k");
}

// Copies the first `bytes` bytes of a file.
inline bool truncateCopy(const std::string& from, const std::string& to, size_t bytes) {
  std::FILE* in = std::fopen(from.c_str(), "rb");
  if (!in) return false;
  std::vector<char> data(bytes);
  const size_t got = std::fread(data.data(), 1, bytes, in);
  std::fclose(in);
  std::FILE* out = std::fopen(to.c_str(), "wb");
  if (!out) return false;
  std::fwrite(data.data(), 1, got, out);
  return std::fclose(out) == 0 && got == bytes;
}

inline uint64_t fileSize(const std::string& path) {
  std::error_code ec;
  const auto size = std::filesystem::file_size(path, ec);
  return ec ? 0 : static_cast<uint64_t>(size);
}

// Overwrites `count` bytes at `offset` with a fixed junk pattern.
inline bool corrupt(const std::string& path, uint64_t offset, size_t count) {
  std::FILE* f = std::fopen(path.c_str(), "r+b");
  if (!f) return false;
  std::fseek(f, static_cast<long>(offset), SEEK_SET);
  uint32_t x = 12345;
  for (size_t i = 0; i < count; ++i) {
    x = x * 1103515245u + 12345u;
    std::fputc(static_cast<int>(x >> 24), f);
  }
  return std::fclose(f) == 0;
}

struct Readings {
  double integrated, loudnessRange, momentaryMax, shortTermMax, truePeakMax;
};

inline Readings readingsOf(const LoudnessEngine& e) {
  return {e.Integrated(), e.LoudnessRange(), e.MomentaryMax(), e.ShortTermMax(), e.TruePeakMax()};
}

// The engine fed the interleaved samples directly, as the plug-in would.
inline Readings measureDirect(const std::vector<float>& samples, int channels, int rate) {
  LoudnessEngine engine;
  engine.SetSampleRate(rate);
  engine.SetLayout(LayoutForChannelCount(channels));
  engine.SetInputCount(channels);
  engine.Reset();
  const size_t frames = samples.size() / static_cast<size_t>(channels);
  std::vector<std::vector<double>> planes(static_cast<size_t>(channels), std::vector<double>(frames));
  std::vector<const double*> pins;
  for (int c = 0; c < channels; ++c) {
    for (size_t i = 0; i < frames; ++i)
      planes[static_cast<size_t>(c)][i] =
          static_cast<double>(samples[i * static_cast<size_t>(channels) + static_cast<size_t>(c)]);
    pins.push_back(planes[static_cast<size_t>(c)].data());
  }
  for (size_t done = 0; done < frames;) {
    const int n = static_cast<int>(std::min<size_t>(1000, frames - done));
    std::vector<const double*> at;
    for (int c = 0; c < channels; ++c) at.push_back(pins[static_cast<size_t>(c)] + done);
    engine.ProcessBlock(at.data(), n);
    done += static_cast<size_t>(n);
  }
  engine.FinishProgramme();  // as the analysis does at the end of a file
  return readingsOf(engine);
}

}  // namespace velorum::test
