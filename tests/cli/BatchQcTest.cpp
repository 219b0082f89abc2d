// The batch QC side of velorum analyze: the JSON keys against the engine fed
// directly, exports that never collide (and say so when they fail), the time
// line, graphs and reports, the summary's added lines, and each command-line
// convention (help, --opt=value, preset aliases, conflicts, standard input).
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "analysis/AudioFixtures.h"

namespace velorum {
namespace {

using nlohmann::json;

struct Outcome {
  int status = -1;
  std::string out, err;
};

std::string slurp(const std::string& path) {
  std::string out;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) out.append(buffer, n);
    std::fclose(f);
  }
  return out;
}

class BatchQcTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Stereo float WAV, 6 s: L a tone at -20 dBFS peak, R at -26 dBFS,
    // with 7 samples at +1.0 in L and 3 at -1.25 in R.
    samples.resize(48000 * 2 * 6);
    for (size_t i = 0; i < samples.size() / 2; ++i) {
      const double s = std::sin(2.0 * 3.14159265358979 * 997.0 * static_cast<double>(i) / 48000.0);
      samples[2 * i] = static_cast<float>(0.1 * s);
      samples[2 * i + 1] = static_cast<float>(0.05 * s);
    }
    for (size_t k = 0; k < 7; ++k) samples[2 * (48000 + k * 5000)] = 1.0f;
    for (size_t k = 0; k < 3; ++k) samples[2 * (96000 + k * 7000) + 1] = -1.25f;
    ASSERT_TRUE(test::writeWav(dir.file("prog.wav"), 2, 48000, samples, SF_FORMAT_FLOAT));
    std::filesystem::create_directory(dir.file("a"));
    std::filesystem::copy_file(dir.file("prog.wav"), dir.file("a/prog.wav"));
    ASSERT_TRUE(test::writeFile(dir.file("prog.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000,
                                test::programme(2, 48000, 48000 * 3)));
  }
  Outcome velorum(const std::string& args, const std::string& input = "</dev/null") {
    const std::string cmd = "cd '" + dir.file("") + "' && " + VELORUM_BINARY_DIR + "/bin/velorum " + args +
                            " " + input + " 2>'" + dir.file("stderr.txt") + "'";
    Outcome run;
    if (std::FILE* p = popen(cmd.c_str(), "r")) {
      char buffer[4096];
      for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, p)) > 0;) run.out.append(buffer, n);
      const int raw = pclose(p);
      run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }
    run.err = slurp(dir.file("stderr.txt"));
    return run;
  }
  std::vector<json> lines(const std::string& text) {
    std::vector<json> out;
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
      out.push_back(json::parse(text.substr(at, end - at)));
    return out;
  }
  std::vector<float> samples;
  test::TempDir dir;
};

std::vector<float> channel(const std::vector<float>& s, size_t c) {
  std::vector<float> out;
  for (size_t i = c; i < s.size(); i += 2) out.push_back(s[i]);
  return out;
}

TEST_F(BatchQcTest, JsonKeysAgreeWithTheEngine) {
  const Outcome run = velorum("analyze --json --preset=r128 prog.wav");
  ASSERT_EQ(run.status, 1) << run.err;
  const json j = json::parse(run.out);
  const test::Readings direct = test::measureDirect(samples, 2, 48000);
  EXPECT_NEAR(j["integrated"].get<double>(), direct.integrated, 0.006);
  EXPECT_NEAR(j["true_peak_max"].get<double>(), direct.truePeakMax, 0.006);
  EXPECT_NEAR(j["momentary_max"].get<double>(), direct.momentaryMax, 0.006);
  EXPECT_EQ(j["bits_per_sample"], 32);
  EXPECT_EQ(j["format"], "wav");
  EXPECT_EQ(j["files"], json::array({"prog.wav"}));
  // Per channel, named from the layout: true peak as the engine measures
  // the channel alone, sample peak from the samples.
  const double samplePeak[2] = {0.0, 20.0 * std::log10(1.25)};
  ASSERT_EQ(j["channel_peaks"].size(), 2u);
  for (size_t c = 0; c < 2; ++c) {
    const json& p = j["channel_peaks"][c];
    EXPECT_EQ(p["channel"], c == 0 ? "L" : "R");
    EXPECT_NEAR(p["true_peak"].get<double>(), test::measureDirect(channel(samples, c), 1, 48000).truePeakMax,
                0.006);
    EXPECT_NEAR(p["sample_peak"].get<double>(), samplePeak[c], 0.006);
  }
  EXPECT_NEAR(j["sample_peak_max"].get<double>(), samplePeak[1], 0.006);
  EXPECT_EQ(j["clipped_samples"], 10);
  EXPECT_EQ(j["window"]["lower"], -24.0);
  EXPECT_EQ(j["window"]["upper"], -22.0);
  EXPECT_EQ(j["window"]["true_peak_max"], -1.0);
  EXPECT_EQ(j["failures"].size(), j["pass"] ? 0u : j["failures"].size());
  EXPECT_EQ(j["export_errors"], json::array());
}

TEST_F(BatchQcTest, ExportsNeverCollideAndFailuresAreListed) {
  std::filesystem::create_directory(dir.file("out"));
  Outcome run = velorum("analyze --json -j 2 --csv out --summary sum.txt prog.wav a/prog.wav prog.flac");
  ASSERT_EQ(run.status, 0) << run.err;
  for (const char* f : {"out/prog.wav.csv", "out/a/prog.wav.csv", "out/prog.flac.csv", "sum.prog.wav.txt",
                        "sum.a_prog.wav.txt", "sum.prog.flac.txt"})
    EXPECT_TRUE(std::filesystem::exists(dir.file(f))) << f;
  // Again without -y: every export is kept, and each JSON line says which.
  run = velorum("analyze --json --csv out prog.wav a/prog.wav");
  EXPECT_EQ(run.status, 2);
  const auto results = lines(run.out);
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[1]["export_errors"][0]["file"], "out/a/prog.wav.csv");
  EXPECT_NE(run.err.find("out/prog.wav.csv: already exists; kept"), std::string::npos) << run.err;
  // One input given as its own export name is never overwritten.
  run = velorum("analyze -y --csv prog.wav prog.wav");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(std::filesystem::exists(dir.file("prog-2.wav")));
}

TEST_F(BatchQcTest, TimelineGraphsReportAndSummary) {
  std::filesystem::create_directory(dir.file("g"));
  const Outcome run = velorum(
      "analyze --quiet --preset 'ebu r128' --tolerance 5 --timeline tl.jsonl --graph g "
      "--csv log.csv --summary s.txt --report r.csv prog.wav a/prog.wav");
  ASSERT_LE(run.status, 1) << run.err;
  EXPECT_EQ(run.err, "");  // --quiet: no tally
  const auto rows = lines(slurp(dir.file("tl.prog.wav.jsonl")));
  ASSERT_EQ(rows.size(), 6u);
  for (const char* key :
       {"time", "timecode", "momentary", "short_term", "integrated", "true_peak", "dialogue"})
    EXPECT_TRUE(rows[5].contains(key)) << key;
  EXPECT_EQ(rows[5]["timecode"], "00:00:06.000");
  EXPECT_EQ(slurp(dir.file("g/prog.wav.png")).substr(1, 3), "PNG");
  const std::string summary = slurp(dir.file("s.prog.wav.txt"));
  EXPECT_NE(summary.find(" dBTP\n\nFile Name: prog.wav\nPreset Window: -28.0 .. -18.0 LUFS"),
            std::string::npos)
      << summary;
  // The clipped samples put the true peak over the maximum.
  EXPECT_NE(summary.find("Preset Check (EBU R128): FAIL\n  true peak "), std::string::npos) << summary;
  EXPECT_NE(slurp(dir.file("log.prog.wav.csv")).find(",-23.0,5.0,5.0\n"), std::string::npos);
  const std::string report = slurp(dir.file("r.csv"));
  EXPECT_EQ(report.rfind("File,Format,Duration (s),", 0), 0u);
  EXPECT_NE(report.find("\na/prog.wav,wav,6.00,48000,2,32,LUFS,"), std::string::npos) << report;
  for (const char* kind : {"html", "pdf", "json", "svg"}) {
    const std::string name = std::string("one.") + kind;
    const std::string option = std::string(kind) == "svg" ? "--graph " : "--report ";
    EXPECT_EQ(velorum("analyze -q " + option + name + " prog.flac").status, 0) << kind;
    const std::string text = slurp(dir.file(name));
    const char* mark = std::string(kind) == "pdf"    ? "%PDF"
                       : std::string(kind) == "json" ? "\"verdict\""
                                                     : "<svg";
    EXPECT_NE(text.find(mark), std::string::npos) << kind;
  }
}

TEST_F(BatchQcTest, CommandLineConventions) {
  struct Case {
    const char* args;
    const char* input;
    int status;         // -1: a preset verdict, 0 or 1
    const char* inOut;  // expected in stdout ("" = no check)
    const char* inErr;  // expected in stderr
  };
  const Case cases[] = {
      {"analyze --help", "", 0, "--timeline", ""},
      {"demo --help", "", 0, "--dialogue", ""},
      {"selftest --help", "", 0, "--jobs", ""},
      {"presets --help", "", 0, "presets", ""},
      {"analyze --json --interval=0.5 --preset=EBU prog.flac", "", -1, "\"preset\":\"EBU R128\"", ""},
      {"analyze --json --preset atsc prog.flac", "", -1, "\"preset\":\"ATSC A/85\"", ""},
      {"analyze --json --preset Apple prog.flac", "", -1, "\"preset\":\"APPLE MUSIC\"", ""},
      {"analyze --json --preset A85 --lufs prog.flac", "", -1, "\"unit\":\"LUFS\"", ""},
      {"analyze --json -", "<prog.flac", 0, "\"file\":\"-\"", ""},
      {"analyze --preset spotfy prog.flac", "", 64, "", "did you mean \"SPOTIFY\"?"},
      {"analyze --lufs --lkfs prog.flac", "", 64, "", "--lkfs excludes --lufs"},
      {"analyze --tolerance 2 --preset aes prog.flac", "", 64, "", "sets its own window"},
      {"analyze --strict prog.flac", "", 64, "", "--strict applies to --multi-mono"},
      {"analyze - -", "", 64, "", "only once"},
      {"analyze --graph g.txt prog.flac", "", 64, "", "--graph needs a .png, .svg or .pdf"},
      {"analyze --report r.doc prog.flac", "", 64, "", "--report needs a .csv, .json, .html or .pdf"},
      {"analyze --bogus prog.flac", "", 64, "", "Try 'velorum analyze --help'"},
      {"analyze --layout 5.1 prog.flac", "", 2, "", "the file has 2 channels but layout"},
      {"analyze --multi-mono --layout stereo prog.wav a/prog.wav", "", 2, "",
       "every file of a multi-mono set"},
  };
  for (const Case& c : cases) {
    const Outcome run = velorum(c.args, *c.input ? c.input : "</dev/null");
    if (c.status < 0)
      EXPECT_TRUE(run.status == 0 || run.status == 1) << c.args << "\n" << run.err;
    else
      EXPECT_EQ(run.status, c.status) << c.args << "\n" << run.err;
    EXPECT_NE(run.out.find(c.inOut), std::string::npos) << c.args << "\n" << run.out;
    EXPECT_NE(run.err.find(c.inErr), std::string::npos) << c.args << "\n" << run.err;
  }
  // The presets table lines up: every row as long as the header.
  const Outcome presets = velorum("presets");
  const size_t width = presets.out.find('\n');
  for (size_t at = 0, end; (end = presets.out.find('\n', at)) != std::string::npos; at = end + 1)
    EXPECT_EQ(end - at, width) << presets.out.substr(at, end - at);
  // A name that is not UTF-8 still gives a line that parses.
  std::filesystem::copy_file(dir.file("prog.flac"), dir.file("bad\xff.flac"));
  EXPECT_NO_THROW(json::parse(velorum("analyze --json 'bad\xff.flac'").out));
}

}  // namespace
}  // namespace velorum
