// The head swap's blend two vertices at a time (SSE2). This file alone is built
// for its instruction set (cmake/MeridianSimdKernels.cmake); the library calls
// it only where the processor has it.
#if defined(__SSE2__) || defined(_M_X64)

#include "headswap/blend_kernels_wide.h"
#include "simd/lanes_sse2.h"

namespace kestrel::meridian::headswap {

ptrdiff_t blendVerticesSse2(const BlendMap& map, const PlanarRows& rows) {
    return blendVerticesWide<Sse2Doubles>(map, rows);
}

}  // namespace kestrel::meridian::headswap

#endif
