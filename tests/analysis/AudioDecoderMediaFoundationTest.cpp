// The Windows general decoder against WAV files written here byte by byte:
// exact samples, exact seeks, the end of the stream, and refusal of files that
// are missing, empty, damaged or not audio at all. Where Media Foundation is
// missing or cannot decode PCM WAV (wine without GStreamer's plug-ins), the
// decoding cases are skipped; the refusals must hold everywhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

#include "analysis/AudioDecoderMediaFoundation.h"

namespace velorum {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kRate = 48000;
constexpr uint32_t kChannels = 2;
constexpr int64_t kFrames = 2 * kRate + 123;  // an odd length, past whole blocks

std::string utf8(const fs::path& p) {
  const std::u8string s = p.u8string();
  return std::string(s.begin(), s.end());
}

void put16(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v & 0xff));
  out.push_back(static_cast<char>((v >> 8) & 0xff));
}

void put32(std::string& out, uint32_t v) {
  put16(out, v & 0xffff);
  put16(out, v >> 16);
}

// 16-bit stereo: a 997 Hz sine at half scale on the left, its cosine at a
// quarter scale and inverted on the right, so a swap or a shift shows.
std::vector<int16_t> sineFrames(int64_t frames) {
  std::vector<int16_t> s(static_cast<size_t>(frames) * kChannels);
  for (int64_t n = 0; n < frames; ++n) {
    const double phase = 2.0 * std::numbers::pi * 997.0 * static_cast<double>(n) / kRate;
    s[static_cast<size_t>(n) * 2] = static_cast<int16_t>(std::lround(0.5 * 32767.0 * std::sin(phase)));
    s[static_cast<size_t>(n) * 2 + 1] = static_cast<int16_t>(std::lround(-0.25 * 32767.0 * std::cos(phase)));
  }
  return s;
}

std::string waveBytes(const std::vector<int16_t>& samples) {
  const uint32_t dataBytes = static_cast<uint32_t>(samples.size() * 2);
  std::string w = "RIFF";
  put32(w, 36 + dataBytes);
  w += "WAVEfmt ";
  put32(w, 16);
  put16(w, 1);  // PCM
  put16(w, kChannels);
  put32(w, kRate);
  put32(w, kRate * kChannels * 2);  // bytes per second
  put16(w, kChannels * 2);          // block alignment
  put16(w, 16);
  w += "data";
  put32(w, dataBytes);
  for (const int16_t v : samples) put16(w, static_cast<uint16_t>(v));
  return w;
}

std::vector<float> readAll(AudioDecoderMediaFoundation& decoder, int64_t chunk) {
  std::vector<float> all;
  std::vector<float> block(static_cast<size_t>(chunk) * kChannels);
  for (int64_t got = 0; (got = decoder.read(block.data(), chunk)) > 0;)
    all.insert(all.end(), block.begin(), block.begin() + got * kChannels);
  return all;
}

// FLAC with verbatim subframes: a compressed container that the decoder
// must seek by time, unlike WAV whose sources seek by byte offset.
class FlacWriter {
 public:
  std::string bytes(const std::vector<int16_t>& samples) {
    const uint32_t frames = static_cast<uint32_t>(samples.size() / kChannels);
    out_ = "fLaC";
    out_ += '\x80';  // the last metadata block: stream info
    bits(34, 24);
    bits(kBlock, 16);
    bits(kBlock, 16);
    bits(0, 24);  // frame sizes unknown
    bits(0, 24);
    bits(kRate, 20);
    bits(kChannels - 1, 3);
    bits(15, 5);  // 16 bits per sample
    bits(0, 4);   // upper bits of the 36-bit length
    bits(frames, 32);
    out_.append(16, '\0');  // no MD5
    for (uint32_t first = 0, number = 0; first < frames; first += kBlock, ++number)
      frame(samples, first, std::min(kBlock, frames - first), number);
    return out_;
  }

 private:
  static constexpr uint32_t kBlock = 4096;

  void bits(uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) {
      acc_ = (acc_ << 1) | ((value >> i) & 1u);
      if (++filled_ == 8) {
        out_.push_back(static_cast<char>(acc_));
        acc_ = 0;
        filled_ = 0;
      }
    }
  }

  void frame(const std::vector<int16_t>& samples, uint32_t first, uint32_t count, uint32_t number) {
    const size_t start = out_.size();
    bits(0xfff8, 16);  // sync, fixed block size
    bits(0x7, 4);      // block size stored below
    bits(0xa, 4);      // 48 kHz
    bits(0x1, 4);      // left, right
    bits(0x4, 3);      // 16 bits
    bits(0, 1);
    if (number < 0x80) {  // frame number, UTF-8 coded
      bits(number, 8);
    } else {
      bits(0xc0 | (number >> 6), 8);
      bits(0x80 | (number & 0x3f), 8);
    }
    bits(count - 1, 16);
    bits(crc8(start), 8);
    for (uint32_t c = 0; c < kChannels; ++c) {
      bits(0x02, 8);  // verbatim subframe
      for (uint32_t n = 0; n < count; ++n)
        bits(static_cast<uint16_t>(samples[(first + n) * kChannels + c]), 16);
    }
    bits(crc16(start), 16);
  }

  uint32_t crc8(size_t start) const {
    uint32_t crc = 0;
    for (size_t i = start; i < out_.size(); ++i) {
      crc ^= static_cast<uint8_t>(out_[i]);
      for (int b = 0; b < 8; ++b) crc = (crc & 0x80) ? ((crc << 1) ^ 0x07) & 0xff : (crc << 1) & 0xff;
    }
    return crc;
  }

  uint32_t crc16(size_t start) const {
    uint32_t crc = 0;
    for (size_t i = start; i < out_.size(); ++i) {
      crc ^= static_cast<uint32_t>(static_cast<uint8_t>(out_[i])) << 8;
      for (int b = 0; b < 8; ++b) crc = (crc & 0x8000) ? ((crc << 1) ^ 0x8005) & 0xffff : (crc << 1) & 0xffff;
    }
    return crc;
  }

  std::string out_;
  uint32_t acc_ = 0;
  int filled_ = 0;
};

class MediaFoundationFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("velorum-mf-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  fs::path write(const fs::path& name, const std::string& bytes) {
    const fs::path p = dir_ / name;
    std::ofstream(p, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return p;
  }
  // Opens the sine file, or skips the test with the reason.
  bool openSine(AudioDecoderMediaFoundation& decoder, const fs::path& name) {
    const fs::path p = write(name, waveBytes(sineFrames(kFrames)));
    if (!AudioDecoderMediaFoundation::available()) {
      skipReason_ = "Media Foundation is not installed on this system";
      return false;
    }
    if (!decoder.open(utf8(p))) {
      skipReason_ =
          "this system's Media Foundation does not decode PCM WAV "
          "(under wine: the GStreamer base and good plug-ins are missing)";
      return false;
    }
    return true;
  }
  fs::path dir_;
  std::string skipReason_;
};

TEST_F(MediaFoundationFiles, RefusesFilesWithoutAudioAndBadPaths) {
  const std::string riffHeaderCut = waveBytes(sineFrames(10)).substr(0, 22);
  const std::vector<fs::path> refused = {
      dir_ / "missing.m4a",
      write("empty.m4a", ""),
      write("empty.wav", ""),
      write("text.m4a", std::string(2000, 'x') + "\nnot audio\n"),
      write("cut.wav", riffHeaderCut),
      write("silent-header.wav", waveBytes({})),  // a valid header over zero frames
      dir_,                                       // a folder
  };
  for (const fs::path& p : refused) {
    AudioDecoderMediaFoundation decoder;
    EXPECT_FALSE(decoder.open(utf8(p))) << utf8(p);
    float buffer[64] = {};
    EXPECT_EQ(decoder.read(buffer, 32), 0) << utf8(p);
    EXPECT_FALSE(decoder.seek(0)) << utf8(p);
  }

  // Paths the decoder must turn down before any file is touched: one longer
  // than its wide buffer holds, one that is not UTF-8, one with a NUL, and
  // URLs, which the system would fetch.
  const fs::path sine = write("sine.wav", waveBytes(sineFrames(1000)));
  const std::vector<std::string> badPaths = {
      utf8(dir_) + "/" + std::string(600, 'a') + ".wav",
      utf8(dir_) + "/\xff\xfe.wav",
      utf8(sine) + std::string(1, '\0') + "x",
      "http://127.0.0.1:9/sine.wav",
      "file:///" + utf8(sine),
      "",
  };
  for (const std::string& p : badPaths) {
    AudioDecoderMediaFoundation decoder;
    EXPECT_FALSE(decoder.open(p));
  }

  AudioDecoderMediaFoundation unopened;
  float buffer[8] = {};
  EXPECT_EQ(unopened.read(buffer, 4), 0);
  EXPECT_FALSE(unopened.seek(10));
}

TEST_F(MediaFoundationFiles, DecodesTheSamplesOfAWaveFile) {
  AudioDecoderMediaFoundation decoder;
  // A name outside ASCII proves the UTF-8 path reaches the system intact.
  if (!openSine(decoder, fs::path(u8"sinus-\u00e4\u97f3.wav"))) GTEST_SKIP() << skipReason_;

  EXPECT_EQ(decoder.format().channels, kChannels);
  EXPECT_EQ(decoder.format().sampleRate, kRate);
  EXPECT_EQ(decoder.format().bitsPerSample, -1);
  EXPECT_TRUE(decoder.lengthEstimated());
  // The length comes from the stream's duration in 100 ns units.
  EXPECT_NEAR(static_cast<double>(decoder.format().totalFrames), static_cast<double>(kFrames), 1.0);

  // Blocks of an odd size, so samples cross the carry-over store.
  const std::vector<float> got = readAll(decoder, 1001);
  const std::vector<int16_t> source = sineFrames(kFrames);
  ASSERT_EQ(got.size(), source.size());
  size_t off = 0;
  for (size_t i = 0; i < got.size(); ++i)
    if (std::fabs(got[i] - static_cast<float>(source[i]) / 32768.0f) > 1.0f / 32768.0f) ++off;
  EXPECT_EQ(off, 0u) << "samples differ from the file's";
  EXPECT_EQ(decoder.streamPosition, kFrames);

  // The end stays the end.
  float tail[16] = {};
  EXPECT_EQ(decoder.read(tail, 8), 0);
  EXPECT_EQ(decoder.read(tail, 8), 0);

  // Opening again with the same object gives the same samples; so does
  // reading on another thread than the one that opened (the analysis worker
  // decodes ahead on a thread of its own), and a decoder that lives wholly
  // on a worker thread.
  ASSERT_TRUE(decoder.open(decoder.path));
  std::vector<float> fromReader;
  std::thread reader([&] { fromReader = readAll(decoder, 4096); });
  reader.join();
  EXPECT_EQ(fromReader, got);
  std::vector<float> fromWorker;
  std::thread worker([&] {
    AudioDecoderMediaFoundation other;
    if (other.open(decoder.path)) fromWorker = readAll(other, 777);
  });
  worker.join();
  EXPECT_EQ(fromWorker, got);
}

TEST_F(MediaFoundationFiles, DecodesWhatACutFileHolds) {
  // The header states the whole sine; the file ends after 30000 frames and
  // half of the next one.
  const int64_t held = 30000;
  std::string bytes = waveBytes(sineFrames(kFrames));
  bytes.resize(44 + static_cast<size_t>(held) * kChannels * 2 + 2);
  const fs::path cut = write("cut.wav", bytes);
  AudioDecoderMediaFoundation decoder;
  if (!openSine(decoder, "whole.wav")) GTEST_SKIP() << skipReason_;
  ASSERT_TRUE(decoder.open(utf8(cut)));
  const std::vector<float> got = readAll(decoder, 4096);
  const std::vector<int16_t> source = sineFrames(held);
  ASSERT_EQ(got.size(), source.size());
  for (size_t i = 0; i < got.size(); ++i)
    ASSERT_NEAR(got[i], static_cast<float>(source[i]) / 32768.0f, 1.0f / 32768.0f) << i;
  float tail[16] = {};
  EXPECT_EQ(decoder.read(tail, 8), 0);
}

// Seeks to frames whose times are no whole number of 100 ns units, read as
// the same samples as a straight read from the start.
void expectExactSeeks(AudioDecoderMediaFoundation& decoder, const std::vector<float>& straight) {
  for (const int64_t target :
       {int64_t{30011}, int64_t{0}, int64_t{1}, kFrames - 100, int64_t{47999}, int64_t{4097}}) {
    ASSERT_TRUE(decoder.seek(static_cast<uint64_t>(target))) << target;
    std::vector<float> block(2000 * kChannels);
    const int64_t got = decoder.read(block.data(), 2000);
    const int64_t expected = std::min<int64_t>(2000, kFrames - target);
    ASSERT_EQ(got, expected) << "after a seek to " << target;
    const std::vector<float> want(straight.begin() + target * kChannels,
                                  straight.begin() + (target + got) * kChannels);
    block.resize(static_cast<size_t>(got) * kChannels);
    EXPECT_EQ(block, want) << "after a seek to " << target;
    EXPECT_EQ(decoder.streamPosition, target + got);
  }

  // Past the end: nothing more, and a rewind still starts over.
  EXPECT_TRUE(decoder.seek(static_cast<uint64_t>(kFrames) + 5000));
  float tail[16] = {};
  EXPECT_EQ(decoder.read(tail, 8), 0);
  ASSERT_TRUE(decoder.seek(0));
  EXPECT_EQ(readAll(decoder, 3000), straight);
}

TEST_F(MediaFoundationFiles, SeeksToTheExactFrame) {
  AudioDecoderMediaFoundation decoder;
  if (!openSine(decoder, "seek.wav")) GTEST_SKIP() << skipReason_;
  const std::vector<float> straight = readAll(decoder, 4096);
  ASSERT_EQ(straight.size(), static_cast<size_t>(kFrames) * kChannels);
  expectExactSeeks(decoder, straight);
}

TEST_F(MediaFoundationFiles, SeeksToTheExactFrameOfACompressedStream) {
  AudioDecoderMediaFoundation wave;
  if (!openSine(wave, "reference.wav")) GTEST_SKIP() << skipReason_;
  const fs::path flac = write("sine.flac", FlacWriter().bytes(sineFrames(kFrames)));
  AudioDecoderMediaFoundation decoder;
  if (!decoder.open(utf8(flac)))
    GTEST_SKIP() << "this system's Media Foundation does not decode FLAC "
                    "(under wine: the GStreamer good plug-ins are missing)";
  EXPECT_EQ(decoder.format().channels, kChannels);
  EXPECT_EQ(decoder.format().sampleRate, kRate);
  EXPECT_NEAR(static_cast<double>(decoder.format().totalFrames), static_cast<double>(kFrames), 1.0);
  const std::vector<float> straight = readAll(decoder, 4096);
  // Lossless: the same samples as the WAV file.
  EXPECT_EQ(straight, readAll(wave, 4096));
  ASSERT_EQ(straight.size(), static_cast<size_t>(kFrames) * kChannels);
  expectExactSeeks(decoder, straight);
}

}  // namespace
}  // namespace velorum
