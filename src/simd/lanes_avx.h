// Four doubles per vector: AVX, and AVX2 (hardware gathers for floats).
// Include only from a translation unit built for the matching width; see
// lanes_sse2.h for why everything is in an anonymous namespace.
#pragma once

#include <cstddef>
#include <cstdint>

#include <immintrin.h>

namespace {

struct AvxDoubles {
    using Vector = __m256d;
    using Mask = __m256d;
    static constexpr int kLanes = 4;

    static Vector load(const double* p) { return _mm256_loadu_pd(p); }
    static void store(double* p, Vector v) { _mm256_storeu_pd(p, v); }
    static Vector broadcast(double x) { return _mm256_set1_pd(x); }
    static Vector zero() { return _mm256_setzero_pd(); }
    static Vector add(Vector a, Vector b) { return _mm256_add_pd(a, b); }
    static Vector sub(Vector a, Vector b) { return _mm256_sub_pd(a, b); }
    static Vector mul(Vector a, Vector b) { return _mm256_mul_pd(a, b); }
    static Vector div(Vector a, Vector b) { return _mm256_div_pd(a, b); }
    static Vector sqrt(Vector a) { return _mm256_sqrt_pd(a); }
    /// a > b ? a : b per lane (b when either is NaN).
    static Vector max(Vector a, Vector b) { return _mm256_max_pd(a, b); }
    static Mask greater(Vector a, Vector b) { return _mm256_cmp_pd(a, b, _CMP_GT_OQ); }
    static Mask less(Vector a, Vector b) { return _mm256_cmp_pd(a, b, _CMP_LT_OQ); }
    // Bit logic rather than a blend: GCC turns blends of constants into a
    // branch per lane.
    static Vector select(Mask m, Vector ifSet, Vector ifClear) {
        return _mm256_or_pd(_mm256_and_pd(m, ifSet), _mm256_andnot_pd(m, ifClear));
    }
    static Vector magnitude(Vector a) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a); }
    static Vector negate(Vector a) { return _mm256_xor_pd(_mm256_set1_pd(-0.0), a); }

    /// Lane k from base[k * stride].
    static Vector gatherStrided(const double* base, ptrdiff_t stride) {
        return _mm256_set_pd(base[3 * stride], base[2 * stride], base[stride], base[0]);
    }
    /// Lane k from base[scale * index[k * indexStride]].
    static Vector gather(const double* base, const int32_t* index, ptrdiff_t indexStride,
                         ptrdiff_t scale) {
        return _mm256_set_pd(base[scale * index[3 * indexStride]],
                             base[scale * index[2 * indexStride]], base[scale * index[indexStride]],
                             base[scale * index[0]]);
    }
    /// Lane k from base[stride * index[k]], widened from float.
    static Vector gatherFloats(const float* base, const int32_t* index, ptrdiff_t stride) {
        return _mm256_cvtps_pd(_mm_set_ps(base[stride * index[3]], base[stride * index[2]],
                                          base[stride * index[1]], base[stride * index[0]]));
    }
    /// Lanes narrowed to float, to out[0 .. kLanes - 1].
    static void storeFloats(float* out, Vector v) { _mm_storeu_ps(out, _mm256_cvtpd_ps(v)); }
    static void fillFloats(float* out, float value) { _mm_storeu_ps(out, _mm_set1_ps(value)); }
};

#if defined(__AVX2__)
// Hardware gathers measured slower than single loads for doubles here (the
// frame passes), faster for the floats of the head swap.
struct Avx2Doubles : AvxDoubles {
    static Vector gatherFloats(const float* base, const int32_t* index, ptrdiff_t stride) {
        const __m128i lanes =
            _mm_mullo_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(index)),
                            _mm_set1_epi32(static_cast<int>(stride)));
        return _mm256_cvtps_pd(_mm_i32gather_ps(base, lanes, 4));
    }
};
#endif

}  // namespace
