// Test helpers: one loaded plug-in binary per test program and a hosted
// meter instance with shortcuts for the meter's vendor-specific query.
#pragma once

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "VstHost.h"
#include "plugin/VendorQuery.h"

namespace velorum::testing {

harness::PluginModule& PluginBinary();

class MeterHost {
 public:
  explicit MeterHost(double rate = 48000.0, int channels = 2, const std::string& product = "Velorum Host");
  harness::HostedPlugin& Host() { return *mHost; }
  harness::Transport& Transport() { return mHost->HostTransport(); }

  double Query(int32_t command, int32_t index = 0, double value = 0.0);
  double Param(int index) { return Query(kQueryGetParam, index); }
  void SetParam(int index, double value) { Query(kQuerySetParam, index, value); }
  std::vector<double> AllParams();
  double Reading(int which) { return Query(kQueryReading, which); }
  double Bin(int kind, int bin) { return Query(kQueryBin, kind * 1000 + bin); }
  double BinTotal(int kind) { return Query(kQueryBinTotal, kind); }
  int ApplyStandard(int index) { return static_cast<int>(Query(kQueryApplyStandard, index)); }

  // Streams a signal in blocks (float path).
  void Play(const std::vector<std::vector<float>>& signal, const std::vector<int>& blocks = {512});
  std::vector<std::vector<float>> Run(const std::vector<std::vector<float>>& signal,
                                      const std::vector<int>& blocks = {512});

 private:
  std::unique_ptr<harness::HostedPlugin> mHost;
};

// A sine of `frequency` Hz with peak amplitude 10^(dbfs/20) on `channels`
// identical channels.
std::vector<std::vector<float>> Sine(double frequency, double dbfs, double seconds, double rate,
                                     int channels = 2);
std::vector<std::vector<float>> Silence(double seconds, double rate, int channels = 2);
std::vector<std::vector<float>> Noise(double seconds, double rate, int channels, unsigned seed,
                                      float amplitude = 0.5f);
// Joins signals end to end.
std::vector<std::vector<float>> Concat(const std::vector<std::vector<std::vector<float>>>& parts);

}  // namespace velorum::testing
