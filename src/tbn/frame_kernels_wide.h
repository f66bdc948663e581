// The face and vertex passes for any vector width, written once over a
// lanes type (simd/lanes_*.h): every lane does the scalar kernel's
// operations in the scalar kernel's order, so every width gives its bits.
// Included only by the per-width files, after their lanes header; the
// anonymous namespace keeps each width's instantiation to its own file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <immintrin.h>

#include "tbn/frame_kernels.h"

namespace {

using kestrel::meridian::kernels::FaceTables;
using kestrel::meridian::kernels::FrameOutput;
using kestrel::meridian::kernels::IncidenceTables;

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

// Lane k of x, y and z to the record at out + 4k (k < 4), a zero fourth.
inline void untransposeRecords(double* out, __m256d x, __m256d y, __m256d z) {
    const __m256d xy02 = _mm256_unpacklo_pd(x, y), xy13 = _mm256_unpackhi_pd(x, y);
    const __m256d zw02 = _mm256_unpacklo_pd(z, _mm256_setzero_pd());
    const __m256d zw13 = _mm256_unpackhi_pd(z, _mm256_setzero_pd());
    _mm_storeu_pd(out, _mm256_castpd256_pd128(xy02));
    _mm_storeu_pd(out + 2, _mm256_castpd256_pd128(zw02));
    _mm_storeu_pd(out + 4, _mm256_castpd256_pd128(xy13));
    _mm_storeu_pd(out + 6, _mm256_castpd256_pd128(zw13));
    _mm_storeu_pd(out + 8, _mm256_extractf128_pd(xy02, 1));
    _mm_storeu_pd(out + 10, _mm256_extractf128_pd(zw02, 1));
    _mm_storeu_pd(out + 12, _mm256_extractf128_pd(xy13, 1));
    _mm_storeu_pd(out + 14, _mm256_extractf128_pd(zw13, 1));
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

// Lane k of x, y and z to the record at out + 4k, with a zero fourth value.
template <typename L>
void storeRecords(double* out, typename L::Vector x, typename L::Vector y, typename L::Vector z) {
    if constexpr (L::kLanes == 2) {
        _mm_storeu_pd(out, _mm_unpacklo_pd(x, y));
        _mm_storeu_pd(out + 2, _mm_unpacklo_pd(z, _mm_setzero_pd()));
        _mm_storeu_pd(out + 4, _mm_unpackhi_pd(x, y));
        _mm_storeu_pd(out + 6, _mm_unpackhi_pd(z, _mm_setzero_pd()));
    } else if constexpr (L::kLanes == 4) {
        untransposeRecords(out, x, y, z);
    } else {
        static_assert(L::kLanes == 8);
        untransposeRecords(out, _mm512_castpd512_pd256(x), _mm512_castpd512_pd256(y),
                           _mm512_castpd512_pd256(z));
        untransposeRecords(out + 16, _mm512_extractf64x4_pd(x, 1), _mm512_extractf64x4_pd(y, 1),
                           _mm512_extractf64x4_pd(z, 1));
    }
}

template <typename L>
size_t faceNormalsWide(const FaceTables& t, const double* positions, double* normals) {
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
        storeRecords<L>(normals + 4 * f, L::div(nx, nl), L::div(ny, nl), L::div(nz, nl));
    }
    return f;
}

// A running sum of records: two SSE2 vectors, or one AVX vector for any
// wider lanes type.
template <typename L, typename = void>
struct RecordSum {
    __m256d xyzw = _mm256_setzero_pd();
    void add(const double* record) { xyzw = _mm256_add_pd(xyzw, _mm256_loadu_pd(record)); }
    void store(double* out) const { _mm256_storeu_pd(out, xyzw); }
};
template <typename L>
struct RecordSum<L, std::enable_if_t<L::kLanes == 2>> {
    __m128d xy = _mm_setzero_pd(), zw = _mm_setzero_pd();
    void add(const double* record) {
        xy = _mm_add_pd(xy, _mm_loadu_pd(record));
        zw = _mm_add_pd(zw, _mm_loadu_pd(record + 2));
    }
    void store(double* out) const {
        _mm_storeu_pd(out, xy);
        _mm_storeu_pd(out + 2, zw);
    }
};

// Per vertex, its face normals added record by record from zero: each of
// x, y and z sees the additions of the scalar step in its order.
template <typename L>
void normalSumsWide(const IncidenceTables& incidence, const double* normals, double* sums) {
    for (size_t v = 0; v < incidence.vertexCount; ++v) {
        RecordSum<L> sum;
        for (int32_t i = incidence.first[v]; i < incidence.first[v + 1]; ++i)
            sum.add(normals + 4 * incidence.faces[i]);
        sum.store(sums + 4 * v);
    }
}

// Frames of output vertices j .. j + lanes - 1 from their sums.
template <typename L>
void vertexFramesAt(const FrameOutput& out, ptrdiff_t j, typename L::Vector sx,
                    typename L::Vector sy, typename L::Vector sz) {
    using V = typename L::Vector;
    const V length = guardedLength<L>(sx, sy, sz);
    const V nx = L::div(sx, length), ny = L::div(sy, length), nz = L::div(sz, length);
    // n x (1, 0, 0) in full, as the scalar kernel.
    const V zero = L::zero(), one = L::broadcast(1.0);
    const V bx = L::sub(L::mul(ny, zero), L::mul(nz, zero));
    const V by = L::sub(L::mul(nz, one), L::mul(nx, zero));
    const V bz = L::sub(L::mul(nx, zero), L::mul(ny, one));
    L::fillFloats(out.rows[0] + j, 1.0f);
    L::fillFloats(out.rows[1] + j, 0.0f);
    L::fillFloats(out.rows[2] + j, 0.0f);
    storeNegatedClamped<L>(bx, out.rows[3] + j);
    storeNegatedClamped<L>(by, out.rows[4] + j);
    storeNegatedClamped<L>(bz, out.rows[5] + j);
    storeNegatedClamped<L>(nx, out.rows[6] + j);
    storeNegatedClamped<L>(ny, out.rows[7] + j);
    storeNegatedClamped<L>(nz, out.rows[8] + j);
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
