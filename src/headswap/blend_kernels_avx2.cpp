// The head swap's blend four vertices at a time (AVX2 gathers). This file alone
// is built for its instruction set (cmake/MeridianSimdKernels.cmake); the
// library calls it only where the processor has it.
#if defined(__AVX2__)

#include "headswap/blend_kernels_wide.h"
#include "simd/lanes_avx.h"

namespace {

struct Avx2Blend : Avx2Doubles {
    /// Lanes from p[0 .. 3], widened from float.
    static Vector loadFloats(const float* p) { return _mm256_cvtps_pd(_mm_loadu_ps(p)); }
};

}  // namespace

namespace kestrel::meridian::headswap {

ptrdiff_t blendVerticesAvx2(const BlendMap& map, const PlanarRows& rows) {
    return blendVerticesWide<Avx2Blend>(map, rows);
}

}  // namespace kestrel::meridian::headswap

#endif
