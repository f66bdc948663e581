// The face and vertex passes two doubles at a time (SSE2). This file alone is
// built for its instruction set (cmake/MeridianSimdKernels.cmake); the library
// calls it only where the processor has it.
#if defined(__SSE2__) || defined(_M_X64)

#include "simd/lanes_sse2.h"
#include "tbn/frame_kernels_wide.h"

namespace kestrel::meridian::kernels {

size_t addFaceNormalsSse2(const FaceTables& faces, const double* positions, double* sums) {
    return addFaceNormalsWide<Sse2Doubles>(faces, positions, sums);
}

ptrdiff_t vertexFramesSse2(const FrameOutput& out) {
    return vertexFramesWide<Sse2Doubles>(out);
}

}  // namespace kestrel::meridian::kernels

#endif
