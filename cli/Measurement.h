#pragma once
// What the command reports about one measured programme: the engine's final
// readings, the file's format and the checks against a preset. Builds the
// text summary, the JSON line and the CSV contexts from it.
#include "export/CsvExport.h"
#include "export/TextSummary.h"

#include <cstdint>
#include <string>
#include <vector>

namespace velorum {

class LoudnessEngine;
struct LoudnessStandard;

struct Measurement {
    std::string file;
    bool fromFile = true;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    uint64_t frames = 0;
    int32_t bitsPerSample = -1;
    uint64_t timeReference = 0;
    std::vector<std::string> channelNames;

    bool integratedMeasured = true;   // false: shorter than one 400 ms gating block
    double integrated = -120.0;
    double loudnessRange = 0.0;
    double loudnessRangeLow = -120.0;
    double loudnessRangeHigh = -120.0;
    double momentaryMax = -120.0;
    double shortTermMax = -120.0;
    double truePeakMax = -120.0;
    double plr = 0.0;
    double integratedDialogue = -120.0;
    double loudnessRangeDialogue = 0.0;
    double speechContentPercent = 0.0;
    int64_t nonFiniteSamples = 0;
    int streams = 1;                  // audio streams in the file
    int stream = -1;                  // the one measured (0-based), -1: all mono streams together

    // Reads the engine's final readings.
    void readEngine(const LoudnessEngine& engine);
};

struct PresetCheck {
    bool pass = true;
    std::vector<std::string> failures;   // "integrated", "true_peak", "short_term_max"
    std::vector<std::string> details;    // one human-readable line per failure
};

// Integrated loudness (dialogue-gated for the dialogue presets when speech
// was found) within the preset's window — lower..upper when it has a lower
// limit, otherwise target +- `tolerance` LU —, true peak at or below the
// preset's maximum, short-term maximum at or below the preset's maximum when
// it sets one.
PresetCheck CheckAgainstPreset(const Measurement& m, const LoudnessStandard& preset, double toleranceLu);

struct ReportOptions {
    const LoudnessStandard* preset = nullptr;   // null: the default preset
    bool dialogue = false;
    bool lkfs = false;                          // "LKFS" even if the preset says LUFS
    double fps = 0.0;                           // > 0: "00:00:00:00" time codes at this rate
    bool dropFrame = false;                     // "00:00:00;00" at 29.97 / 59.94
};

std::string PresetDisplayName(const LoudnessStandard* preset);
SummaryInput MakeSummaryInput(const Measurement& m, const ReportOptions& options);
std::string MakeJsonLine(const Measurement& m, const ReportOptions& options, const PresetCheck* check);
// {"file":..., "error": message, "reason": reason} (no "reason" when empty).
std::string MakeJsonError(const std::string& file, const std::string& message, const std::string& reason = "");
// A JSON string; bytes that are not valid UTF-8 become U+FFFD.
std::string JsonString(const std::string& text);

} // namespace velorum
