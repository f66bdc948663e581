// Two doubles per vector (SSE2). Include only from a translation unit built
// for SSE2 kernels: like every width-specific definition, it sits in an
// anonymous namespace, so no inline function built for one width can be
// picked by the linker for another.
#pragma once

#include <cstddef>
#include <cstdint>

#include <emmintrin.h>

namespace {

struct Sse2Doubles {
    using Vector = __m128d;
    using Mask = __m128d;
    static constexpr int kLanes = 2;

    static Vector load(const double* p) { return _mm_loadu_pd(p); }
    static void store(double* p, Vector v) { _mm_storeu_pd(p, v); }
    static Vector broadcast(double x) { return _mm_set1_pd(x); }
    static Vector zero() { return _mm_setzero_pd(); }
    static Vector add(Vector a, Vector b) { return _mm_add_pd(a, b); }
    static Vector sub(Vector a, Vector b) { return _mm_sub_pd(a, b); }
    static Vector mul(Vector a, Vector b) { return _mm_mul_pd(a, b); }
    static Vector div(Vector a, Vector b) { return _mm_div_pd(a, b); }
    static Vector sqrt(Vector a) { return _mm_sqrt_pd(a); }
    /// a > b ? a : b per lane (b when either is NaN).
    static Vector max(Vector a, Vector b) { return _mm_max_pd(a, b); }
    static Mask greater(Vector a, Vector b) { return _mm_cmpgt_pd(a, b); }
    static Mask less(Vector a, Vector b) { return _mm_cmplt_pd(a, b); }
    static Vector select(Mask m, Vector ifSet, Vector ifClear) {
        return _mm_or_pd(_mm_and_pd(m, ifSet), _mm_andnot_pd(m, ifClear));
    }
    static Vector magnitude(Vector a) { return _mm_andnot_pd(_mm_set1_pd(-0.0), a); }
    static Vector negate(Vector a) { return _mm_xor_pd(_mm_set1_pd(-0.0), a); }

    /// Lane k from base[k * stride].
    static Vector gatherStrided(const double* base, ptrdiff_t stride) {
        return _mm_loadh_pd(_mm_load_sd(base), base + stride);
    }
    /// Lane k from base[scale * index[k * indexStride]].
    static Vector gather(const double* base, const int32_t* index, ptrdiff_t indexStride,
                         ptrdiff_t scale) {
        return _mm_loadh_pd(_mm_load_sd(base + scale * index[0]),
                            base + scale * index[indexStride]);
    }
    /// Lane k from base[stride * index[k]], widened from float.
    static Vector gatherFloats(const float* base, const int32_t* index, ptrdiff_t stride) {
        return _mm_set_pd(base[stride * index[1]], base[stride * index[0]]);
    }
    /// Lanes narrowed to float, to out[0 .. kLanes - 1].
    static void storeFloats(float* out, Vector v) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_castps_si128(_mm_cvtpd_ps(v)));
    }
    static void fillFloats(float* out, float value) {
        out[0] = value;
        out[1] = value;
    }
};

}  // namespace
