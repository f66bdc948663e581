// Geometry of the eye engines: sphere and rigid fits, the rotation between
// two directions, and the similarity fit the aligners share.
#pragma once

#include <vector>

#include <Eigen/Core>

namespace kestrel::meridian {

struct Sphere {
    double radius = 0.0;
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();
};

/// Least-squares sphere through the listed columns of `points`: one row
/// (x, y, z, -1) with right-hand side x^2 + y^2 + z^2 per point, solved
/// through the 4 by 4 normal equations. A negative radicand gives a NaN
/// radius.
/// points: 3 by #P; ids: columns of `points` to use
Sphere fitSphere(const Eigen::Ref<const Eigen::Matrix3Xd>& points, const std::vector<int>& ids);

/// rotation * p + translation.
struct RigidMotion {
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    Eigen::Vector3d translation = Eigen::Vector3d::Zero();
};

/// Least-squares rotation and translation taking `source` onto `target`
/// (both 3 by #K, column k matched to column k). The rotation comes straight
/// from the SVD of the cross-covariance: when the best orthogonal map is a
/// reflection, the reflection is returned (determinant -1). Non-finite input
/// gives a NaN rotation.
RigidMotion fitRigid(const Eigen::Ref<const Eigen::Matrix3Xd>& source,
                     const Eigen::Ref<const Eigen::Matrix3Xd>& target);

/// `v` divided by its largest absolute component, then by its length; a
/// zero vector is returned as it is.
Eigen::Vector3d normalisedDirection(const Eigen::Vector3d& v);

/// The rotation that turns the direction of `a` into the direction of `b`,
/// built from the half-angle quaternion about a x b. Parallel (or opposite)
/// directions have no axis and give NaN entries.
Eigen::Matrix3d rotationBetween(const Eigen::Vector3d& a, const Eigen::Vector3d& b);

/// AngleAxis(z, Z) * AngleAxis(y, Y) * AngleAxis(x, X), angles in radians,
/// composed as unit quaternions (half-angle cosines and sines).
Eigen::Matrix3d rotationZYX(double z, double y, double x);

/// scale * rotation * p + translation.
struct SimilarityTransform {
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    double scale = 1.0;
    /// The spread ratio before the clamp (1 when the scale was not fitted).
    double unclampedScale = 1.0;
    Eigen::Vector3d translation = Eigen::Vector3d::Zero();

    Eigen::Vector3d operator()(const Eigen::Vector3d& p) const {
        return scale * (rotation * p) + translation;
    }
};

/// Scales are clamped to this range.
inline constexpr double kMinSimilarityScale = 0.9;
inline constexpr double kMaxSimilarityScale = 1.1;

/// Fits `source` onto `target` (both 3 by #K). Both sets are centred on
/// their weighted centroids (`weights` has #K entries; with any other
/// count, e.g. none, all points weigh the same). With `fitRotation` the rotation is the proper
/// rotation closest to the weighted cross-covariance (a reflection from the SVD is turned into a
/// rotation), else the identity. With `fitScale` the scale is the target's spread over the
/// source's, each the sum of the absolute values of the centred coordinates, clamped to [0.9, 1.1];
/// else 1. Empty sets give the identity transform.
SimilarityTransform fitSimilarity(const Eigen::Ref<const Eigen::Matrix3Xd>& source,
                                  const Eigen::Ref<const Eigen::Matrix3Xd>& target,
                                  const std::vector<double>& weights, bool fitRotation,
                                  bool fitScale);

}  // namespace kestrel::meridian
