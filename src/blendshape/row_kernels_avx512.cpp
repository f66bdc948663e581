// The row passes eight doubles at a time (AVX-512F). This file alone is built
// for its instruction set (cmake/MeridianSimdKernels.cmake); the library calls
// it only where the processor has it.
#if defined(__AVX512F__)

#include "simd/lanes_avx512.h"
#define MERIDIAN_ROW_KERNELS_LANES 1
#include "blendshape/row_kernels_wide.h"

namespace kestrel::meridian::blendshape::kernels {

MERIDIAN_DEFINE_ROW_KERNELS(Avx512, Avx512Doubles)

}  // namespace kestrel::meridian::blendshape::kernels

#endif
