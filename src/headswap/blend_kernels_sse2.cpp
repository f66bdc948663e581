// The head swap's blend two vertices at a time (SSE2). This file alone is built
// for its instruction set (cmake/MeridianSimdKernels.cmake); the library calls
// it only where the processor has it.
#if defined(__SSE2__) || defined(_M_X64)

#include "headswap/blend_kernels_wide.h"
#include "simd/lanes_sse2.h"

namespace {

struct Sse2Blend : Sse2Doubles {
    /// Lanes from p[0 .. 1], widened from float.
    static Vector loadFloats(const float* p) {
        return _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
    }
};

}  // namespace

namespace kestrel::meridian::headswap {

ptrdiff_t blendVerticesSse2(const BlendMap& map, const PlanarRows& rows) {
    return blendVerticesWide<Sse2Blend>(map, rows);
}

}  // namespace kestrel::meridian::headswap

#endif
