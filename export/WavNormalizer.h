#pragma once
// The normaliser: measures a file, brings its integrated loudness to a target
// under a true-peak ceiling and writes a deliverable copy.
// - Gain only by default: when the gain for the target would lift the true
//   peak over the ceiling, the gain is lowered to the ceiling and the result
//   says by how much the target is missed. Nothing is ever clipped.
// - With `limit`, a true-peak limiter holds the peaks at the ceiling and the
//   gain is found again until both the target and the ceiling are met.
// - The copy keeps its source's container family (WAV/BWF/RF64 as WAV with
//   the source's format chunk, channel mask and every chunk that the gain
//   leaves valid; FLAC as FLAC; AIFF as AIFF); anything else becomes WAV.
//   A WAV copy carries a bext chunk whose loudness fields hold the copy's
//   own measured values.
// - The copy is written to a temporary file beside the output, measured
//   again, and only then takes the output's name.
#include <cstdint>
#include <functional>
#include <string>

#include "export/DeliverableFormat.h"

namespace velorum {

struct NormalizeRequest {
  std::string input;
  std::string output;
  double targetLufs = -23.0;
  double truePeakMax = -1.0;  // dBTP: the ceiling of the copy
  bool limit = false;         // a true-peak limiter instead of a lower gain
  bool floatOutput = false;   // 32-bit float instead of the source's depth (WAV, AIFF)
  bool ecoTruePeak = false;
  bool forceRf64 = false;  // RF64 even when plain WAV would do
  bool wavOutput = false;  // always WAV (the editor's normalised WAV export)
  // Asked before an existing output file is replaced; null means yes.
  std::function<bool(const std::string&)> confirmReplace;
  // Progress 0..100 over every pass (may be null); never goes back.
  std::function<void(int)> progress;
};

struct NormalizeResult {
  bool ok = false;
  std::string message;      // the failure, or a note on the format
  std::string messageFile;  // the file the message is about
  double sourceIntegrated = -120.0;
  double sourceTruePeak = -120.0;
  double gainDb = 0.0;  // the gain applied before the limiter
  double resultIntegrated = -120.0;
  double resultTruePeak = -120.0;
  double resultRange = 0.0;
  double resultMomentaryMax = -120.0;
  double resultShortTermMax = -120.0;
  double shortfallLu = 0.0;         // how far below the target the copy stays (gain lowered)
  bool gainLowered = false;         // the gain was lowered to keep the ceiling
  double limiterReductionDb = 0.0;  // the limiter's largest gain reduction
  bool truePeakWarning = false;     // the copy's true peak is above the ceiling
  Container container = Container::Wav;
  bool convertedToWav = false;  // the source's format can't be written: WAV instead
  bool rf64 = false;
  int bits = 0;
  bool floatSamples = false;
};

NormalizeResult NormalizeFile(const NormalizeRequest& request);

// True when `frames` frames of `channels` channels at `bytesPerSample` bytes
// don't fit a plain WAV file: its RIFF and data sizes are 32-bit, and the
// header chunks (fmt, bext) need their room below that limit too.
bool NeedsRf64(uint64_t frames, int channels, int bytesPerSample);

// The temporary name a copy is written under: ".part" before the extension.
std::string TemporaryNameFor(const std::string& output);

}  // namespace velorum
