// "GAIN RIDER", the editor's hidden game, as a simulation without a window:
// a programme scrolls towards the player, whose loudness wanders from quiet
// dialogue to loud action, and the player rides a fader so that the output
// stays inside the target band. Every step inside the band scores, longer
// stretches multiply the score, and a transient that passes the now-line
// above the true-peak ceiling is an "OVER" that costs one of three lives.
//
// The simulation advances in fixed steps of 1/60 s, so that a script of
// inputs always gives the same score; the view (GameView) only draws it and
// turns keys and the mouse into inputs.
#pragma once

#include <cstdint>
#include <vector>

namespace velorum::ui {

class GainRiderGame {
 public:
  static constexpr double kStepSeconds = 1.0 / 60.0;
  static constexpr double kTarget = -23.0;   // LUFS
  static constexpr double kTolerance = 2.0;  // LU either side of the target
  static constexpr double kCeiling = -1.0;   // dBTP
  static constexpr double kMinGain = -30.0, kMaxGain = 30.0;
  static constexpr double kFaderSpeed = 60.0;  // dB per second, a motorised fader
  static constexpr int kLives = 3;
  static constexpr int kStepsPerCombo = 60;  // one more multiplier per second in the band
  static constexpr int kMaxCombo = 8;
  static constexpr double kLookAhead = 4.0;  // seconds of programme shown ahead of the now-line

  struct Transient {
    int64_t step = 0;    // when it reaches the now-line
    double crest = 0.0;  // dB above the programme loudness
  };

  // A flat programme (no transients, constant loudness) when `flat` is set:
  // the known-answer case.
  explicit GainRiderGame(uint32_t seed = 1, bool flat = false, double flatLoudness = kTarget);

  // Inputs: the fader's target in dB (mouse), or a nudge of it (keys).
  void SetFader(double gainDb);
  void NudgeFader(double deltaDb);
  void SetPaused(bool paused) { mPaused = paused; }
  bool Paused() const { return mPaused; }
  // A new game with the same programme.
  void Restart();

  // One fixed step; nothing moves while paused or over.
  void Step();
  // Steps for `seconds` of wall time, carrying the remainder; at most
  // `maxSteps` at once so that a long stall does not run the game away.
  int Advance(double seconds, int maxSteps = 8);

  // Readings for the view and the tests.
  int64_t Steps() const { return mStep; }
  int64_t Score() const { return mScore; }
  int Lives() const { return mLives; }
  int Combo() const;
  bool Over() const { return mLives <= 0; }
  double Gain() const { return mGain; }
  double Fader() const { return mFader; }
  double Output() const { return Programme(mStep) + mGain; }
  bool InBand() const;
  // The step of the last "OVER" (-1 for none), for the view's flash.
  int64_t LastOverStep() const { return mLastOver; }
  // The programme's loudness at a step (also ahead of the now-line).
  double Programme(int64_t step) const;
  // Transients between two steps, for the view.
  std::vector<Transient> TransientsBetween(int64_t from, int64_t to) const;

 private:
  double Scene(int64_t scene) const;
  double Hash(uint64_t a, uint64_t b) const;

  uint32_t mSeed;
  bool mFlat;
  double mFlatLoudness;
  int64_t mStep = 0;
  int64_t mScore = 0;
  int64_t mInBandSteps = 0;
  int64_t mLastOver = -1;
  int mLives = kLives;
  double mGain = 0.0, mFader = 0.0;
  double mCarry = 0.0;
  bool mPaused = false;
};

}  // namespace velorum::ui
