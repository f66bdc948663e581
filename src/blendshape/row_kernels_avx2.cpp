// The row passes four doubles at a time (AVX2). This file alone is built for
// its instruction set (cmake/MeridianSimdKernels.cmake); the library calls it
// only where the processor has it.
#if defined(__AVX2__)

#include "simd/lanes_avx.h"
#define MERIDIAN_ROW_KERNELS_LANES 1
#include "blendshape/row_kernels_wide.h"

namespace kestrel::meridian::blendshape::kernels {

void multiplyRowsAvx2(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                      double* y) {
    multiplyRowsWide<Avx2Doubles>(rows, count, cols, x, y);
}

void addWeightedRowsAvx2(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* weight,
                         double* sum) {
    addWeightedRowsWide<Avx2Doubles>(rows, count, cols, weight, sum);
}

}  // namespace kestrel::meridian::blendshape::kernels

#endif
