// The face and vertex passes for any vector width, written once over a
// lanes type (simd/lanes_*.h): every lane does the scalar kernel's
// operations in the scalar kernel's order, so every width gives its bits.
// Included only by the per-width files, after their lanes header; the
// anonymous namespace keeps each width's instantiation to its own file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tbn/frame_kernels.h"

namespace {

using kestrel::meridian::kernels::FaceTables;
using kestrel::meridian::kernels::FrameOutput;
using kestrel::meridian::kernels::PlanarNormals;
using kestrel::meridian::kernels::PlanarPositions;

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

template <typename L>
size_t faceNormalsWide(const FaceTables& t, const PlanarPositions& p, const PlanarNormals& n) {
    using V = typename L::Vector;
    size_t f = 0;
    for (; f + L::kLanes <= t.count; f += L::kLanes) {
        const int32_t* c = t.corners + 3 * f;
        const V ax = L::gather(p.x, c, 3, 1), ay = L::gather(p.y, c, 3, 1),
                az = L::gather(p.z, c, 3, 1);
        const V bx = L::gather(p.x, c + 1, 3, 1), by = L::gather(p.y, c + 1, 3, 1),
                bz = L::gather(p.z, c + 1, 3, 1);
        const V cx = L::gather(p.x, c + 2, 3, 1), cy = L::gather(p.y, c + 2, 3, 1),
                cz = L::gather(p.z, c + 2, 3, 1);
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
        L::store(n.x + f, L::div(nx, nl));
        L::store(n.y + f, L::div(ny, nl));
        L::store(n.z + f, L::div(nz, nl));
    }
    return f;
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
    ptrdiff_t j = 0;
    if (out.pick) {
        for (; j + L::kLanes <= out.count; j += L::kLanes)
            vertexFramesAt<L>(out, j, L::gather(out.sums, out.pick + j, 1, 3),
                              L::gather(out.sums + 1, out.pick + j, 1, 3),
                              L::gather(out.sums + 2, out.pick + j, 1, 3));
    } else {
        for (; j + L::kLanes <= out.count; j += L::kLanes)
            vertexFramesAt<L>(out, j, L::gatherStrided(out.sums + 3 * j, 3),
                              L::gatherStrided(out.sums + 3 * j + 1, 3),
                              L::gatherStrided(out.sums + 3 * j + 2, 3));
    }
    return j;
}

}  // namespace
