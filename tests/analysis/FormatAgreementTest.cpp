// Readings from files of every format agree with the engine fed the same
// samples directly: exactly for the lossless formats (the decoded samples are
// the written ones), within codec tolerance for the lossy ones.
#include <gtest/gtest.h>

#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"

namespace velorum {
namespace {

using test::TempDir;

constexpr int kRate = 48000;
constexpr int kChannels = 2;

test::Readings analyseFile(const std::string& path, int* kind = nullptr, int32_t block = 4096) {
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {path};
  request.blockFrames = block;
  EXPECT_TRUE(analysis.run(request)) << path << ": " << analysis.message();
  if (kind) *kind = analysis.fileInfo().decoderKind;
  return test::readingsOf(engine);
}

void expectSame(const test::Readings& a, const test::Readings& b, const std::string& what) {
  EXPECT_DOUBLE_EQ(a.integrated, b.integrated) << what;
  EXPECT_DOUBLE_EQ(a.loudnessRange, b.loudnessRange) << what;
  EXPECT_DOUBLE_EQ(a.momentaryMax, b.momentaryMax) << what;
  EXPECT_DOUBLE_EQ(a.shortTermMax, b.shortTermMax) << what;
  EXPECT_DOUBLE_EQ(a.truePeakMax, b.truePeakMax) << what;
}

void expectNear(const test::Readings& a, const test::Readings& b, double loudness, double peak,
                const std::string& what) {
  EXPECT_NEAR(a.integrated, b.integrated, loudness) << what;
  EXPECT_NEAR(a.loudnessRange, b.loudnessRange, 2 * loudness) << what;
  EXPECT_NEAR(a.shortTermMax, b.shortTermMax, loudness) << what;
  EXPECT_NEAR(a.truePeakMax, b.truePeakMax, peak) << what;
}

TEST(FormatAgreement, LosslessFormatsMatchTheEngineExactly) {
  TempDir dir;
  const std::vector<float> source = test::programme(kChannels, kRate, kRate * 8);
  struct Case {
    const char* name;
    int format;
    int kind;
  };
  for (const Case& c : {Case{"a16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2},
                        Case{"a24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2},
                        Case{"af.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2},
                        Case{"a.rf64.wav", SF_FORMAT_RF64 | SF_FORMAT_PCM_24, 2},
                        Case{"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 3}}) {
    const std::string path = dir.file(c.name);
    ASSERT_TRUE(test::writeFile(path, c.format, kChannels, kRate, source)) << c.name;
    int channels = 0, rate = 0;
    const std::vector<float> stored = test::readBack(path, channels, rate);
    int kind = 0;
    const test::Readings fromFile = analyseFile(path, &kind);
    EXPECT_EQ(kind, c.kind) << c.name;
    expectSame(fromFile, test::measureDirect(stored, channels, rate), c.name);
  }
}

TEST(FormatAgreement, BlockSizeDoesNotChangeTheReadings) {
  TempDir dir;
  const std::string path = dir.file("blocks.wav");
  const std::vector<float> source = test::programme(kChannels, kRate, kRate * 5 + 17);
  ASSERT_TRUE(test::writeWav(path, kChannels, kRate, source, SF_FORMAT_FLOAT));
  const test::Readings reference = analyseFile(path, nullptr, 4096);
  for (int32_t block : {1, 333, 65536})
    expectSame(analyseFile(path, nullptr, block), reference, "block " + std::to_string(block));
}

TEST(FormatAgreement, LossyFormatsMatchWithinCodecTolerance) {
  TempDir dir;
  const std::vector<float> source = test::programme(kChannels, kRate, kRate * 8);
  const test::Readings direct = test::measureDirect(source, kChannels, kRate);
  const std::string wav = dir.file("src.wav");
  ASSERT_TRUE(test::writeWav(wav, kChannels, kRate, source, SF_FORMAT_FLOAT));

  const std::string ogg = dir.file("a.ogg");
  if (test::writeFile(ogg, SF_FORMAT_OGG | SF_FORMAT_VORBIS, kChannels, kRate, source)) {
    int kind = 0;
    expectNear(analyseFile(ogg, &kind), direct, 0.2, 0.6, "ogg");
    EXPECT_EQ(kind, 4);
  }
  const std::string mp3 = dir.file("a.mp3");
  if (test::writeMp3(mp3, dir.file("scratch.wav"), kChannels, kRate, source)) {
    int kind = 0;
    expectNear(analyseFile(mp3, &kind), direct, 0.6, 1.0, "mp3");
    EXPECT_EQ(kind, 1);
  }
  if (!test::haveFfmpeg()) GTEST_SKIP() << "ffmpeg not installed: AAC and Opus not checked";
  for (const auto& [name, args] : {std::pair<const char*, const char*>{"a.m4a", "-c:a aac -b:a 256k"},
                                   {"a.opus", "-c:a libopus -b:a 192k"}}) {
    const std::string path = dir.file(name);
    ASSERT_TRUE(test::ffmpegConvert(wav, path, args)) << name;
    int kind = 0;
    expectNear(analyseFile(path, &kind), direct, 0.2, 0.6, name);
    EXPECT_EQ(kind, 5) << name;
  }
}

}  // namespace
}  // namespace velorum

namespace velorum {
namespace {

TEST(FormatAgreement, Mp3AndVorbisOfAKnownSineReadItsLevelAndLength) {
#ifndef VELORUM_LOSSY_FIXTURES
  GTEST_SKIP() << "no MP3 and Ogg Vorbis fixtures (the build found no ffmpeg)";
#else
  // Ten seconds of a 997 Hz sine at 1/8 of full scale (-18.06 dBFS) on both
  // channels: a stereo sine near 1 kHz reads its peak level in LUFS, within
  // the codecs' tolerance. Both containers state the exact length (LAME's
  // gapless header, Vorbis granule positions): not a frame more or less.
  const double level = 20.0 * std::log10(1.0 / 8.0);
  for (const auto& [name, kind] : {std::pair<const char*, int>{"tone.mp3", 1}, {"tone.ogg", 4}}) {
    LoudnessEngine engine;
    OfflineAnalysis analysis(engine);
    OfflineAnalysis::Request request;
    request.paths = {std::string(VELORUM_LOSSY_FIXTURES) + "/" + name};
    ASSERT_TRUE(analysis.run(request)) << name << ": " << analysis.message();
    EXPECT_EQ(analysis.fileInfo().decoderKind, kind) << name;
    EXPECT_EQ(analysis.fileInfo().frames, 480000u) << name;
    EXPECT_EQ(analysis.fileInfo().channels, 2u) << name;
    EXPECT_EQ(analysis.fileInfo().sampleRate, 48000u) << name;
    EXPECT_NEAR(engine.Integrated(), level, 0.4) << name;
    EXPECT_NEAR(engine.ShortTermMax(), level, 0.4) << name;
    EXPECT_NEAR(engine.LoudnessRange(), 0.0, 0.1) << name;
    EXPECT_NEAR(engine.TruePeakMax(), level, 0.6) << name;
  }
#endif
}

TEST(FormatAgreement, VideoWithShorterAudioIsMeasuredToTheEndOfItsAudio) {
  if (!test::haveFfmpeg()) GTEST_SKIP() << "ffmpeg not installed";
  test::TempDir dir;
  const std::string wav = dir.file("tone.wav");
  ASSERT_TRUE(test::writeWav(wav, 2, 48000, test::programme(2, 48000, 48000 * 5), SF_FORMAT_FLOAT));
  // 10 s of picture, 5 s of sound: the container's duration is the video's.
  const std::string mkv = dir.file("clip.mkv");
  const std::string cmd = "ffmpeg -nostdin -loglevel error -y -f lavfi -i testsrc=d=10:s=64x48:r=10 -i '" +
                          wav + "' -c:v mpeg4 -c:a flac '" + mkv + "'";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {mkv};
  ASSERT_TRUE(analysis.run(request)) << analysis.message();
  EXPECT_EQ(analysis.fileInfo().decoderKind, 5);
  EXPECT_EQ(analysis.fileInfo().frames, 48000u * 5);
  int channels = 0, rate = 0;
  const std::vector<float> stored = test::readBack(wav, channels, rate);
  const test::Readings direct = test::measureDirect(stored, channels, rate);
  EXPECT_NEAR(engine.Integrated(), direct.integrated, 1e-6);  // FLAC in the video file is lossless
}

}  // namespace
}  // namespace velorum
