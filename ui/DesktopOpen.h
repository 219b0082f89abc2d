// Opens an address in the user's browser or a folder in the file manager
// (ShellExecuteW on Windows, xdg-open elsewhere), without waiting for it.
#pragma once

#include <string>

namespace velorum::ui {

bool OpenWithDesktop(const std::string& target);

}  // namespace velorum::ui
