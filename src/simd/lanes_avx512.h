// Eight doubles per vector (AVX-512F). Include only from a translation unit
// built for AVX-512 kernels; see lanes_sse2.h for why everything is in an
// anonymous namespace.
#pragma once

#include <cstddef>
#include <cstdint>

#include <immintrin.h>

namespace {

struct Avx512Doubles {
    using Vector = __m512d;
    using Mask = __mmask8;
    static constexpr int kLanes = 8;

    static Vector load(const double* p) { return _mm512_loadu_pd(p); }
    static void store(double* p, Vector v) { _mm512_storeu_pd(p, v); }
    static Vector broadcast(double x) { return _mm512_set1_pd(x); }
    static Vector zero() { return _mm512_setzero_pd(); }
    static Vector add(Vector a, Vector b) { return _mm512_add_pd(a, b); }
    static Vector sub(Vector a, Vector b) { return _mm512_sub_pd(a, b); }
    static Vector mul(Vector a, Vector b) { return _mm512_mul_pd(a, b); }
    static Vector div(Vector a, Vector b) { return _mm512_div_pd(a, b); }
    static Vector sqrt(Vector a) { return _mm512_sqrt_pd(a); }
    /// a > b ? a : b per lane (b when either is NaN).
    static Vector max(Vector a, Vector b) { return _mm512_max_pd(a, b); }
    static Mask greater(Vector a, Vector b) { return _mm512_cmp_pd_mask(a, b, _CMP_GT_OQ); }
    static Mask less(Vector a, Vector b) { return _mm512_cmp_pd_mask(a, b, _CMP_LT_OQ); }
    static Vector select(Mask m, Vector ifSet, Vector ifClear) {
        return _mm512_mask_blend_pd(m, ifClear, ifSet);
    }
    // Sign bit by integer logic: AVX-512F has no floating-point and/xor.
    static Vector magnitude(Vector a) {
        return _mm512_castsi512_pd(
            _mm512_and_epi64(_mm512_castpd_si512(a), _mm512_set1_epi64(0x7fffffffffffffff)));
    }
    static Vector negate(Vector a) {
        return _mm512_castsi512_pd(
            _mm512_xor_epi64(_mm512_castpd_si512(a), _mm512_set1_epi64(INT64_MIN)));
    }

    // Single loads: hardware gathers of doubles measured slower here.
    /// Lane k from base[k * stride].
    static Vector gatherStrided(const double* base, ptrdiff_t stride) {
        return _mm512_set_pd(base[7 * stride], base[6 * stride], base[5 * stride], base[4 * stride],
                             base[3 * stride], base[2 * stride], base[stride], base[0]);
    }
    /// Lane k from base[scale * index[k * indexStride]].
    static Vector gather(const double* base, const int32_t* index, ptrdiff_t indexStride,
                         ptrdiff_t scale) {
        const auto at = [&](int k) { return base[scale * index[k * indexStride]]; };
        return _mm512_set_pd(at(7), at(6), at(5), at(4), at(3), at(2), at(1), at(0));
    }
    /// Lane k from base[stride * index[k]], widened from float.
    static Vector gatherFloats(const float* base, const int32_t* index, ptrdiff_t stride) {
        const __m256i lanes =
            _mm256_mullo_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(index)),
                               _mm256_set1_epi32(static_cast<int>(stride)));
        return _mm512_cvtps_pd(_mm256_i32gather_ps(base, lanes, 4));
    }
    /// Lanes narrowed to float, to out[0 .. kLanes - 1].
    static void storeFloats(float* out, Vector v) { _mm256_storeu_ps(out, _mm512_cvtpd_ps(v)); }
    static void fillFloats(float* out, float value) {
        _mm256_storeu_ps(out, _mm256_set1_ps(value));
    }
};

}  // namespace
