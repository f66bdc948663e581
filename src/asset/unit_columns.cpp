#include "unit_columns.h"

#include <cmath>

namespace meridian::exporter {

namespace simd = kestrel::meridian::simd;

void unitColumns(double* x, double* y, double* z, double* length, int count, simd::Level level) {
    switch (level) {
#if MERIDIAN_SIMD_X86
        case simd::Level::sse2:
            return kernels::unitColumnsSse2(x, y, z, length, count);
        case simd::Level::avx:
        case simd::Level::avx2:
            return kernels::unitColumnsAvx(x, y, z, length, count);
        case simd::Level::avx512:
            return kernels::unitColumnsAvx512(x, y, z, length, count);
#endif
        default:
            for (int i = 0; i < count; ++i) {
                length[i] = std::sqrt((x[i] * x[i] + y[i] * y[i]) + z[i] * z[i]);
                x[i] /= length[i];
                y[i] /= length[i];
                z[i] /= length[i];
            }
    }
}

void unitColumns(double* x, double* y, double* z, double* length, int count) {
    static const simd::Level widest = simd::widestLevel();
    unitColumns(x, y, z, length, count, widest);
}

}  // namespace meridian::exporter
