// Debug trace: lines tagged with their origin, written to stderr only when
// the environment variable VELORUM_TRACE is set (checked once).
#pragma once

namespace velorum {

bool TraceEnabled();
void Trace(const char* tag, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

}  // namespace velorum
