// Every file of the mutated corpus (see FuzzCorpusMaker.cpp) is measured or
// refused with a message and a reason; a measured one gives finite readings.
// Under the AddressSanitizer build this is the reader's fuzz test.
// VELORUM_FUZZ_CORPUS in the environment points it at another corpus.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "analysis/OfflineAnalysis.h"
#include "engine/LoudnessEngine.h"

namespace velorum {
namespace {

TEST(ReaderFuzz, EveryMutatedFileIsMeasuredOrRefusedWithAReason) {
  const char* env = std::getenv("VELORUM_FUZZ_CORPUS");
  const std::filesystem::path corpus = env && *env ? env : VELORUM_FUZZ_CORPUS;
  std::map<std::string, int> perFormat;
  int measured = 0, refused = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    if (!entry.is_regular_file() || entry.path().filename().string()[0] == '.') continue;
    const std::string path = entry.path().string();
    LoudnessEngine engine;
    OfflineAnalysis analysis(engine);
    OfflineAnalysis::Request request;
    request.paths = {path};
    request.blockFrames = 1024;
    if (analysis.run(request)) {
      ++measured;
      EXPECT_TRUE(std::isfinite(engine.Integrated()) && std::isfinite(engine.LoudnessRange()) &&
                  std::isfinite(engine.TruePeakMax()) && std::isfinite(engine.MomentaryMax()))
          << path;
    } else {
      ++refused;
      EXPECT_EQ(analysis.state(), OfflineAnalysis::Failed) << path;
      EXPECT_FALSE(analysis.message().empty()) << path;
      EXPECT_FALSE(analysis.reason().empty()) << path;
    }
    ++perFormat[entry.path().extension().string()];
  }
  for (const char* ext : {".wav", ".rf64", ".w64", ".aiff", ".aifc", ".flac", ".ogg"})
    EXPECT_GT(perFormat[ext], 5) << ext;
  EXPECT_GT(measured, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace velorum
