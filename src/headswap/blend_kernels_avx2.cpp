// The head swap's blend four vertices at a time (AVX2 gathers). This file alone
// is built for its instruction set (cmake/MeridianSimdKernels.cmake); the
// library calls it only where the processor has it.
#if defined(__AVX2__)

#include "headswap/blend_kernels_wide.h"
#include "simd/lanes_avx.h"

namespace kestrel::meridian::headswap {

ptrdiff_t blendVerticesAvx2(const BlendMap& map, const PlanarRows& rows) {
    return blendVerticesWide<Avx2Doubles>(map, rows);
}

}  // namespace kestrel::meridian::headswap

#endif
