// Four faces or vertices at a time in AVX lanes, compiled for AVX in this
// file only and chosen at run time, so the library still runs on any x86-64.
// Lane by lane the same operations in the same order as the scalar kernel.
#include "tbn/frame_kernels.h"

#if MERIDIAN_TBN_X86

#include <immintrin.h>
#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#endif

namespace kestrel::meridian::kernels {

bool processorHasAvx() {
#if defined(_MSC_VER) && !defined(__clang__)
    int info[4];
    __cpuid(info, 1);
    const bool osSavesState = (info[2] & (1 << 27)) != 0;
    const bool avx = (info[2] & (1 << 28)) != 0;
    return osSavesState && avx && (_xgetbv(0) & 6) == 6;
#else
    return __builtin_cpu_supports("avx");
#endif
}

}  // namespace kestrel::meridian::kernels

// Everything below is AVX code. Only intrinsics and plain arithmetic: an
// inline library function instantiated here could be shared with callers
// that run without AVX.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx"))), apply_to = function)
#elif defined(__GNUC__)
#pragma GCC push_options
#pragma GCC target("avx")
#endif

namespace kestrel::meridian::kernels {

namespace {

// Lane k from base[corners[3k + corner]].
inline __m256d gather(const double* base, const int32_t* corners, int corner) {
    return _mm256_set_pd(base[corners[9 + corner]], base[corners[6 + corner]],
                         base[corners[3 + corner]], base[corners[corner]]);
}

inline __m256d guardedLength(__m256d x, __m256d y, __m256d z) {
    const __m256d squares =
        _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(x, x), _mm256_mul_pd(y, y)), _mm256_mul_pd(z, z));
    return _mm256_max_pd(_mm256_set1_pd(kFrameEpsilon), _mm256_sqrt_pd(squares));
}

inline __m256d tangentOf(__m256d e1, __m256d e2, __m256d dv1, __m256d dv2, __m256d r) {
    return _mm256_mul_pd(_mm256_sub_pd(_mm256_mul_pd(dv2, e1), _mm256_mul_pd(dv1, e2)), r);
}

inline __m256d bitangentOf(__m256d e1, __m256d e2, __m256d du1, __m256d du2, __m256d r) {
    return _mm256_mul_pd(_mm256_sub_pd(_mm256_mul_pd(du1, e2), _mm256_mul_pd(du2, e1)), r);
}

inline void storeNegatedClamped(__m256d v, float* out) {
    const __m256d sign = _mm256_set1_pd(-0.0);
    const __m256d high = _mm256_cmp_pd(v, _mm256_set1_pd(0.99), _CMP_GT_OQ);
    const __m256d low = _mm256_cmp_pd(v, _mm256_set1_pd(-0.99), _CMP_LT_OQ);
    const __m256d snapped = _mm256_or_pd(_mm256_and_pd(high, _mm256_set1_pd(1.0)),
                                         _mm256_and_pd(low, _mm256_set1_pd(-1.0)));
    const __m256d clamped = _mm256_or_pd(_mm256_andnot_pd(_mm256_or_pd(high, low), v), snapped);
    const __m256d small =
        _mm256_cmp_pd(_mm256_andnot_pd(sign, clamped), _mm256_set1_pd(0.001), _CMP_LT_OQ);
    const __m256d result = _mm256_xor_pd(_mm256_andnot_pd(small, clamped), sign);
    _mm_storeu_ps(out, _mm256_cvtpd_ps(result));
}

}  // namespace

void faceNormalsAvx(const FrameTopology& topology, size_t f, const PlanarPositions& p,
                    const PlanarNormals& normals) {
    const int32_t* c = topology.corners.data() + 3 * f;
    const __m256d ax = gather(p.x, c, 0), ay = gather(p.y, c, 0), az = gather(p.z, c, 0);
    const __m256d bx = gather(p.x, c, 1), by = gather(p.y, c, 1), bz = gather(p.z, c, 1);
    const __m256d cx = gather(p.x, c, 2), cy = gather(p.y, c, 2), cz = gather(p.z, c, 2);
    const __m256d e1x = _mm256_sub_pd(bx, ax), e1y = _mm256_sub_pd(by, ay),
                  e1z = _mm256_sub_pd(bz, az);
    const __m256d e2x = _mm256_sub_pd(bx, cx), e2y = _mm256_sub_pd(by, cy),
                  e2z = _mm256_sub_pd(bz, cz);
    const __m256d du1 = _mm256_loadu_pd(&topology.du1[f]);
    const __m256d dv1 = _mm256_loadu_pd(&topology.dv1[f]);
    const __m256d du2 = _mm256_loadu_pd(&topology.du2[f]);
    const __m256d dv2 = _mm256_loadu_pd(&topology.dv2[f]);
    const __m256d r = _mm256_loadu_pd(&topology.r[f]);

    __m256d tx = tangentOf(e1x, e2x, dv1, dv2, r), ty = tangentOf(e1y, e2y, dv1, dv2, r),
            tz = tangentOf(e1z, e2z, dv1, dv2, r);
    __m256d sx = bitangentOf(e1x, e2x, du1, du2, r), sy = bitangentOf(e1y, e2y, du1, du2, r),
            sz = bitangentOf(e1z, e2z, du1, du2, r);
    const __m256d tl = guardedLength(tx, ty, tz);
    tx = _mm256_div_pd(tx, tl);
    ty = _mm256_div_pd(ty, tl);
    tz = _mm256_div_pd(tz, tl);
    const __m256d sl = guardedLength(sx, sy, sz);
    sx = _mm256_div_pd(sx, sl);
    sy = _mm256_div_pd(sy, sl);
    sz = _mm256_div_pd(sz, sl);

    const __m256d nx = _mm256_sub_pd(_mm256_mul_pd(ty, sz), _mm256_mul_pd(tz, sy));
    const __m256d ny = _mm256_sub_pd(_mm256_mul_pd(tz, sx), _mm256_mul_pd(tx, sz));
    const __m256d nz = _mm256_sub_pd(_mm256_mul_pd(tx, sy), _mm256_mul_pd(ty, sx));
    const __m256d nl = guardedLength(nx, ny, nz);
    _mm256_storeu_pd(normals.x + f, _mm256_div_pd(nx, nl));
    _mm256_storeu_pd(normals.y + f, _mm256_div_pd(ny, nl));
    _mm256_storeu_pd(normals.z + f, _mm256_div_pd(nz, nl));
}

void vertexFramesAvx(const double* const sums[4], FrameRows rows, Eigen::Index j) {
    const __m256d sx = _mm256_set_pd(sums[3][0], sums[2][0], sums[1][0], sums[0][0]);
    const __m256d sy = _mm256_set_pd(sums[3][1], sums[2][1], sums[1][1], sums[0][1]);
    const __m256d sz = _mm256_set_pd(sums[3][2], sums[2][2], sums[1][2], sums[0][2]);
    const __m256d length = guardedLength(sx, sy, sz);
    const __m256d nx = _mm256_div_pd(sx, length), ny = _mm256_div_pd(sy, length),
                  nz = _mm256_div_pd(sz, length);
    const __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1.0);
    const __m256d bx = _mm256_sub_pd(_mm256_mul_pd(ny, zero), _mm256_mul_pd(nz, zero));
    const __m256d by = _mm256_sub_pd(_mm256_mul_pd(nz, one), _mm256_mul_pd(nx, zero));
    const __m256d bz = _mm256_sub_pd(_mm256_mul_pd(nx, zero), _mm256_mul_pd(ny, one));
    _mm_storeu_ps(rows[0] + j, _mm_set1_ps(1.0f));
    _mm_storeu_ps(rows[1] + j, _mm_setzero_ps());
    _mm_storeu_ps(rows[2] + j, _mm_setzero_ps());
    storeNegatedClamped(bx, rows[3] + j);
    storeNegatedClamped(by, rows[4] + j);
    storeNegatedClamped(bz, rows[5] + j);
    storeNegatedClamped(nx, rows[6] + j);
    storeNegatedClamped(ny, rows[7] + j);
    storeNegatedClamped(nz, rows[8] + j);
}

}  // namespace kestrel::meridian::kernels

#if defined(__clang__)
#pragma clang attribute pop
#elif defined(__GNUC__)
#pragma GCC pop_options
#endif

#endif  // MERIDIAN_TBN_X86
