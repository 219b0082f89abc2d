// Files that cannot be measured are refused with the user's message and the
// reason after it: truncated files of every format, impossible sample rates,
// no audio, missing, unreadable and non-regular files. The command gives exit
// status 2 and a JSON error object for each, and its JSON stays valid for
// file names that are not UTF-8.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"

namespace velorum {
namespace {

struct Damaged {
  std::string name;
  std::vector<std::string> reasons;  // accepted reasons
  std::string message;               // the message starts with this
};

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteAll(const std::string& path, const std::string& data) {
  std::ofstream(path, std::ios::binary) << data;
}

// A copy of a libsndfile WAV whose header states another sample rate.
void WithRate(const std::string& from, const std::string& to, uint32_t rate) {
  std::string data = ReadAll(from);
  const size_t fmt = data.find("fmt ");
  ASSERT_NE(fmt, std::string::npos);
  for (int i = 0; i < 4; ++i)
    data[fmt + 12 + static_cast<size_t>(i)] = static_cast<char>((rate >> (8 * i)) & 0xFF);
  WriteAll(to, data);
}

std::vector<Damaged> MakeDamaged(const test::TempDir& dir) {
  const std::vector<float> audio = test::programme(2, 48000, 48000 * 3);
  const std::string cut = "The file could not be opened.";
  std::vector<Damaged> out;
  struct Source {
    const char* name;
    int format;
    bool exactReason;
  };
  for (const Source& s : {Source{"a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, true},
                          Source{"a.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, true},
                          Source{"a.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, true},
                          Source{"b.aiff", SF_FORMAT_AIFF | SF_FORMAT_FLOAT, true},
                          Source{"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, false},
                          Source{"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, false}}) {
    const std::string whole = dir.file(std::string("whole-") + s.name);
    if (!test::writeFile(whole, s.format, 2, 48000, audio)) continue;
    // Cut in the header, early in the data and late in it.
    for (uint64_t at : {uint64_t{60}, test::fileSize(whole) / 5, test::fileSize(whole) * 4 / 5}) {
      const std::string name = "cut" + std::to_string(at) + "-" + s.name;
      test::truncateCopy(whole, dir.file(name), at);
      out.push_back({name,
                     s.exactReason ? std::vector<std::string>{"truncated"}
                                   : std::vector<std::string>{"truncated", "unreadable"},
                     cut});
    }
  }
  const std::string base = dir.file("whole-a.wav");
  for (uint32_t rate : {1u, 7u, 100u, 7999u, 768001u, 2147483647u}) {
    const std::string name = "rate" + std::to_string(rate) + ".wav";
    WithRate(base, dir.file(name), rate);
    out.push_back({name, {"sample_rate"}, cut + " Its sample rate of " + std::to_string(rate) + " Hz"});
  }
  test::writeWav(dir.file("empty.wav"), 2, 48000, {});
  out.push_back({"empty.wav", {"no_audio"}, "The file holds no audio."});
  out.push_back({"absent.wav", {"missing"}, cut + " It does not exist."});
  mkfifo(dir.file("pipe.mp3").c_str(), 0600);
  out.push_back({"pipe.mp3", {"not_regular_file"}, cut + " It is not a regular file"});
  if (geteuid() != 0) {  // the superuser reads every file
    test::writeWav(dir.file("locked.wav"), 2, 48000, audio);
    chmod(dir.file("locked.wav").c_str(), 0);
    out.push_back({"locked.wav", {"permission_denied"}, cut + " Permission to read it is denied."});
  }
  return out;
}

TEST(Refusals, EveryDamagedFileIsRefusedWithItsReason) {
  test::TempDir dir;
  const std::vector<Damaged> damaged = MakeDamaged(dir);
  ASSERT_GE(damaged.size(), 25u);
  for (const Damaged& d : damaged) {
    LoudnessEngine engine;
    OfflineAnalysis analysis(engine);
    OfflineAnalysis::Request request;
    request.paths = {dir.file(d.name)};
    EXPECT_FALSE(analysis.run(request)) << d.name;
    EXPECT_EQ(analysis.state(), OfflineAnalysis::Failed) << d.name;
    EXPECT_EQ(analysis.message().rfind(d.message, 0), 0u) << d.name << ": " << analysis.message();
    EXPECT_NE(std::find(d.reasons.begin(), d.reasons.end(), analysis.reason()), d.reasons.end())
        << d.name << ": " << analysis.reason();
  }
}

std::string RunCli(const std::string& args, int* status) {
  const std::string command =
      std::string("'") + VELORUM_CLI + "' analyze --json -j 1 " + args + " 2>/dev/null";
  std::FILE* pipe = popen(command.c_str(), "r");
  std::string out;
  std::array<char, 4096> buffer{};
  while (pipe && std::fgets(buffer.data(), buffer.size(), pipe)) out += buffer.data();
  const int rc = pipe ? pclose(pipe) : -1;
  *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
  return out;
}

TEST(Refusals, TheCommandGivesStatusTwoAndAJsonErrorObjectPerFile) {
  test::TempDir dir;
  const std::vector<Damaged> damaged = MakeDamaged(dir);
  std::string args;
  for (const Damaged& d : damaged) args += " '" + dir.file(d.name) + "'";
  int status = 0;
  std::istringstream lines(RunCli(args, &status));
  EXPECT_EQ(status, 2);
  size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const nlohmann::json j = nlohmann::json::parse(line);
    ASSERT_LT(count, damaged.size());
    const Damaged& d = damaged[count];
    EXPECT_EQ(j.at("file"), dir.file(d.name));
    EXPECT_EQ(j.at("error").get<std::string>().rfind(d.message, 0), 0u) << line;
    EXPECT_NE(std::find(d.reasons.begin(), d.reasons.end(), j.at("reason")), d.reasons.end()) << line;
  }
  EXPECT_EQ(count, damaged.size());
}

TEST(Refusals, JsonStaysValidForFileNamesThatAreNotUtf8) {
  test::TempDir dir;
  const std::string name = dir.file("take\xff\xfe-\xc3(.wav");
  ASSERT_TRUE(test::writeWav(name, 2, 48000, test::programme(2, 48000, 48000)));
  int status = 0;
  std::istringstream lines(RunCli("'" + name + "' '" + dir.file("gone\x80.wav") + "'", &status));
  EXPECT_EQ(status, 2);
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  const nlohmann::json measured = nlohmann::json::parse(line);
  EXPECT_EQ(measured.at("file"), dir.file("take\xef\xbf\xbd\xef\xbf\xbd-\xef\xbf\xbd(.wav"));
  EXPECT_TRUE(measured.at("integrated").is_number());
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(nlohmann::json::parse(line).at("reason"), "missing");
}

}  // namespace
}  // namespace velorum
