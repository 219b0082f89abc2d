// The analysis worker: progress and state published while it runs on its
// own thread, cancel, and the file's description.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"

namespace velorum {
namespace {

using test::TempDir;

TEST(OfflineAnalysis, WorkerPublishesProgressAndFinishes) {
  TempDir dir;
  const std::string path = dir.file("p.wav");
  ASSERT_TRUE(test::writeWav(path, 2, 44100, test::programme(2, 44100, 44100 * 6)));
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {path};
  request.blockFrames = 1024;
  ASSERT_TRUE(analysis.start(request));
  int last = 0;
  while (analysis.running()) {
    const int p = analysis.progress();
    EXPECT_GE(p, last);
    EXPECT_LE(p, 100);
    last = p;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  analysis.wait();
  EXPECT_EQ(analysis.state(), OfflineAnalysis::Done);
  EXPECT_EQ(analysis.progress(), 100);
  EXPECT_EQ(analysis.message(), "");
  const OfflineAnalysis::FileInfo& info = analysis.fileInfo();
  EXPECT_EQ(info.sampleRate, 44100u);
  EXPECT_EQ(info.frames, 44100u * 6);
  EXPECT_EQ(info.bitsPerSample, 24);
  EXPECT_EQ(info.channelNames, (std::vector<std::string>{"L", "R"}));
  EXPECT_DOUBLE_EQ(engine.SampleRate(), 44100.0);
  EXPECT_GT(engine.Integrated(), -30.0);
}

TEST(OfflineAnalysis, CancelEndsTheRun) {
  TempDir dir;
  const std::string path = dir.file("long.wav");
  ASSERT_TRUE(test::writeWav(path, 2, 48000, test::programme(2, 48000, 48000 * 30)));
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {path};
  request.blockFrames = 256;
  ASSERT_TRUE(analysis.start(request));
  analysis.cancel();
  analysis.wait();
  EXPECT_TRUE(analysis.state() == OfflineAnalysis::Cancelled || analysis.state() == OfflineAnalysis::Done);
  EXPECT_EQ(analysis.message(), "");
}

TEST(OfflineAnalysis, ChannelCountMessage) {
  TempDir dir;
  const std::string path = dir.file("c17.wav");
  ASSERT_TRUE(test::writeWav(path, 17, 48000, std::vector<float>(17 * 100, 0.1f)));
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {path};
  EXPECT_FALSE(analysis.run(request));
  EXPECT_EQ(analysis.message(), "The channel number is incorrect.");

  // A stereo file measured with a chosen 5.1 layout.
  const std::string stereo = dir.file("stereo.wav");
  ASSERT_TRUE(test::writeWav(stereo, 2, 48000, std::vector<float>(2 * 4800, 0.1f)));
  request.paths = {stereo};
  request.layoutIndex = static_cast<uint32_t>(LayoutByName("5.1 (L R C LFE Ls Rs)"));
  EXPECT_FALSE(analysis.run(request));
  EXPECT_EQ(analysis.message(), "The channel number is incorrect.");
  request.layoutIndex = static_cast<uint32_t>(LayoutByName("2.0 (L R)"));
  EXPECT_TRUE(analysis.run(request));
}

}  // namespace
}  // namespace velorum
