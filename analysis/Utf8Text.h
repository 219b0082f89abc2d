#pragma once
// File names reach the program as bytes: on Linux a name need not be valid
// UTF-8. Text that is shown or written as UTF-8 (JSON, summaries, the
// editor's titles) goes through ValidUtf8 first.
#include <string>

namespace velorum {

// The text with every byte that does not start or continue a valid UTF-8
// sequence (overlong forms, surrogates and values past U+10FFFF included)
// replaced by U+FFFD; valid text is returned unchanged.
std::string ValidUtf8(const std::string& text);

}  // namespace velorum
