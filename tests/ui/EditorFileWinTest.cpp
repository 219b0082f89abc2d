// The editor's file analysis in the Windows build: an EBU Tech 3341 file
// dropped on the editor (under its own name and under a name outside ASCII) is
// decoded, measured on the worker thread and summarised; the summary's values
// are the standard's known answer and those of the engine fed the same samples
// directly. The normalised file is written from the analysed one.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "DroppedFileFixture.h"
#include "analysis/AudioFileReader.h"
#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"
#include "ui/ExportActions.h"
#include "ui/LoudnessReadout.h"
#include "ui/MeterMessageBox.h"

namespace velorum::testing {
namespace {

namespace fs = std::filesystem;

fs::path U8(const std::string& s) {
  return fs::path(std::u8string(s.begin(), s.end()));
}

// The summary's "Name: value" and "Name = value" lines by name.
std::map<std::string, std::string> Fields(const std::string& summary) {
  std::map<std::string, std::string> out;
  std::stringstream s(summary);
  std::string line;
  while (std::getline(s, line)) {
    for (const char* sep : {" = ", ": "}) {
      const size_t at = line.find(sep);
      if (at != std::string::npos) {
        out[line.substr(0, at)] = line.substr(at + std::string(sep).size());
        break;
      }
    }
  }
  return out;
}

std::string Tenth(double v, const char* unit) {
  char buf[48];
  std::snprintf(buf, sizeof buf, "%.1f%s", std::round(v * 10.0) / 10.0, unit);
  return buf;
}

class EditorFileWin : public DroppedFileTest {
 protected:
  EditorFileWin() : DroppedFileTest("files-win") {}
  // Drops `path` and requires it to be analysed without a message.
  void DropAnalysed(const std::string& path) {
    ASSERT_NO_FATAL_FAILURE(Drop(path));
    ui::MeterEditor& ed = meter->Editor();
    ASSERT_TRUE(ed.Model().ShowingFile());
    ASSERT_FALSE(ed.Message().IsShown()) << ed.Message().Text();
  }
  // The text summary of what the editor shows, written beside the file under
  // `name` through the export writer (the editor's own Export asks for a path
  // in the system's save dialog), and read back as fields.
  std::map<std::string, std::string> Summary(const std::string& name) {
    ui::MeterEditor& ed = meter->Editor();
    std::string content, message;
    EXPECT_TRUE(ui::BuildTextExport(ed.Model(), ed.Settings(), ui::ExportKind::TextSummary, content, message))
        << message;
    const fs::path file = exports / U8(name + "_Summary.txt");
    const std::u8string path = file.u8string();
    EXPECT_EQ(ui::WriteExport(std::string(path.begin(), path.end()), content), "");
    EXPECT_EQ(ReadFileText(file), content);
    return Fields(content);
  }
};

TEST_F(EditorFileWin, SummaryOfADroppedFileHasTheKnownAnswers) {
  // EBU Tech 3341 cases 1 and 2: 20 s of 1 kHz stereo at -23 and -33 LUFS.
  for (auto [name, integrated] :
       {std::pair{"seq-3341-1-16bit.wav", "-23.0 LUFS"}, std::pair{"seq-3341-2-16bit.wav", "-33.0 LUFS"}}) {
    const std::string wav = std::string(VELORUM_EBU_DIR) + "/" + name;
    DropAnalysed(wav);
    const ui::FileMeasurement* file = meter->Editor().Model().File();
    EXPECT_EQ(file->channels, 2u);
    EXPECT_EQ(file->bitsPerSample, 16);

    int channels = 0, rate = 0;
    const std::vector<float> samples = test::readBack(wav, channels, rate);
    ASSERT_EQ(channels, 2);
    const test::Readings direct = test::measureDirect(samples, channels, rate);

    auto f = Summary(fs::path(name).stem().string());
    EXPECT_EQ(f["Integrated"], integrated) << name;
    EXPECT_EQ(f["Integrated"], Tenth(direct.integrated, " LUFS")) << name;
    EXPECT_EQ(f["Loudness Range"], Tenth(direct.loudnessRange, " LU")) << name;
    EXPECT_EQ(f["Momentary Max"], Tenth(direct.momentaryMax, " LUFS")) << name;
    EXPECT_EQ(f["Short Term Max"], Tenth(direct.shortTermMax, " LUFS")) << name;
    EXPECT_EQ(f["True Peak Max"], Tenth(direct.truePeakMax, " dBTP")) << name;
    EXPECT_EQ(f["File Samplerate"], std::to_string(rate) + "Hz") << name;
    EXPECT_EQ(f["File Bitrate"], "16") << name;
    EXPECT_EQ(f["Channel Size"], "2") << name;
    EXPECT_EQ(f["File Duration"], std::to_string(samples.size() / 2 / size_t(rate)) + "s") << name;
  }
}

TEST_F(EditorFileWin, FilesWithUnicodeNamesAreAnalysedExportedAndNormalised) {
  // "Prüfung – 音.wav", a copy of EBU Tech 3341 case 1.
  const std::string name =
      "Pr\xc3\xbc"
      "fung \xe2\x80\x93 \xe9\x9f\xb3";
  const fs::path copy = exports / U8(name + ".wav");
  {
    std::ifstream in(std::string(VELORUM_EBU_DIR) + "/seq-3341-1-16bit.wav", std::ios::binary);
    std::ofstream out(copy, std::ios::binary);
    out << in.rdbuf();
  }
  const std::u8string copyText = copy.u8string();
  DropAnalysed(std::string(copyText.begin(), copyText.end()));
  ui::MeterEditor& ed = meter->Editor();
  EXPECT_EQ(ed.Readout().Lines()[0].value, "-23.0");
  EXPECT_EQ(Summary(name)["Integrated"], "-23.0 LUFS");

  // The normalised file, beside the summary, measures at the meter's target.
  const std::u8string out = (exports / U8(name + "_Normalized.wav")).u8string();
  const std::string written(out.begin(), out.end());
  std::string report;
  ASSERT_EQ(ui::WriteNormalized(ed.Model(), written, report), "");
  EXPECT_NE(report.find("Normalised by"), std::string::npos) << report;
  AudioFileReader reader;
  ASSERT_TRUE(reader.open(written));
  EXPECT_EQ(reader.totalFrames(), ed.Model().File()->frames);
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {written};
  ASSERT_TRUE(analysis.run(request)) << analysis.message();
  EXPECT_NEAR(engine.Integrated(), ed.Model().Param(param::kTarget), 0.05);
}

}  // namespace
}  // namespace velorum::testing
