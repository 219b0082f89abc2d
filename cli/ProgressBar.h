#pragma once
// A one-line progress bar on stderr, drawn only when stderr is a terminal:
//   [##########----------]  50%  3/6 files  1m 20s left
// Redraws at most ten times a second; clear() removes it before other output.
#include <chrono>
#include <string>

namespace velorum {

class ProgressBar {
 public:
  // Drawn only when `wanted` and stderr is a terminal.
  explicit ProgressBar(bool wanted = true);
  bool enabled() const { return enabled_; }
  void update(double fraction, const std::string& label);
  void clear();

 private:
  bool enabled_ = false;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point lastDraw_;
};

// The remaining-time text of the progress display: "%ih %im" or "%im %is".
std::string RemainingTime(double seconds);

}  // namespace velorum
