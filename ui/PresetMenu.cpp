#include "ui/PresetMenu.h"

#include "presets/CustomPresets.h"
#include "presets/LoudnessStandards.h"

namespace velorum::ui {

std::vector<MenuItem> PresetMenuItems(int shownStandard, const std::vector<std::string>& customNames,
                                      const std::string& shownCustom) {
  std::vector<MenuItem> items;
  for (const StandardsMenuItem& item : StandardsMenu()) {
    if (item.header)
      items.push_back({item.header, -1, false, true, true});
    else if (item.standard)
      items.push_back({item.standard->menuText, item.standard->index, item.standard->index == shownStandard,
                       true, false});
  }
  const bool customShown = shownStandard >= kFirstCustomPresetIndex &&
                           shownStandard <= kLastCustomPresetIndex && !shownCustom.empty();
  bool deletable = false;
  for (size_t i = 0; i < customNames.size() && i < kMaxCustomPresets; ++i) {
    const bool checked = customShown && SameCustomPresetName(customNames[i], shownCustom);
    deletable = deletable || checked;
    items.push_back({customNames[i], kFirstCustomPresetIndex + static_cast<int>(i), checked, true, false});
  }
  items.push_back({"SAVE PRESET", kSavePresetCommand, false, true, false});
  items.push_back({"IMPORT", kImportPresetCommand, false, true, false});
  items.push_back({"SET DEFAULT", kSetDefaultCommand, false, true, false});
  items.push_back({"Delete Preset", kDeletePresetCommand, false, deletable, false});
  return items;
}

}  // namespace velorum::ui
