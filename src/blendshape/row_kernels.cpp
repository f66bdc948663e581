#include "blendshape/row_kernels.h"

#include <algorithm>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define MERIDIAN_ROW_KERNELS_SSE2 1
#endif

namespace kestrel::meridian::blendshape {

using Eigen::Index;

#if defined(MERIDIAN_ROW_KERNELS_SSE2)

// One row at a time: a single sequential stream keeps the hardware
// prefetcher ahead (several rows side by side measured a third slower).
void multiplyRows(const double* rows, Index count, Index cols, const double* x, double* y) {
    for (Index r = 0; r < count; ++r) {
        const double* a = rows + r * cols;
        __m128d s0 = _mm_setzero_pd(), s1 = s0, s2 = s0, s3 = s0;
        Index c = 0;
        for (; c + 8 <= cols; c += 8) {
            s0 = _mm_add_pd(s0, _mm_mul_pd(_mm_loadu_pd(a + c), _mm_loadu_pd(x + c)));
            s1 = _mm_add_pd(s1, _mm_mul_pd(_mm_loadu_pd(a + c + 2), _mm_loadu_pd(x + c + 2)));
            s2 = _mm_add_pd(s2, _mm_mul_pd(_mm_loadu_pd(a + c + 4), _mm_loadu_pd(x + c + 4)));
            s3 = _mm_add_pd(s3, _mm_mul_pd(_mm_loadu_pd(a + c + 6), _mm_loadu_pd(x + c + 6)));
        }
        const __m128d s = _mm_add_pd(_mm_add_pd(s0, s1), _mm_add_pd(s2, s3));
        double sum = _mm_cvtsd_f64(s) + _mm_cvtsd_f64(_mm_unpackhi_pd(s, s));
        for (; c < cols; ++c) sum += a[c] * x[c];
        y[r] = sum;
    }
}

void weightedRowSum(const double* rows, Index count, Index cols, const double* weight,
                    double* sum) {
    std::fill(sum, sum + cols, 0.0);
    for (Index r = 0; r < count; ++r) {
        const double* a = rows + r * cols;
        const __m128d w = _mm_set1_pd(weight[r]);
        Index c = 0;
        for (; c + 2 <= cols; c += 2)
            _mm_storeu_pd(sum + c,
                          _mm_add_pd(_mm_loadu_pd(sum + c), _mm_mul_pd(w, _mm_loadu_pd(a + c))));
        for (; c < cols; ++c) sum[c] += weight[r] * a[c];
    }
}

#else

void multiplyRows(const double* rows, Index count, Index cols, const double* x, double* y) {
    for (Index r = 0; r < count; ++r) {
        const double* a = rows + r * cols;
        double s[8] = {};
        Index c = 0;
        for (; c + 8 <= cols; c += 8)
            for (int k = 0; k < 8; ++k) s[k] += a[c + k] * x[c + k];
        // Summed as the vector version does: even lanes, odd lanes, then both.
        double sum = ((s[0] + s[2]) + (s[4] + s[6])) + ((s[1] + s[3]) + (s[5] + s[7]));
        for (; c < cols; ++c) sum += a[c] * x[c];
        y[r] = sum;
    }
}

void weightedRowSum(const double* rows, Index count, Index cols, const double* weight,
                    double* sum) {
    std::fill(sum, sum + cols, 0.0);
    for (Index r = 0; r < count; ++r)
        for (Index c = 0; c < cols; ++c) sum[c] += weight[r] * rows[r * cols + c];
}

#endif

}  // namespace kestrel::meridian::blendshape
