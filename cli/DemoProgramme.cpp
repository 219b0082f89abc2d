#include "cli/DemoProgramme.h"

#include <algorithm>
#include <cmath>

namespace velorum {
namespace {

constexpr double kPi = 3.14159265358979323846;

double db(double value) {
  return std::pow(10.0, value / 20.0);
}

// Levels of the parts, as linear gains.
const double kNoiseVoice = db(-16.0) * 3.0;
const double kBuzz = db(-26.0);
const double kTones = db(-24.0);
const double kBed = db(-22.0) * 2.0;
const double kDrums = db(-14.0);
const double kHit = db(-0.6);
const double kAmbience = db(-30.0);
const double kMaster = db(-3.3);

// Raised-cosine ramp from 0 at a to 1 at b.
double ramp(double t, double a, double b) {
  if (t <= a) return 0.0;
  if (t >= b) return 1.0;
  return 0.5 - 0.5 * std::cos(kPi * (t - a) / (b - a));
}

// 1 inside [a, b) with 50 ms edges.
double window(double t, double a, double b) {
  return ramp(t, a, a + 0.05) * (1.0 - ramp(t, b - 0.05, b));
}

// Syllables at about 4.5 Hz inside phrases of 2.4 s with 0.6 s pauses.
double speechEnvelope(double t) {
  const double phrase = std::fmod(t, 3.0);
  if (phrase > 2.4) return 0.0;
  const double syllable = std::sin(2.0 * kPi * 4.5 * t + 0.7 * std::sin(2.0 * kPi * 0.37 * t));
  const double stress = 0.6 + 0.4 * std::sin(2.0 * kPi * 0.9 * t + 1.3);
  return syllable > 0.0 ? syllable * syllable * stress * ramp(phrase, 0.0, 0.08) : 0.0;
}

}  // namespace

DemoProgramme::DemoProgramme() = default;

double DemoProgramme::noise() {
  seed_ ^= seed_ << 13;
  seed_ ^= seed_ >> 17;
  seed_ ^= seed_ << 5;
  return static_cast<double>(seed_) / 2147483648.0 - 1.0;
}

// Pink noise by a sum of first-order filters (about -3 dB per octave).
double DemoProgramme::pink(int channel) {
  double* b = pinkState_[channel];
  const double white = noise();
  b[0] = 0.99886 * b[0] + white * 0.0555179;
  b[1] = 0.99332 * b[1] + white * 0.0750759;
  b[2] = 0.96900 * b[2] + white * 0.1538520;
  b[3] = 0.86650 * b[3] + white * 0.3104856;
  b[4] = 0.55000 * b[4] + white * 0.5329522;
  b[5] = -0.7616 * b[5] - white * 0.0168980;
  const double out = b[0] + b[1] + b[2] + b[3] + b[4] + b[5] + b[6] + white * 0.5362;
  b[6] = white * 0.115926;
  return out * 0.11;
}

double DemoProgramme::sample(int ch, double t) {
  double out = 0.0;
  const double p = pink(ch);

  // Speech-like voice: band-limited noise plus a voiced buzz under a
  // syllable envelope, mostly in the centre.
  const double voice = window(t, 1.0, 25.0) + window(t, 70.0, 95.0);
  if (voice > 0.0) {
    bandLow_[ch] += 0.18 * (p - bandLow_[ch]);
    bandHigh_[ch] += 0.02 * (bandLow_[ch] - bandHigh_[ch]);
    const double band = bandLow_[ch] - bandHigh_[ch];
    out += voice * frame_.envelope * (kNoiseVoice * band + kBuzz * frame_.buzz);
  }

  // Music: a chord with slow tremolo over a noise bed, drums every 0.5 s.
  const double music = window(t, 27.0, 55.0) + 0.35 * window(t, 70.0, 95.0);
  if (music > 0.0) {
    // sin(a + phase) from the frame's sin a and cos a; the right channel
    // is shifted by 0.3 rad per chord note.
    static const struct Shift {
      double c[2][5], s[2][5];
      Shift() {
        for (int k = 0; k < 2; ++k)
          for (int i = 0; i < 5; ++i) {
            c[k][i] = std::cos(k * 0.3 * i);
            s[k][i] = std::sin(k * 0.3 * i);
          }
      }
    } shift;
    double tones = 0.0;
    for (int i = 0; i < 5; ++i)
      tones += (frame_.sine[i] * shift.c[ch][i] + frame_.cosine[i] * shift.s[ch][i]) * frame_.tremolo[i];
    const double beat = std::fmod(t, 0.5);
    if (beat < 1.0 / kSampleRate) drum_ = 1.0;
    drum_ *= 0.9996;
    drumNoise_[ch] += 0.3 * (noise() - drumNoise_[ch]);
    const double kick = std::sin(2.0 * kPi * (55.0 + 90.0 * drum_) * beat) * drum_;
    out += music * (kTones * tones + kBed * p + kDrums * (kick + 0.5 * drumNoise_[ch] * drum_));
  }

  // A few loud transients inside the music.
  for (double hit : {33.25, 41.75, 48.5}) {
    const double d = t - hit;
    if (d >= 0.0 && d < 0.08) out += kHit * std::exp(-d * 60.0) * std::sin(2.0 * kPi * 180.0 * d + ch);
  }

  // Quiet ambience, then a fade-out of the last passage.
  out += window(t, 55.0, 70.0) * kAmbience * p;
  out *= kMaster * (1.0 - ramp(t, 95.0, 100.0));
  return std::clamp(out, -1.0, 1.0);
}

// The parts of a frame that both channels share, computed once.
void DemoProgramme::prepareFrame(double t) {
  if (window(t, 1.0, 25.0) + window(t, 70.0, 95.0) > 0.0) {
    const double f0 = 130.0 + 25.0 * std::sin(2.0 * kPi * 0.8 * t);
    frame_.buzz = 0.0;
    for (int h = 1; h <= 6; ++h) frame_.buzz += std::sin(2.0 * kPi * f0 * h * t) / h;
    frame_.envelope = speechEnvelope(t);
  }
  if (window(t, 27.0, 55.0) + window(t, 70.0, 95.0) > 0.0) {
    static constexpr double chord[] = {220.0, 277.18, 329.63, 440.0, 554.37};
    for (int i = 0; i < 5; ++i) {
      frame_.sine[i] = std::sin(2.0 * kPi * chord[i] * t);
      frame_.cosine[i] = std::cos(2.0 * kPi * chord[i] * t);
      frame_.tremolo[i] = 1.0 + 0.2 * std::sin(2.0 * kPi * 0.25 * (i + 1) * t);
    }
  }
}

int DemoProgramme::render(float* interleaved, int frames) {
  const int n = static_cast<int>(std::min<int64_t>(frames, kFrames - position_));
  for (int f = 0; f < n; ++f) {
    const double t = static_cast<double>(position_ + f) / kSampleRate;
    prepareFrame(t);
    for (int ch = 0; ch < kChannels; ++ch)
      interleaved[f * kChannels + ch] = static_cast<float>(sample(ch, t));
  }
  position_ += n;
  return n;
}

}  // namespace velorum
