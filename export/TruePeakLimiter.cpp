#include "export/TruePeakLimiter.h"

#include <algorithm>
#include <cmath>

namespace velorum {

TruePeakLimiter::TruePeakLimiter(int channels, double sampleRate, double ceilingDb, double lookAheadMs,
                                 double releaseMs)
    : mChannels(channels),
      mThreshold(std::pow(10.0, ceilingDb / 20.0)),
      mLookAhead(std::max(1, static_cast<int>(std::lround(lookAheadMs * sampleRate / 1000.0)))),
      mRelease(1.0 - std::exp(-1.0 / std::max(1.0, releaseMs * sampleRate / 1000.0))),
      mLatency(InterSamplePeak::kLatency + mLookAhead - 1),
      mDetector(channels),
      mMinValues(static_cast<size_t>(mLookAhead)),
      mMinIndex(static_cast<size_t>(mLookAhead)),
      mEnvelope(static_cast<size_t>(mLookAhead), 1.0),
      mEnvelopeSum(mLookAhead),
      mDelay(static_cast<size_t>(mLatency + 1) * static_cast<size_t>(channels), 0.0f) {}

double TruePeakLimiter::MaxReductionDb() const {
  return mMinGain < 1.0 ? -20.0 * std::log10(mMinGain) : 0.0;
}

void TruePeakLimiter::Process(const float* in, int frames, std::vector<float>& out) {
  constexpr int kChunk = 4096;
  for (int done = 0; done < frames; done += kChunk)
    Run(in + static_cast<size_t>(done) * static_cast<size_t>(mChannels), std::min(kChunk, frames - done),
        out);
}

void TruePeakLimiter::Finish(std::vector<float>& out) {
  const std::vector<float> silence(static_cast<size_t>(mLatency) * static_cast<size_t>(mChannels), 0.0f);
  // Exactly the frames still held back come out: the stream's own.
  Process(silence.data(), mLatency, out);
}

void TruePeakLimiter::Run(const float* in, int frames, std::vector<float>& out) {
  mPeaks.resize(static_cast<size_t>(frames));
  mDetector.Process(in, frames, mPeaks.data());
  const auto channels = static_cast<size_t>(mChannels);
  const auto ring = static_cast<int64_t>(mLatency + 1);
  const auto window = static_cast<size_t>(mLookAhead);
  for (int i = 0; i < frames; ++i) {
    const int64_t n = mIn++;
    std::copy_n(in + static_cast<size_t>(i) * channels, channels,
                mDelay.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(n % ring) * channels));
    // The peak of frame n - kLatency: the gain it needs.
    const double peak = mPeaks[static_cast<size_t>(i)];
    const double need = peak > mThreshold ? mThreshold / peak : 1.0;
    // Sliding minimum over the look-ahead.
    while (mMinCount > 0 && mMinValues[(mMinHead + mMinCount - 1) % window] >= need) --mMinCount;
    mMinValues[(mMinHead + mMinCount) % window] = need;
    mMinIndex[(mMinHead + mMinCount) % window] = n;
    ++mMinCount;
    if (mMinIndex[mMinHead] <= n - mLookAhead) {
      mMinHead = (mMinHead + 1) % window;
      --mMinCount;
    }
    const double lowest = mMinValues[mMinHead];
    // Attack at once to the minimum, release smoothly; never above the minimum.
    if (lowest < mReleased)
      mReleased = lowest;
    else
      mReleased += (lowest - mReleased) * mRelease;
    if (1.0 - mReleased < 1e-9) mReleased = 1.0;
    double& slot = mEnvelope[static_cast<size_t>(n % mLookAhead)];
    mEnvelopeSum += mReleased - slot;
    slot = mReleased;
    // The moving average over the look-ahead ramps the gain down in time.
    const double gain = std::min(1.0, mEnvelopeSum / mLookAhead);
    if (n < mLatency) continue;  // the silence before the stream
    const float* frame = mDelay.data() + static_cast<size_t>((n - mLatency) % ring) * channels;
    if (gain < 1.0) {
      mMinGain = std::min(mMinGain, gain);
      ++mLimitedFrames;
      for (size_t c = 0; c < channels; ++c)
        out.push_back(static_cast<float>(static_cast<double>(frame[c]) * gain));
    } else {
      out.insert(out.end(), frame, frame + channels);
    }
    ++mOut;
  }
  // The running sum is made exact again once per chunk.
  mEnvelopeSum = 0.0;
  for (double e : mEnvelope) mEnvelopeSum += e;
}

}  // namespace velorum
