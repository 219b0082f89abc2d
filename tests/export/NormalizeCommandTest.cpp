// The normalize command as a user runs it: interrupted in the middle of a
// write it leaves no file behind; several inputs go to a folder in parallel;
// messages name the file they are about; options in both spellings.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "NormalizerFixtures.h"
#include "export/WavNormalizer.h"

namespace velorum {
namespace {

struct Outcome {
  int status = -1;
  std::string out, err;
};

Outcome Velorum(const std::string& dir, const std::string& args) {
  const std::string out = dir + "/stdout.txt", err = dir + "/stderr.txt";
  const std::string command =
      std::string("'") + VELORUM_CLI + "' normalize " + args + " >'" + out + "' 2>'" + err + "'";
  Outcome r;
  const int raw = std::system(command.c_str());
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  std::stringstream o, e;
  o << std::ifstream(out).rdbuf();
  e << std::ifstream(err).rdbuf();
  r.out = o.str();
  r.err = e.str();
  return r;
}

TEST(NormalizeCommand, InterruptedWriteLeavesNoFile) {
  test::TempDir dir;
  const std::string in = dir.file("long.wav"), out = dir.file("out.wav");
  ASSERT_TRUE(test::writeWav(in, 2, 48000, test::Music(2, 48000, 20.0, 0.0, 0.3)));
  for (int sig : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(sig);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      // The command stops itself when its copy is 60 % written.
      setenv("VELORUM_STOP_AT_PERCENT", "60", 1);
      execl(VELORUM_CLI, VELORUM_CLI, "normalize", "--target=-23", "-y", in.c_str(), out.c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, WUNTRACED), pid);
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_TRUE(std::filesystem::exists(TemporaryNameFor(out)));  // caught in the middle of the write
    kill(pid, sig);
    kill(pid, SIGCONT);
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == sig);
    EXPECT_FALSE(std::filesystem::exists(TemporaryNameFor(out)));
    EXPECT_FALSE(std::filesystem::exists(out));
  }
}

TEST(NormalizeCommand, SeveralInputsGoToAFolder) {
  test::TempDir dir;
  const std::vector<float> music = test::Music(2, 44100, 8.0, 0.0, 0.3);
  ASSERT_TRUE(test::writeWav(dir.file("a.wav"), 2, 44100, music));
  ASSERT_TRUE(test::writeFile(dir.file("b.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100, music));
  ASSERT_TRUE(test::writeFile(dir.file("c.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 2, 44100, music));
  const std::string folder = dir.file("out");
  Outcome r = Velorum(dir.path(), "--preset 'EBU R128' -j 2 '" + dir.file("a.wav") + "' '" +
                                      dir.file("b.flac") + "' '" + dir.file("c.ogg") + "' '" + folder + "'");
  EXPECT_EQ(r.status, 0) << r.err;
  for (const char* name : {"a.wav", "b.flac", "c.wav"}) {
    SCOPED_TRACE(name);
    EXPECT_NEAR(test::Peer(folder + "/" + name).integrated, -23.0, 0.1);
    EXPECT_NE(r.out.find(std::string("out/") + name), std::string::npos) << r.out;
  }
  EXPECT_LT(r.out.find("a.wav ->"), r.out.find("b.flac ->"));  // reports in the order of the inputs
  EXPECT_NE(r.out.find("c.ogg: The source's format can't be written"), std::string::npos) << r.out;

  // Two inputs for one output name: the second is left out, named.
  ASSERT_TRUE(test::writeWav(dir.file("c.wav"), 2, 44100, music));
  r = Velorum(dir.path(),
              "--target -16 -y '" + dir.file("c.ogg") + "' '" + dir.file("c.wav") + "' '" + folder + "'");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find(folder + "/c.wav: Also the copy of"), std::string::npos) << r.err;
}

TEST(NormalizeCommand, RefusalsNameTheFile) {
  test::TempDir dir;
  ASSERT_TRUE(test::writeFile(dir.file("a.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100,
                              test::Music(2, 44100, 4.0, 0.0, 0.3)));
  Outcome r = Velorum(dir.path(), "--target=-14 '" + dir.file("a.flac") + "' '" + dir.file("x.wav") + "'");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find(dir.file("x.wav") + ": The copy is written as FLAC"), std::string::npos) << r.err;
  r = Velorum(dir.path(), "--target -14 '" + dir.file("none.wav") + "' '" + dir.file("y.wav") + "'");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find(dir.file("none.wav") + ": "), std::string::npos) << r.err;
  for (const char* bad :
       {"--target -14 --true-peak 3", "--target 5", "--limit", "--target -14 --preset NOPE"}) {
    r = Velorum(dir.path(), std::string(bad) + " '" + dir.file("a.flac") + "' '" + dir.file("z.flac") + "'");
    EXPECT_EQ(r.status, 64) << bad;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("z.flac")));
}

}  // namespace
}  // namespace velorum
