#include "ui/GainRiderGame.h"

#include <algorithm>
#include <cmath>

namespace velorum::ui {
namespace {

constexpr int64_t kSceneSteps = 150;  // 2.5 s of one level
constexpr int64_t kFadeSteps = 30;    // the move to the next level
constexpr int64_t kSlotSteps = 30;    // one chance of a transient per 0.5 s
constexpr double kTransientChance = 0.3;
constexpr double kPi = 3.14159265358979323846;

uint64_t Mix(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

int64_t FloorDiv(int64_t a, int64_t b) {
  return a >= 0 ? a / b : -((-a + b - 1) / b);
}

}  // namespace

GainRiderGame::GainRiderGame(uint32_t seed, bool flat, double flatLoudness)
    : mSeed(seed), mFlat(flat), mFlatLoudness(flatLoudness) {}

double GainRiderGame::Hash(uint64_t a, uint64_t b) const {
  return double(Mix(Mix(mSeed ^ (a << 1)) ^ b) >> 11) / 9007199254740992.0;  // [0, 1)
}

double GainRiderGame::Scene(int64_t scene) const {
  // The first scene starts at the target, so the game opens gently; later
  // ones range from whispered dialogue to a loud chase.
  if (scene <= 0) return kTarget;
  return -40.0 + 30.0 * Hash(uint64_t(scene), 1);
}

double GainRiderGame::Programme(int64_t step) const {
  if (mFlat) return mFlatLoudness;
  const int64_t scene = FloorDiv(step, kSceneSteps);
  const int64_t into = step - scene * kSceneSteps;
  double level = Scene(scene);
  if (into < kFadeSteps) {
    const double f = 0.5 - 0.5 * std::cos(kPi * double(into) / double(kFadeSteps));
    level = Scene(scene - 1) + (level - Scene(scene - 1)) * f;
  }
  // A slow wobble of a few tenths of an LU, like a real mix.
  const double phase = 2.0 * kPi * Hash(uint64_t(scene), 2);
  return level + 0.8 * std::sin(phase + double(step) * 2.0 * kPi / 97.0);
}

std::vector<GainRiderGame::Transient> GainRiderGame::TransientsBetween(int64_t from, int64_t to) const {
  std::vector<Transient> out;
  if (mFlat) return out;
  for (int64_t slot = std::max<int64_t>(2, FloorDiv(from, kSlotSteps)); slot * kSlotSteps <= to; ++slot) {
    if (Hash(uint64_t(slot), 3) >= kTransientChance) continue;
    const int64_t step = slot * kSlotSteps + int64_t(Hash(uint64_t(slot), 4) * double(kSlotSteps));
    if (step >= from && step <= to) out.push_back({step, 8.0 + 16.0 * Hash(uint64_t(slot), 5)});
  }
  return out;
}

void GainRiderGame::SetFader(double gainDb) {
  if (std::isfinite(gainDb)) mFader = std::clamp(gainDb, kMinGain, kMaxGain);
}

void GainRiderGame::NudgeFader(double deltaDb) {
  SetFader(mFader + deltaDb);
}

void GainRiderGame::Restart() {
  mStep = mScore = mInBandSteps = 0;
  mLastOver = -1;
  mLives = kLives;
  mGain = mFader = 0.0;
  mCarry = 0.0;
  mPaused = false;
}

bool GainRiderGame::InBand() const {
  return std::abs(Output() - kTarget) <= kTolerance;
}

int GainRiderGame::Combo() const {
  return 1 + int(std::min<int64_t>(kMaxCombo - 1, mInBandSteps / kStepsPerCombo));
}

void GainRiderGame::Step() {
  if (mPaused || Over()) return;
  const double move = kFaderSpeed * kStepSeconds;
  mGain += std::clamp(mFader - mGain, -move, move);
  if (InBand()) {
    mScore += Combo();
    ++mInBandSteps;
  } else {
    mInBandSteps = 0;
  }
  for (const Transient& t : TransientsBetween(mStep, mStep))
    if (Programme(mStep) + t.crest + mGain > kCeiling) {
      --mLives;
      mLastOver = mStep;
      mInBandSteps = 0;
    }
  ++mStep;
}

int GainRiderGame::Advance(double seconds, int maxSteps) {
  if (mPaused || Over() || !(seconds > 0.0)) return 0;
  mCarry = std::min(mCarry + seconds, kStepSeconds * maxSteps);
  int n = 0;
  // A wall time of whole steps counts whole, whatever its rounding.
  while (mCarry >= kStepSeconds * (1.0 - 1e-9) && n < maxSteps) {
    mCarry = std::max(0.0, mCarry - kStepSeconds);
    Step();
    ++n;
  }
  return n;
}

}  // namespace velorum::ui
