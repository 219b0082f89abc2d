#include "MeterHost.h"

#include <gtest/gtest.h>

#include <numbers>
#include <random>
#include <stdexcept>

namespace velorum::testing {

harness::PluginModule& PluginBinary() {
  static std::unique_ptr<harness::PluginModule> module = [] {
    std::string error;
    auto m = harness::PluginModule::Load(VELORUM_PLUGIN_PATH, &error);
    if (!m) throw std::runtime_error("cannot load " + std::string(VELORUM_PLUGIN_PATH) + ": " + error);
    return m;
  }();
  return *module;
}

MeterHost::MeterHost(double rate, int channels, const std::string& product)
    : mHost(harness::HostedPlugin::Create(PluginBinary(), rate, 512, product)) {
  if (!mHost) throw std::runtime_error("VSTPluginMain returned no effect");
  if (channels > 0) mHost->SetChannels(channels);
}

double MeterHost::Query(int32_t command, int32_t index, double value) {
  VendorRequest request;
  request.command = command;
  request.index = index;
  request.value = value;
  const intptr_t handled = mHost->Dispatch(vst::effVendorSpecific, kVendorQueryIndex, 0, &request);
  EXPECT_EQ(handled, 1) << "vendor query " << command << "/" << index;
  return request.value;
}

std::vector<double> MeterHost::AllParams() {
  std::vector<double> values;
  for (int i = 0; i < 215; ++i) values.push_back(Param(i));
  return values;
}

void MeterHost::Play(const std::vector<std::vector<float>>& signal, const std::vector<int>& blocks) {
  std::vector<std::vector<float>> out(signal.size());
  mHost->RunFloat(signal, out, blocks);
}

std::vector<std::vector<float>> MeterHost::Run(const std::vector<std::vector<float>>& signal,
                                               const std::vector<int>& blocks) {
  std::vector<std::vector<float>> out(size_t(mHost->NumOutputs()));
  mHost->RunFloat(signal, out, blocks);
  return out;
}

std::vector<std::vector<float>> Sine(double frequency, double dbfs, double seconds, double rate,
                                     int channels) {
  const auto frames = static_cast<size_t>(std::llround(seconds * rate));
  const double amplitude = std::pow(10.0, dbfs / 20.0);
  std::vector<float> one(frames);
  for (size_t i = 0; i < frames; ++i) {
    one[i] = static_cast<float>(amplitude *
                                std::sin(2.0 * std::numbers::pi * frequency * static_cast<double>(i) / rate));
  }
  return std::vector<std::vector<float>>(size_t(channels), one);
}

std::vector<std::vector<float>> Silence(double seconds, double rate, int channels) {
  return std::vector<std::vector<float>>(
      size_t(channels), std::vector<float>(static_cast<size_t>(std::llround(seconds * rate)), 0.0f));
}

std::vector<std::vector<float>> Noise(double seconds, double rate, int channels, unsigned seed,
                                      float amplitude) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> dist(-amplitude, amplitude);
  const auto frames = static_cast<size_t>(std::llround(seconds * rate));
  std::vector<std::vector<float>> s(static_cast<size_t>(channels), std::vector<float>(frames));
  for (auto& channel : s) {
    for (float& v : channel) v = dist(random);
  }
  return s;
}

std::vector<std::vector<float>> Concat(const std::vector<std::vector<std::vector<float>>>& parts) {
  std::vector<std::vector<float>> all(parts.empty() ? 0 : parts[0].size());
  for (const auto& part : parts) {
    for (size_t c = 0; c < all.size() && c < part.size(); ++c)
      all[c].insert(all[c].end(), part[c].begin(), part[c].end());
  }
  return all;
}

}  // namespace velorum::testing
