// The face and vertex passes for any vector width, written once over a
// lanes type (simd/lanes_*.h): every lane does the scalar kernel's
// operations in the scalar kernel's order, so every width gives its bits.
// Included only by the per-width files, after their lanes header; the
// anonymous namespace keeps each width's instantiation to its own file.
#pragma once

#include <cstddef>
#include <cstdint>

#include <immintrin.h>

#include "tbn/frame_kernels.h"

namespace {

using kestrel::meridian::kernels::FaceTables;
using kestrel::meridian::kernels::FrameOutput;

// Whether the pass writes the sum of `vertex` (see FaceTables).
inline bool ownsVertex(const FaceTables& t, int32_t vertex) {
    return vertex >= t.firstVertex && vertex < t.endVertex;
}

// Smallest length divided by (kFrameEpsilon of frame_arithmetic.h).
constexpr double kLengthFloor = 2.220446049250313e-16;

// max(|v|, floor) with |v| summed as (x*x + y*y) + z*z; max(floor, length)
// returns the length when it is NaN, like std::max(length, floor).
template <typename L>
typename L::Vector guardedLength(typename L::Vector x, typename L::Vector y, typename L::Vector z) {
    const auto squares = L::add(L::add(L::mul(x, x), L::mul(y, y)), L::mul(z, z));
    return L::max(L::broadcast(kLengthFloor), L::sqrt(squares));
}

// -clampFrameValue(v) per lane, narrowed to float, to out[0 .. lanes - 1].
template <typename L>
void storeNegatedClamped(typename L::Vector v, float* out) {
    v = L::select(L::greater(v, L::broadcast(0.99)), L::broadcast(1.0),
                  L::select(L::less(v, L::broadcast(-0.99)), L::broadcast(-1.0), v));
    v = L::select(L::less(L::magnitude(v), L::broadcast(0.001)), L::zero(), v);
    L::storeFloats(out, L::negate(v));
}

#if defined(__AVX__)
// x, y and z of four records, one lane each: two-double loads and in-lane
// unpacks (a transpose), far fewer cycles than a load per lane and
// coordinate.
inline void transposeRecords(const double* r0, const double* r1, const double* r2, const double* r3,
                             __m256d& x, __m256d& y, __m256d& z) {
    const auto pair = [](const double* low, const double* high) {
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(low)), _mm_loadu_pd(high),
                                    1);
    };
    const __m256d xy02 = pair(r0, r2), xy13 = pair(r1, r3);
    const __m256d zw02 = pair(r0 + 2, r2 + 2), zw13 = pair(r1 + 2, r3 + 2);
    x = _mm256_unpacklo_pd(xy02, xy13);
    y = _mm256_unpackhi_pd(xy02, xy13);
    z = _mm256_unpacklo_pd(zw02, zw13);
}

// Adds lane k of x, y and z (a zero fourth value) to the records of the
// owned corners of face k, k = 0 .. 3 in that order, corners in their order.
inline void addToCorners(const FaceTables& t, double* sums, const int32_t* corners, __m256d x,
                         __m256d y, __m256d z) {
    const __m256d xy02 = _mm256_unpacklo_pd(x, y), xy13 = _mm256_unpackhi_pd(x, y);
    const __m256d zw02 = _mm256_unpacklo_pd(z, _mm256_setzero_pd());
    const __m256d zw13 = _mm256_unpackhi_pd(z, _mm256_setzero_pd());
    const __m256d face[4] = {
        _mm256_permute2f128_pd(xy02, zw02, 0x20), _mm256_permute2f128_pd(xy13, zw13, 0x20),
        _mm256_permute2f128_pd(xy02, zw02, 0x31), _mm256_permute2f128_pd(xy13, zw13, 0x31)};
    for (int k = 0; k < 4; ++k)
        for (int corner = 0; corner < 3; ++corner) {
            const int32_t vertex = corners[3 * k + corner];
            if (!ownsVertex(t, vertex)) continue;
            double* sum = sums + 4 * vertex;
            _mm256_storeu_pd(sum, _mm256_add_pd(_mm256_loadu_pd(sum), face[k]));
        }
}
#endif

// x, y and z of the records at(0) .. at(lanes - 1), one lane each.
template <typename L, typename At>
void loadRecords(At at, typename L::Vector& x, typename L::Vector& y, typename L::Vector& z) {
    if constexpr (L::kLanes == 2) {
        const double *r0 = at(0), *r1 = at(1);
        const __m128d xy0 = _mm_loadu_pd(r0), xy1 = _mm_loadu_pd(r1);
        x = _mm_unpacklo_pd(xy0, xy1);
        y = _mm_unpackhi_pd(xy0, xy1);
        z = _mm_loadh_pd(_mm_load_sd(r0 + 2), r1 + 2);
    } else if constexpr (L::kLanes == 4) {
        transposeRecords(at(0), at(1), at(2), at(3), x, y, z);
    } else {
        static_assert(L::kLanes == 8);
        __m256d xl, yl, zl, xh, yh, zh;
        transposeRecords(at(0), at(1), at(2), at(3), xl, yl, zl);
        transposeRecords(at(4), at(5), at(6), at(7), xh, yh, zh);
        x = _mm512_insertf64x4(_mm512_castpd256_pd512(xl), xh, 1);
        y = _mm512_insertf64x4(_mm512_castpd256_pd512(yl), yh, 1);
        z = _mm512_insertf64x4(_mm512_castpd256_pd512(zl), zh, 1);
    }
}

// Adds lane k of x, y and z (a zero fourth value) to the records of the
// owned corners of face k, lane by lane in order, corners in their order.
template <typename L>
void addToCorners(const FaceTables& t, double* sums, const int32_t* corners, typename L::Vector x,
                  typename L::Vector y, typename L::Vector z) {
    if constexpr (L::kLanes == 2) {
        const __m128d xy[2] = {_mm_unpacklo_pd(x, y), _mm_unpackhi_pd(x, y)};
        const __m128d zw[2] = {_mm_unpacklo_pd(z, _mm_setzero_pd()),
                               _mm_unpackhi_pd(z, _mm_setzero_pd())};
        for (int k = 0; k < 2; ++k)
            for (int corner = 0; corner < 3; ++corner) {
                const int32_t vertex = corners[3 * k + corner];
                if (!ownsVertex(t, vertex)) continue;
                double* sum = sums + 4 * vertex;
                _mm_storeu_pd(sum, _mm_add_pd(_mm_loadu_pd(sum), xy[k]));
                _mm_storeu_pd(sum + 2, _mm_add_pd(_mm_loadu_pd(sum + 2), zw[k]));
            }
    }
    // Each file sees only the branches of its own instruction set: clang
    // checks the calls of a discarded branch too, and the wider records'
    // helpers and intrinsics do not exist below AVX (AVX-512).
#if defined(__AVX__)
    else if constexpr (L::kLanes == 4) {
        addToCorners(t, sums, corners, x, y, z);
    }
#endif
#if defined(__AVX512F__)
    else {
        static_assert(L::kLanes == 8);
        addToCorners(t, sums, corners, _mm512_castpd512_pd256(x), _mm512_castpd512_pd256(y),
                     _mm512_castpd512_pd256(z));
        addToCorners(t, sums, corners + 12, _mm512_extractf64x4_pd(x, 1),
                     _mm512_extractf64x4_pd(y, 1), _mm512_extractf64x4_pd(z, 1));
    }
#endif
}

// Each face's unit normal added to its corners' sums, face after face: the
// additions every sum sees are those of the scalar step, in its order.
template <typename L>
size_t addFaceNormalsWide(const FaceTables& t, const double* positions, double* sums) {
    using V = typename L::Vector;
    size_t f = 0;
    for (; f + L::kLanes <= t.count; f += L::kLanes) {
        const int32_t* c = t.corners + 3 * f;
        V ax, ay, az, bx, by, bz, cx, cy, cz;
        loadRecords<L>([&](int k) { return positions + 4 * c[3 * k]; }, ax, ay, az);
        loadRecords<L>([&](int k) { return positions + 4 * c[3 * k + 1]; }, bx, by, bz);
        loadRecords<L>([&](int k) { return positions + 4 * c[3 * k + 2]; }, cx, cy, cz);
        // Both edges leave the second corner.
        const V e1x = L::sub(bx, ax), e1y = L::sub(by, ay), e1z = L::sub(bz, az);
        const V e2x = L::sub(bx, cx), e2y = L::sub(by, cy), e2z = L::sub(bz, cz);
        const V du1 = L::load(t.du1 + f), dv1 = L::load(t.dv1 + f);
        const V du2 = L::load(t.du2 + f), dv2 = L::load(t.dv2 + f);
        const V r = L::load(t.r + f);
        const auto tangent = [&](V e1, V e2) {
            return L::mul(L::sub(L::mul(dv2, e1), L::mul(dv1, e2)), r);
        };
        const auto bitangent = [&](V e1, V e2) {
            return L::mul(L::sub(L::mul(du1, e2), L::mul(du2, e1)), r);
        };
        V tx = tangent(e1x, e2x), ty = tangent(e1y, e2y), tz = tangent(e1z, e2z);
        V sx = bitangent(e1x, e2x), sy = bitangent(e1y, e2y), sz = bitangent(e1z, e2z);
        const V tl = guardedLength<L>(tx, ty, tz);
        tx = L::div(tx, tl);
        ty = L::div(ty, tl);
        tz = L::div(tz, tl);
        const V sl = guardedLength<L>(sx, sy, sz);
        sx = L::div(sx, sl);
        sy = L::div(sy, sl);
        sz = L::div(sz, sl);

        const V nx = L::sub(L::mul(ty, sz), L::mul(tz, sy));
        const V ny = L::sub(L::mul(tz, sx), L::mul(tx, sz));
        const V nz = L::sub(L::mul(tx, sy), L::mul(ty, sx));
        const V nl = guardedLength<L>(nx, ny, nz);
        addToCorners<L>(t, sums, c, L::div(nx, nl), L::div(ny, nl), L::div(nz, nl));
    }
    return f;
}

// Whether every lane of x, y and z is finite: x * 0 + y * 0 + z * 0 is a
// zero exactly then, NaN otherwise.
template <typename L>
bool allFinite(typename L::Vector x, typename L::Vector y, typename L::Vector z) {
    const typename L::Vector zero = L::zero();
    const auto s = L::add(L::add(L::mul(x, zero), L::mul(y, zero)), L::mul(z, zero));
    if constexpr (L::kLanes == 2) {
        return _mm_movemask_pd(_mm_cmpeq_pd(s, zero)) == 0x3;
    } else if constexpr (L::kLanes == 4) {
        return _mm256_movemask_pd(_mm256_cmp_pd(s, zero, _CMP_EQ_OQ)) == 0xF;
    } else {
        static_assert(L::kLanes == 8);
        return _mm512_cmp_pd_mask(s, zero, _CMP_EQ_OQ) == 0xFF;
    }
}

// Frames of output vertices j .. j + lanes - 1 from their sums.
template <typename L>
void vertexFramesAt(const FrameOutput& out, ptrdiff_t j, typename L::Vector sx,
                    typename L::Vector sy, typename L::Vector sz) {
    using V = typename L::Vector;
    const V length = guardedLength<L>(sx, sy, sz);
    const V nx = L::div(sx, length), ny = L::div(sy, length), nz = L::div(sz, length);
    L::fillFloats(out.rows[0] + j, 1.0f);
    L::fillFloats(out.rows[1] + j, 0.0f);
    L::fillFloats(out.rows[2] + j, 0.0f);
    storeNegatedClamped<L>(nx, out.rows[6] + j);
    storeNegatedClamped<L>(ny, out.rows[7] + j);
    storeNegatedClamped<L>(nz, out.rows[8] + j);
    if (allFinite<L>(nx, ny, nz)) {
        // The bitangent n x (1, 0, 0) = (ny * 0 - nz * 0, nz - nx * 0,
        // nx * 0 - ny) of a finite normal, after the clamp and the negation:
        // x is a zero, so -0; y is nz, or a zero where nz is one, so row 8;
        // z is -ny, or a zero, so row 7 negated, except that a clamped zero
        // is -0 in both rows.
        L::fillFloats(out.rows[3] + j, -0.0f);
        for (int k = 0; k < L::kLanes; ++k) {
            out.rows[4][j + k] = out.rows[8][j + k];
            const float y = out.rows[7][j + k];
            out.rows[5][j + k] = y == 0.0f ? y : -y;
        }
        return;
    }
    // n x (1, 0, 0) in full, as the scalar kernel: with a non-finite normal
    // the products by zero are NaN.
    const V zero = L::zero(), one = L::broadcast(1.0);
    const V bx = L::sub(L::mul(ny, zero), L::mul(nz, zero));
    const V by = L::sub(L::mul(nz, one), L::mul(nx, zero));
    const V bz = L::sub(L::mul(nx, zero), L::mul(ny, one));
    storeNegatedClamped<L>(bx, out.rows[3] + j);
    storeNegatedClamped<L>(by, out.rows[4] + j);
    storeNegatedClamped<L>(bz, out.rows[5] + j);
}

template <typename L>
ptrdiff_t vertexFramesWide(const FrameOutput& out) {
    using V = typename L::Vector;
    ptrdiff_t j = 0;
    V x, y, z;
    if (out.pick) {
        for (; j + L::kLanes <= out.count; j += L::kLanes) {
            const int32_t* pick = out.pick + j;
            loadRecords<L>([&](int k) { return out.sums + 4 * pick[k]; }, x, y, z);
            vertexFramesAt<L>(out, j, x, y, z);
        }
    } else {
        for (; j + L::kLanes <= out.count; j += L::kLanes) {
            loadRecords<L>([&](int k) { return out.sums + 4 * (j + k); }, x, y, z);
            vertexFramesAt<L>(out, j, x, y, z);
        }
    }
    return j;
}

}  // namespace
