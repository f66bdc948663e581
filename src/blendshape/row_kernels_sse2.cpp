// The row passes two doubles at a time (SSE2). This file alone is built for its
// instruction set (cmake/MeridianSimdKernels.cmake); the library calls it only
// where the processor has it.
#if defined(__SSE2__) || defined(_M_X64)

#include "simd/lanes_sse2.h"
#define MERIDIAN_ROW_KERNELS_LANES 1
#include "blendshape/row_kernels_wide.h"

namespace kestrel::meridian::blendshape::kernels {

MERIDIAN_DEFINE_ROW_KERNELS(Sse2, Sse2Doubles)

}  // namespace kestrel::meridian::blendshape::kernels

#endif
