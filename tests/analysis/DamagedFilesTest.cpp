// Truncated and corrupt files of every format end in a failed analysis with
// a message, never in a crash or a silent partial reading.
#include <gtest/gtest.h>

#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"

namespace velorum {
namespace {

using test::TempDir;

std::string analyse(const std::string& path, int* state) {
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {path};
  analysis.run(request);
  *state = analysis.state();
  return analysis.message();
}

struct Made {
  std::string name;
  std::string path;
};

std::vector<Made> makeEveryFormat(const TempDir& dir) {
  const std::vector<float> source = test::programme(2, 48000, 48000 * 4);
  std::vector<Made> made;
  auto keep = [&](const std::string& name, bool ok) {
    if (ok) made.push_back({name, dir.file(name)});
  };
  keep("a.wav", test::writeWav(dir.file("a.wav"), 2, 48000, source));
  keep("a.flac", test::writeFile(dir.file("a.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, source));
  keep("a.ogg", test::writeFile(dir.file("a.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 2, 48000, source));
  keep("a.mp3", test::writeMp3(dir.file("a.mp3"), dir.file("scratch.wav"), 2, 48000, source));
  if (!made.empty()) keep("a.m4a", test::ffmpegConvert(made.front().path, dir.file("a.m4a"), "-c:a aac"));
  return made;
}

TEST(DamagedFiles, TruncatedFilesOfEveryFormatFailWithAMessage) {
  TempDir dir;
  for (const Made& m : makeEveryFormat(dir)) {
    const std::string cut = dir.file("cut-" + m.name);
    ASSERT_TRUE(test::truncateCopy(m.path, cut, test::fileSize(m.path) / 2)) << m.name;
    int state = 0;
    const std::string message = analyse(cut, &state);
    EXPECT_EQ(state, OfflineAnalysis::Failed) << m.name;
    EXPECT_EQ(message.rfind("The file could not be opened.", 0), 0u) << m.name << ": " << message;
  }
}

TEST(DamagedFiles, GarbageUnderEveryExtensionFailsToOpen) {
  TempDir dir;
  for (const char* name : {"g.wav", "g.flac", "g.ogg", "g.mp3", "g.m4a", "g.opus", "g.xyz"}) {
    const std::string path = dir.file(name);
    std::fclose(std::fopen(path.c_str(), "wb"));
    ASSERT_TRUE(test::corrupt(path, 0, 40000));
    int state = 0;
    EXPECT_EQ(analyse(path, &state).rfind("The file could not be opened.", 0), 0u) << name;
    EXPECT_EQ(state, OfflineAnalysis::Failed) << name;
  }
}

TEST(DamagedFiles, CorruptHeadersAndBodiesNeverCrash) {
  TempDir dir;
  for (const Made& m : makeEveryFormat(dir)) {
    const uint64_t size = test::fileSize(m.path);
    for (uint64_t offset : {uint64_t{0}, uint64_t{12}, uint64_t{44}, size / 3, size - 64}) {
      const std::string bad = dir.file("bad-" + std::to_string(offset) + "-" + m.name);
      std::filesystem::copy_file(m.path, bad);
      ASSERT_TRUE(test::corrupt(bad, offset, 48));
      int state = 0;
      const std::string message = analyse(bad, &state);
      // Either the damage is skipped and a reading made, or it fails
      // with a message.
      EXPECT_TRUE(state == OfflineAnalysis::Done || (state == OfflineAnalysis::Failed && !message.empty()))
          << m.name << " @" << offset << " state " << state;
    }
  }
}

}  // namespace
}  // namespace velorum
