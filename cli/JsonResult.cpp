#include "cli/JsonResult.h"

#include <cmath>

namespace velorum {

Json JsonNumber(double value) {
  if (!std::isfinite(value)) return nullptr;
  const double rounded = std::round(value * 100.0) / 100.0;
  return rounded == 0.0 ? 0.0 : rounded;  // never "-0.0"
}

namespace {

Json windowJson(const CheckWindow& w) {
  Json j;
  j["target"] = JsonNumber(w.target);
  j["lower"] = JsonNumber(w.lower);
  j["upper"] = JsonNumber(w.upper);
  j["true_peak_max"] = JsonNumber(w.truePeakMax);
  j["short_term_max"] = w.hasShortTermMax ? JsonNumber(w.shortTermMax) : Json(nullptr);
  j["dialogue"] = w.dialogue;
  j["unit"] = w.lkfs ? "LKFS" : "LUFS";
  return j;
}

}  // namespace

Json MeasurementJson(const Measurement& m, const ReportOptions& o, const InputOutcome& outcome) {
  Json j;
  j["file"] = m.file;
  j["files"] = m.files.empty() ? std::vector<std::string>{m.file} : m.files;
  j["format"] = m.format;
  j["sample_rate"] = m.sampleRate;
  j["channels"] = m.channels;
  j["frames"] = m.frames;
  j["duration"] = JsonNumber(m.DurationSeconds());
  j["bits_per_sample"] = m.realBits > 0 ? Json(m.realBits) : Json(nullptr);
  j["integrated"] = m.integratedMeasured ? JsonNumber(m.integrated) : Json(nullptr);
  j["loudness_range"] = JsonNumber(m.loudnessRange);
  j["lra_low"] = JsonNumber(m.loudnessRangeLow);
  j["lra_high"] = JsonNumber(m.loudnessRangeHigh);
  j["momentary_max"] = JsonNumber(m.momentaryMax);
  j["short_term_max"] = JsonNumber(m.shortTermMax);
  j["true_peak_max"] = JsonNumber(m.truePeakMax);
  j["sample_peak_max"] = JsonNumber(m.samplePeakMax);
  j["plr"] = m.integratedMeasured ? JsonNumber(m.plr) : Json(nullptr);
  j["non_finite_samples"] = m.nonFiniteSamples;
  if (m.streams > 1) {
    j["streams"] = m.streams;
    j["stream"] = m.stream >= 0 ? Json(m.stream) : Json(nullptr);
  }
  j["clipped_samples"] = m.clippedSamples;
  Json peaks = Json::array();
  for (const ChannelPeak& p : m.channelPeaks)
    peaks.push_back({{"channel", p.name},
                     {"true_peak", JsonNumber(p.truePeak)},
                     {"sample_peak", JsonNumber(p.samplePeak)}});
  j["channel_peaks"] = std::move(peaks);
  if (o.dialogue) {
    j["integrated_dial"] = JsonNumber(m.integratedDialogue);
    j["loudness_range_dial"] = JsonNumber(m.loudnessRangeDialogue);
    j["speech_content"] = JsonNumber(m.speechContentPercent);
  }
  j["unit"] = o.Lkfs() ? "LKFS" : "LUFS";
  if (o.preset && outcome.check) {
    j["preset"] = PresetDisplayName(o.preset);
    j["pass"] = outcome.check->pass;
    j["failures"] = outcome.check->failures;
    j["window"] = windowJson(outcome.check->window);
  }
  if (!outcome.exports.empty()) {
    Json exports = Json::object();
    for (const auto& [kind, path] : outcome.exports) exports[kind] = path;
    j["exports"] = std::move(exports);
  }
  Json errors = Json::array();
  for (const ExportError& e : outcome.exportErrors)
    errors.push_back({{"file", e.path}, {"error", e.message}});
  j["export_errors"] = std::move(errors);
  return j;
}

Json ErrorJson(const std::string& file, const std::string& message, const std::string& reason) {
  Json j{{"file", file}, {"error", message}};
  if (!reason.empty()) j["reason"] = reason;
  return j;
}

std::string JsonLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace velorum
