// The plain CSV and the Dolby CSV, written from a real measurement history.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <vector>

#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"
#include "export/CsvExport.h"
#include "history/MeasurementHistory.h"
#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::vector<std::string> fields(const std::string& line) {
  std::vector<std::string> out;
  std::istringstream in(line);
  for (std::string f; std::getline(in, f, ',');) out.push_back(f);
  if (!line.empty() && line.back() == ',') out.emplace_back();
  return out;
}

// 10 s of stereo 1 kHz: 5 s at -23 dBFS, 5 s at -33 dBFS with one full-scale
// sample at 7.505 s.
class CsvExportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    constexpr int rate = 48000;
    std::vector<float> s(static_cast<size_t>(rate) * 10 * 2);
    for (size_t i = 0; i < s.size() / 2; ++i) {
      const double t = static_cast<double>(i) / rate;
      const double a = t < 5.0 ? std::pow(10.0, -23.0 / 20.0) : std::pow(10.0, -33.0 / 20.0);
      s[2 * i] = s[2 * i + 1] = static_cast<float>(a * std::sin(2.0 * 3.14159265358979 * 1000.0 * t));
    }
    s[static_cast<size_t>(7.505 * rate) * 2] = 1.0f;
    engine.SetSampleRate(rate);
    engine.SetLayout(LayoutForChannelCount(2));
    engine.SetInputCount(2);
    engine.Reset();
    std::vector<double> l(s.size() / 2), r(s.size() / 2);
    for (size_t i = 0; i < l.size(); ++i) {
      l[i] = s[2 * i];
      r[i] = s[2 * i + 1];
    }
    const double* pins[] = {l.data(), r.data()};
    engine.ProcessBlock(pins, static_cast<int>(l.size()));
    context.history = &engine.History();
    context.preset = FindStandardByName("EBU R128");
    context.values.integrated = engine.Integrated();
    context.values.loudnessRange = engine.LoudnessRange();
    context.values.shortTermMax = engine.ShortTermMax();
    context.values.truePeakMax = engine.TruePeakMax();
    context.logFilePath = "/media/deliverable.wav";
  }
  LoudnessEngine engine;
  CsvContext context;
};

TEST_F(CsvExportTest, PlainCsvHasOneRowPerInterval) {
  const std::vector<std::string> rows = lines(BuildPlainCsv(context));
  ASSERT_EQ(rows.size(), 11u);
  EXPECT_EQ(rows[0],
            "Time,Timecode,Momentary Loudness,Short Term Loudness,True Peak,Dynamic Range,Integrated,"
            "Loudness Range,Target,Tolerance Plus,Tolerance Minus");
  const std::vector<std::string> second = fields(rows[2]);
  ASSERT_EQ(second.size(), 11u);
  EXPECT_EQ(second[0], "2.00");
  EXPECT_EQ(second[1], "00:00:02.000");
  EXPECT_NEAR(std::stod(second[2]), -23.0, 0.1);  // momentary
  EXPECT_EQ(second[8], "-23.0");                  // target
  EXPECT_EQ(second[9], "0.0");                    // upper - target
  EXPECT_EQ(second[10], "");                      // no lower limit
  // The full-scale sample shows in the interval that holds it only.
  EXPECT_GT(std::stod(fields(rows[8])[4]), -0.5);
  EXPECT_LT(std::stod(fields(rows[7])[4]), -25.0);
  EXPECT_NEAR(std::stod(fields(rows[10])[6]), engine.Integrated(), 0.01);
}

TEST_F(CsvExportTest, TimecodeColumnsInFramesAndDropFrame) {
  // The measurement starts 0.5 s before the first minute of the time code,
  // so the rows cross the minute whose labels ;00 and ;01 are dropped.
  context.startSeconds = 59.5;
  context.timecodeFps = 29.97;
  context.dropFrame = true;
  std::vector<std::string> rows = lines(BuildPlainCsv(context));
  ASSERT_EQ(rows.size(), 11u);
  EXPECT_EQ(fields(rows[1])[1], "00:01:00;15");   // 60.5 s: frame 1813
  EXPECT_EQ(fields(rows[2])[1], "00:01:01;15");   // 61.5 s: frame 1843
  EXPECT_EQ(fields(rows[10])[1], "00:01:09;14");  // 69.5 s: frame 2082
  rows = lines(BuildDolbyCsv(context));
  EXPECT_EQ(rows[4], "Timecode Start,00:00:59;13");
  EXPECT_EQ(rows[5], "Timecode End,00:01:09;14");
  EXPECT_EQ(fields(rows[10])[1], "00:01:00;15");

  // 59.94 drops four labels; the non-drop numbering drops none.
  context.timecodeFps = 59.94;
  EXPECT_EQ(fields(lines(BuildPlainCsv(context))[1])[1], "00:01:00;30");
  context.timecodeFps = 29.97;
  context.dropFrame = false;
  EXPECT_EQ(fields(lines(BuildPlainCsv(context))[1])[1], "00:01:00:13");
  // Without a rate the columns keep milliseconds.
  context.timecodeFps = 0.0;
  EXPECT_EQ(fields(lines(BuildPlainCsv(context))[1])[1], "00:01:00.500");
}

TEST_F(CsvExportTest, IntervalDownToTenMillisecondsAndAPartialLastRow) {
  context.intervalSeconds = 0.01;
  std::vector<std::string> rows = lines(BuildPlainCsv(context));
  ASSERT_EQ(rows.size(), 1001u);
  EXPECT_EQ(fields(rows[1])[0], "0.01");
  EXPECT_EQ(fields(rows[1000])[0], "10.00");

  context.intervalSeconds = 3.0;
  context.startSeconds = 36000.0;  // 10:00:00 time reference
  rows = lines(BuildPlainCsv(context));
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(fields(rows[3])[0], "9.00");
  EXPECT_EQ(fields(rows[4])[0], "10.00");
  EXPECT_EQ(fields(rows[4])[1], "10:00:10.000");
}

TEST_F(CsvExportTest, DolbyCsvHeaderTableWarningsAndSummary) {
  const std::string text = BuildDolbyCsv(context);
  const std::vector<std::string> rows = lines(text);
  ASSERT_GT(rows.size(), 20u);
  EXPECT_EQ(rows[0], "Log File Path,/media/deliverable.wav");
  EXPECT_EQ(rows[3], "Preset Name,EBU R128");
  EXPECT_EQ(rows[6], "Peak Count Threshold,-1.0");
  EXPECT_EQ(rows[8], "");
  EXPECT_EQ(rows[9],
            "Time,Timecode,Short Term Dialogue (LKFS),Short Term All,Short Term EBU R128 (LUFS),"
            "Infinite Dialogue (LKFS),Infinite All,Integrated EBU R128 (LUFS),Loudness Range EBU R128 (LU),"
            "True Peak (dBTP),Peak Count,Dialogue Present,Warnings");
  // Second 2: on target, no warning. Second 8: the full-scale sample.
  EXPECT_EQ(fields(rows[11]).back(), "none");
  const std::vector<std::string> peak = fields(rows[17]);
  EXPECT_EQ(peak[0], "8.00");
  EXPECT_EQ(peak[10], "1");
  EXPECT_NE(peak[12].find("True Peak Value Warning"), std::string::npos);
  EXPECT_NE(
      text.find("\nNote: Loudness Value and Loudness Range calculated using ITU-R BS.1770 algorithm.\n"),
      std::string::npos);
  EXPECT_NE(text.find("\nTrue peak,0.0 dBTP\n"), std::string::npos);
  EXPECT_NE(text.find("\nPeak,1\n"), std::string::npos);
  EXPECT_NE(text.find("\nShort Term Dlg,none\n"), std::string::npos);
  EXPECT_EQ(text.find("Measured Dialogue Loudness"), std::string::npos);

  context.dialogue = true;
  const std::string dialogue = BuildDolbyCsv(context);
  EXPECT_NE(
      dialogue.find("Note: Loudness Value and Loudness Range calculated using Dolby Dialogue Intelligence "
                    "algorithm."),
      std::string::npos);
  EXPECT_NE(dialogue.find("\nSpeech content,0 percent\n"), std::string::npos);
}

TEST_F(CsvExportTest, IntegratedTargetWarningFollowsThePresetWindow) {
  context.preset = FindStandardByName("SPOTIFY");  // -14 LUFS: far above this programme
  const std::vector<std::string> rows = lines(BuildDolbyCsv(context));
  EXPECT_NE(fields(rows[19]).back().find("Integrated EBU R128 Measurement Target Warning"),
            std::string::npos);
}

}  // namespace
}  // namespace velorum
