// The meter is transparent: audio passes bit for bit through the float, the
// double and the accumulating callbacks, whatever the block sizes.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "MeterHost.h"
#include "WavFile.h"

namespace velorum::testing {
namespace {

const std::vector<int> kOddBlocks = {1, 0, 7, 8192, 511, 0, 64, 3000, 2, 1024};

std::vector<std::vector<float>> EbuProgramme() {
  harness::WavData wav;
  std::string error;
  EXPECT_TRUE(harness::ReadWav(std::string(VELORUM_EBU_DIR) + "/seq-3341-2-16bit.wav", wav, &error)) << error;
  return wav.samples;
}

TEST(PassThrough, FloatPathIsBitExact) {
  MeterHost meter(48000.0, 2);
  // An EBU programme plus noise whose values use every mantissa bit.
  auto signal = Concat({EbuProgramme(), Noise(1.0, 48000.0, 2, 7, 1.0f)});
  signal[0][100] = 1e-40f;  // a denormal survives the double round trip
  signal[1][200] = -0.0f;
  meter.Transport().playing = true;
  const auto out = meter.Run(signal, kOddBlocks);
  for (size_t c = 0; c < 2; ++c) {
    ASSERT_EQ(out[c].size(), signal[c].size());
    EXPECT_EQ(std::memcmp(out[c].data(), signal[c].data(), signal[c].size() * sizeof(float)), 0)
        << "channel " << c;
  }
  EXPECT_GT(meter.Reading(kReadingMeasuredSamples), 0.0);
}

TEST(PassThrough, DoublePathIsBitExact) {
  MeterHost meter(44100.0, 2);
  const auto noise = Noise(2.0, 44100.0, 2, 11, 1.0f);
  std::vector<std::vector<double>> in(2), out(2);
  for (size_t c = 0; c < 2; ++c) {
    for (float v : noise[c])
      in[c].push_back(static_cast<double>(v) * (1.0 + 1e-9));  // not representable as float
  }
  meter.Transport().playing = true;
  meter.Host().RunDouble(in, out, kOddBlocks);
  for (size_t c = 0; c < 2; ++c) {
    ASSERT_EQ(out[c].size(), in[c].size());
    EXPECT_EQ(std::memcmp(out[c].data(), in[c].data(), in[c].size() * sizeof(double)), 0) << "channel " << c;
  }
}

TEST(PassThrough, AccumulatingPathAddsToTheHostBuffer) {
  MeterHost meter(48000.0, 2);
  harness::HostedPlugin& h = meter.Host();
  std::vector<std::vector<float>> in(24, std::vector<float>(256, 0.0f)),
      out(24, std::vector<float>(256, 0.25f));
  for (int i = 0; i < 256; ++i) in[0][size_t(i)] = in[1][size_t(i)] = 0.5f;
  std::vector<float*> inPtrs, outPtrs;
  for (auto& v : in) inPtrs.push_back(v.data());
  for (auto& v : out) outPtrs.push_back(v.data());
  h.Effect()->process(h.Effect(), inPtrs.data(), outPtrs.data(), 256);
  EXPECT_EQ(out[0][10], 0.75f);
  EXPECT_EQ(out[1][255], 0.75f);
}

TEST(PassThrough, OutputsBeyondThePassedInputsAreSilent) {
  // A host that hands more pins than it fills (host code 7) gets only its
  // first two inputs passed; every further output is zero.
  MeterHost meter(48000.0, 4, "Sound Forge Pro");
  const auto noise = Noise(0.5, 48000.0, 4, 3);
  meter.Transport().playing = true;
  const auto out = meter.Run(noise, {480});
  EXPECT_EQ(out[0], noise[0]);
  EXPECT_EQ(out[1], noise[1]);
  for (size_t c = 2; c < out.size(); ++c) {
    for (float v : out[c]) ASSERT_EQ(v, 0.0f) << "output " << c;
  }
}

TEST(PassThrough, NonFiniteSamplesPassAndNeverBreakTheMeter) {
  MeterHost meter(48000.0, 2);
  auto signal = Sine(997.0, -20.0, 2.0, 48000.0);
  signal[0][1000] = std::numeric_limits<float>::quiet_NaN();
  signal[1][2000] = std::numeric_limits<float>::infinity();
  meter.Transport().playing = true;
  const auto out = meter.Run(signal, {512});
  EXPECT_TRUE(std::isnan(out[0][1000]));
  EXPECT_EQ(out[1][2000], std::numeric_limits<float>::infinity());
  EXPECT_EQ(out[0][5000], signal[0][5000]);
  // Still answering and saving.
  EXPECT_FALSE(meter.Host().SaveChunk().empty());
}

}  // namespace
}  // namespace velorum::testing
