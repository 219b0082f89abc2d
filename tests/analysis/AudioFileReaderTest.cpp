// The file reader's edge cases: extensions, the second chance of the system
// decoder, channel counts, block padding and progress, empty files, bext,
// cancel and rewind.
#include <gtest/gtest.h>

#include "analysis/AudioFileReader.h"
#include "analysis/AudioFixtures.h"

namespace velorum {
namespace {

using test::TempDir;

std::vector<float> ramp(int channels, int64_t frames) {
  std::vector<float> s(static_cast<size_t>(frames * channels));
  for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<float>((static_cast<int>(i % 200) - 100) / 128.0);
  return s;
}

TEST(AudioFileReader, CapitalisedExtensionOpensWithTheWavDecoder) {
  TempDir dir;
  const std::string path = dir.file("TONE.WAV");
  ASSERT_TRUE(test::writeWav(path, 2, 48000, ramp(2, 1000)));
  AudioFileReader reader;
  ASSERT_TRUE(reader.open(path));
  EXPECT_EQ(reader.kind(), AudioFileReader::KindWav);
  EXPECT_EQ(reader.extension(), "wav");
  EXPECT_EQ(reader.channels(), 2u);
  EXPECT_EQ(reader.sampleRate(), 48000u);
  EXPECT_EQ(reader.totalFrames(), 1000u);
  EXPECT_EQ(reader.bitsPerSample(), 24);
}

TEST(AudioFileReader, Mp3DataUnderAWavNameIsDecodedBySystemDecoder) {
  TempDir dir;
  const std::vector<float> tone = test::programme(2, 44100, 44100 * 2);
  const std::string mp3 = dir.file("tone.mp3");
  if (!test::writeMp3(mp3, dir.file("scratch.wav"), 2, 44100, tone))
    GTEST_SKIP() << "no MP3 encoder (libsndfile without MPEG, no ffmpeg)";
  const std::string disguised = dir.file("tone.wav");
  std::filesystem::copy_file(mp3, disguised);

  AudioFileReader asMp3, asWav;
  ASSERT_TRUE(asMp3.open(mp3));
  EXPECT_EQ(asMp3.kind(), AudioFileReader::KindMp3);
  ASSERT_TRUE(asWav.open(disguised));
  EXPECT_EQ(asWav.kind(), AudioFileReader::KindSystem);
  EXPECT_EQ(asWav.bitsPerSample(), -1);
  EXPECT_EQ(asWav.channels(), 2u);
  EXPECT_EQ(asWav.sampleRate(), 44100u);
  ASSERT_TRUE(asWav.prepare(4096));
  ASSERT_TRUE(asWav.readBlock());
  EXPECT_EQ(asWav.framesRead(), 4096);
  float peak = 0.0f;
  for (int i = 0; i < 4096 * 2; ++i) peak = std::max(peak, std::fabs(asWav.buffer()[i]));
  EXPECT_GT(peak, 0.05f);  // real audio, not silence
}

TEST(AudioFileReader, ChannelCountsOutsideTheSupportedSetFailWithError7) {
  TempDir dir;
  for (int channels : {16, 17, 20, 24}) {
    const std::string path = dir.file("c" + std::to_string(channels) + ".wav");
    ASSERT_TRUE(test::writeWav(path, channels, 48000, ramp(channels, 64), SF_FORMAT_PCM_16));
    AudioFileReader reader;
    const bool supported = channels == 16 || channels == 24;
    EXPECT_EQ(reader.open(path), supported) << channels;
    if (supported) {
      EXPECT_EQ(reader.channels(), static_cast<uint32_t>(channels));
      EXPECT_EQ(reader.error(), 0);
    } else {
      EXPECT_EQ(reader.error(), AudioFileReader::ErrorChannels) << channels;
      EXPECT_EQ(reader.state(), AudioFileReader::StateFailed);
      EXPECT_EQ(reader.kind(), AudioFileReader::KindNone);
    }
  }
}

TEST(AudioFileReader, LastBlockIsPaddedWithSilenceAndProgressClampsAt100) {
  TempDir dir;
  const std::string path = dir.file("odd.wav");
  std::vector<float> samples(4097 * 2, 0.5f);
  ASSERT_TRUE(test::writeWav(path, 2, 48000, samples, SF_FORMAT_FLOAT));
  AudioFileReader reader;
  ASSERT_TRUE(reader.open(path));
  ASSERT_TRUE(reader.prepare(4096));
  EXPECT_EQ(reader.progress(), 0);

  ASSERT_TRUE(reader.readBlock());
  EXPECT_EQ(reader.framesRead(), 4096);
  EXPECT_EQ(reader.progress(), 99);  // 4096 / 4097, truncated

  ASSERT_TRUE(reader.readBlock());
  EXPECT_EQ(reader.framesRead(), 1);
  EXPECT_EQ(reader.position(), 8192);
  EXPECT_EQ(reader.progress(), 100);
  EXPECT_FLOAT_EQ(reader.buffer()[0], 0.5f);
  EXPECT_FLOAT_EQ(reader.buffer()[1], 0.5f);
  for (int i = 2; i < 4096 * 2; ++i) ASSERT_EQ(reader.buffer()[i], 0.0f) << i;

  ASSERT_TRUE(reader.readBlock());  // the end: no frames, still true
  EXPECT_EQ(reader.framesRead(), 0);
  EXPECT_FALSE(reader.truncated());
  EXPECT_EQ(reader.framesDelivered(), 4097u);
}

TEST(AudioFileReader, ZeroLengthFileIsRefusedAsHoldingNoAudio) {
  TempDir dir;
  const std::string path = dir.file("empty.wav");
  ASSERT_TRUE(test::writeWav(path, 2, 48000, {}));
  AudioFileReader reader;
  EXPECT_FALSE(reader.open(path));
  EXPECT_EQ(reader.error(), AudioFileReader::ErrorNoAudio);
  EXPECT_EQ(reader.state(), AudioFileReader::StateFailed);
  EXPECT_FALSE(reader.prepare(4096));

  AudioFileReader never;  // nothing opened at all
  EXPECT_FALSE(never.prepare(4096));
  EXPECT_EQ(never.error(), AudioFileReader::ErrorNothingToRead);
}

TEST(AudioFileReader, MissingAndZeroByteFilesFailToOpen) {
  TempDir dir;
  const std::string zero = dir.file("zero.wav");
  std::fclose(std::fopen(zero.c_str(), "wb"));
  for (const std::string& path : {zero, dir.file("absent.flac"), dir.file("noext")}) {
    AudioFileReader reader;
    EXPECT_FALSE(reader.open(path)) << path;
    EXPECT_EQ(reader.error(), path == zero ? AudioFileReader::ErrorOpen : AudioFileReader::ErrorMissing);
    EXPECT_EQ(reader.state(), AudioFileReader::StateFailed);
    EXPECT_FALSE(reader.readBlock());
  }
}

TEST(AudioFileReader, BroadcastWaveTimeReferenceIsReported) {
  TempDir dir;
  const std::string path = dir.file("bext.wav");
  SF_INFO info{};
  info.samplerate = 48000;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(f, nullptr);
  SF_BROADCAST_INFO bext{};
  const uint64_t tenHours = 10ull * 3600 * 48000;  // 10:00:00:00 at 48 kHz
  bext.time_reference_low = static_cast<uint32_t>(tenHours & 0xFFFFFFFFu);
  bext.time_reference_high = static_cast<uint32_t>(tenHours >> 32);
  ASSERT_EQ(sf_command(f, SFC_SET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
  const std::vector<float> s = ramp(1, 480);
  sf_writef_float(f, s.data(), 480);
  sf_close(f);

  AudioFileReader reader;
  ASSERT_TRUE(reader.open(path));
  EXPECT_EQ(reader.timeReference(), tenHours);
}

TEST(AudioFileReader, CancelStopsAtTheNextBlockAndRewindStartsOver) {
  TempDir dir;
  const std::string path = dir.file("long.flac");
  const std::vector<float> s = ramp(2, 48000);
  ASSERT_TRUE(test::writeFile(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, s));
  AudioFileReader reader;
  ASSERT_TRUE(reader.open(path));
  EXPECT_EQ(reader.kind(), AudioFileReader::KindFlac);
  ASSERT_TRUE(reader.prepare(1000));
  ASSERT_TRUE(reader.readBlock());
  const std::vector<float> first(reader.buffer(), reader.buffer() + 2000);
  ASSERT_TRUE(reader.readBlock());
  ASSERT_TRUE(reader.rewind());
  EXPECT_EQ(reader.position(), 0);
  ASSERT_TRUE(reader.readBlock());
  EXPECT_EQ(std::vector<float>(reader.buffer(), reader.buffer() + 2000), first);

  reader.setCancel(true);
  EXPECT_FALSE(reader.readBlock());
  EXPECT_EQ(reader.state(), AudioFileReader::StateCancelled);
}

// The build's fixtures (one 10 s 997 Hz tone at 1/8 of full scale) in the
// formats only the system decoder opens, also MP3 data under a .wav name: on
// Linux through FFmpeg's libraries, on Windows through Media Foundation.
TEST(AudioFileReader, SystemDecoderOpensFormatsTheLibrariesDoNot) {
#ifndef VELORUM_LOSSY_FIXTURES
  GTEST_SKIP() << "no fixtures (the build machine has no ffmpeg command)";
#else
  TempDir dir;
  const std::string fixtures = VELORUM_LOSSY_FIXTURES;
  std::filesystem::copy_file(fixtures + "/tone.mp3", dir.file("disguised.wav"));
  for (const std::string& path : {fixtures + "/tone.m4a", fixtures + "/tone.opus", fixtures + "/tone.aiff",
                                  fixtures + "/tone.mkv", dir.file("disguised.wav")}) {
    AudioFileReader reader;
    ASSERT_TRUE(reader.open(path)) << path;
    EXPECT_EQ(reader.kind(), AudioFileReader::KindSystem) << path;
    EXPECT_EQ(reader.channels(), 2u) << path;
    EXPECT_EQ(reader.sampleRate(), 48000u) << path;
    EXPECT_EQ(reader.bitsPerSample(), -1) << path;
    EXPECT_NEAR(static_cast<double>(reader.totalFrames()), 480000.0, 2400.0) << path;
    ASSERT_TRUE(reader.prepare(4096));
    int64_t frames = 0;
    float peak = 0.0f;
    // The level is checked after the first 100 ms, where codecs settle
    // (not every decoder drops an Opus stream's pre-skip).
    while (reader.readBlock() && reader.framesRead() > 0) {
      for (int i = 0; i < reader.framesRead() * 2; ++i)
        if (frames + i / 2 >= 4800) peak = std::max(peak, std::fabs(reader.buffer()[i]));
      frames += reader.framesRead();
    }
    EXPECT_NE(reader.state(), AudioFileReader::StateFailed) << path;
    EXPECT_NEAR(static_cast<double>(frames), 480000.0, 2400.0) << path;
    EXPECT_NEAR(peak, 0.125f, 0.01f) << path;
  }
#endif
}

}  // namespace
}  // namespace velorum
