#include "simd/simd_level.h"

#if MERIDIAN_SIMD_X86 && defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#endif

namespace kestrel::meridian::simd {

namespace {

#if MERIDIAN_SIMD_X86
#if defined(_MSC_VER) && !defined(__clang__)
// CPUID leaf 1 and 7 bits, and the register state the OS saves (XCR0).
bool processorRuns(Level level) {
    int leaf1[4], leaf7[4];
    __cpuid(leaf1, 1);
    __cpuidex(leaf7, 7, 0);
    const bool osSaves = (leaf1[2] & (1 << 27)) != 0;
    const unsigned long long state = osSaves ? _xgetbv(0) : 0;
    const bool ymm = (state & 0x6) == 0x6, zmm = (state & 0xe6) == 0xe6;
    switch (level) {
        case Level::avx:
            return ymm && (leaf1[2] & (1 << 28));
        case Level::avx2:
            return ymm && (leaf7[1] & (1 << 5));
        case Level::avx512:
            return zmm && (leaf7[1] & (1 << 16));
        default:
            return true;
    }
}
#else
// The compiler's runtime checks the OS-saved state along with CPUID.
bool processorRuns(Level level) {
    __builtin_cpu_init();
    switch (level) {
        case Level::avx:
            return __builtin_cpu_supports("avx");
        case Level::avx2:
            return __builtin_cpu_supports("avx2");
        case Level::avx512:
            return __builtin_cpu_supports("avx512f");
        default:
            return true;
    }
}
#endif
#endif

bool computeAvailable(Level level) {
    if (level == Level::scalar) return true;
#if MERIDIAN_SIMD_X86
    return processorRuns(level);
#else
    return false;
#endif
}

}  // namespace

const char* levelName(Level level) {
    switch (level) {
        case Level::sse2:
            return "sse2";
        case Level::avx:
            return "avx";
        case Level::avx2:
            return "avx2";
        case Level::avx512:
            return "avx512";
        default:
            return "scalar";
    }
}

bool levelAvailable(Level level) {
    static const bool available[] = {computeAvailable(Level::scalar), computeAvailable(Level::sse2),
                                     computeAvailable(Level::avx), computeAvailable(Level::avx2),
                                     computeAvailable(Level::avx512)};
    const auto index = static_cast<unsigned>(level);
    return index < sizeof available / sizeof available[0] && available[index];
}

Level widestLevel() {
    static const Level widest = [] {
        Level best = Level::scalar;
        for (Level level : kLevels)
            if (levelAvailable(level)) best = level;
        return best;
    }();
    return widest;
}

}  // namespace kestrel::meridian::simd
