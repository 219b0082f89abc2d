// Files dropped on the editor are analysed offline and exported: the text
// summary matches the command's `velorum analyze --summary`, the other exports
// have their formats, and the export writer's questions and refusals reach
// the user as the editor's messages.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "DroppedFileFixture.h"
#include "WavFile.h"
#include "ui/ExportActions.h"
#include "ui/HistoryGraph.h"
#include "ui/LoudnessReadout.h"
#include "ui/MeterMessageBox.h"
#include "ui/UiFormat.h"

namespace velorum::testing {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  std::stringstream s(text);
  std::string line;
  while (std::getline(s, line)) out.push_back(line);
  return out;
}

class EditorFiles : public DroppedFileTest {
 protected:
  EditorFiles() : DroppedFileTest("files") {}
};

TEST_F(EditorFiles, DroppedFileSummaryMatchesTheCommand) {
  const std::string wav = std::string(VELORUM_EBU_DIR) + "/seq-3341-2-16bit.wav";
  Drop(wav);
  ui::MeterEditor& ed = meter->Editor();
  ASSERT_TRUE(ed.Model().ShowingFile());
  EXPECT_FALSE(ed.Message().IsShown()) << ed.Message().Text();
  // EBU Tech 3341 case 2: -33 LUFS.
  const auto lines = ed.Readout().Lines();
  EXPECT_EQ(lines[0].value, "-33.0");
  EXPECT_NEAR(ed.Graph().TotalSeconds(), double(ed.Model().File()->frames) / ed.Model().File()->sampleRate,
              0.02);
  cairo_surface_t* shot = meter->Render(1.0);
  EXPECT_TRUE(tg_write_png(shot, std::string(VELORUM_BINARY_DIR) + "/docs-editor-file.png"));
  cairo_surface_destroy(shot);

  ed.Export(ui::ExportKind::TextSummary);
  const fs::path mine = exports / "seq-3341-2-16bit_Summary.txt";
  ASSERT_EQ(ed.LastExportPath(), mine.string());
  ASSERT_TRUE(ed.Message().IsShown());
  ed.Message().Press(0);

  const fs::path theirs = exports / "command-summary.txt";
  const std::string command = std::string(VELORUM_CLI_PATH) + " analyze --summary '" + theirs.string() +
                              "' '" + wav + "' > /dev/null 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const auto a = Lines(ReadFileText(mine)), b = Lines(ReadFileText(theirs));
  // The command adds an empty line and "File Name: " after the meter's own lines.
  ASSERT_EQ(a.size() + 2, b.size());
  EXPECT_EQ(b.back(), "File Name: " + wav);
  ASSERT_GT(a.size(), 10u);
  for (size_t i = 0; i < a.size(); ++i) {
    if (i == 2) continue;  // the time and date of the export
    EXPECT_EQ(a[i], b[i]) << "line " << i;
  }
}

TEST_F(EditorFiles, ExportsAskBeforeReplacingAndReportFailures) {
  Drop(std::string(VELORUM_EBU_DIR) + "/seq-3341-1-16bit.wav");
  ui::MeterEditor& ed = meter->Editor();
  ASSERT_TRUE(ed.Model().ShowingFile());
  const fs::path csv = exports / "seq-3341-1-16bit_History.csv";
  ed.Export(ui::ExportKind::Csv);
  ed.Message().Press(0);
  ASSERT_TRUE(fs::exists(csv));
  EXPECT_EQ(ReadFileText(csv).rfind("Time,", 0), 0u);
  // The second export of the same file asks first; "No" keeps the old file.
  { std::ofstream(csv, std::ios::trunc) << "old"; }
  ed.Export(ui::ExportKind::Csv);
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_EQ(ed.Message().Text(), "This file already exists. Do you want to replace the existing file?");
  ed.Message().Press(1);
  EXPECT_EQ(ReadFileText(csv), "old");
  ed.Export(ui::ExportKind::Csv);
  ed.Message().Press(0);  // "Yes"
  EXPECT_EQ(ReadFileText(csv).rfind("Time,", 0), 0u);
  ed.Message().Press(0);

  // Images and the Dolby CSV have their formats.
  for (auto [kind, name, magic] :
       {std::tuple{ui::ExportKind::Png, "_Graph.png", std::string("\x89PNG")},
        std::tuple{ui::ExportKind::Svg, "_Graph.svg", std::string("<?xml")},
        std::tuple{ui::ExportKind::Pdf, "_Report.pdf", std::string("%PDF")},
        std::tuple{ui::ExportKind::DolbyCsv, "_Dolby.csv", std::string("Log File Path,")}}) {
    ed.Export(kind);
    ed.Message().Press(0);
    const std::string bytes = ReadFileText(exports / (std::string("seq-3341-1-16bit") + name));
    EXPECT_EQ(bytes.substr(0, magic.size()), magic) << name;
  }
  // The normalised file is written beside them.
  ed.Export(ui::ExportKind::NormalizedWav);
  EXPECT_NE(ed.Message().Text().find("Exported to"), std::string::npos) << ed.Message().Text();
  ed.Message().Press(0);
  EXPECT_GT(fs::file_size(exports / "seq-3341-1-16bit_Normalized.wav"), 1000u);

  // A folder that cannot be written.
  ed.Settings().exportFolder = "/proc/velorum-no-such-folder";
  ed.Export(ui::ExportKind::TextSummary);
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_EQ(ed.Message().Text(), "A new file could not be created. Please try again.");
  ed.Message().Press(0);
}

TEST_F(EditorFiles, AnalysisCanBeCancelled) {
  // Two minutes of noise: long enough to be still running when cancelled.
  harness::WavData wav;
  wav.channels = 2;
  wav.sampleRate = 48000.0;
  wav.samples.assign(2, std::vector<float>(48000 * 120));
  unsigned seed = 1;
  for (auto& channel : wav.samples)
    for (float& v : channel) {
      seed = seed * 1664525u + 1013904223u;
      v = static_cast<float>(int(seed >> 9) % 2001 - 1000) / 4000.0f;
    }
  const fs::path path = exports / "long.wav";
  ASSERT_TRUE(harness::WriteWav(path.string(), wav));
  ui::MeterEditor& ed = meter->Editor();
  ed.AnalyseFiles({path.string()});
  ASSERT_TRUE(ed.AnalysisRunning());
  // (A cancel in the very first moment can be lost by the driver, which
  // clears its cancel flag when its thread starts; a user is never that fast.)
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ed.OnFrame();
  ASSERT_TRUE(ed.AnalysisRunning());
  ed.CancelAnalysis();
  ASSERT_TRUE(ed.FinishAnalysisForTests(60000));
  EXPECT_FALSE(ed.Model().ShowingFile());
  EXPECT_FALSE(ed.Message().IsShown()) << ed.Message().Text();
  fs::remove(path);
}

TEST_F(EditorFiles, DamagedFileIsRefusedAndTheLiveMeterStays) {
  const fs::path bad = exports / "damaged.wav";
  { std::ofstream(bad, std::ios::binary) << "RIFF\x10\x00\x00\x00WAVEjunkjunkjunk"; }
  ui::MeterEditor& ed = meter->Editor();
  ed.Graphics().OnDrop({bad.string()}, {0}, 400.f, 300.f);
  ed.FinishAnalysisForTests(20000);
  EXPECT_FALSE(ed.Model().ShowingFile());
  ASSERT_TRUE(ed.Message().IsShown());
  EXPECT_FALSE(ed.Message().Text().empty());
  ed.Message().Press(0);
  // A dropped folder is not analysed.
  EXPECT_FALSE(ed.Graphics().OnDrop({exports.string()}, {1}, 400.f, 300.f));
}

}  // namespace
}  // namespace velorum::testing
