// The text summary to the letter: layout, the blank line after the bit
// depth, the short duration form, the unit and the rounding.
#include "export/TextSummary.h"

#include <gtest/gtest.h>

#include <cmath>

namespace velorum {
namespace {

std::tm fixedTime()
{
    std::tm t{};
    t.tm_year = 2026 - 1900;
    t.tm_mon = 10;
    t.tm_mday = 21;
    t.tm_hour = 14;
    t.tm_min = 3;
    t.tm_sec = 9;
    return t;
}

SummaryInput fileInput()
{
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

std::string build(const SummaryInput& in)
{
    std::string text;
    EXPECT_TRUE(BuildTextSummary(in, text));
    return text;
}

TEST(TextSummary, FileSummaryToTheLetter)
{
    const std::string expected = "Velorum 2 - V2.5.6\n"
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

TEST(TextSummary, NoBitrateLineWithoutABitDepth)
{
    SummaryInput in = fileInput();
    in.fileBitsPerSample = -1;
    const std::string text = build(in);
    EXPECT_EQ(text.find("File Bitrate"), std::string::npos);
    EXPECT_NE(text.find("File Samplerate: 48000Hz\nChannel Size: 2\n\nChannel Layout:\n\n1. L"), std::string::npos);
}

TEST(TextSummary, LiveSummaryHasNoFileBlock)
{
    SummaryInput in = fileInput();
    in.fromFile = false;
    in.channels = 6;
    in.channelNames = {"L", "R", "C", "LFE", "Ls", "Rs"};
    const std::string text = build(in);
    EXPECT_NE(text.find("14:03:09 11/21/2026\n\nChannel Size: 6\n\nChannel Layout:\n\n1. L\n2. R\n3. C\n4. LFE\n5. Ls\n"
                        "6. Rs\n\nTimecode Start:"),
              std::string::npos);
    EXPECT_EQ(text.find("File "), std::string::npos);
}

TEST(TextSummary, DialogueLinesComeFirstAndUnitFollowsTheOption)
{
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

TEST(TextSummary, RoundingIsHalfAwayFromZeroOnTheTenfold)
{
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

TEST(TextSummary, AValueThatIsNotANumberFailsTheFormatting)
{
    SummaryInput in = fileInput();
    in.values.loudnessRange = std::nan("");
    std::string text = "unchanged", error;
    EXPECT_FALSE(BuildTextSummary(in, text, &error));
    EXPECT_EQ(error, "Error during formatting.");
    EXPECT_EQ(text, "unchanged");
}

TEST(TextSummary, ShortDurationForms)
{
    EXPECT_EQ(ShortDuration(3600.9), "1h");
    EXPECT_EQ(ShortDuration(3630.0), "1h 0m");
    EXPECT_EQ(ShortDuration(7325.0), "2h 2m");
    EXPECT_EQ(ShortDuration(61.0), "1m 1s");
    EXPECT_EQ(ShortDuration(120.0), "2m");
    EXPECT_EQ(ShortDuration(59.99), "59s");
    EXPECT_EQ(ShortDuration(0.5), "0s");

    SummaryInput in = fileInput();
    in.fileFrames = 48000ull * 3600 + 43200;   // 3600.9 s
    EXPECT_NE(build(in).find("File Duration: 1h\n"), std::string::npos);
}

} // namespace
} // namespace velorum
