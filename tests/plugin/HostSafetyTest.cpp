// What a host can throw at the meter without harming the session: damaged
// and hostile state chunks (a decompression bomb among them), non-finite
// samples, sample rates the meter cannot measure at, counters at the ends of
// their types. Each refusal leaves a freshly reset meter; the audio always
// passes through bit for bit.
#include <gtest/gtest.h>
#include <zlib.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#ifdef __linux__
#include <sys/resource.h>
#endif

#include "MeterHost.h"

namespace velorum::testing {
namespace {

constexpr size_t kHeader = 8;
constexpr size_t kMeasuredAt = kHeader + 4 + 9 * 8;  // int64 samples measured
constexpr size_t kCounterAt = kMeasuredAt + 8 + 4;   // int32 reset counter
constexpr size_t kRateAt = kCounterAt + 4;           // double sample rate
constexpr size_t kHistoryAt = kRateAt + 8 + 4;       // compressed history: int32 plain size, byte run
constexpr int kParams = 215, kGenerator = 104, kHistogramMode = 172;

template <typename T>
T Get(const std::vector<uint8_t>& b, size_t at) {
  T v{};
  std::memcpy(&v, b.data() + at, sizeof v);
  return v;
}
template <typename T>
void Put(std::vector<uint8_t>& b, size_t at, T v) {
  std::memcpy(b.data() + at, &v, sizeof v);
}

// The host's channels came back bit for bit (the outputs beyond them are silent).
bool PassedThrough(const std::vector<std::vector<float>>& out, const std::vector<std::vector<float>>& in) {
  for (size_t c = 0; c < in.size(); ++c) {
    if (out.size() <= c || out[c].size() != in[c].size() ||
        std::memcmp(out[c].data(), in[c].data(), in[c].size() * sizeof(float)) != 0)
      return false;
  }
  return true;
}

void ExpectFreshMeter(MeterHost& m) {
  EXPECT_EQ(m.Reading(kReadingMeasuredSamples), 0.0);
  EXPECT_EQ(m.Reading(kReadingIntegrated), -120.0);
  EXPECT_EQ(m.Reading(kReadingBlocks), 0.0);
}

std::unique_ptr<MeterHost> MeasuredMeter() {
  auto meter = std::make_unique<MeterHost>(48000.0, 2);
  meter->Transport().playing = true;
  meter->Play(Sine(997.0, -18.0, 2.0, 48000.0));
  return meter;
}

// `prefix` followed by `zeros` zero bytes, deflated without holding them.
std::vector<uint8_t> DeflatedZeros(const std::vector<uint8_t>& prefix, size_t zeros) {
  z_stream z{};
  deflateInit2(&z, 9, Z_DEFLATED, 15, 8, Z_RLE);  // runs of zeros at full speed
  std::vector<uint8_t> out, buffer(1 << 16);
  const std::vector<uint8_t> block(1 << 20, 0);
  auto pump = [&](const uint8_t* data, size_t n, int flush) {
    z.next_in = const_cast<Bytef*>(data);
    z.avail_in = static_cast<uInt>(n);
    do {
      z.next_out = buffer.data();
      z.avail_out = static_cast<uInt>(buffer.size());
      deflate(&z, flush);
      out.insert(out.end(), buffer.data(), buffer.data() + (buffer.size() - z.avail_out));
    } while (z.avail_out == 0);
  };
  pump(prefix.data(), prefix.size(), Z_NO_FLUSH);
  for (size_t left = zeros; left > 0;) {
    const size_t n = std::min(left, block.size());
    pump(block.data(), n, Z_NO_FLUSH);
    left -= n;
  }
  pump(nullptr, 0, Z_FINISH);
  deflateEnd(&z);
  return out;
}

// `chunk` with its history replaced by `plainSize` and `packed`.
std::vector<uint8_t> WithHistory(const std::vector<uint8_t>& chunk, int32_t plainSize,
                                 const std::vector<uint8_t>& packed) {
  const auto run = static_cast<size_t>(Get<int32_t>(chunk, kHistoryAt + 4));
  std::vector<uint8_t> out(chunk.begin(), chunk.begin() + kHistoryAt);
  out.resize(out.size() + 8);
  Put(out, kHistoryAt, plainSize);
  Put(out, kHistoryAt + 4, static_cast<int32_t>(packed.size()));
  out.insert(out.end(), packed.begin(), packed.end());
  out.insert(out.end(), chunk.begin() + static_cast<ptrdiff_t>(kHistoryAt + 8 + run), chunk.end());
  return out;
}

// Bookkeeping of a plain history body (five int32, two bytes) and the first count.
std::vector<uint8_t> HistoryHead(int32_t steps10, bool timeline) {
  std::vector<uint8_t> head(5 * 4 + 2 + 4, 0);
  head[21] = timeline ? 1 : 0;
  Put(head, 22, steps10);
  return head;
}

long PeakRssMb() {
#ifdef __linux__
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
#else
  return 0;
#endif
}

TEST(HostSafety, DecompressionBombsAreRefusedBeforeTheyAreInflated) {
  auto meter = MeasuredMeter();
  const auto chunk = meter->Host().SaveChunk();
  ASSERT_EQ(chunk[kRateAt + 10], 1);  // compressed history
  const int32_t hours75 = 75 * 360000;
  struct Case {
    const char* what;
    std::vector<uint8_t> prefix;
    size_t zeros;
    int32_t plainSize;
  };
  const Case cases[] = {
      {"half a gigabyte of zeros", {}, size_t(512) << 20, 512 << 20},
      // Streams shorter than they claim: a meter that trusted the claim
      // would allocate it (and fail the memory bound) before finding out.
      {"75 hours of steps", HistoryHead(hours75, true), 1 << 20, int32_t(hours75) * 19 + 26},
      {"an hour of steps but nothing measured", HistoryHead(360000, false), 1 << 20, 360000 * 19 + 4000},
      {"a size its counts do not give", HistoryHead(1000, true), 20000, 2000},
  };
  const long before = PeakRssMb();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto bomb = WithHistory(chunk, c.plainSize, DeflatedZeros(c.prefix, c.zeros));
    EXPECT_LT(bomb.size(), size_t(1) << 20);
    meter->Play(Sine(997.0, -18.0, 0.5, 48000.0));
    EXPECT_EQ(meter->Host().LoadChunk(bomb), 0);
    ExpectFreshMeter(*meter);
  }
  EXPECT_LT(PeakRssMb() - before, 300);
  EXPECT_EQ(meter->Host().LoadChunk(chunk), 1);  // the genuine state still loads
}

TEST(HostSafety, EveryRefusedStateLeavesAFreshMeter) {
  auto meter = MeasuredMeter();
  const auto program = meter->Host().SaveChunk(true);
  const auto bank = meter->Host().SaveChunk(false);
  auto newer = program;
  Put<int32_t>(newer, kHeader, 99999);
  auto bankCut = bank;
  bankCut.resize(bankCut.size() / 2);
  auto bankNegative = bank;
  Put<int32_t>(bankNegative, kHeader, -1);
  std::vector<std::pair<std::vector<uint8_t>, bool>> refused = {
      {{'t', 'f', 'f', 'p'}, true},
      {{'t', 'f', 'f', 'p', 0}, true},
      {{'t', 'f', 'f', 'p', 0, 0}, true},
      {{'t', 'f', 'f', 'p', 0, 0, 1}, true},
      {newer, true},
      {bankCut, false},
      {bankNegative, false},
      {{'t', 'f', 'f', 'p', 0, 0, 1, 0}, false},
  };
  for (size_t i = 0; i < refused.size(); ++i) {
    SCOPED_TRACE(i);
    meter->Play(Sine(997.0, -18.0, 0.5, 48000.0));
    ASSERT_GT(meter->Reading(kReadingMeasuredSamples), 0.0);
    EXPECT_EQ(meter->Host().LoadChunk(refused[i].first, refused[i].second), 0);
    ExpectFreshMeter(*meter);
  }
}

TEST(HostSafety, ARestoredStateNeverStartsTheCalibrationSignal) {
  MeterHost source(48000.0, 2);
  source.SetParam(kGenerator, 2.0);
  ASSERT_EQ(source.Param(kGenerator), 2.0);
  auto chunk = source.Host().SaveChunk();
  const size_t generatorAt = chunk.size() - size_t(kParams - kGenerator) * 8;
  ASSERT_EQ(Get<double>(chunk, generatorAt), 2.0);
  const auto input = Sine(997.0, -30.0, 0.1, 48000.0);
  for (double stored : {1.0, 2.0, 5.0, -3.0, std::numeric_limits<double>::quiet_NaN()}) {
    SCOPED_TRACE(stored);
    Put(chunk, generatorAt, stored);
    MeterHost target(48000.0, 2);
    target.SetParam(kGenerator, 1.0);  // playing before the restore
    EXPECT_EQ(target.Host().LoadChunk(chunk), 1);
    EXPECT_EQ(target.Param(kGenerator), 0.0);
    EXPECT_TRUE(PassedThrough(target.Run(input), input));  // the programme, not a tone
  }
}

TEST(HostSafety, NonFiniteSamplesAreMeasuredAsSilenceAndTheMeterRecoversAtOnce) {
  const double rate = 48000.0;
  auto input = Concat({Sine(1000.0, -20.0, 10.0, rate), Sine(1000.0, -30.0, 60.0, rate)});
  input[0][size_t(40 * rate)] = std::numeric_limits<float>::quiet_NaN();
  input[1][size_t(50 * rate)] = std::numeric_limits<float>::infinity();
  for (size_t i = 0; i < 512; ++i) input[0][size_t(60 * rate) + i] = -std::numeric_limits<float>::infinity();
  MeterHost meter(rate, 2);
  meter.Transport().playing = true;
  // The pass-through keeps every sample bit for bit, the damaged ones too.
  std::vector<std::vector<float>> out(2);
  meter.Host().RunFloat(input, out, {4096});
  EXPECT_TRUE(PassedThrough(out, input));
  EXPECT_EQ(meter.Reading(kReadingNonFinite), 514.0);
  // What the programme reads without the glitches: both parts pass the
  // gates, so the integrated level is the energy mean of 10 s at -20 LUFS and
  // 60 s at -30 LUFS, 10 log10((10 * 0.01 + 60 * 0.001) / 70) = -26.41 LUFS.
  EXPECT_NEAR(meter.Reading(kReadingIntegrated), -26.41, 0.02);
  EXPECT_NEAR(meter.Reading(kReadingLoudnessRange), 10.01, 0.01);
  EXPECT_NEAR(meter.Reading(kReadingMomentary), -30.0, 0.05);
  EXPECT_NEAR(meter.Reading(kReadingShortTerm), -30.0, 0.05);
  EXPECT_NEAR(meter.Reading(kReadingTruePeakMax), -20.0, 0.1);
  meter.Query(kQueryReset);
  EXPECT_EQ(meter.Reading(kReadingNonFinite), 0.0);
}

TEST(HostSafety, RatesOutsideEightTo768KHzPassAudioAndLeaveTheMeterInactive) {
  for (double rate : {100.0, 2000.0, 7999.0, 800000.0, 2000000.0}) {
    SCOPED_TRACE(rate);
    MeterHost meter(rate, 2);
    meter.Transport().playing = true;
    const auto input = Noise(0.5, 48000.0, 2, 3);
    EXPECT_TRUE(PassedThrough(meter.Run(input), input));
    EXPECT_EQ(meter.Reading(kReadingRateSupported), 0.0);
    EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 0.0);
    for (int r : {kReadingMomentaryMax, kReadingShortTermMax, kReadingLoudnessRange, kReadingIntegrated}) {
      EXPECT_TRUE(std::isfinite(meter.Reading(r))) << r;
    }
    meter.Host().SetSampleRate(48000.0);
    meter.Play(input);
    EXPECT_EQ(meter.Reading(kReadingRateSupported), 1.0);
    EXPECT_EQ(meter.Reading(kReadingMeasuredSamples), 24000.0);
  }
}

TEST(HostSafety, CountersAtTheEndsOfTheirTypesCannotOverflow) {
  auto meter = MeasuredMeter();
  auto chunk = meter->Host().SaveChunk();
  Put<int32_t>(chunk, kCounterAt, INT_MAX);
  Put<int64_t>(chunk, kMeasuredAt, std::numeric_limits<int64_t>::max());
  meter->SetParam(kHistogramMode, 3.0);
  ASSERT_EQ(meter->Host().LoadChunk(chunk), 1);
  meter->Play(Sine(997.0, -18.0, 0.5, 48000.0));  // counting on from the stored count
  for (int i = 0; i < 3; ++i) meter->Query(kQueryReset);
  const auto after = meter->Host().SaveChunk();
  EXPECT_GE(Get<int32_t>(after, kCounterAt), 0);
  EXPECT_GE(Get<int64_t>(after, kMeasuredAt), 0);
}

}  // namespace
}  // namespace velorum::testing
