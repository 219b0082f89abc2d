// Test builds only: the plug-in module of the crash tests carries this extra
// export, which faults inside the module's own code in the way asked.
#include <cstdlib>

#if defined(_WIN32)
#define VELORUM_TEST_EXPORT extern "C" __declspec(dllexport)
#else
#define VELORUM_TEST_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// 1 writes through a null pointer, 2 divides an integer by zero, 3 executes
// an illegal instruction, 4 aborts.
// Not instrumented: the sanitizer build must fault for real, not report.
VELORUM_TEST_EXPORT __attribute__((no_sanitize("undefined", "address"))) int VelorumCrashTrigger(int kind) {
  static volatile int zero = 0;
  static int* volatile nowhere = nullptr;
  switch (kind) {
    case 1:
      *nowhere = 1;
      return 1;
    case 2:
      return 10 / zero;
    case 3:
      __builtin_trap();
    case 4:
      std::abort();
    default:
      return 0;
  }
}
