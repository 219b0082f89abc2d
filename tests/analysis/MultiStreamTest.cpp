// Files with several audio streams: six mono tracks of an MXF are one 5.1
// programme, measured as the same audio in a 5.1 WAV; a file of several
// multichannel streams is measured on the first unless one is chosen.
#include <gtest/gtest.h>

#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"

namespace velorum {
namespace {

#ifdef VELORUM_TRUST_FIXTURES
struct StreamRun {
  bool ok = false;
  int error = 0;
  std::string message;
  OfflineAnalysis::FileInfo info;
  test::Readings readings{};
};

StreamRun Measure(const std::string& name, int stream = -1) {
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {std::string(VELORUM_TRUST_FIXTURES "/") + name};
  request.stream = stream;
  StreamRun r;
  r.ok = analysis.run(request);
  r.error = analysis.error();
  r.message = analysis.message();
  r.info = analysis.fileInfo();
  r.readings = test::readingsOf(engine);
  return r;
}

TEST(MultiStream, SixMonoTracksOfAnMxfReadAsTheFiveOneWav) {
  const StreamRun wav = Measure("five1.wav");
  const StreamRun mxf = Measure("six-mono.mxf");
  ASSERT_TRUE(wav.ok && mxf.ok) << mxf.message;
  EXPECT_EQ(mxf.info.channels, 6u);
  EXPECT_EQ(mxf.info.streams, 6);
  EXPECT_EQ(mxf.info.stream, -1);
  EXPECT_EQ(mxf.info.channelNames, wav.info.channelNames);
  EXPECT_NEAR(mxf.readings.integrated, wav.readings.integrated, 0.05);
  EXPECT_NEAR(mxf.readings.loudnessRange, wav.readings.loudnessRange, 0.05);
  EXPECT_NEAR(mxf.readings.truePeakMax, wav.readings.truePeakMax, 0.05);
  // One track alone is far quieter than the programme.
  const StreamRun one = Measure("six-mono.mxf", 0);
  ASSERT_TRUE(one.ok);
  EXPECT_EQ(one.info.channels, 1u);
  EXPECT_LT(one.readings.integrated, wav.readings.integrated - 3.0);
}

TEST(MultiStream, SeveralMultichannelStreamsMeasureTheFirstOrTheChosenOne) {
  const StreamRun first = Measure("two-stereo.mka");
  const StreamRun second = Measure("two-stereo.mka", 1);
  ASSERT_TRUE(first.ok && second.ok);
  EXPECT_EQ(first.info.streams, 2);
  EXPECT_EQ(first.info.stream, 0);
  EXPECT_EQ(second.info.stream, 1);
  EXPECT_EQ(first.info.channels, 2u);
  EXPECT_NEAR(first.readings.integrated - second.readings.integrated, 20.0,
              0.05);  // the second is 0.1 in amplitude
  const StreamRun missing = Measure("two-stereo.mka", 2);
  EXPECT_FALSE(missing.ok);
  EXPECT_EQ(missing.error, AudioFileReader::ErrorNoStream);
  EXPECT_EQ(missing.message.rfind("The file could not be opened. It holds 2 audio stream(s)", 0), 0u)
      << missing.message;
}
#endif

}  // namespace
}  // namespace velorum
