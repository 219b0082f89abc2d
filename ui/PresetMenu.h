// The items of the preset drop-down: the standards table with its group
// headers, then the custom-preset commands (greyed out).
#pragma once

#include <vector>

#include "ui/DropDownMenu.h"

namespace velorum::ui {

// Item ids are the standards' indices; headers are -1 and commands -2. The
// standard `shownStandard` carries the check mark.
std::vector<MenuItem> PresetMenuItems(int shownStandard);

}  // namespace velorum::ui
