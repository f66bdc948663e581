// unitColumns four doubles at a time (AVX). This file alone is built for its
// instruction set (cmake/MeridianSimdKernels.cmake); the library calls it
// only where the processor has it.
#if defined(__AVX__)

#include "simd/lanes_avx.h"
#include "unit_columns.h"
#include "unit_columns_wide.h"

namespace meridian::exporter::kernels {

void unitColumnsAvx(double* x, double* y, double* z, double* length, int count) {
    unitColumnsWide<AvxDoubles>(x, y, z, length, count);
}

}  // namespace meridian::exporter::kernels

#endif
