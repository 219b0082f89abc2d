#include "plugin/Trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace velorum {

bool TraceEnabled() {
  static const bool enabled = std::getenv("VELORUM_TRACE") != nullptr;
  return enabled;
}

void Trace(const char* tag, const char* format, ...) {
  if (!TraceEnabled()) return;
  char line[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  std::fprintf(stderr, "[%s] %s\n", tag, line);
}

}  // namespace velorum
