// The items of the preset drop-down: the standards table with its group
// headers, the user's custom presets under "CUSTOM PRESETS", then the
// commands that save, import, make default and delete presets.
#pragma once

#include <string>
#include <vector>

#include "ui/DropDownMenu.h"

namespace velorum::ui {

// Ids of the commands (outside the preset indices 0..999).
inline constexpr int kSavePresetCommand = 1001;
inline constexpr int kImportPresetCommand = 1002;
inline constexpr int kSetDefaultCommand = 1003;
inline constexpr int kDeletePresetCommand = 1004;

// Item ids are the standards' indices, 500 + position for the custom presets
// `customNames` (sorted, as the store lists them); headers are -1. The check
// mark goes to the standard `shownStandard`, or to the custom preset named
// `shownCustom` when a custom preset is shown. "Delete Preset" is enabled
// only when the shown custom preset is in the list.
std::vector<MenuItem> PresetMenuItems(int shownStandard, const std::vector<std::string>& customNames = {},
                                      const std::string& shownCustom = {});

}  // namespace velorum::ui
