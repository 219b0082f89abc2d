// The editor's text exports of a live measurement, in every build: the
// summary, the plain CSV and the Dolby CSV of the measured programme, written
// through the common export writer; the normalised WAV file only where files
// can be analysed.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "MeterFixture.h"
#include "ui/ExportActions.h"
#include "ui/FileAnalysis.h"

namespace velorum::testing {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> out;
  std::istringstream in(line);
  for (std::string f; std::getline(in, f, ',');) out.push_back(f);
  return out;
}

std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string Utf8(const fs::path& p) {
  const std::u8string s = p.u8string();
  return std::string(s.begin(), s.end());
}

TEST(EditorExport, LiveProgrammeSummaryAndCsvFiles) {
  MeterFixture meter("export");
  // 20 s of stereo 1 kHz at -23 dBFS: -23 LUFS.
  meter.PlaySine(20.0, -23.0);
  ui::MeterEditor& ed = meter.Editor();
  const LoudnessEngine& e = meter.Plugin().Engine();
  ASSERT_NEAR(e.Integrated(), -23.0, 0.1);

  for (ui::ExportKind kind : {ui::ExportKind::TextSummary, ui::ExportKind::Csv, ui::ExportKind::DolbyCsv})
    EXPECT_TRUE(ui::ExportAvailable(kind)) << static_cast<int>(kind);
  EXPECT_EQ(ui::ExportAvailable(ui::ExportKind::NormalizedWav), ui::FileAnalysisAvailable());

  const fs::path folder = fs::path(meter.Folder()) / "exports";
  fs::create_directories(folder);

  std::string summary, message;
  ASSERT_TRUE(ui::BuildTextExport(ed.Model(), ed.Settings(), ui::ExportKind::TextSummary, summary, message))
      << message;
  char integrated[64];
  std::snprintf(integrated, sizeof integrated, "\nIntegrated = %.1f LUFS\n", e.Integrated());
  EXPECT_EQ(summary.rfind("Velorum 2 - V", 0), 0u) << summary;
  EXPECT_NE(summary.find("\nChannel Size: 2\n\nChannel Layout:\n\n1. L\n2. R\n"), std::string::npos)
      << summary;
  EXPECT_NE(summary.find("\nTimecode Start: 00:00:00.000\nTimecode End: 00:00:20."), std::string::npos)
      << summary;
  EXPECT_NE(summary.find(integrated), std::string::npos) << summary;
  EXPECT_EQ(summary.find("File "), std::string::npos);
  // A name outside ASCII, as engineers name their programmes.
  const fs::path summaryFile = folder / fs::path(u8"Bl\u00e4serquintett \u2013 Take 2_Summary.txt");
  EXPECT_EQ(ui::WriteExport(Utf8(summaryFile), summary), "");
  EXPECT_EQ(ReadAll(summaryFile), summary);

  std::string csv;
  ASSERT_TRUE(ui::BuildTextExport(ed.Model(), ed.Settings(), ui::ExportKind::Csv, csv, message)) << message;
  const auto rows = Lines(csv);
  ASSERT_EQ(rows.size(), 21u) << csv;  // the header and one row a second
  EXPECT_EQ(Fields(rows[20])[0], "20.00");
  EXPECT_NEAR(std::stod(Fields(rows[20])[6]), e.Integrated(), 0.05);
  const fs::path csvFile = folder / "Velorum_History.csv";
  EXPECT_EQ(ui::WriteExport(Utf8(csvFile), csv), "");
  EXPECT_EQ(ReadAll(csvFile), csv);

  std::string dolby;
  ASSERT_TRUE(ui::BuildTextExport(ed.Model(), ed.Settings(), ui::ExportKind::DolbyCsv, dolby, message))
      << message;
  EXPECT_EQ(dolby.rfind("Log File Path,", 0), 0u) << dolby;

  // Nothing analysed, nothing to normalise; without decoders the export is
  // not offered at all.
  std::string report;
  const std::string refusal =
      ui::WriteNormalized(ed.Model(), Utf8(folder / "Velorum_Normalized.wav"), report);
  if (ui::FileAnalysisAvailable())
    EXPECT_NE(refusal.find("Drop or choose an audio file first"), std::string::npos) << refusal;
  else
    EXPECT_EQ(refusal, "This export is not available in this version.");
  EXPECT_FALSE(fs::exists(folder / "Velorum_Normalized.wav"));
}

}  // namespace
}  // namespace velorum::testing
