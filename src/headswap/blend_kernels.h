// The weighted head swap's blend, a vector of output vertices at a time: one
// entry point per instruction set, each built in its own file for that set
// only (cmake/MeridianSimdKernels.cmake). Internal to src/headswap; plain structs only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrel::meridian::headswap {

/// Output vertices come in blocks of this many for the choice of how a
/// corner is read (the widest vector's lanes; narrower vectors split a block).
constexpr ptrdiff_t kBlendBlock = 8;

/// How corner k of a block of kBlendBlock output vertices is read. Every kind
/// loads the same face values; only the instructions differ.
enum class CornerRun : uint8_t {
    scattered,   ///< any sources: gathered lane by lane
    contiguous,  ///< sources s, s+1, s+2, ...: one plain load
    repeated,    ///< one source for the whole block: one value broadcast
};

/// Output vertex j blends face vertices corners[0][j], corners[1][j] and
/// corners[2][j] with weights[0][j], weights[1][j] and weights[2][j]; each
/// array holds `count` entries.
struct BlendMap {
    const int32_t* corners[3];
    const double* weights[3];
    ptrdiff_t count;
    /// Corner k of block b at runs[3 * b + k], for the count / kBlendBlock
    /// whole blocks (blockRuns); later vertices are gathered.
    const CornerRun* runs;
};

/// The kinds of each corner of each whole block of `count` output vertices,
/// 3 per block (layout of BlendMap::runs).
/// @param corners three arrays of `count` source indices (BlendMap::corners)
std::vector<CornerRun> blockRuns(const int32_t* const corners[3], ptrdiff_t count);

/// The planar input rows (3 x #V) and the planar output rows (3 x count).
/// Both are contiguous per row: the swap reads and writes the caller's
/// planar arrays directly.
struct PlanarRows {
    const float* in[3];  ///< coordinate r of face vertex v at in[r][v]
    float* out[3];       ///< coordinate r of output vertex j at out[r][j]
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
