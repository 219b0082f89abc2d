// Saving and restoring the meter through the host's chunk calls: round trips
// give back the same bytes and readings; damaged, hostile or newer states are
// refused without harm.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "MeterHost.h"

namespace velorum::testing {
namespace {

constexpr size_t kHeader = 8;
constexpr size_t kVersionAt = kHeader;               // int32
constexpr size_t kMeasuredAt = kHeader + 4 + 9 * 8;  // int64 samples measured
constexpr size_t kRateAt = kMeasuredAt + 8 + 4 + 4;  // double sample rate

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

// A meter that has measured a few seconds of programme.
std::unique_ptr<MeterHost> MeasuredMeter(double seconds = 4.0) {
  auto meter = std::make_unique<MeterHost>(48000.0, 2);
  meter->Transport().playing = true;
  meter->Play(Concat({Sine(997.0, -18.0, seconds / 2, 48000.0), Noise(seconds / 2, 48000.0, 2, 5, 0.2f)}),
              {480, 37});
  return meter;
}

void ExpectFreshMeter(MeterHost& m) {
  EXPECT_EQ(m.Reading(kReadingMeasuredSamples), 0.0);
  EXPECT_EQ(m.Reading(kReadingIntegrated), -120.0);
  EXPECT_EQ(m.Reading(kReadingBlocks), 0.0);
  EXPECT_EQ(m.Reading(kReadingPosition), 0.0);
}

TEST(StateChunk, HeaderVersionAndLayoutStart) {
  auto meter = MeasuredMeter();
  const auto chunk = meter->Host().SaveChunk();
  ASSERT_GT(chunk.size(), kRateAt + 8);
  EXPECT_EQ(std::memcmp(chunk.data(), "tffp", 4), 0);
  EXPECT_EQ(Get<int32_t>(chunk, 4), 0x00010000);
  EXPECT_EQ(Get<int32_t>(chunk, kVersionAt), 20506);
  EXPECT_EQ(Get<double>(chunk, kHeader + 4), meter->Reading(kReadingIntegrated));
  EXPECT_EQ(Get<int64_t>(chunk, kMeasuredAt), 4 * 48000);
  EXPECT_EQ(Get<double>(chunk, kRateAt), 48000.0);
  EXPECT_EQ(chunk[kRateAt + 8], 1);
  EXPECT_EQ(chunk[kRateAt + 9], 0);
  EXPECT_EQ(chunk[kRateAt + 11], 1);  // the history is included by default
}

TEST(StateChunk, RoundTripIntoAFreshInstanceIsByteIdentical) {
  auto meter = MeasuredMeter();
  meter->SetParam(17, -16.0);
  meter->SetParam(133, 12.5);
  const auto saved = meter->Host().SaveChunk();
  EXPECT_EQ(meter->Host().SaveChunk(), saved) << "two saves of an unchanged plug-in differ";

  MeterHost fresh(48000.0, 2);
  ASSERT_EQ(fresh.Host().LoadChunk(saved), 1);
  EXPECT_EQ(fresh.Host().SaveChunk(), saved);
  for (int r :
       {kReadingIntegrated, kReadingMomentaryMax, kReadingShortTermMax, kReadingLoudnessRange,
        kReadingTruePeakMax, kReadingPlr, kReadingPosition, kReadingMeasuredSamples, kReadingBlocks}) {
    EXPECT_EQ(fresh.Reading(r), meter->Reading(r)) << "reading " << r;
  }
  EXPECT_EQ(fresh.AllParams(), meter->AllParams());
  for (int b = 0; b < 1000; ++b) ASSERT_EQ(fresh.Bin(0, b), meter->Bin(0, b)) << "loudness bin " << b;

  // Measuring goes on from the restored state.
  fresh.Transport().playing = true;
  fresh.Play(Sine(997.0, -18.0, 1.0, 48000.0));
  EXPECT_EQ(fresh.Reading(kReadingMeasuredSamples), 5.0 * 48000);
}

TEST(StateChunk, BankRoundTrip) {
  auto meter = MeasuredMeter(2.0);
  const auto program = meter->Host().SaveChunk(true);
  const auto bank = meter->Host().SaveChunk(false);
  EXPECT_EQ(meter->Host().SaveChunk(false), bank);
  MeterHost fresh(48000.0, 2);
  ASSERT_EQ(fresh.Host().LoadChunk(bank, false), 1);
  EXPECT_EQ(fresh.Host().SaveChunk(true), program);
}

TEST(StateChunk, ChoosingTheProgramAgainKeepsTheMeasurement) {
  auto meter = MeasuredMeter(2.0);
  const auto saved = meter->Host().SaveChunk();
  EXPECT_EQ(meter->Host().Dispatch(vst::effSetProgram, 0, 0), 1);
  EXPECT_EQ(meter->Host().SaveChunk(), saved);
  EXPECT_EQ(meter->Host().Dispatch(vst::effSetProgram, 0, 3), 0);  // no such program
}

TEST(StateChunk, RawStateWithoutHeaderIsAccepted) {
  auto meter = MeasuredMeter(2.0);
  const auto saved = meter->Host().SaveChunk();
  const std::vector<uint8_t> raw(saved.begin() + kHeader, saved.end());
  MeterHost fresh(48000.0, 2);
  ASSERT_EQ(fresh.Host().LoadChunk(raw), 1);
  EXPECT_EQ(fresh.Host().SaveChunk(), saved);
}

TEST(StateChunk, NewerOrOlderVersionIsRefusedAndLeavesAFreshMeter) {
  auto meter = MeasuredMeter(2.0);
  auto chunk = meter->Host().SaveChunk();
  for (int32_t version : {20507, 30000, 19999, -1}) {
    auto target = MeasuredMeter(1.0);
    Put<int32_t>(chunk, kVersionAt, version);
    EXPECT_EQ(target->Host().LoadChunk(chunk), 0) << version;
    ExpectFreshMeter(*target);
  }
}

TEST(StateChunk, ShortOrEmptyChunksAreRefused) {
  MeterHost meter(48000.0, 2);
  EXPECT_EQ(meter.Host().LoadChunk({}), 0);
  EXPECT_EQ(meter.Host().LoadChunk({'t', 'f', 'f', 'p'}), 0);
  EXPECT_EQ(meter.Host().LoadChunk({'t', 'f', 'f', 'p', 0, 0, 1}), 0);
  EXPECT_EQ(meter.Host().Dispatch(vst::effSetChunk, 1, 100, nullptr), 0);
  EXPECT_EQ(meter.Host().Dispatch(vst::effSetChunk, 1, -5, nullptr), 0);
}

TEST(StateChunk, TruncatedAtEveryLengthIsRefusedWithoutHarm) {
  auto meter = MeasuredMeter(1.0);
  const auto chunk = meter->Host().SaveChunk();
  MeterHost target(48000.0, 2);
  const auto params = target.AllParams();
  for (size_t n = 0; n < chunk.size(); ++n) {
    const std::vector<uint8_t> part(chunk.begin(), chunk.begin() + static_cast<long>(n));
    ASSERT_EQ(target.Host().LoadChunk(part), 0) << "accepted a chunk cut at " << n << " of " << chunk.size();
  }
  ExpectFreshMeter(target);
  auto after = target.AllParams();
  after[149] = params[149];  // the time of day of the last reset
  EXPECT_EQ(after, params) << "a refused state changed parameters";
  ASSERT_EQ(target.Host().LoadChunk(chunk), 1);
}

TEST(StateChunk, RandomAndDamagedBytesNeverCrash) {
  auto meter = MeasuredMeter(1.0);
  const auto chunk = meter->Host().SaveChunk();
  MeterHost target(48000.0, 2);
  std::mt19937 random(1234);
  for (int round = 0; round < 400; ++round) {
    std::vector<uint8_t> bytes(random() % 600);
    for (auto& b : bytes) b = static_cast<uint8_t>(random());
    if (round % 2 && bytes.size() >= 8)
      std::memcpy(bytes.data(), chunk.data(), 8);  // valid header, junk body
    const intptr_t r = target.Host().LoadChunk(bytes);
    EXPECT_TRUE(r == 0 || r == 1);
  }
  for (int round = 0; round < 400; ++round) {
    auto damaged = chunk;
    for (int k = 0; k < 1 + round % 4; ++k)
      damaged[random() % damaged.size()] ^= static_cast<uint8_t>(1 + random() % 255);
    const intptr_t r = target.Host().LoadChunk(damaged);
    EXPECT_TRUE(r == 0 || r == 1);
  }
  // Whatever was loaded, the meter still measures and saves.
  target.Transport().playing = true;
  target.Play(Noise(0.5, 48000.0, 2, 9));
  EXPECT_FALSE(target.Host().SaveChunk().empty());
}

TEST(StateChunk, SampleRateFieldOutsideTheRangeStillLoads) {
  auto meter = MeasuredMeter(1.0);
  auto chunk = meter->Host().SaveChunk();
  for (double rate : {0.0, -48000.0, 1e9}) {
    Put<double>(chunk, kRateAt, rate);
    MeterHost target(48000.0, 2);
    EXPECT_EQ(target.Host().LoadChunk(chunk), 1) << rate;
  }
}

// The parameter tail is the end of the chunk: counts A, B, C, then C display
// values, A + B parameters.
struct Tail {
  size_t at;
  int32_t a, b, c;
};

Tail FindTail(const std::vector<uint8_t>& chunk) {
  for (size_t at = chunk.size() - 12; at > kHeader; --at) {
    const auto a = Get<int32_t>(chunk, at), b = Get<int32_t>(chunk, at + 4), c = Get<int32_t>(chunk, at + 8);
    if (a > 0 && b > 0 && c >= 0 && c < 64 && at + 12 + size_t(a + b + c) * 8 == chunk.size())
      return {at, a, b, c};
  }
  return {0, 0, 0, 0};
}

TEST(StateChunk, ParameterTailIsConstrainedAndMayBeShorter) {
  MeterHost source(48000.0, 2);
  source.SetParam(185, 30.0);
  auto chunk = source.Host().SaveChunk();
  const Tail tail = FindTail(chunk);
  ASSERT_GT(tail.at, 0u);
  EXPECT_EQ(tail.a + tail.b, 215);
  const size_t values = tail.at + 12 + size_t(tail.c) * 8;

  // Hostile values pass through each parameter's constraint.
  auto hostile = chunk;
  Put<double>(hostile, values + 1 * 8, 1e12);                                      // int 10..70
  Put<double>(hostile, values + 2 * 8, std::numeric_limits<double>::quiet_NaN());  // double, default 24
  Put<double>(hostile, values + 4 * 8, 0.7);                                       // bool
  MeterHost target(48000.0, 2);
  ASSERT_EQ(target.Host().LoadChunk(hostile), 1);
  EXPECT_EQ(target.Param(1), 70.0);
  EXPECT_EQ(target.Param(2), 24.0);
  EXPECT_EQ(target.Param(4), 1.0);

  // Fewer stored parameters: the missing ones keep their current values.
  auto shorter = chunk;
  Put<int32_t>(shorter, tail.at + 4, tail.b - 10);
  shorter.resize(shorter.size() - 10 * 8);
  MeterHost other(48000.0, 2);
  other.SetParam(212, 7.0);
  ASSERT_EQ(other.Host().LoadChunk(shorter), 1);
  EXPECT_EQ(other.Param(212), 7.0);
  EXPECT_EQ(other.Param(185), 30.0);
}

}  // namespace
}  // namespace velorum::testing
