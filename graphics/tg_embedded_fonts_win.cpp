// Embedded fonts on Windows: resources of type "TTF" in the module that holds
// this code (the plug-in DLL or a test program), named by their face names.
#include <windows.h>

#include <cstring>
#include <string>

#include "graphics/tg_embedded_fonts.h"

namespace tg_embedded {

const char* const kFontNames[] = {"Roboto-Regular",    "OpenSans-Regular",        "OpenSans-Bold",
                                  "OpenSans-SemiBold", "OpenSans-SemiBoldItalic", "OpenSans-ExtraBold"};
const int kFontCount = static_cast<int>(sizeof(kFontNames) / sizeof(kFontNames[0]));

static HMODULE this_module() {
  HMODULE h = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&this_module), &h);
  return h;
}

bool find(const char* name, const unsigned char*& data, std::size_t& size) {
  bool known = false;
  for (int i = 0; i < kFontCount; ++i) known = known || std::strcmp(kFontNames[i], name) == 0;
  if (!known) return false;
  const std::wstring wname(name, name + std::strlen(name));
  HMODULE module = this_module();
  HRSRC res = FindResourceW(module, wname.c_str(), L"TTF");
  if (!res) return false;
  HGLOBAL mem = LoadResource(module, res);
  const void* bytes = mem ? LockResource(mem) : nullptr;
  const DWORD n = SizeofResource(module, res);
  if (!bytes || n == 0) return false;
  data = static_cast<const unsigned char*>(bytes);
  size = n;
  return true;
}

}  // namespace tg_embedded
