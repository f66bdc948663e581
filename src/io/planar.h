// Conversions between caller-owned planar float arrays and vertex matrices.
// A planar array holds an R by C matrix row after row: element (r, c) at
// r * C + c, so a 3 by N vertex set is all x, then all y, then all z.
#pragma once

#include <Eigen/Core>

namespace kestrel::meridian {

/// Widens a planar 3 by `count` float array into a 3 by `count` matrix.
inline Eigen::Matrix3Xd planarToVertices(const float* planar, Eigen::Index count) {
    Eigen::Matrix3Xd vertices(3, count);
    for (Eigen::Index r = 0; r < 3; ++r)
        for (Eigen::Index c = 0; c < count; ++c) vertices(r, c) = planar[r * count + c];
    return vertices;
}

/// Narrows an R by C matrix into a planar float array of R * C values.
template <typename Derived>
void matrixToPlanar(const Eigen::MatrixBase<Derived>& m, float* planar) {
    const Eigen::Index cols = m.cols();
    for (Eigen::Index r = 0; r < m.rows(); ++r)
        for (Eigen::Index c = 0; c < cols; ++c) planar[r * cols + c] = static_cast<float>(m(r, c));
}

}  // namespace kestrel::meridian
