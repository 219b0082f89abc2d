#include "cli/Measurement.h"

#include "analysis/Utf8Text.h"
#include "engine/LoudnessEngine.h"
#include "export/Timecode.h"
#include "presets/LoudnessStandards.h"
#include "velorum/Version.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace velorum {
namespace {

__attribute__((format(printf, 1, 2))) std::string fmt(const char* f, ...)
{
    char buffer[160];
    va_list args;
    va_start(args, f);
    const int n = std::vsnprintf(buffer, sizeof buffer, f, args);
    va_end(args);
    return n < 0 ? std::string() : std::string(buffer);
}

std::string number(double v)
{
    if (!std::isfinite(v))
        return "null";
    std::string s = fmt("%.2f", v);
    return s == "-0.00" ? "0.00" : s;
}

std::string trimmed(const char* text)
{
    std::string s = text ? text : "";
    const size_t a = s.find_first_not_of(' ');
    const size_t b = s.find_last_not_of(' ');
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

} // namespace

void Measurement::readEngine(const LoudnessEngine& engine)
{
    integrated = engine.Integrated();
    loudnessRange = engine.LoudnessRange();
    loudnessRangeLow = engine.LoudnessRangeLow();
    loudnessRangeHigh = engine.LoudnessRangeHigh();
    momentaryMax = engine.MomentaryMax();
    shortTermMax = engine.ShortTermMax();
    truePeakMax = engine.TruePeakMax();
    plr = engine.Plr();
    integratedDialogue = engine.IntegratedDialogue();
    loudnessRangeDialogue = engine.DialogueRange();
    speechContentPercent = engine.SpeechContent() * 100.0;
    // A finished programme reads its values with the final gates; one
    // shorter than a gating block has no integrated value.
    if (engine.ProgrammeFinished())
        integratedMeasured = engine.ExactProgramme().complete;
}

PresetCheck CheckAgainstPreset(const Measurement& m, const LoudnessStandard& p, double tolerance)
{
    PresetCheck check;
    const bool dialogueTarget = p.dialTarget != 30 && m.integratedDialogue > -70.0;
    const double value = dialogueTarget ? m.integratedDialogue : m.integrated;
    const double target = dialogueTarget ? p.dialTarget : p.target;
    double low = target - tolerance, high = target + tolerance;
    if (!dialogueTarget && p.lower > -70) {
        low = p.lower;
        high = p.upper;
    }
    auto fail = [&](const char* key, std::string detail) {
        check.pass = false;
        check.failures.emplace_back(key);
        check.details.push_back(std::move(detail));
    };
    const char* unit = p.lkfs ? "LKFS" : "LUFS";
    if (!(value >= low - 1e-9 && value <= high + 1e-9))
        fail("integrated", fmt("integrated %s%.1f %s is outside %.1f .. %.1f %s", dialogueTarget ? "dialogue " : "",
                               RoundToTenth(value), unit, low, high, unit));
    if (m.truePeakMax > p.truePeakMax + 1e-9)
        fail("true_peak", fmt("true peak %.1f dBTP is above %.1f dBTP", RoundToTenth(m.truePeakMax), p.truePeakMax));
    if (p.maximum != 30 && m.shortTermMax > p.maximum + 1e-9)
        fail("short_term_max", fmt("short-term max %.1f %s is above %d %s", RoundToTenth(m.shortTermMax), unit,
                                   p.maximum, unit));
    return check;
}

std::string PresetDisplayName(const LoudnessStandard* preset)
{
    if (!preset)
        preset = FindStandard(kDefaultStandardIndex);
    return preset ? trimmed(preset->menuText) : std::string("DEFAULT");
}

SummaryInput MakeSummaryInput(const Measurement& m, const ReportOptions& o)
{
    SummaryInput in;
    in.versionWord = kVersionWord;
    const std::time_t now = std::time(nullptr);
    localtime_r(&now, &in.localTime);
    in.fromFile = m.fromFile;
    in.fileFrames = m.frames;
    in.fileSampleRate = m.sampleRate;
    in.fileBitsPerSample = m.bitsPerSample;
    in.channels = m.channels;
    in.channelNames = m.channelNames;
    const double start = m.sampleRate ? static_cast<double>(m.timeReference) / m.sampleRate : 0.0;
    const double end = start + (m.sampleRate ? static_cast<double>(m.frames) / m.sampleRate : 0.0);
    in.timecodeStart = o.fps > 0.0 ? TimecodeFrames(start, o.fps, o.dropFrame) : TimecodeMillis(start);
    in.timecodeEnd = o.fps > 0.0 ? TimecodeFrames(end, o.fps, o.dropFrame) : TimecodeMillis(end);
    const LoudnessStandard* preset = o.preset ? o.preset : FindStandard(kDefaultStandardIndex);
    in.presetName = PresetDisplayName(preset);
    in.lkfs = o.lkfs || (preset && preset->lkfs);
    SummaryValues& v = in.values;
    v.integratedMeasured = m.integratedMeasured;
    v.integrated = m.integrated;
    v.nonFiniteSamples = m.nonFiniteSamples;
    v.loudnessRange = m.loudnessRange;
    v.plr = m.plr;
    v.momentaryMax = m.momentaryMax;
    v.shortTermMax = m.shortTermMax;
    v.truePeakMax = m.truePeakMax;
    v.dialogue = o.dialogue;
    v.integratedDialogue = m.integratedDialogue;
    v.loudnessRangeDialogue = m.loudnessRangeDialogue;
    v.speechContentPercent = m.speechContentPercent;
    return in;
}

std::string JsonString(const std::string& raw)
{
    const std::string text = ValidUtf8(raw);
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20)
                out += fmt("\\u%04x", c);
            else
                out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string MakeJsonLine(const Measurement& m, const ReportOptions& o, const PresetCheck* check)
{
    std::string s = "{\"file\":" + JsonString(m.file);
    s += ",\"sample_rate\":" + std::to_string(m.sampleRate);
    s += ",\"channels\":" + std::to_string(m.channels);
    s += ",\"frames\":" + std::to_string(m.frames);
    s += ",\"bits_per_sample\":" + std::to_string(m.bitsPerSample);
    s += ",\"integrated\":" + (m.integratedMeasured ? number(m.integrated) : std::string("null"));
    s += ",\"loudness_range\":" + number(m.loudnessRange);
    s += ",\"lra_low\":" + number(m.loudnessRangeLow);
    s += ",\"lra_high\":" + number(m.loudnessRangeHigh);
    s += ",\"momentary_max\":" + number(m.momentaryMax);
    s += ",\"short_term_max\":" + number(m.shortTermMax);
    s += ",\"true_peak_max\":" + number(m.truePeakMax);
    s += ",\"plr\":" + (m.integratedMeasured ? number(m.plr) : std::string("null"));
    s += ",\"non_finite_samples\":" + std::to_string(m.nonFiniteSamples);
    if (m.streams > 1) {
        s += ",\"streams\":" + std::to_string(m.streams);
        s += ",\"stream\":" + (m.stream >= 0 ? std::to_string(m.stream) : std::string("null"));
    }
    if (o.dialogue) {
        s += ",\"integrated_dial\":" + number(m.integratedDialogue);
        s += ",\"loudness_range_dial\":" + number(m.loudnessRangeDialogue);
        s += ",\"speech_content\":" + number(m.speechContentPercent);
    }
    if (o.preset && check) {
        s += ",\"preset\":" + JsonString(PresetDisplayName(o.preset));
        s += std::string(",\"pass\":") + (check->pass ? "true" : "false");
        s += ",\"failures\":[";
        for (size_t i = 0; i < check->failures.size(); ++i)
            s += (i ? "," : "") + JsonString(check->failures[i]);
        s += "]";
    }
    return s + "}";
}

std::string MakeJsonError(const std::string& file, const std::string& message, const std::string& reason)
{
    std::string s = "{\"file\":" + JsonString(file) + ",\"error\":" + JsonString(message);
    if (!reason.empty())
        s += ",\"reason\":" + JsonString(reason);
    return s + "}";
}

} // namespace velorum
