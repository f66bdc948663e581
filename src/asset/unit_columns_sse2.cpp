// unitColumns two doubles at a time (SSE2). This file alone is built for its
// instruction set (cmake/MeridianSimdKernels.cmake); the library calls it
// only where the processor has it.
#if defined(__SSE2__)

#include "simd/lanes_sse2.h"
#include "unit_columns.h"
#include "unit_columns_wide.h"

namespace meridian::exporter::kernels {

void unitColumnsSse2(double* x, double* y, double* z, double* length, int count) {
    unitColumnsWide<Sse2Doubles>(x, y, z, length, count);
}

}  // namespace meridian::exporter::kernels

#endif
