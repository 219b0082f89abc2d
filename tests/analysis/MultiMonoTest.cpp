// Multi-mono sets: matching file names to the channels of a layout, the
// channel order of the delivered frames, and the refusals.
#include <gtest/gtest.h>

#include "analysis/AudioFileReader.h"
#include "analysis/AudioFixtures.h"
#include "analysis/ChannelFileMatcher.h"
#include "analysis/OfflineAnalysis.h"

namespace velorum {
namespace {

using test::TempDir;

// A mono file whose every sample is `value`, so the channel order shows in
// the interleaved frames.
std::string monoFile(const TempDir& dir, const std::string& name, float value, int frames = 2000,
                     int rate = 48000) {
  const std::string path = dir.file(name);
  EXPECT_TRUE(
      test::writeWav(path, 1, rate, std::vector<float>(static_cast<size_t>(frames), value), SF_FORMAT_FLOAT));
  return path;
}

int layoutNamed(const char* name) {
  return LayoutByName(name);
}

TEST(ChannelFileMatcher, SuffixIsTheLastTokenOfTheName) {
  EXPECT_EQ(channelSuffix("/a/mix.L.wav"), "L");
  EXPECT_EQ(channelSuffix("mix_Ls.WAV"), "Ls");
  EXPECT_EQ(channelSuffix("/x.y/mix-LFE.flac"), "LFE");
  EXPECT_EQ(channelSuffix("final mix R.wav"), "R");
  EXPECT_EQ(channelSuffix("mix.wav"), "");
}

TEST(ChannelFileMatcher, FilesFindTheirChannelsInAnyOrder) {
  const int layout = layoutNamed("5.1 (L R C LFE Ls Rs)");
  ASSERT_GE(layout, 0);
  const std::vector<std::string> given = {"m.Rs.wav",  "m.C.wav", "m.L.wav",
                                          "m.sub.wav", "m.R.wav", "m.Ls.wav"};
  const ChannelFileMatch match = matchChannelFiles(given, static_cast<uint32_t>(layout), true);
  ASSERT_TRUE(match.ok);
  EXPECT_EQ(match.paths,
            (std::vector<std::string>{"m.L.wav", "m.R.wav", "m.C.wav", "m.sub.wav", "m.Ls.wav", "m.Rs.wav"}));
  EXPECT_EQ(match.names, (std::vector<std::string>{"L", "R", "C", "LFE", "Ls", "Rs"}));
}

TEST(ChannelFileMatcher, StrictRefusesNamesWithoutSuffixLenientFillsInOrder) {
  const uint32_t stereo = static_cast<uint32_t>(layoutNamed("2.0 (L R)"));
  const std::vector<std::string> given = {"voice.R.wav", "voice.wav"};
  EXPECT_FALSE(matchChannelFiles(given, stereo, true).ok);
  const ChannelFileMatch lenient = matchChannelFiles(given, stereo, false);
  ASSERT_TRUE(lenient.ok);
  EXPECT_EQ(lenient.paths, (std::vector<std::string>{"voice.wav", "voice.R.wav"}));
  // The same channel twice never matches.
  EXPECT_FALSE(matchChannelFiles({"a.L.wav", "b.L.wav"}, stereo, false).ok);
}

TEST(ChannelFileMatcher, LayoutChosenFromTheSuffixes) {
  const std::vector<std::string> given = {"x.L.wav", "x.R.wav", "x.Ls.wav", "x.Rs.wav", "x.C.wav"};
  const ChannelFileMatch match = matchChannelFiles(given, 0xFFFFFFFFu, true);
  ASSERT_TRUE(match.ok);
  EXPECT_EQ(static_cast<int>(match.layoutIndex), layoutNamed("5.0 (L R C Ls Rs)"));
  // Names of another layout size never match a chosen layout.
  EXPECT_FALSE(matchChannelFiles(given, static_cast<uint32_t>(layoutNamed("2.0 (L R)")), false).ok);
}

TEST(MultiMono, FramesAreInterleavedInChannelOrder) {
  TempDir dir;
  std::vector<std::string> files = {monoFile(dir, "p.Rs.wav", 0.6f), monoFile(dir, "p.LFE.wav", 0.4f),
                                    monoFile(dir, "p.L.wav", 0.1f),  monoFile(dir, "p.C.wav", 0.3f),
                                    monoFile(dir, "p.Ls.wav", 0.5f), monoFile(dir, "p.R.wav", 0.2f)};
  AudioFileReader reader;
  ASSERT_TRUE(reader.openMultiMono(files, static_cast<uint32_t>(layoutNamed("5.1 (L R C LFE Ls Rs)")), true));
  EXPECT_EQ(reader.kind(), AudioFileReader::KindMultiMono);
  EXPECT_EQ(reader.channels(), 6u);
  EXPECT_EQ(reader.bitsPerSample(), -1);  // a set states no single depth
  EXPECT_EQ(reader.largestChannelBits(), 32);
  EXPECT_EQ(reader.path(), dir.file("p.L.wav"));
  ASSERT_TRUE(reader.prepare(512));
  ASSERT_TRUE(reader.readBlock());
  ASSERT_EQ(reader.framesRead(), 512);
  for (int c = 0; c < 6; ++c)
    EXPECT_FLOAT_EQ(reader.buffer()[511 * 6 + c], 0.1f * static_cast<float>(c + 1)) << c;
}

TEST(MultiMono, FilesDifferingByOneFrameFailWithError7) {
  TempDir dir;
  const std::vector<std::string> files = {monoFile(dir, "s.L.wav", 0.1f, 2000),
                                          monoFile(dir, "s.R.wav", 0.1f, 2001)};
  AudioFileReader reader;
  EXPECT_FALSE(reader.openMultiMono(files, AudioFileReader::kLayoutFromFileCount, false));
  EXPECT_EQ(reader.error(), AudioFileReader::ErrorChannels);
  EXPECT_EQ(reader.state(), AudioFileReader::StateFailed);
  EXPECT_EQ(reader.kind(), AudioFileReader::KindNone);

  const std::vector<std::string> rates = {monoFile(dir, "r.L.wav", 0.1f, 2000, 48000),
                                          monoFile(dir, "r.R.wav", 0.1f, 2000, 44100)};
  EXPECT_FALSE(reader.openMultiMono(rates, AudioFileReader::kLayoutFromFileCount, false));
  EXPECT_EQ(reader.error(), AudioFileReader::ErrorChannels);
}

TEST(MultiMono, AStereoFileInTheSetFailsWithError9) {
  TempDir dir;
  const std::string stereo = dir.file("t.R.wav");
  ASSERT_TRUE(test::writeWav(stereo, 2, 48000, std::vector<float>(4000, 0.1f), SF_FORMAT_FLOAT));
  const std::vector<std::string> files = {monoFile(dir, "t.L.wav", 0.1f, 2000), stereo};
  AudioFileReader reader;
  EXPECT_FALSE(reader.openMultiMono(files, AudioFileReader::kLayoutFromFileCount, false));
  EXPECT_EQ(reader.error(), AudioFileReader::ErrorNotMono);
  EXPECT_EQ(reader.state(), AudioFileReader::StateFailed);
}

TEST(MultiMono, RefusalsBecomeTheUsersMessages) {
  TempDir dir;
  OfflineAnalysis::Request request;
  request.multiMono = true;

  // Three files against the stereo preset: the layout does not match.
  request.paths = {monoFile(dir, "u.L.wav", 0.1f), monoFile(dir, "u.R.wav", 0.1f),
                   monoFile(dir, "u.C.wav", 0.1f)};
  request.layoutIndex = static_cast<uint32_t>(layoutNamed("2.0 (L R)"));
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  EXPECT_FALSE(analysis.run(request));
  EXPECT_EQ(analysis.error(), AudioFileReader::ErrorLayout);
  EXPECT_EQ(analysis.message(), "The dropped files do not match the current channel preset.");

  // Seventeen files: the channel count is not supported.
  request.paths.clear();
  for (int i = 0; i < 17; ++i) request.paths.push_back(dir.file("many" + std::to_string(i) + ".wav"));
  request.layoutIndex = AudioFileReader::kLayoutFromFileCount;
  EXPECT_FALSE(analysis.run(request));
  EXPECT_EQ(analysis.error(), AudioFileReader::ErrorChannels);
  EXPECT_EQ(analysis.message(), "The multi-mono file selection is not valid.");

  // Two files without multi-mono: not a valid selection.
  request.multiMono = false;
  request.paths = {dir.file("u.L.wav"), dir.file("u.R.wav")};
  EXPECT_FALSE(analysis.run(request));
  EXPECT_EQ(analysis.message(), "The file selection is not valid.");
}

TEST(MultiMono, SetIsMeasuredLikeTheInterleavedFile) {
  TempDir dir;
  const std::vector<float> stereo = test::programme(2, 48000, 48000 * 6);
  std::vector<float> left(stereo.size() / 2), right(stereo.size() / 2);
  for (size_t i = 0; i < left.size(); ++i) {
    left[i] = stereo[2 * i];
    right[i] = stereo[2 * i + 1];
  }
  ASSERT_TRUE(test::writeWav(dir.file("v.L.wav"), 1, 48000, left, SF_FORMAT_FLOAT));
  ASSERT_TRUE(test::writeWav(dir.file("v.R.wav"), 1, 48000, right, SF_FORMAT_FLOAT));
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.multiMono = true;
  request.paths = {dir.file("v.R.wav"), dir.file("v.L.wav")};
  ASSERT_TRUE(analysis.run(request)) << analysis.message();
  const test::Readings direct = test::measureDirect(stereo, 2, 48000);
  EXPECT_DOUBLE_EQ(engine.Integrated(), direct.integrated);
  EXPECT_DOUBLE_EQ(engine.TruePeakMax(), direct.truePeakMax);
  EXPECT_EQ(analysis.fileInfo().channelNames, (std::vector<std::string>{"L", "R"}));
  EXPECT_EQ(analysis.fileInfo().bitsPerSample, -1);
}

}  // namespace
}  // namespace velorum
