// The head swap's blend for any vector width, written once over a lanes
// type (simd/lanes_*.h): lane by lane the scalar blend's operations in its
// order. Included only by the per-width files, after their lanes header.
#pragma once

#include <cstddef>

#include "headswap/blend_kernels.h"

namespace {

template <typename L>
ptrdiff_t blendVerticesWide(const kestrel::meridian::headswap::BlendMap& map,
                            const kestrel::meridian::headswap::PlanarRows& rows) {
    using V = typename L::Vector;
    ptrdiff_t j = 0;
    for (; j + L::kLanes <= map.count; j += L::kLanes) {
        const V w0 = L::load(map.weights[0] + j), w1 = L::load(map.weights[1] + j),
                w2 = L::load(map.weights[2] + j);
        for (int r = 0; r < 3; ++r) {
            const V a = L::gatherFloats(rows.in[r], map.corners[0] + j, rows.inStride);
            const V b = L::gatherFloats(rows.in[r], map.corners[1] + j, rows.inStride);
            const V c = L::gatherFloats(rows.in[r], map.corners[2] + j, rows.inStride);
            L::storeFloats(rows.out[r] + j,
                           L::add(L::add(L::mul(w0, a), L::mul(w1, b)), L::mul(w2, c)));
        }
    }
    return j;
}

}  // namespace
