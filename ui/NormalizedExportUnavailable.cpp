// The normalised WAV export of a build without decoders: no file can be
// analysed, so there is nothing to normalise.
#include "ui/ExportActions.h"

namespace velorum::ui {

std::string WriteNormalized(MeterModel&, const std::string&, std::string&) {
  return "This export is not available in this version.";
}

}  // namespace velorum::ui
