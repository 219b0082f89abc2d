// The normalised WAV export: the analysed file written again at the target
// loudness, with the decoders that analysed it.
#include <cstdio>

#include "export/WavNormalizer.h"
#include "plugin/MeterParams.h"
#include "ui/ExportActions.h"

namespace velorum::ui {

std::string WriteNormalized(MeterModel& model, const std::string& path, std::string& report) {
  FileMeasurement* file = model.ShowingFile() ? model.File() : nullptr;
  if (!file) return "Drop or choose an audio file first: the normalised file is made from the analysed file.";
  NormalizeRequest request;
  request.input = file->path;
  request.output = path;
  request.targetLufs = model.Param(param::kTarget);
  request.truePeakMax = model.Param(param::kTruePeakMax);
  request.ecoTruePeak = model.Param(param::kEcoTruePeak) >= 0.5;
  request.wavOutput = true;
  const NormalizeResult result = NormalizeFile(request);
  if (!result.ok) return result.message.empty() ? std::string(kCannotCreateFile) : result.message;
  char buf[160];
  std::snprintf(buf, sizeof buf, "Normalised by %+.1f dB to %.1f LUFS (true peak %.1f dBTP).", result.gainDb,
                result.resultIntegrated, result.resultTruePeak);
  report = buf;
  if (result.gainLowered) {
    std::snprintf(buf, sizeof buf,
                  " %.1f LU below the target: the gain was lowered to keep the true-peak maximum.",
                  result.shortfallLu);
    report += buf;
  }
  if (result.truePeakWarning && !result.message.empty()) report += " " + result.message;
  return {};
}

}  // namespace velorum::ui
