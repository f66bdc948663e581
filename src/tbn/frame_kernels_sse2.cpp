// Two faces or vertices at a time in SSE2 lanes. Packed IEEE operations
// round each lane exactly as the scalar instruction does, and every step
// below is the scalar kernel's step in the same order.
#include "tbn/frame_kernels.h"

#if MERIDIAN_TBN_X86

#include <emmintrin.h>

namespace kestrel::meridian::kernels {

namespace {

// Lane 0 from base[i0], lane 1 from base[i1].
inline __m128d gather(const double* base, ptrdiff_t i0, ptrdiff_t i1) {
    return _mm_loadh_pd(_mm_load_sd(base + i0), base + i1);
}

// std::max(|v|, eps) with |v| summed as (x*x + y*y) + z*z; max(eps, length)
// returns the length when it is NaN, like std::max(length, eps).
inline __m128d guardedLength(__m128d x, __m128d y, __m128d z) {
    const __m128d squares =
        _mm_add_pd(_mm_add_pd(_mm_mul_pd(x, x), _mm_mul_pd(y, y)), _mm_mul_pd(z, z));
    return _mm_max_pd(_mm_set1_pd(kFrameEpsilon), _mm_sqrt_pd(squares));
}

inline __m128d tangentOf(__m128d e1, __m128d e2, __m128d dv1, __m128d dv2, __m128d r) {
    return _mm_mul_pd(_mm_sub_pd(_mm_mul_pd(dv2, e1), _mm_mul_pd(dv1, e2)), r);
}

inline __m128d bitangentOf(__m128d e1, __m128d e2, __m128d du1, __m128d du2, __m128d r) {
    return _mm_mul_pd(_mm_sub_pd(_mm_mul_pd(du1, e2), _mm_mul_pd(du2, e1)), r);
}

// -clampFrameValue(v) per lane, narrowed to float, stored to out[0..1].
inline void storeNegatedClamped(__m128d v, float* out) {
    const __m128d sign = _mm_set1_pd(-0.0);
    const __m128d high = _mm_cmpgt_pd(v, _mm_set1_pd(0.99));
    const __m128d low = _mm_cmplt_pd(v, _mm_set1_pd(-0.99));
    const __m128d snapped =
        _mm_or_pd(_mm_and_pd(high, _mm_set1_pd(1.0)), _mm_and_pd(low, _mm_set1_pd(-1.0)));
    const __m128d clamped = _mm_or_pd(_mm_andnot_pd(_mm_or_pd(high, low), v), snapped);
    const __m128d small = _mm_cmplt_pd(_mm_andnot_pd(sign, clamped), _mm_set1_pd(0.001));
    const __m128d result = _mm_xor_pd(_mm_andnot_pd(small, clamped), sign);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_castps_si128(_mm_cvtpd_ps(result)));
}

}  // namespace

void faceNormalsSse2(const FrameTopology& topology, size_t f, const PlanarPositions& p,
                     const PlanarNormals& normals) {
    const int32_t* c = topology.corners.data() + 3 * f;
    const __m128d ax = gather(p.x, c[0], c[3]), bx = gather(p.x, c[1], c[4]);
    const __m128d ay = gather(p.y, c[0], c[3]), by = gather(p.y, c[1], c[4]);
    const __m128d az = gather(p.z, c[0], c[3]), bz = gather(p.z, c[1], c[4]);
    const __m128d cx = gather(p.x, c[2], c[5]), cy = gather(p.y, c[2], c[5]),
                  cz = gather(p.z, c[2], c[5]);
    const __m128d e1x = _mm_sub_pd(bx, ax), e1y = _mm_sub_pd(by, ay), e1z = _mm_sub_pd(bz, az);
    const __m128d e2x = _mm_sub_pd(bx, cx), e2y = _mm_sub_pd(by, cy), e2z = _mm_sub_pd(bz, cz);
    const __m128d du1 = _mm_loadu_pd(&topology.du1[f]), dv1 = _mm_loadu_pd(&topology.dv1[f]);
    const __m128d du2 = _mm_loadu_pd(&topology.du2[f]), dv2 = _mm_loadu_pd(&topology.dv2[f]);
    const __m128d r = _mm_loadu_pd(&topology.r[f]);

    __m128d tx = tangentOf(e1x, e2x, dv1, dv2, r), ty = tangentOf(e1y, e2y, dv1, dv2, r),
            tz = tangentOf(e1z, e2z, dv1, dv2, r);
    __m128d sx = bitangentOf(e1x, e2x, du1, du2, r), sy = bitangentOf(e1y, e2y, du1, du2, r),
            sz = bitangentOf(e1z, e2z, du1, du2, r);
    const __m128d tl = guardedLength(tx, ty, tz);
    tx = _mm_div_pd(tx, tl);
    ty = _mm_div_pd(ty, tl);
    tz = _mm_div_pd(tz, tl);
    const __m128d sl = guardedLength(sx, sy, sz);
    sx = _mm_div_pd(sx, sl);
    sy = _mm_div_pd(sy, sl);
    sz = _mm_div_pd(sz, sl);

    const __m128d nx = _mm_sub_pd(_mm_mul_pd(ty, sz), _mm_mul_pd(tz, sy));
    const __m128d ny = _mm_sub_pd(_mm_mul_pd(tz, sx), _mm_mul_pd(tx, sz));
    const __m128d nz = _mm_sub_pd(_mm_mul_pd(tx, sy), _mm_mul_pd(ty, sx));
    const __m128d nl = guardedLength(nx, ny, nz);
    _mm_storeu_pd(normals.x + f, _mm_div_pd(nx, nl));
    _mm_storeu_pd(normals.y + f, _mm_div_pd(ny, nl));
    _mm_storeu_pd(normals.z + f, _mm_div_pd(nz, nl));
}

void vertexFramesSse2(const double* const sums[2], FrameRows rows, Eigen::Index j) {
    const __m128d sx = _mm_loadh_pd(_mm_load_sd(sums[0]), sums[1]);
    const __m128d sy = _mm_loadh_pd(_mm_load_sd(sums[0] + 1), sums[1] + 1);
    const __m128d sz = _mm_loadh_pd(_mm_load_sd(sums[0] + 2), sums[1] + 2);
    const __m128d length = guardedLength(sx, sy, sz);
    const __m128d nx = _mm_div_pd(sx, length), ny = _mm_div_pd(sy, length),
                  nz = _mm_div_pd(sz, length);
    // n x (1, 0, 0) in full, as the scalar kernel.
    const __m128d zero = _mm_setzero_pd(), one = _mm_set1_pd(1.0);
    const __m128d bx = _mm_sub_pd(_mm_mul_pd(ny, zero), _mm_mul_pd(nz, zero));
    const __m128d by = _mm_sub_pd(_mm_mul_pd(nz, one), _mm_mul_pd(nx, zero));
    const __m128d bz = _mm_sub_pd(_mm_mul_pd(nx, zero), _mm_mul_pd(ny, one));
    for (Eigen::Index k = j; k < j + 2; ++k) {
        rows[0][k] = 1.0f;
        rows[1][k] = 0.0f;
        rows[2][k] = 0.0f;
    }
    storeNegatedClamped(bx, rows[3] + j);
    storeNegatedClamped(by, rows[4] + j);
    storeNegatedClamped(bz, rows[5] + j);
    storeNegatedClamped(nx, rows[6] + j);
    storeNegatedClamped(ny, rows[7] + j);
    storeNegatedClamped(nz, rows[8] + j);
}

}  // namespace kestrel::meridian::kernels

#endif  // MERIDIAN_TBN_X86
