// The face and vertex passes four doubles at a time (AVX2). This file
// alone is built for its instruction set (cmake/MeridianSimdKernels.cmake); the
// library calls it only where the processor has it.
#if defined(__AVX2__)

#include "simd/lanes_avx.h"
#include "tbn/frame_kernels_wide.h"

namespace kestrel::meridian::kernels {

size_t addFaceNormalsAvx2(const FaceTables& faces, const double* positions, double* sums) {
    return addFaceNormalsWide<Avx2Doubles>(faces, positions, sums);
}

ptrdiff_t vertexFramesAvx2(const FrameOutput& out) {
    return vertexFramesWide<Avx2Doubles>(out);
}

}  // namespace kestrel::meridian::kernels

#endif
