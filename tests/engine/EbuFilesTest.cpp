// The official EBU loudness test files read as EBU Tech 3341 expects.
#include <gtest/gtest.h>

#include <filesystem>

#include "EngineTestSignals.h"
#include "WavFile.h"

namespace velorum::test {
namespace {

std::string EbuDir() {
  const char* env = std::getenv("VELORUM_EBU_DIR");
  return env != nullptr ? env : VELORUM_EBU_DIR;
}

Signal Load(const std::string& name) {
  const std::string path = EbuDir() + "/" + name;
  Signal s;
  std::string error;
  if (!std::filesystem::is_directory(EbuDir()))
    ADD_FAILURE() << "EBU test files missing: directory " << EbuDir()
                  << " not found (set VELORUM_EBU_DIR to the folder holding seq-3341-*.wav)";
  else if (!ReadWav(path, s, error))
    ADD_FAILURE() << name << ": " << error;
  return s;
}

TEST(EbuFiles, SteadyTonesOneAndTwo) {
  const struct {
    const char* file;
    double level;
  } cases[] = {{"seq-3341-1-16bit.wav", -23.0}, {"seq-3341-2-16bit.wav", -33.0}};
  for (const auto& c : cases) {
    const Signal s = Load(c.file);
    ASSERT_GT(s.Frames(), 0) << c.file;
    LoudnessEngine e;
    Prepare(e, s);
    Feed(e, s);
    EXPECT_NEAR(e.Momentary(), c.level, 0.1) << c.file;
    EXPECT_NEAR(e.ShortTerm(), c.level, 0.1) << c.file;
    EXPECT_NEAR(e.Integrated(), c.level, 0.1) << c.file;
  }
}

TEST(EbuFiles, ShortTermMaximumOfCaseTen) {
  for (const char* file : {"seq-3341-10-1-24bit.wav", "seq-3341-10-7-24bit.wav", "seq-3341-10-14-24bit.wav",
                           "seq-3341-10-20-24bit.wav"}) {
    const Signal s = Load(file);
    ASSERT_GT(s.Frames(), 0) << file;
    LoudnessEngine e;
    Prepare(e, s);
    Feed(e, s);
    EXPECT_NEAR(e.ShortTermMax(), -23.0, 0.1) << file;
  }
}

TEST(EbuFiles, MomentaryOfCaseTwelve) {
  const Signal s = Load("seq-3341-12-24bit.wav");
  ASSERT_GT(s.Frames(), 0);
  LoudnessEngine e;
  Prepare(e, s);
  double lo = 0.0, hi = -200.0;
  Feed(e, s, static_cast<int>(s.rate / 100), [&](int fed) {
    if (fed >= s.rate) {
      lo = std::min(lo, e.Momentary());
      hi = std::max(hi, e.Momentary());
    }
  });
  EXPECT_NEAR(lo, -23.0, 0.1);
  EXPECT_NEAR(hi, -23.0, 0.1);
}

}  // namespace
}  // namespace velorum::test
