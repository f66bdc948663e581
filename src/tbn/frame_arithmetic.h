// Per-face and per-vertex arithmetic shared by both tangent-frame engines.
//
// Each face contributes one unit normal N = T x B (T and B from its UV
// gradients) to each of its three vertices, with equal weight. A vertex frame
// is then derived from its normal sum alone: the tangent is always the x axis
// and the bitangent is the normal crossed with it. The rounding points (1/det
// rounded to float, division by max(|v|, eps)) are part of the output and
// must stay exactly where they are.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <Eigen/Core>

#include "simd/simd_level.h"

namespace kestrel::meridian {

/// Smallest length a vector is divided by, and the determinant guard of the
/// general engine.
constexpr double kFrameEpsilon = 2.220446049250313e-16;

/// Number of values per vertex frame: tangent, bitangent, normal.
constexpr int kFrameComponents = 9;

/// Whether the UV determinant gets kFrameEpsilon added (general engine) or
/// is used as is (fixed engine: a degenerate UV triangle gives inf or NaN).
enum class DeterminantGuard { none, epsilon };

/// The faces one of two threads runs: those with a corner among the
/// vertices [firstVertex, endVertex), in face order, with their per-face
/// tables (as in FrameTopology). Faces with corners in both halves are in
/// both.
struct FrameHalf {
    int32_t firstVertex = 0;
    int32_t endVertex = 0;
    int32_t firstCorner = 0;  ///< the lowest vertex the half's faces name
    int32_t endCorner = 0;    ///< one past the highest (0 and 0 when no faces)
    std::vector<int32_t> corners;
    std::vector<double> du1, dv1, du2, dv2, r;

    size_t faceCount() const { return r.size(); }
};

/// The faces of a template, validated against its vertex and uv counts and
/// ready for the per-call pass: their vertices and everything that depends
/// only on their texture coordinates, one array per quantity.
struct FrameTopology {
    std::vector<int32_t> corners;  ///< 3 per face: 0-based vertices p0, p1, p2
    std::vector<double> du1, dv1;  ///< uv[t1] - uv[t0], one per face
    std::vector<double> du2, dv2;  ///< uv[t1] - uv[t2], one per face
    std::vector<double> r;         ///< 1 / det rounded to float precision, one per face
    Eigen::Index vertexCount = 0;
    /// Vertices [0, m) and [m, #V) with their faces, m chosen so that the
    /// two threads get about as many faces each.
    FrameHalf halves[2];

    size_t faceCount() const { return r.size(); }
};

/// The first face corner that does not name an existing vertex or texture
/// coordinate.
struct BadFaceCorner {
    Eigen::Index face;   ///< 0-based face column
    int corner;          ///< 0, 1 or 2
    bool texture;        ///< true when the texture index is the bad one
    bool missing;        ///< true when the face has no texture indices at all
    double value;        ///< the index as written in the file (1-based)
    Eigen::Index limit;  ///< number of vertices or texture coordinates
};

/// Turns the OBJ tables into a FrameTopology for `vertexCount` vertices.
/// Indices are taken as written minus 1, truncated toward zero.
/// faces:   3 by #F vertex indices (1-based as written)
/// uvFaces: 3 by #FT texture indices (1-based), column f belongs to face f
/// uv:      2 by #T texture coordinates
/// Returns the first corner that would read outside a table (the topology is
/// then left empty), or nothing on success.
std::optional<BadFaceCorner> buildFrameTopology(const Eigen::MatrixXd& faces,
                                                const Eigen::MatrixXd& uvFaces,
                                                const Eigen::MatrixXd& uv, Eigen::Index vertexCount,
                                                DeterminantGuard guard, FrameTopology& topology);

/// The widest kernel the frame passes use on this processor: the widest it
/// has, but no wider than AVX2: on an AVX-512 processor the AVX-512 passes
/// measured 6-15% slower than the AVX2 ones (BM_FramePassesByKernel), and
/// they stay reachable by naming the level.
simd::Level frameKernelLevel();

/// Widens planar float positions to the records accumulateNormalSums reads.
/// planar: 3 * stride floats: x of vertex v at v, y at stride + v, z at
///         2 * stride + v
/// pick:   `count` vertices of `planar`, or null for 0 .. count - 1
/// records: room for 4 * count doubles; record i is vertex pick[i] (or i),
///         x y z then 0
void widenToRecords(const float* planar, Eigen::Index stride, const int32_t* pick,
                    Eigen::Index count, double* records);

/// Per vertex, the sum of the unit normals of its faces: starting from zero,
/// each face added once per corner, in face order (the order matters for
/// the last bit, and this one is fixed).
/// positions:  4 * vertexCount doubles: x y z of vertex i at 4i .. 4i + 2
///             (4i + 3 is ignored); 32-byte aligned is fastest
/// normalSums: room for 4 * vertexCount doubles; x y z of vertex i at
///             4i .. 4i + 2, and 4i + 3 set to zero
/// level:      must be available (simd::levelAvailable); every level gives
///             the same bits
void accumulateNormalSums(const FrameTopology& topology, const double* positions,
                          double* normalSums, simd::Level level = frameKernelLevel());

/// The sums of the vertices of topology.halves[half] alone: zeroes them,
/// then runs the half's faces in face order, each adding its normal only to
/// its corners in the half. Every sum gets the same additions in the same
/// order as from accumulateNormalSums, so the two halves, run on two
/// threads, give its bits. Records outside the half are neither read as sums
/// nor written.
/// half: 0 or 1 (other arguments as accumulateNormalSums)
void accumulateNormalSumsOf(const FrameTopology& topology, int half, const double* positions,
                            double* normalSums, simd::Level level = frameKernelLevel());

/// The clamp applied to every emitted value: above 0.99 -> 1, below -0.99 ->
/// -1, then magnitudes below 0.001 -> 0.
inline double clampFrameValue(double v) {
    if (v > 0.99)
        v = 1.0;
    else if (v < -0.99)
        v = -1.0;
    if (v < 0.001 && v > -0.001) v = 0.0;
    return v;
}

/// Writes the frames of the vertices picked by `pick` as planar floats:
/// component k of output vertex j at k * count + j.
/// normalSums: 4 * #V doubles (layout of accumulateNormalSums)
/// pick:       `count` vertex indices into normalSums, or null for 0..count-1
/// out:        room for 9 * count floats
/// level:      must be available; every level gives the same bits
void writeVertexFrames(const double* normalSums, const int32_t* pick, Eigen::Index count,
                       float* out, simd::Level level = frameKernelLevel());

/// writeVertexFrames for output vertices [first, end) of `count` only;
/// the rest of `out` is left as it is.
void writeVertexFrameRange(const double* normalSums, const int32_t* pick, Eigen::Index count,
                           Eigen::Index first, Eigen::Index end, float* out,
                           simd::Level level = frameKernelLevel());

}  // namespace kestrel::meridian
