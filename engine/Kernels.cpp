#include "engine/Kernels.h"

namespace velorum {

bool CodePathSupported(CodePath path) {
    switch (path) {
        case CodePath::Scalar:
        case CodePath::Sse2:
            return true;
        case CodePath::Avx2:
#if (defined(__x86_64__) || defined(_M_X64)) && defined(__GNUC__)
            __builtin_cpu_init();
            return __builtin_cpu_supports("avx2") != 0;
#else
            return false;
#endif
        case CodePath::Avx512:
#if (defined(__x86_64__) || defined(_M_X64)) && defined(__GNUC__)
            __builtin_cpu_init();
            return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("avx512f") != 0 &&
                   __builtin_cpu_supports("avx512dq") != 0;
#else
            return false;
#endif
    }
    return false;
}

CodePath BestCodePath() {
    if (CodePathSupported(CodePath::Avx512)) return CodePath::Avx512;
    if (CodePathSupported(CodePath::Avx2)) return CodePath::Avx2;
    return CodePath::Sse2;
}

const char* CodePathName(CodePath path) {
    switch (path) {
        case CodePath::Scalar: return "scalar";
        case CodePath::Sse2: return "sse2";
        case CodePath::Avx2: return "avx2";
        case CodePath::Avx512: return "avx512";
    }
    return "unknown";
}

const KernelSet& Kernels(CodePath path) {
    switch (path) {
        case CodePath::Scalar: return kernels::kScalar;
        case CodePath::Sse2: return kernels::kSse2;
        case CodePath::Avx2:
#if defined(__x86_64__) || defined(_M_X64)
            return kernels::kAvx2;
#else
            return kernels::kSse2;
#endif
        case CodePath::Avx512: {
#if defined(__x86_64__) || defined(_M_X64)
            static const KernelSet avx512{kernels::kAvx2.kWeight, kernels::kAvx2.sumPowers,
                                          kernels::kTruePeakAvx512};
            return avx512;
#else
            return kernels::kSse2;
#endif
        }
    }
    return kernels::kScalar;
}

}  // namespace velorum
