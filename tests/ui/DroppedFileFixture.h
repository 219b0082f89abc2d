// The fixture of the tests that drop audio files on the editor: a meter with
// its editor, an export folder of its own, and a drop that waits for the
// analysis to finish.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "MeterFixture.h"

namespace velorum::testing {

inline std::string ReadFileText(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

class DroppedFileTest : public ::testing::Test {
 protected:
  // `name` keeps each test group's settings and exports apart.
  explicit DroppedFileTest(std::string name) : mName(std::move(name)) {}
  void SetUp() override {
    meter = std::make_unique<MeterFixture>(mName);
    exports = std::filesystem::path(meter->Folder()) / "exports";
    std::filesystem::create_directories(exports);
    meter->Editor().Settings().exportFolder = exports.string();
  }
  // Drops `path` on the editor and waits for the analysis.
  void Drop(const std::string& path) {
    ui::MeterEditor& ed = meter->Editor();
    ASSERT_TRUE(ed.Graphics().OnDrop({path}, {0}, 400.f, 300.f));
    ASSERT_TRUE(ed.FinishAnalysisForTests(120000));
  }
  std::unique_ptr<MeterFixture> meter;
  std::filesystem::path exports;

 private:
  std::string mName;
};

}  // namespace velorum::testing
