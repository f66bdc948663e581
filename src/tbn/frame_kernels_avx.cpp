// The face and vertex passes four doubles at a time (AVX). This file alone is
// built for its instruction set (cmake/MeridianSimdKernels.cmake); the library
// calls it only where the processor has it.
#if defined(__AVX__)

#include "simd/lanes_avx.h"
#include "tbn/frame_kernels_wide.h"

namespace kestrel::meridian::kernels {

size_t addFaceNormalsAvx(const FaceTables& faces, const double* positions, double* sums) {
    return addFaceNormalsWide<AvxDoubles>(faces, positions, sums);
}

ptrdiff_t vertexFramesAvx(const FrameOutput& out) {
    return vertexFramesWide<AvxDoubles>(out);
}

}  // namespace kestrel::meridian::kernels

#endif
