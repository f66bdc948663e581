// unitColumns eight doubles at a time (AVX-512F). This file alone is built for its
// instruction set (cmake/MeridianSimdKernels.cmake); the library calls it
// only where the processor has it.
#if defined(__AVX512F__)

#include "simd/lanes_avx512.h"
#include "unit_columns.h"
#include "unit_columns_wide.h"

namespace meridian::exporter::kernels {

void unitColumnsAvx512(double* x, double* y, double* z, double* length, int count) {
    unitColumnsWide<Avx512Doubles>(x, y, z, length, count);
}

}  // namespace meridian::exporter::kernels

#endif
