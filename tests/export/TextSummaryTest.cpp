// The text summary to the letter: layout, the blank line after the bit
// depth, the short duration form, the unit and the rounding.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "export/TextSummary.h"
#include "export/Timecode.h"

namespace velorum {
namespace {

std::tm fixedTime() {
  std::tm t{};
  t.tm_year = 2026 - 1900;
  t.tm_mon = 10;
  t.tm_mday = 21;
  t.tm_hour = 14;
  t.tm_min = 3;
  t.tm_sec = 9;
  return t;
}

SummaryInput fileInput() {
  SummaryInput in;
  in.versionWord = 0x020506;
  in.localTime = fixedTime();
  in.fromFile = true;
  in.fileFrames = 48000 * 61;
  in.fileSampleRate = 48000;
  in.fileBitsPerSample = 24;
  in.channels = 2;
  in.channelNames = {"L", "R"};
  in.timecodeStart = "00:00:00.000";
  in.timecodeEnd = "00:01:01.000";
  in.presetName = "EBU R128";
  in.values.integrated = -23.04;
  in.values.loudnessRange = 6.25;
  in.values.plr = 12.3;
  in.values.momentaryMax = -15.0;
  in.values.shortTermMax = -18.96;
  in.values.truePeakMax = -1.04;
  return in;
}

std::string build(const SummaryInput& in) {
  std::string text;
  EXPECT_TRUE(BuildTextSummary(in, text));
  return text;
}

TEST(TextSummary, FileSummaryToTheLetter) {
  const std::string expected =
      "Velorum 2 - V2.5.6\n"
      "\n"
      "14:03:09 11/21/2026\n"
      "File Duration: 1m 1s\n"
      "File Samplerate: 48000Hz\n"
      "File Bitrate: 24\n"
      "\n"
      "Channel Size: 2\n"
      "\n"
      "Channel Layout:\n"
      "\n"
      "1. L\n"
      "2. R\n"
      "\n"
      "Timecode Start: 00:00:00.000\n"
      "Timecode End: 00:01:01.000\n"
      "\n"
      "Preset Name: EBU R128\n"
      "\n"
      "Integrated = -23.0 LUFS\n"
      "Loudness Range = 6.3 LU\n"
      "Average Dynamics (PLR) = 12.3 LU\n"
      "Momentary Max = -15.0 LUFS\n"
      "Short Term Max = -19.0 LUFS\n"
      "True Peak Max = -1.0 dBTP\n";
  EXPECT_EQ(build(fileInput()), expected);
}

TEST(TextSummary, NoBitrateLineWithoutABitDepth) {
  SummaryInput in = fileInput();
  in.fileBitsPerSample = -1;
  const std::string text = build(in);
  EXPECT_EQ(text.find("File Bitrate"), std::string::npos);
  EXPECT_NE(text.find("File Samplerate: 48000Hz\nChannel Size: 2\n\nChannel Layout:\n\n1. L"),
            std::string::npos);
}

TEST(TextSummary, LiveSummaryHasNoFileBlock) {
  SummaryInput in = fileInput();
  in.fromFile = false;
  in.channels = 6;
  in.channelNames = {"L", "R", "C", "LFE", "Ls", "Rs"};
  const std::string text = build(in);
  EXPECT_NE(
      text.find(
          "14:03:09 11/21/2026\n\nChannel Size: 6\n\nChannel Layout:\n\n1. L\n2. R\n3. C\n4. LFE\n5. Ls\n"
          "6. Rs\n\nTimecode Start:"),
      std::string::npos);
  EXPECT_EQ(text.find("File "), std::string::npos);
}

TEST(TextSummary, DialogueLinesComeFirstAndUnitFollowsTheOption) {
  SummaryInput in = fileInput();
  in.lkfs = true;
  in.values.integrated = -23.0;
  in.values.dialogue = true;
  in.values.integratedDialogue = -24.26;
  in.values.loudnessRangeDialogue = 4.0;
  in.values.speechContentPercent = 37.9;
  const std::string text = build(in);
  EXPECT_NE(text.find("Preset Name: EBU R128\n\nIntegrated Dial = -24.3 LKFS\nLoudness Range Dial = 4.0 LU\n"
                      "Speech Content = 37%\nIntegrated = -23.0 LKFS\n"),
            std::string::npos);
  EXPECT_NE(text.find("Momentary Max = -15.0 LKFS\nShort Term Max = -19.0 LKFS\n"), std::string::npos);
  in.lkfs = false;
  EXPECT_NE(build(in).find("Integrated = -23.0 LUFS\n"), std::string::npos);
}

TEST(TextSummary, RoundingIsHalfAwayFromZeroOnTheTenfold) {
  const double value = -230.5 / 10.0;
  ASSERT_EQ(value * 10.0, -230.5);
  EXPECT_EQ(RoundToTenth(value), -23.1);
  EXPECT_EQ(RoundToTenth(230.5 / 10.0), 23.1);
  EXPECT_EQ(RoundToTenth(-120.0), -120.0);
  SummaryInput in = fileInput();
  in.values.integrated = value;
  in.values.truePeakMax = 0.25;
  const std::string text = build(in);
  EXPECT_NE(text.find("Integrated = -23.1 LUFS\n"), std::string::npos);
  EXPECT_NE(text.find("True Peak Max = 0.3 dBTP\n"), std::string::npos);
}

TEST(TextSummary, AValueThatIsNotANumberFailsTheFormattingAndAnyFiniteOneFormats) {
  SummaryInput in = fileInput();
  in.values.loudnessRange = std::nan("");
  std::string text = "unchanged", error;
  EXPECT_FALSE(BuildTextSummary(in, text, &error));
  EXPECT_EQ(error, "Error during formatting.");
  EXPECT_EQ(text, "unchanged");
  for (double huge : {1e30, -1e300, 1.7976931348623157e308}) {
    in = fileInput();
    in.values.integrated = huge;
    in.values.truePeakMax = huge;
    EXPECT_TRUE(BuildTextSummary(in, text, &error)) << huge;
  }
}

TEST(TextSummary, TooShortProgrammesAndNonFiniteSamplesAreSaidInWords) {
  SummaryInput in = fileInput();
  EXPECT_EQ(build(in).find("Non-finite"), std::string::npos);
  in.values.integratedMeasured = false;
  in.values.nonFiniteSamples = 3;
  const std::string text = build(in);
  EXPECT_NE(text.find("Integrated = not measured (shorter than one 400 ms gating block)\n"),
            std::string::npos);
  EXPECT_NE(text.find("Average Dynamics (PLR) = not measured"), std::string::npos);
  EXPECT_NE(text.find("Non-finite Samples = 3 (NaN or infinite, measured as silence)\n"), std::string::npos);
}

TEST(TextSummary, ShortDurationForms) {
  EXPECT_EQ(ShortDuration(3600.9), "1h");
  EXPECT_EQ(ShortDuration(3630.0), "1h 0m");
  EXPECT_EQ(ShortDuration(7325.0), "2h 2m");
  EXPECT_EQ(ShortDuration(61.0), "1m 1s");
  EXPECT_EQ(ShortDuration(120.0), "2m");
  EXPECT_EQ(ShortDuration(59.99), "59s");
  EXPECT_EQ(ShortDuration(0.5), "0s");

  SummaryInput in = fileInput();
  in.fileFrames = 48000ull * 3600 + 43200;  // 3600.9 s
  EXPECT_NE(build(in).find("File Duration: 1h\n"), std::string::npos);
}

// The frame number that a drop-frame label stands for, worked back the way a
// time-code reader does it: nominal frames minus the labels skipped in every
// minute that is not a multiple of ten.
long long dropFrameNumber(const std::string& label, int nominal) {
  int hh = 0, mm = 0, ss = 0, ff = 0;
  char sep = 0;
  if (std::sscanf(label.c_str(), "%d:%d:%d%c%d", &hh, &mm, &ss, &sep, &ff) != 5 || sep != ';') return -1;
  const long long minutes = 60LL * hh + mm;
  const long long skipped = nominal / 15;
  return (60LL * minutes + ss) * nominal + ff - skipped * (minutes - minutes / 10);
}

TEST(SummaryTimecode, DropFrameLabelsAtTheMinuteAndTheTenthMinute) {
  // 29.97: labels ;00 and ;01 go at each minute except minutes 0, 10, 20...
  EXPECT_EQ(TimecodeOfFrame(1799, 30, true), "00:00:59;29");
  EXPECT_EQ(TimecodeOfFrame(1800, 30, true), "00:01:00;02");
  EXPECT_EQ(TimecodeOfFrame(17981, 30, true), "00:09:59;29");
  EXPECT_EQ(TimecodeOfFrame(17982, 30, true), "00:10:00;00");
  EXPECT_EQ(TimecodeOfFrame(107892, 30, true), "01:00:00;00");
  // 59.94 skips four labels.
  EXPECT_EQ(TimecodeOfFrame(3599, 60, true), "00:00:59;59");
  EXPECT_EQ(TimecodeOfFrame(3600, 60, true), "00:01:00;04");
  EXPECT_EQ(TimecodeOfFrame(35964, 60, true), "00:10:00;00");
  EXPECT_EQ(TimecodeOfFrame(215784, 60, true), "01:00:00;00");
  // Rates without drop-frame numbering ignore the flag.
  EXPECT_EQ(TimecodeOfFrame(1800, 25, true), "00:01:12:00");
  EXPECT_EQ(TimecodeOfFrame(1800, 30, false), "00:01:00:00");
}

TEST(SummaryTimecode, EveryDropFrameLabelReadsBackAsItsFrame) {
  // Three hours at both rates: every frame's label is read back to the same
  // frame, so no label is used twice and none is skipped except the dropped.
  for (const int nominal : {30, 60}) {
    const long long frames = 3LL * 3600 * nominal;
    for (long long f = 0; f < frames; ++f) {
      const std::string label = TimecodeOfFrame(f, nominal, true);
      const long long back = dropFrameNumber(label, nominal);
      if (back != f) {
        ADD_FAILURE() << nominal << " fps: frame " << f << " labelled " << label << " reads as " << back;
        break;
      }
    }
  }
}

TEST(SummaryTimecode, SecondsAtTheRealRate) {
  // An hour of real time: 107892 frames at 29.97 DF read as one hour; the
  // non-drop numbering of the same frames stays 3.6 s behind.
  EXPECT_EQ(TimecodeFrames(3600.0, 29.97, true), "01:00:00;00");
  EXPECT_EQ(TimecodeFrames(3600.0, 59.94, true), "01:00:00;00");
  EXPECT_EQ(TimecodeFrames(3600.0, 29.97), "00:59:56:12");
  EXPECT_EQ(TimecodeFrames(3600.0, 29.97, false), "00:59:56:12");
  // Drop-frame runs 3.6 ms an hour ahead of the clock: after a day of
  // 2589410 frames it reads two frames past 24:00:00.
  EXPECT_EQ(TimecodeFrames(86400.0, 29.97, true), "24:00:00;02");
  EXPECT_EQ(TimecodeFrames(60.07, 29.97, true), "00:01:00;02");
  EXPECT_EQ(TimecodeFrames(1.5, 25.0, true), "00:00:01:12");
  // Hostile times and rates give a label, not a crash.
  EXPECT_EQ(TimecodeFrames(std::nan(""), 29.97, true), "00:00:00;00");
  EXPECT_EQ(TimecodeFrames(-3.0, 59.94, true), "00:00:00;00");
  EXPECT_FALSE(TimecodeFrames(1e300, 29.97, true).empty());
  EXPECT_FALSE(TimecodeFrames(1e300, 1e300).empty());
  EXPECT_EQ(TimecodeFrames(2.0, std::nan("")), "00:00:02:00");
  EXPECT_FALSE(TimecodeMillis(1e300).empty());

  // The summary prints the codes it is given.
  SummaryInput in = fileInput();
  in.timecodeStart = TimecodeFrames(59.5, 29.97, true);
  in.timecodeEnd = TimecodeFrames(120.5, 29.97, true);
  const std::string text = build(in);
  EXPECT_NE(text.find("Timecode Start: 00:00:59;13\nTimecode End: 00:02:00;15\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace velorum
