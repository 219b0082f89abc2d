#pragma once
// Access to the TrueType files built into the library. On Windows they are
// resources of type "TTF" in the module; elsewhere they are linked-in data.

#include <cstddef>

namespace tg_embedded {
// Face names in a fixed order.
extern const char* const kFontNames[];
extern const int kFontCount;
bool find(const char* name, const unsigned char*& data, std::size_t& size);
}  // namespace tg_embedded
