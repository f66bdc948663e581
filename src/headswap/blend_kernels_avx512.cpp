// The head swap's blend eight vertices at a time (AVX-512F). This file alone is
// built for its instruction set (cmake/MeridianSimdKernels.cmake); the library
// calls it only where the processor has it.
#if defined(__AVX512F__)

#include "headswap/blend_kernels_wide.h"
#include "simd/lanes_avx512.h"

namespace kestrel::meridian::headswap {

ptrdiff_t blendVerticesAvx512(const BlendMap& map, const PlanarRows& rows) {
    return blendVerticesWide<Avx512Doubles>(map, rows);
}

}  // namespace kestrel::meridian::headswap

#endif
