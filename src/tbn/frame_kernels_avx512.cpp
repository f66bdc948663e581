// The face and vertex passes eight doubles at a time (AVX-512F). This file
// alone is built for its instruction set (cmake/MeridianSimdKernels.cmake); the
// library calls it only where the processor has it.
#if defined(__AVX512F__)

#include "simd/lanes_avx512.h"
#include "tbn/frame_kernels_wide.h"

namespace kestrel::meridian::kernels {

size_t addFaceNormalsAvx512(const FaceTables& faces, const double* positions, double* sums) {
    return addFaceNormalsWide<Avx512Doubles>(faces, positions, sums);
}

ptrdiff_t vertexFramesAvx512(const FrameOutput& out) {
    return vertexFramesWide<Avx512Doubles>(out);
}

}  // namespace kestrel::meridian::kernels

#endif
