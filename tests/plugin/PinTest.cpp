// Only the pins the host connected carry audio: whatever a host leaves in the
// buffers of the other pins never reaches the readings, the connected outputs
// pass their inputs bit for bit, and the other outputs are silent.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "MeterHost.h"

namespace velorum::testing {
namespace {

struct PinRun {
  std::vector<double> readings;
  std::vector<std::vector<float>> out;
};

// Streams `signal` on the first pins, with `junk` in every other input buffer
// (and in every output buffer before each call), in 512-frame blocks.
PinRun Stream(const std::vector<std::vector<float>>& signal, float junk, bool doublePath) {
  MeterHost meter(48000.0, static_cast<int>(signal.size()));
  meter.Transport().playing = true;
  vst::AEffect* e = meter.Host().Effect();
  const auto pinsIn = static_cast<size_t>(e->numInputs), pinsOut = static_cast<size_t>(e->numOutputs);
  PinRun run;
  run.out.assign(pinsOut, {});
  std::vector<std::vector<float>> inF(pinsIn, std::vector<float>(512)),
      outF(pinsOut, std::vector<float>(512));
  std::vector<std::vector<double>> inD(pinsIn, std::vector<double>(512)),
      outD(pinsOut, std::vector<double>(512));
  std::vector<float*> inPF, outPF;
  std::vector<double*> inPD, outPD;
  for (size_t c = 0; c < pinsIn; ++c) inPF.push_back(inF[c].data()), inPD.push_back(inD[c].data());
  for (size_t c = 0; c < pinsOut; ++c) outPF.push_back(outF[c].data()), outPD.push_back(outD[c].data());
  for (size_t at = 0; at + 512 <= signal[0].size(); at += 512) {
    for (size_t c = 0; c < pinsIn; ++c)
      for (size_t i = 0; i < 512; ++i) {
        inF[c][i] = c < signal.size() ? signal[c][at + i] : junk;
        inD[c][i] = static_cast<double>(inF[c][i]);
      }
    for (size_t c = 0; c < pinsOut; ++c)
      std::fill(outF[c].begin(), outF[c].end(), junk), std::fill(outD[c].begin(), outD[c].end(), junk);
    if (doublePath)
      e->processDoubleReplacing(e, inPD.data(), outPD.data(), 512);
    else
      e->processReplacing(e, inPF.data(), outPF.data(), 512);
    for (size_t c = 0; c < pinsOut; ++c)
      for (size_t i = 0; i < 512; ++i)
        run.out[c].push_back(doublePath ? static_cast<float>(outD[c][i]) : outF[c][i]);
    meter.Transport().position += 512;
  }
  for (int r : {kReadingIntegrated, kReadingMomentaryMax, kReadingShortTermMax, kReadingTruePeakMax,
                kReadingLoudnessRange, kReadingMeasuredSamples})
    run.readings.push_back(meter.Reading(r));
  return run;
}

TEST(Pins, UnconnectedPinsNeverReachTheReadingsOrTheOutputs) {
  const auto signal = Concat({Sine(997.0, -23.0, 1.0, 48000.0, 2), Noise(1.0, 48000.0, 2, 5, 0.25f)});
  for (bool doublePath : {false, true}) {
    const PinRun clean = Stream(signal, 0.0f, doublePath);
    EXPECT_NEAR(clean.readings[3], -8.0, 3.0);  // the noise's true peak was measured
    for (float junk : {1.0f, std::numeric_limits<float>::quiet_NaN()}) {
      const PinRun run = Stream(signal, junk, doublePath);
      EXPECT_EQ(std::memcmp(run.readings.data(), clean.readings.data(), run.readings.size() * sizeof(double)),
                0)
          << "junk " << junk << (doublePath ? " double" : " float");
      for (size_t c = 0; c < run.out.size(); ++c) {
        if (c < signal.size()) {
          ASSERT_EQ(std::memcmp(run.out[c].data(), signal[c].data(), run.out[c].size() * sizeof(float)), 0)
              << c;
        } else {
          for (float v : run.out[c]) ASSERT_EQ(v, 0.0f) << "output " << c;
        }
      }
    }
  }
}

}  // namespace
}  // namespace velorum::testing
