// The head swap's blend for any vector width, written once over a lanes
// type (simd/lanes_*.h, extended by each per-width file with loadFloats):
// lane by lane the scalar blend's operations in its order. Included only by
// the per-width files, after their lanes header.
#pragma once

#include <cstddef>

#include "headswap/blend_kernels.h"

namespace {

template <typename L>
ptrdiff_t blendVerticesWide(const kestrel::meridian::headswap::BlendMap& map,
                            const kestrel::meridian::headswap::PlanarRows& rows) {
    using kestrel::meridian::headswap::CornerRun;
    using kestrel::meridian::headswap::kBlendBlock;
    static_assert(kBlendBlock % L::kLanes == 0, "a vector must not straddle two blocks");
    using V = typename L::Vector;
    // Local copies: the stores through `out` could otherwise alias the map.
    const float* const in[3] = {rows.in[0], rows.in[1], rows.in[2]};
    float* const out[3] = {rows.out[0], rows.out[1], rows.out[2]};
    const int32_t* const corners[3] = {map.corners[0], map.corners[1], map.corners[2]};
    const double* const weights[3] = {map.weights[0], map.weights[1], map.weights[2]};
    const ptrdiff_t count = map.count;
    const ptrdiff_t classified = count / kBlendBlock * kBlendBlock;
    const CornerRun* const runs = map.runs;

    // Corner k of the lanes from output j, all three rows: the same floats
    // however they are read.
    const auto corner = [&](int k, ptrdiff_t j, V(&rowValues)[3]) {
        const CornerRun run =
            j < classified ? runs[3 * (j / kBlendBlock) + k] : CornerRun::scattered;
        const int32_t* const source = corners[k] + j;
        switch (run) {
            case CornerRun::contiguous:
                for (int r = 0; r < 3; ++r) rowValues[r] = L::loadFloats(in[r] + *source);
                break;
            case CornerRun::repeated:
                for (int r = 0; r < 3; ++r)
                    rowValues[r] = L::broadcast(static_cast<double>(in[r][*source]));
                break;
            default:
                for (int r = 0; r < 3; ++r) rowValues[r] = L::gatherFloats(in[r], source, 1);
                break;
        }
    };
    ptrdiff_t j = 0;
    for (; j + L::kLanes <= count; j += L::kLanes) {
        V a[3], b[3], c[3];
        corner(0, j, a);
        corner(1, j, b);
        corner(2, j, c);
        const V w0 = L::load(weights[0] + j), w1 = L::load(weights[1] + j),
                w2 = L::load(weights[2] + j);
        for (int r = 0; r < 3; ++r)
            L::storeFloats(out[r] + j,
                           L::add(L::add(L::mul(w0, a[r]), L::mul(w1, b[r])), L::mul(w2, c[r])));
    }
    return j;
}

}  // namespace
