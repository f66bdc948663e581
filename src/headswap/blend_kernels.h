// The weighted head swap's blend, a vector of output vertices at a time: one
// entry point per instruction set, each built in its own file for that set
// only (cmake/MeridianSimdKernels.cmake). Internal to src/headswap; plain structs only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrel::meridian::headswap {

/// Output vertex j blends face vertices corners[0][j], corners[1][j] and
/// corners[2][j] with weights[0][j], weights[1][j] and weights[2][j]; each
/// array holds `count` entries.
struct BlendMap {
    const int32_t* corners[3];
    const double* weights[3];
    ptrdiff_t count;
};

/// The input vertices (#V) and the planar output rows (3 x count).
struct PlanarRows {
    const float* in[3];  ///< coordinate r of face vertex v at in[r][v * inStride]
    ptrdiff_t inStride;
    float* out[3];  ///< coordinate r of output vertex j at out[r][j]
};

/// Output row r of vertex j: w0*a + w1*b + w2*c in double, added left to
/// right, from the face values widened, narrowed to float.
void blendVertex(const BlendMap& map, const PlanarRows& rows, ptrdiff_t j);

// As many whole vectors of output vertices as there are, from the first;
// they return how many they did. Only where simd::levelAvailable says so.
ptrdiff_t blendVerticesSse2(const BlendMap& map, const PlanarRows& rows);
ptrdiff_t blendVerticesAvx(const BlendMap& map, const PlanarRows& rows);
ptrdiff_t blendVerticesAvx2(const BlendMap& map, const PlanarRows& rows);
ptrdiff_t blendVerticesAvx512(const BlendMap& map, const PlanarRows& rows);

}  // namespace kestrel::meridian::headswap
