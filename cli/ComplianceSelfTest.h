#pragma once
// "velorum selftest": synthesises the test signals of EBU Tech 3341 (loudness
// meters) and Tech 3342 (loudness range) plus inter-sample true-peak signals,
// writes each as a 24-bit WAV file to a temporary folder, reads it back
// through the file reader in blocks of 4096 frames into the engine, and
// compares the reading with the expected value and its tolerance.
#include <string>
#include <vector>

namespace velorum {

struct SelfTestCase {
  std::string name;  // e.g. "3341-3 integrated"
  std::string unit;  // "LUFS", "LU", "dBTP"
  double expected = 0.0;
  double below = 0.1;  // tolerance under the expected value
  double above = 0.1;  // tolerance over it
  double reading = 0.0;
  bool measured = false;
  bool pass = false;
};

// Runs every case (in parallel on up to `jobs` threads, in eco true-peak
// mode when asked) and returns them in order.
std::vector<SelfTestCase> RunComplianceSelfTest(int jobs, bool eco = false);

// Prints the table; returns the exit status (0 when every case passed).
int PrintSelfTest(const std::vector<SelfTestCase>& cases);

}  // namespace velorum
