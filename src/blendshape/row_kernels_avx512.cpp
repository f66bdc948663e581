// The row passes eight doubles at a time (AVX-512F). This file alone is built
// for its instruction set (cmake/MeridianSimdKernels.cmake); the library calls
// it only where the processor has it.
#if defined(__AVX512F__)

#include "simd/lanes_avx512.h"
#define MERIDIAN_ROW_KERNELS_LANES 1
#include "blendshape/row_kernels_wide.h"

namespace kestrel::meridian::blendshape::kernels {

void multiplyRowsAvx512(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                        double* y) {
    multiplyRowsWide<Avx512Doubles>(rows, count, cols, x, y);
}

void addWeightedRowsAvx512(const double* rows, ptrdiff_t count, ptrdiff_t cols,
                           const double* weight, double* sum) {
    addWeightedRowsWide<Avx512Doubles>(rows, count, cols, weight, sum);
}

}  // namespace kestrel::meridian::blendshape::kernels

#endif
