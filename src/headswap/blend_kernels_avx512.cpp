// The head swap's blend eight vertices at a time (AVX-512F). This file alone is
// built for its instruction set (cmake/MeridianSimdKernels.cmake); the library
// calls it only where the processor has it.
#if defined(__AVX512F__)

#include "headswap/blend_kernels_wide.h"
#include "simd/lanes_avx512.h"

namespace {

struct Avx512Blend : Avx512Doubles {
    /// Lanes from p[0 .. 7], widened from float.
    static Vector loadFloats(const float* p) { return _mm512_cvtps_pd(_mm256_loadu_ps(p)); }
};

}  // namespace

namespace kestrel::meridian::headswap {

ptrdiff_t blendVerticesAvx512(const BlendMap& map, const PlanarRows& rows) {
    return blendVerticesWide<Avx512Blend>(map, rows);
}

}  // namespace kestrel::meridian::headswap

#endif
