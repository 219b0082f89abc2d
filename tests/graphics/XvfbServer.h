#pragma once
// Starts a private Xvfb server for the tests that need a display and points
// DISPLAY at it; stops it again when the object goes.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

class XvfbServer {
 public:
  XvfbServer() {
    int fds[2];
    if (pipe(fds) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      close(fds[0]);
      const std::string fd = std::to_string(fds[1]);
      execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1024x768x24", "-nolisten", "tcp",
             "-noreset", static_cast<char*>(nullptr));
      _exit(127);
    }
    close(fds[1]);
    char buf[32] = {};
    ssize_t n = 0, got = 0;
    while (got < static_cast<ssize_t>(sizeof buf) - 1 &&
           (n = read(fds[0], buf + got, sizeof buf - 1 - got)) > 0) {
      got += n;
      if (buf[got - 1] == '\n') break;
    }
    close(fds[0]);
    if (got > 0) {
      display_ = ":" + std::string(buf, static_cast<size_t>(got - (buf[got - 1] == '\n' ? 1 : 0)));
      setenv("DISPLAY", display_.c_str(), 1);
    }
  }
  ~XvfbServer() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }
  XvfbServer(const XvfbServer&) = delete;
  XvfbServer& operator=(const XvfbServer&) = delete;
  bool ok() const { return !display_.empty(); }
  const std::string& display() const { return display_; }

 private:
  pid_t pid_ = -1;
  std::string display_;
};
