// Connectivity and texture layout of the demo head, in grid order: vertex 0
// is the top pole, then 128 rings of 160 vertices from the crown down to the
// bottom of the neck; the last ring is closed by a flat cap.
#pragma once

#include <vector>

#include <Eigen/Core>

namespace meridian::demo::detail {

inline constexpr int kGridRows = 128;
inline constexpr int kGridCols = 160;
inline constexpr int kGridVertexCount = 1 + kGridRows * kGridCols;

/// Grid id of the vertex in ring `row` (0 at the crown) and column `col`
/// (taken modulo the ring size, so the seam column wraps).
inline int gridVertex(int row, int col) {
    return 1 + row * kGridCols + col % kGridCols;
}

/// Texture islands: the scalp-and-face sheet cut along the back of the head,
/// and the disc under the neck.
enum UvIsland { kSheetIsland = 0, kCapIsland = 1 };

struct GridMesh {
    Eigen::Matrix3Xi faces;     ///< 3 by #F grid vertex ids, counter-clockwise seen from outside
    Eigen::Matrix2Xd uvs;       ///< 2 by #T texture coordinates in [0,1]
    Eigen::Matrix3Xi uvFaces;   ///< 3 by #F texture ids, column f belongs to faces column f
    std::vector<int> uvVertex;  ///< #T: grid vertex each texture coordinate belongs to
    std::vector<int> uvIsland;  ///< #T: UvIsland of each texture coordinate
};

/// Builds the fixed connectivity and texture layout (no geometry involved).
GridMesh buildGridMesh();

}  // namespace meridian::demo::detail
