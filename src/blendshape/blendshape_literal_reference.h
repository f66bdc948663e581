// Blendshape generation written the straightforward way: per call and per
// region, the basis rows of the constraints gathered, the normal equations
// formed with dense products and solved with a partial-pivoting LU, and the
// whole face model reconstructed. The engine factorises once and
// reconstructs only the rows a region writes; this version exists to check
// and time it against. Header-only, so it never ends up in the library.
#pragma once

#include <Eigen/Core>
#include <Eigen/LU>

#include "blendshape/backend_data.h"

namespace kestrel::meridian::blendshape::literal {

/// The face of a head in the model's frame: column i is R * head(up[i]) + t.
/// head: 3 by #V; faceList: 1 by N head vertex ids (doubles)
inline Eigen::Matrix3Xd faceInModelFrame(const Eigen::Matrix3Xd& head,
                                         const Eigen::MatrixXd& faceList,
                                         const Transform34& transform) {
    Eigen::Matrix3Xd face(3, faceList.size());
    for (Eigen::Index i = 0; i < faceList.size(); ++i)
        face.col(i) = head.col(static_cast<Eigen::Index>(faceList(i)));
    return (transform.leftCols<3>() * face).colwise() + transform.col(3);
}

struct RegionResult {
    Eigen::VectorXd coefficients;    ///< K
    Eigen::Matrix3Xd reconstructed;  ///< 3 by N: mean + basis * coefficients
    Eigen::Matrix3Xd deformed;       ///< 3 by N: the face with the region replaced
};

/// One region of a face.
/// basis: 3N by K; mean: 3N; sigma: K; face: 3 by N, model frame
inline RegionResult deformRegion(const Eigen::MatrixXd& basis, const Eigen::VectorXd& mean,
                                 const Eigen::VectorXd& sigma, const Eigen::Matrix3Xd& face,
                                 const RegionRecord& region) {
    const Eigen::Index constraints = region.fixedWithAnchor.size();  // F + 1
    const Eigen::Index fixedCount = constraints - 1;
    const double w0 = region.w0, w1 = region.w1, w2 = region.w2, w3 = region.w3;

    Eigen::Vector3d centroid = Eigen::Vector3d::Zero();
    for (Eigen::Index j = 0; j < fixedCount; ++j)
        centroid += face.col(static_cast<Eigen::Index>(region.fixedWithAnchor(j)));
    centroid /= static_cast<double>(fixedCount);
    const auto anchor = static_cast<Eigen::Index>(region.fixedWithAnchor(fixedCount));
    const Eigen::Vector3d anchorTarget = centroid + w3 * (face.col(anchor) - centroid);

    Eigen::MatrixXd rows(3 * constraints, basis.cols());
    Eigen::VectorXd meanRows(3 * constraints), targets(3 * constraints), weights(3 * constraints);
    for (Eigen::Index j = 0; j < constraints; ++j) {
        const auto vertex = static_cast<Eigen::Index>(region.fixedWithAnchor(j));
        const bool isAnchor = j == fixedCount;
        for (Eigen::Index a = 0; a < 3; ++a) {
            rows.row(3 * j + a) = basis.row(3 * vertex + a);
            meanRows(3 * j + a) = mean(3 * vertex + a);
            targets(3 * j + a) = isAnchor ? anchorTarget(a) : face(a, vertex);
            weights(3 * j + a) = isAnchor ? w0 : w1;
        }
    }
    Eigen::MatrixXd system = rows.transpose() * weights.asDiagonal() * rows;
    system += w2 * sigma.array().square().inverse().matrix().asDiagonal();
    const Eigen::VectorXd rhs = rows.transpose() * (weights.asDiagonal() * (targets - meanRows));

    RegionResult result;
    result.coefficients = system.partialPivLu().solve(rhs);
    const Eigen::VectorXd model = mean + basis * result.coefficients;
    result.reconstructed = Eigen::Map<const Eigen::Matrix3Xd>(model.data(), 3, face.cols());
    result.deformed = face;
    for (Eigen::Index i = 0; i < region.all.size(); ++i) {
        const auto k = static_cast<Eigen::Index>(region.all(i));
        result.deformed.col(k) = result.reconstructed.col(k);
    }
    for (Eigen::Index j = 0; j < fixedCount; ++j) {
        const auto k = static_cast<Eigen::Index>(region.fixed(j));
        const double w = region.weights(0, j);
        result.deformed.col(k) = w * result.reconstructed.col(k) + (1.0 - w) * face.col(k);
    }
    return result;
}

/// The six shapes of a head, 18 by #V: shape s in rows 3s .. 3s + 2.
/// head: 3 by #V; basis: the full 3N by K basis as read from its file
inline Eigen::MatrixXd blendshapes(const Eigen::Matrix3Xd& head, const BackendData& data,
                                   const Eigen::MatrixXd& basis) {
    const Eigen::MatrixXd& faceList = data.files[kFaceListFile];
    const Transform34& transform = data.transforms[kFaceFrameTransform];
    const Eigen::Matrix3Xd face = faceInModelFrame(head, faceList, transform);
    const Eigen::Matrix3d inverse = transform.leftCols<3>().inverse();
    Eigen::MatrixXd shapes(3 * kRegionCount + 3, head.cols());
    shapes.topRows<3>() = head;
    for (int r = 0; r < kRegionCount; ++r) {
        const RegionResult result =
            deformRegion(basis, data.mean(), data.sigma(), face, data.regions[r]);
        const Eigen::Matrix3Xd back = inverse * (result.deformed.colwise() - transform.col(3));
        Eigen::Matrix3Xd shape = head;
        for (Eigen::Index i = 0; i < faceList.size(); ++i)
            shape.col(static_cast<Eigen::Index>(faceList(i))) = back.col(i);
        shapes.middleRows<3>(3 * r + 3) = shape;
    }
    return shapes;
}

}  // namespace kestrel::meridian::blendshape::literal
