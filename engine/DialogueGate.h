// Dialogue-gated measurement beside the level-gated one. The engine owns one
// gate and calls it at fixed points of its processing:
//   Configure   on SetSampleRate, RestartSignalChain and Reset
//   Reset       on Reset (after Configure)
//   Process     per run of samples, once the channel powers are known
//   Step10      at the last sample of every 10 ms step; returns speech bits
//   Step100     at the last sample of every 100 ms step
// This version detects no speech: its readings stay at their floors.
#pragma once

#include <cstdint>

#include "history/MeasurementHistory.h"

namespace velorum {

struct DialogueStep100 {
    std::int32_t index100 = 0;    // block index (>= 0)
    std::int32_t start100 = 0;    // first measured block
    std::int64_t samplesSinceReset = 0;
    bool paused = false;
    bool timelineMode = false;
};

class DialogueGate {
public:
    DialogueGate() = default;
    ~DialogueGate() = default;
    DialogueGate(const DialogueGate&) = delete;
    DialogueGate& operator=(const DialogueGate&) = delete;

    // rate: input sample rate; channels: processed channel count;
    // layout: index into the channel-layout table.
    void Configure(double rate, int channels, int layout);
    void Reset();

    // frames sample instants: raw[c][offset + i] is the raw input sample and
    // powers[c][i] the weighted K-filtered power of channel c at instant i.
    void Process(const double* const* raw, int offset, int frames, const double* const* powers, int channels);

    // Speech bits of the 10 ms step (0 when none).
    std::uint8_t Step10(std::int32_t index10);

    // Writes the dialogue 100 ms histories of the block (history mutex held).
    void Step100(MeasurementHistory& history, const DialogueStep100& step);

    double Integrated() const { return integrated_; }
    double Range() const { return range_; }
    double RangeLow() const { return rangeLow_; }
    double RangeHigh() const { return rangeHigh_; }
    double SpeechContent() const { return speechContent_; }

private:
    double rate_ = 44100.0;
    int channels_ = 0;
    int layout_ = 0;
    double integrated_ = -120.0;
    double range_ = 0.0;
    double rangeLow_ = -120.0;
    double rangeHigh_ = -120.0;
    double speechContent_ = 0.0;
};

}  // namespace velorum
