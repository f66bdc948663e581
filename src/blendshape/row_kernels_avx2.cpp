// The row passes four doubles at a time (AVX2). This file alone is built for
// its instruction set (cmake/MeridianSimdKernels.cmake); the library calls it
// only where the processor has it.
#if defined(__AVX2__)

#include "simd/lanes_avx.h"
#define MERIDIAN_ROW_KERNELS_LANES 1
#include "blendshape/row_kernels_wide.h"

namespace kestrel::meridian::blendshape::kernels {

MERIDIAN_DEFINE_ROW_KERNELS(Avx2, Avx2Doubles)

}  // namespace kestrel::meridian::blendshape::kernels

#endif
