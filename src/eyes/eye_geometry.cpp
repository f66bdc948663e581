#include "eyes/eye_geometry.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Dense>
#include <Eigen/Geometry>

namespace kestrel::meridian {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// U and V of a 3 by 3 matrix. The SVD leaves them unset for non-finite
// input, so such input is reported instead (the callers then give NaN).
bool decompose(const Eigen::Matrix3d& m, Eigen::Matrix3d& u, Eigen::Matrix3d& v) {
    if (!m.allFinite()) return false;
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(m, Eigen::ComputeFullU | Eigen::ComputeFullV);
    u = svd.matrixU();
    v = svd.matrixV();
    return true;
}

}  // namespace

Sphere fitSphere(const Eigen::Ref<const Eigen::Matrix3Xd>& points, const std::vector<int>& ids) {
    const Eigen::Index n = static_cast<Eigen::Index>(ids.size());
    Eigen::MatrixX4d a(n, 4);
    Eigen::VectorXd b(n);
    for (Eigen::Index k = 0; k < n; ++k) {
        const Eigen::Vector3d p = points.col(ids[k]);
        a.row(k) << p.x(), p.y(), p.z(), -1.0;
        b[k] = p.squaredNorm();
    }
    const Eigen::Matrix4d normal = a.transpose() * a;
    const Eigen::Vector4d s = normal.ldlt().solve(a.transpose() * b);
    Sphere sphere;
    sphere.centre = s.head<3>() / 2.0;
    sphere.radius = std::sqrt(s.head<3>().squaredNorm() / 4.0 - s[3]);
    return sphere;
}

RigidMotion fitRigid(const Eigen::Ref<const Eigen::Matrix3Xd>& source,
                     const Eigen::Ref<const Eigen::Matrix3Xd>& target) {
    const Eigen::Vector3d sourceCentroid = source.rowwise().mean();
    const Eigen::Vector3d targetCentroid = target.rowwise().mean();
    const Eigen::Matrix3d covariance =
        (source.colwise() - sourceCentroid) * (target.colwise() - targetCentroid).transpose();
    RigidMotion motion;
    Eigen::Matrix3d u, v;
    if (decompose(covariance, u, v))
        motion.rotation = v * u.transpose();
    else
        motion.rotation.setConstant(kNaN);
    motion.translation = (target - motion.rotation * source).rowwise().mean();
    return motion;
}

Eigen::Vector3d normalisedDirection(const Eigen::Vector3d& v) {
    const double largest = v.cwiseAbs().maxCoeff();
    if (largest == 0.0) return v;
    const Eigen::Vector3d scaled = v / largest;
    return scaled / scaled.norm();
}

Eigen::Matrix3d rotationBetween(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
    const Eigen::Vector3d from = normalisedDirection(a);
    const Eigen::Vector3d to = normalisedDirection(b);
    const Eigen::Vector3d axis = from.cross(to);
    const double cosine = from.dot(to) / (from.norm() * to.norm());
    const Eigen::Vector3d xyz = axis / axis.norm() * std::sqrt((1.0 - cosine) / 2.0);
    const Eigen::Quaterniond q(std::sqrt((1.0 + cosine) / 2.0), xyz.x(), xyz.y(), xyz.z());
    return q.toRotationMatrix();
}

Eigen::Matrix3d rotationZYX(double z, double y, double x) {
    const Eigen::Quaterniond q =
        Eigen::Quaterniond(Eigen::AngleAxisd(z, Eigen::Vector3d::UnitZ())) *
        Eigen::Quaterniond(Eigen::AngleAxisd(y, Eigen::Vector3d::UnitY())) *
        Eigen::Quaterniond(Eigen::AngleAxisd(x, Eigen::Vector3d::UnitX()));
    return q.toRotationMatrix();
}

SimilarityTransform fitSimilarity(const Eigen::Ref<const Eigen::Matrix3Xd>& source,
                                  const Eigen::Ref<const Eigen::Matrix3Xd>& target,
                                  const std::vector<double>& weights, bool fitRotation,
                                  bool fitScale) {
    SimilarityTransform transform;
    const Eigen::Index n = source.cols();
    if (n == 0) return transform;

    Eigen::VectorXd w = Eigen::VectorXd::Ones(n);
    if (static_cast<Eigen::Index>(weights.size()) == n)
        w = Eigen::Map<const Eigen::VectorXd>(weights.data(), n);
    const double total = w.sum();
    const Eigen::Vector3d sourceCentroid = source * w / total;
    const Eigen::Vector3d targetCentroid = target * w / total;
    const Eigen::Matrix3Xd sourceCentred = source.colwise() - sourceCentroid;
    const Eigen::Matrix3Xd targetCentred = target.colwise() - targetCentroid;

    if (fitRotation) {
        const Eigen::Matrix3d covariance =
            sourceCentred * w.asDiagonal() * targetCentred.transpose();
        Eigen::Matrix3d u, v;
        if (decompose(covariance, u, v)) {
            // The closest proper rotation: flip the axis of the smallest
            // singular value when the SVD gives a reflection.
            Eigen::Vector3d flip(1.0, 1.0, (v * u.transpose()).determinant() < 0.0 ? -1.0 : 1.0);
            transform.rotation = v * flip.asDiagonal() * u.transpose();
        } else {
            transform.rotation.setConstant(kNaN);
        }
    }
    if (fitScale) {
        const double ratio = targetCentred.cwiseAbs().sum() / sourceCentred.cwiseAbs().sum();
        transform.unclampedScale = ratio;
        transform.scale = ratio < kMinSimilarityScale   ? kMinSimilarityScale
                          : ratio > kMaxSimilarityScale ? kMaxSimilarityScale
                                                        : ratio;
    }
    transform.translation =
        targetCentroid - transform.scale * (transform.rotation * sourceCentroid);
    return transform;
}

}  // namespace kestrel::meridian
