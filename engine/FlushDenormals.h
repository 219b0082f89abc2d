// Flush-to-zero and denormals-are-zero for the measuring thread, for the
// length of a scope. The engine's hot loops run inside one: a result that
// would be denormal becomes zero in the hardware instead of by a test in the
// filter's recurrence, and denormal inputs count as zero. The caller's mode
// is restored on leaving, so a host's or a worker's own arithmetic (the
// plug-in's pass-through above all) never sees the change.
#pragma once

#if defined(__SSE2__) || defined(_M_X64)
#include <xmmintrin.h>
#define VELORUM_HAS_MXCSR 1
#endif

namespace velorum {

class FlushDenormals {
 public:
#if defined(VELORUM_HAS_MXCSR)
  static constexpr unsigned kFlushToZero = 0x8000;       // MXCSR bit 15
  static constexpr unsigned kDenormalsAreZero = 0x0040;  // MXCSR bit 6
  FlushDenormals() : saved_(_mm_getcsr()) {
    const unsigned want = saved_ | kFlushToZero | kDenormalsAreZero;
    changed_ = want != saved_;
    if (changed_) _mm_setcsr(want);
  }
  ~FlushDenormals() {
    if (changed_) _mm_setcsr(saved_);
  }

 private:
  unsigned saved_;
  bool changed_;
#else
  FlushDenormals() = default;
#endif
  FlushDenormals(const FlushDenormals&) = delete;
  FlushDenormals& operator=(const FlushDenormals&) = delete;
};

}  // namespace velorum
