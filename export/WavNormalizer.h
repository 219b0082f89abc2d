#pragma once
// "Export normalized WAV file.": measures a file, applies the gain that brings
// its integrated loudness to a target and writes the result as WAV through
// libsndfile (RF64 when the data would not fit a RIFF file's 32-bit sizes),
// keeping rate, channels and the bext time reference. The written samples are
// measured again; a true peak above the allowed maximum gives a warning.
// Integer output is clipped at full scale, 32-bit float output is not.
#include <cstdint>
#include <functional>
#include <string>

namespace velorum {

struct NormalizeRequest {
    std::string input;
    std::string output;
    double targetLufs = -23.0;
    double truePeakMax = -1.0;       // dBTP; the warning threshold
    bool floatOutput = false;        // 32-bit float instead of the source's depth
    bool ecoTruePeak = false;
    bool forceRf64 = false;          // RF64 even when plain WAV would do
    // Asked before an existing output file is replaced; null means yes.
    std::function<bool(const std::string&)> confirmReplace;
    // Progress 0..100 over both passes (may be null).
    std::function<void(int)> progress;
};

struct NormalizeResult {
    bool ok = false;
    std::string message;             // the failure, or the true-peak warning
    double sourceIntegrated = -120.0;
    double sourceTruePeak = -120.0;
    double gainDb = 0.0;
    double resultIntegrated = -120.0;
    double resultTruePeak = -120.0;
    bool truePeakWarning = false;
    bool rf64 = false;
};

NormalizeResult NormalizeFile(const NormalizeRequest& request);

// True when `frames` frames of `channels` channels at `bytesPerSample` bytes
// don't fit a plain WAV file: its RIFF and data sizes are 32-bit, and the
// header chunks (fmt, bext) need their room below that limit too.
bool NeedsRf64(uint64_t frames, int channels, int bytesPerSample);

} // namespace velorum
