// The platform handle of the module this code is linked into (the plug-in's
// DLL on Windows, where the editor window class needs it); null elsewhere.
#pragma once

namespace velorum::ui {
void* ThisModuleHandle();
}
