// The tangent-frame computation written the straightforward way: a per-face
// loop over short-lived Eigen vectors and a 9 by n accumulator that also
// sums the tangents and bitangents it later overwrites. The engines use a
// faster single pass (frame_arithmetic.h) that must give the same bits;
// this version exists to check and time that one against. Header-only, so it
// never ends up in the library.
#pragma once

#include <algorithm>
#include <vector>

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "common/template_head.h"
#include "io/planar.h"

namespace kestrel::meridian::literal {

constexpr double kEpsilon = 2.220446049250313e-16;

inline double clampValue(double v) {
    if (v > 0.99)
        v = 1.0;
    else if (v < -0.99)
        v = -1.0;
    if (std::abs(v) < 0.001) v = 0.0;
    return v;
}

inline Eigen::Vector3d clampVector(const Eigen::Vector3d& v) {
    return v.unaryExpr([](double x) { return clampValue(x); });
}

/// The 9 by n accumulator: per vertex, the sums of the unit T, B and N of
/// its faces.
/// positions: 3 by n
/// uv:        2 by #T
/// faces:     3 by #F vertex indices, 1-based
/// uvFaces:   3 by #F texture indices, 1-based
inline Eigen::MatrixXd accumulateFrames(const Eigen::MatrixXd& positions, const Eigen::MatrixXd& uv,
                                        const Eigen::MatrixXd& faces,
                                        const Eigen::MatrixXd& uvFaces, bool guardDeterminant) {
    Eigen::MatrixXd accumulator(9, positions.cols());
    accumulator.setZero();
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const int p0 = static_cast<int>(faces(0, f) - 1.0);
        const int p1 = static_cast<int>(faces(1, f) - 1.0);
        const int p2 = static_cast<int>(faces(2, f) - 1.0);
        const int t0 = static_cast<int>(uvFaces(0, f) - 1.0);
        const int t1 = static_cast<int>(uvFaces(1, f) - 1.0);
        const int t2 = static_cast<int>(uvFaces(2, f) - 1.0);

        const Eigen::Vector3d e1 = positions.col(p1) - positions.col(p0);
        const Eigen::Vector3d e2 = positions.col(p1) - positions.col(p2);
        const Eigen::Vector2d d1 = uv.col(t1) - uv.col(t0);
        const Eigen::Vector2d d2 = uv.col(t1) - uv.col(t2);
        const double du1 = d1(0), dv1 = d1(1), du2 = d2(0), dv2 = d2(1);

        double det = du1 * dv2 - du2 * dv1;
        if (guardDeterminant) det += kEpsilon;
        const double r = static_cast<float>(1.0 / det);

        Eigen::Vector3d t = (dv2 * e1 - dv1 * e2) * r;
        Eigen::Vector3d b = (du1 * e2 - du2 * e1) * r;
        t /= std::max(t.norm(), kEpsilon);
        b /= std::max(b.norm(), kEpsilon);
        Eigen::Vector3d normal = t.cross(b);
        normal /= std::max(normal.norm(), kEpsilon);

        Eigen::Matrix<double, 9, 1> frame;
        frame << t, b, normal;
        accumulator.col(p0) += frame;
        accumulator.col(p1) += frame;
        accumulator.col(p2) += frame;
    }
    return accumulator;
}

/// Frames from the accumulator: only its normal sums (rows 6-8) are used.
/// Returns 9 by n: tangent, bitangent, normal per column.
inline Eigen::MatrixXd framesFromAccumulator(const Eigen::MatrixXd& accumulator) {
    Eigen::MatrixXd result(9, accumulator.cols());
    const Eigen::Vector3d xAxis(1.0, 0.0, 0.0);
    for (Eigen::Index v = 0; v < accumulator.cols(); ++v) {
        const Eigen::Vector3d sum = accumulator.col(v).segment<3>(6);
        const Eigen::Vector3d normal = sum / std::max(sum.norm(), kEpsilon);
        const Eigen::Vector3d bitangent = normal.cross(xAxis);
        result.col(v) << clampVector(xAxis), -clampVector(bitangent), -clampVector(normal);
    }
    return result;
}

/// Frames of n vertices (arguments as accumulateFrames), 9 by n.
inline Eigen::MatrixXd tangentFrames(const Eigen::MatrixXd& positions, const Eigen::MatrixXd& uv,
                                     const Eigen::MatrixXd& faces, const Eigen::MatrixXd& uvFaces,
                                     bool guardDeterminant) {
    return framesFromAccumulator(accumulateFrames(positions, uv, faces, uvFaces, guardDeterminant));
}

/// Planar float frames of the fixed engine: head 3 * 20481 floats in,
/// 9 * 20481 floats out.
inline std::vector<float> fixedEngineFrames(const float* headPlanar, const Eigen::MatrixXd& uv,
                                            const Eigen::MatrixXd& faces,
                                            const Eigen::MatrixXd& uvFaces) {
    constexpr Eigen::Index n = kTemplateHeadVertexCount;
    const Eigen::MatrixXd positions = planarToVertices(headPlanar, n);
    const Eigen::MatrixXd frames = tangentFrames(positions, uv, faces, uvFaces, false);
    std::vector<float> out(static_cast<size_t>(frames.size()));
    matrixToPlanar(frames, out.data());
    return out;
}

/// Planar float frames of the general engine: the head is gathered through
/// taviToHead, the frames picked through headToTavi (9 * headToTavi.size()
/// floats out).
inline std::vector<float> generalEngineFrames(const float* headPlanar, const Eigen::MatrixXd& uv,
                                              const Eigen::MatrixXd& faces,
                                              const Eigen::MatrixXd& uvFaces,
                                              const std::vector<int>& taviToHead,
                                              const std::vector<int>& headToTavi) {
    const Eigen::MatrixXd head = planarToVertices(headPlanar, 20481);
    const auto m = static_cast<Eigen::Index>(taviToHead.size());
    Eigen::MatrixXd gathered = Eigen::MatrixXd::Zero(3, m);
    for (Eigen::Index i = 0; i < m; ++i) gathered.col(i) = head.col(taviToHead[i]);
    const Eigen::MatrixXd frames = tangentFrames(gathered, uv, faces, uvFaces, true);
    const auto k = static_cast<Eigen::Index>(headToTavi.size());
    Eigen::MatrixXd picked = Eigen::MatrixXd::Zero(9, k);
    for (Eigen::Index j = 0; j < k; ++j) picked.col(j) = frames.col(headToTavi[j]);
    std::vector<float> out(static_cast<size_t>(picked.size()));
    matrixToPlanar(picked, out.data());
    return out;
}

}  // namespace kestrel::meridian::literal
