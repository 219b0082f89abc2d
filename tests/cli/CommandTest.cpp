// The velorum command end to end: the demo, summaries and JSON lines, exit
// statuses for failed files and failed preset checks, exports, normalize and
// the self-test.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "analysis/AudioFixtures.h"

namespace velorum {
namespace {

struct Outcome {
  int status = -1;
  std::string out;
};

// Runs the command with stdout captured (stderr into `errFile` when given).
Outcome velorum(const std::string& args, const std::string& errFile = "/dev/null") {
  const std::string cmd = std::string(VELORUM_BINARY_DIR) + "/bin/velorum " + args + " 2>" + errFile;
  Outcome run;
  std::FILE* p = popen(cmd.c_str(), "r");
  if (!p) return run;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, p)) > 0;) run.out.append(buffer, n);
  const int raw = pclose(p);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return run;
}

std::string slurp(const std::string& path) {
  std::string out;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) out.append(buffer, n);
    std::fclose(f);
  }
  return out;
}

size_t count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// One sample stereo file at about -23 LUFS and one at about -33 LUFS.
class CommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::vector<float> s(48000 * 2 * 6);
    for (size_t i = 0; i < s.size() / 2; ++i) {
      const double v = std::pow(10.0, -23.0 / 20.0) * std::sin(2.0 * 3.14159265358979 * 1000.0 * i / 48000.0);
      s[2 * i] = s[2 * i + 1] = static_cast<float>(v);
    }
    ASSERT_TRUE(test::writeWav(dir.file("on target.wav"), 2, 48000, s));
    for (float& v : s) v *= 0.316227766f;
    ASSERT_TRUE(test::writeWav(dir.file("quiet.wav"), 2, 48000, s, SF_FORMAT_PCM_16));
  }
  std::string q(const std::string& name) const { return "'" + dir.file(name) + "'"; }
  test::TempDir dir;
};

TEST_F(CommandTest, DemoPrintsTheSummaryOfTheBuiltInProgramme) {
  const Outcome run = velorum("demo");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("Velorum 2 - V2.5.6\n\n", 0), 0u) << run.out;
  for (const char* line : {"Channel Size: 2\n", "\nChannel Layout:\n\n1. L\n2. R\n", "Preset Name: DEFAULT\n",
                           "Timecode End: 00:01:40.000\n", "Integrated = ", "Loudness Range = ",
                           "Average Dynamics (PLR) = ", "True Peak Max = "})
    EXPECT_NE(run.out.find(line), std::string::npos) << line;
  EXPECT_EQ(run.out.find("File Duration"), std::string::npos);
  // Deterministic: the same readings every time.
  const Outcome again = velorum("demo --json");
  EXPECT_EQ(again.out, velorum("demo --json").out);
}

TEST_F(CommandTest, HelpListsEveryCommandAndOption) {
  const Outcome run = velorum("--help");
  EXPECT_EQ(run.status, 0);
  for (const char* word : {"demo", "analyze", "normalize", "selftest", "--json", "--csv", "--dolby-csv",
                           "--summary", "--interval", "--eco", "--multi-mono", "--layout", "--preset",
                           "--dialogue", "-j N", "--target", "--strict", "--fps", "--drop-frame"})
    EXPECT_NE(run.out.find(word), std::string::npos) << word;
  EXPECT_EQ(velorum("analyze --bogus x.wav").status, 64);
  EXPECT_EQ(velorum("analyze --interval 0.001 x.wav").status, 64);
  EXPECT_EQ(velorum("analyze --drop-frame --fps 25 x.wav").status, 64);
}

// Time codes in frames: 6 s of programme end in frame 179 at 30000/1001 fps
// (frame 180 would start at 6.006 s), in the summary and the CSV alike.
TEST_F(CommandTest, TimeCodesInFramesAndDropFrame) {
  const Outcome ndf = velorum("analyze --fps 29.97 " + q("on target.wav"));
  EXPECT_NE(ndf.out.find("Timecode Start: 00:00:00:00\nTimecode End: 00:00:05:29\n"), std::string::npos)
      << ndf.out;
  const Outcome df =
      velorum("analyze -y --fps 29.97 --drop-frame --csv " + q("tc.csv") + " " + q("on target.wav"));
  EXPECT_EQ(df.status, 0);
  EXPECT_NE(df.out.find("Timecode End: 00:00:05;29\n"), std::string::npos) << df.out;
  EXPECT_NE(slurp(dir.file("tc.csv")).find("\n6.00,00:00:05;29,"), std::string::npos);
  EXPECT_NE(velorum("analyze --fps 25 " + q("on target.wav")).out.find("Timecode End: 00:00:06:00\n"),
            std::string::npos);
}

TEST_F(CommandTest, JsonLinesAndExitStatusForFailedFiles) {
  std::fclose(std::fopen(dir.file("broken.mp3").c_str(), "wb"));
  ASSERT_TRUE(test::corrupt(dir.file("broken.mp3"), 0, 5000));
  const Outcome run =
      velorum("analyze --json -j 2 " + q("on target.wav") + " " + q("broken.mp3") + " " + q("quiet.wav"));
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(count(run.out, "\n"), 3u) << run.out;
  const std::string first = run.out.substr(0, run.out.find('\n'));
  for (const char* key :
       {"\"file\":", "\"sample_rate\":48000", "\"channels\":2", "\"frames\":288000", "\"bits_per_sample\":24",
        "\"integrated\":", "\"loudness_range\":", "\"lra_low\":", "\"lra_high\":", "\"momentary_max\":",
        "\"short_term_max\":", "\"true_peak_max\":", "\"plr\":"})
    EXPECT_NE(first.find(key), std::string::npos) << key;
  EXPECT_NE(run.out.find("\"error\":\"The file could not be opened."), std::string::npos);
  // Input order is kept.
  EXPECT_LT(run.out.find("on target.wav"), run.out.find("broken.mp3"));
  EXPECT_LT(run.out.find("broken.mp3"), run.out.find("quiet.wav"));
}

TEST_F(CommandTest, PresetCheckDecidesTheExitStatus) {
  Outcome pass = velorum("analyze --json --dialogue --preset 'EBU R128' " + q("on target.wav"));
  EXPECT_EQ(pass.status, 0) << pass.out;
  EXPECT_NE(pass.out.find("\"preset\":\"EBU R128\",\"pass\":true,\"failures\":[]"), std::string::npos)
      << pass.out;
  EXPECT_NE(pass.out.find("\"integrated_dial\":"), std::string::npos);
  EXPECT_NE(pass.out.find("\"speech_content\":"), std::string::npos);

  Outcome fail = velorum("analyze --preset 'ebu s1' " + q("quiet.wav"));
  EXPECT_EQ(fail.status, 1);
  EXPECT_NE(fail.out.find("Preset Name: EBU R128 S1\n"), std::string::npos);
  EXPECT_NE(fail.out.find("Preset Check (EBU R128 S1): FAIL\n  integrated -33."), std::string::npos)
      << fail.out;
  // A unit of LKFS comes with the ATSC preset.
  EXPECT_NE(velorum("analyze --preset 'ATSC A/85' " + q("quiet.wav")).out.find(" LKFS\nLoudness Range = "),
            std::string::npos);
  EXPECT_EQ(velorum("analyze --preset NOPE " + q("quiet.wav")).status, 64);
}

TEST_F(CommandTest, ExportsAreWrittenAndExistingOnesKeptWithoutYes) {
  const Outcome run = velorum("analyze --csv " + q("log.csv") + " --interval 0.5 --dolby-csv " +
                              q("dolby.csv") + " --summary " + q("summary.txt") + " " + q("on target.wav"));
  EXPECT_EQ(run.status, 0);
  const std::string csv = slurp(dir.file("log.csv"));
  EXPECT_EQ(count(csv, "\n"), 13u);  // header + 12 half-second rows
  EXPECT_EQ(csv.rfind("Time,Timecode,Momentary Loudness,", 0), 0u);
  EXPECT_NE(csv.find("\n6.00,00:00:06.000,"), std::string::npos);
  EXPECT_NE(slurp(dir.file("dolby.csv")).find("Measured EBU R128 Loudness,-23."), std::string::npos);
  EXPECT_EQ(slurp(dir.file("summary.txt")), run.out);

  // Without --yes and without a terminal an existing file is kept.
  const Outcome again =
      velorum("analyze --csv " + q("log.csv") + " --interval 1 " + q("on target.wav") + " </dev/null",
              dir.file("err.txt"));
  EXPECT_EQ(again.status, 2);
  EXPECT_NE(slurp(dir.file("err.txt")).find("log.csv: already exists; kept (use -y to replace it)"),
            std::string::npos);
  EXPECT_EQ(slurp(dir.file("log.csv")), csv);
  EXPECT_EQ(velorum("analyze -y --csv " + q("log.csv") + " --interval 1 " + q("on target.wav")).status, 0);
  EXPECT_EQ(count(slurp(dir.file("log.csv")), "\n"), 7u);
}

TEST_F(CommandTest, SeveralFilesGetTheirOwnExportNames) {
  std::filesystem::create_directory(dir.file("out"));
  const Outcome run = velorum("analyze --csv " + q("out") + " --summary " + q("all.txt") + " " +
                              q("on target.wav") + " " + q("quiet.wav"));
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(std::filesystem::exists(dir.file("out/on target.wav.csv")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("out/quiet.wav.csv")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("all.on target.wav.txt")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("all.quiet.wav.txt")));
  EXPECT_NE(run.out.find("==> " + dir.file("quiet.wav") + " <=="), std::string::npos);
  // A folder argument analyses the audio files inside it.
  const Outcome folder = velorum("analyze --json " + q(""));
  EXPECT_EQ(count(folder.out, "\"file\":"), 2u) << folder.out;
}

TEST_F(CommandTest, TruncatedAndCorruptFilesOfEveryFormatExitWithStatus2) {
  const std::vector<float> s = test::programme(2, 48000, 48000 * 4);
  std::vector<std::string> made;
  if (test::writeFile(dir.file("t.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, s))
    made.push_back("t.flac");
  if (test::writeFile(dir.file("t.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 2, 48000, s))
    made.push_back("t.ogg");
  if (test::writeMp3(dir.file("t.mp3"), dir.file("scratch.wav"), 2, 48000, s)) made.push_back("t.mp3");
  if (test::writeWav(dir.file("t.wav"), 2, 48000, s)) made.push_back("t.wav");
  if (test::ffmpegConvert(dir.file("t.wav"), dir.file("t.m4a"), "-c:a aac")) made.push_back("t.m4a");
  for (const std::string& name : made) {
    const std::string cut = "cut-" + name;
    ASSERT_TRUE(test::truncateCopy(dir.file(name), dir.file(cut), test::fileSize(dir.file(name)) / 3));
    const Outcome run = velorum("analyze " + q(cut), dir.file("err.txt"));
    EXPECT_EQ(run.status, 2) << name;
    EXPECT_NE(slurp(dir.file("err.txt")).find(": The file could not be opened."), std::string::npos) << name;
    const std::string junk = "junk-" + name;
    std::fclose(std::fopen(dir.file(junk).c_str(), "wb"));
    ASSERT_TRUE(test::corrupt(dir.file(junk), 0, 3000));
    EXPECT_EQ(velorum("analyze --json " + q(junk)).status, 2) << name;
  }
}

TEST_F(CommandTest, NormalizeWritesTheTargetAndWarnsAboutPeaks) {
  Outcome run = velorum("normalize " + q("quiet.wav") + " " + q("norm.wav") + " --preset 'EBU R128'");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("Result: -23.0 LUFS"), std::string::npos) << run.out;
  const Outcome check = velorum("analyze --json " + q("norm.wav"));
  EXPECT_NE(check.out.find("\"integrated\":-23.0"), std::string::npos) << check.out;
  EXPECT_NE(check.out.find("\"bits_per_sample\":16"), std::string::npos);

  // The gain stops at the true-peak maximum and the shortfall is stated.
  run = velorum("normalize " + q("quiet.wav") + " " + q("hot.wav") + " --target -0.5 --float");
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("at or below -1.0 dBTP"), std::string::npos) << run.out;
  EXPECT_EQ(velorum("normalize " + q("quiet.wav") + " " + q("x.wav")).status, 64);
}

TEST_F(CommandTest, SelfTestReportsEveryCase) {
  const Outcome run = velorum("selftest");
  for (const char* name : {"3341-1 ", "3341-2 ", "3341-3 ", "3341-4 ", "3341-5 ", "3341-6 ", "3341-9 ",
                           "3341-10 ", "3341-12 ", "3342-1 ", "3342-2 ", "3342-3 ", "3342-4 ", "peak fs/4"})
    EXPECT_NE(run.out.find(name), std::string::npos) << name;
  // Every case passes, the true-peak tones included.
  for (const char* line : {"3341-1 integrated", "3341-3 integrated", "3341-4 integrated", "3341-5 integrated",
                           "3341-6 integrated 5.0", "3342-1 loudness range", "3342-4 loudness range"}) {
    const size_t at = run.out.find(line);
    ASSERT_NE(at, std::string::npos) << line;
    EXPECT_EQ(run.out.substr(at, run.out.find('\n', at) - at).substr(run.out.find('\n', at) - at - 4), "PASS")
        << line;
  }
  EXPECT_EQ(run.out.find("FAIL"), std::string::npos) << run.out;
  EXPECT_EQ(run.status, 0);
}

}  // namespace
}  // namespace velorum
