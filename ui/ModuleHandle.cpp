#include "ui/ModuleHandle.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace velorum::ui {

void* ThisModuleHandle() {
#ifdef _WIN32
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&ThisModuleHandle), &module);
  return module;
#else
  return nullptr;
#endif
}

}  // namespace velorum::ui
