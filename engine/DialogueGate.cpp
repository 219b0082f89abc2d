#include "engine/DialogueGate.h"

namespace velorum {

void DialogueGate::Configure(double rate, int channels, int layout) {
    rate_ = rate;
    channels_ = channels;
    layout_ = layout;
}

void DialogueGate::Reset() {
    integrated_ = -120.0;
    range_ = 0.0;
    rangeLow_ = -120.0;
    rangeHigh_ = -120.0;
    speechContent_ = 0.0;
}

void DialogueGate::Process(const double* const*, int, int, const double* const*, int) {}

std::uint8_t DialogueGate::Step10(std::int32_t) { return 0; }

void DialogueGate::Step100(MeasurementHistory&, const DialogueStep100&) {}

}  // namespace velorum
