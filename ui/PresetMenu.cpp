#include "ui/PresetMenu.h"

#include "presets/LoudnessStandards.h"

namespace velorum::ui {

std::vector<MenuItem> PresetMenuItems(int shownStandard) {
  std::vector<MenuItem> items;
  for (const StandardsMenuItem& item : StandardsMenu()) {
    if (item.header) items.push_back({item.header, -1, false, true, true});
    else if (item.standard)
      items.push_back({item.standard->menuText, item.standard->index, item.standard->index == shownStandard, true, false});
  }
  for (const char* command : {"SAVE PRESET", "IMPORT", "SET DEFAULT", "Delete Preset"})
    items.push_back({command, -2, false, false, false});
  return items;
}

}  // namespace velorum::ui
