// Geometry of the eye engines against known answers: spheres, rigid and
// similarity fits, rotations between directions, and the angle form the
// eyeball fit reports.
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>
#include <Eigen/Geometry>

#include "eyes/eye_geometry.h"
#include "eyes/eyeball_fit_state.h"

namespace {

namespace km = kestrel::meridian;
using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kPi = 3.14159265358979323846;

Eigen::Matrix3Xd randomPoints(int count, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> coordinate(-10.0, 10.0);
    Eigen::Matrix3Xd points(3, count);
    for (double& v : points.reshaped()) v = coordinate(rng);
    return points;
}

Matrix3d zyx(double z, double y, double x) {
    return (Eigen::AngleAxisd(z, Vector3d::UnitZ()) * Eigen::AngleAxisd(y, Vector3d::UnitY()) *
            Eigen::AngleAxisd(x, Vector3d::UnitX()))
        .toRotationMatrix();
}

TEST(EyeGeometry, SphereFitRecoversCentreAndRadius) {
    const struct {
        Vector3d centre;
        double radius;
    } spheres[] = {{{0, 0, 0}, 5.0}, {{-11.7, -9.1, -7.6}, 5.2}, {{120, -40, 3}, 0.5}};
    for (const auto& s : spheres) {
        Eigen::Matrix3Xd points = randomPoints(40, 1);
        points = (s.radius * points.colwise().normalized()).colwise() + s.centre;
        std::vector<int> ids(40);
        for (int k = 0; k < 40; ++k) ids[k] = k;
        const km::Sphere fitted = km::fitSphere(points, ids);
        EXPECT_NEAR(fitted.radius, s.radius, 1e-8 * (1 + s.centre.norm()));
        EXPECT_LT((fitted.centre - s.centre).norm(), 1e-8 * (1 + s.centre.norm()));
    }
}

TEST(EyeGeometry, RigidFitRecoversMotionAndKeepsAReflection) {
    const Eigen::Matrix3Xd source = randomPoints(12, 2);
    const Matrix3d rotation = Eigen::AngleAxisd(0.7, Vector3d(1, -2, 0.5).normalized()).matrix();
    const Vector3d offset(3, -4, 5);
    const km::RigidMotion motion = km::fitRigid(source, (rotation * source).colwise() + offset);
    EXPECT_LT((motion.rotation - rotation).norm(), 1e-12);
    EXPECT_LT((motion.translation - offset).norm(), 1e-12);

    // A mirror image: the plain fit returns the reflection itself, the
    // aligners' fit the closest proper rotation.
    const Matrix3d mirror = Vector3d(-1, 1, 1).asDiagonal() * rotation;
    const Eigen::Matrix3Xd mirrored = mirror * source;
    const km::RigidMotion plain = km::fitRigid(source, mirrored);
    EXPECT_LT((plain.rotation - mirror).norm(), 1e-12);
    EXPECT_NEAR(plain.rotation.determinant(), -1.0, 1e-12);
    const km::SimilarityTransform proper = km::fitSimilarity(source, mirrored, {}, true, false);
    EXPECT_NEAR(proper.rotation.determinant(), 1.0, 1e-12);
    EXPECT_LT((proper.rotation * proper.rotation.transpose() - Matrix3d::Identity()).norm(), 1e-12);
}

TEST(EyeGeometry, SimilarityScaleIsClampedAndWeightsSelectPoints) {
    const Eigen::Matrix3Xd source = randomPoints(10, 3);
    const Vector3d offset(1, 2, 3);
    const struct {
        double scale, expected;
    } cases[] = {{0.5, 0.9}, {0.95, 0.95}, {1.08, 1.08}, {3.0, 1.1}};
    for (const auto& c : cases) {
        const Eigen::Matrix3Xd target = (c.scale * source).colwise() + offset;
        const km::SimilarityTransform fit = km::fitSimilarity(source, target, {}, false, true);
        EXPECT_NEAR(fit.scale, c.expected, 1e-12) << c.scale;
        // The clamped scale still maps the centroid onto the centroid.
        EXPECT_LT((fit(source.rowwise().mean()) - target.rowwise().mean()).norm(), 1e-12);
        EXPECT_EQ(km::fitSimilarity(source, target, {}, false, false).scale, 1.0);
    }

    // One point off the motion: weighted out, the motion is exact; with
    // equal weights (no or mismatched weights) it is not.
    const Matrix3d rotation = zyx(0.3, -0.2, 0.1);
    Eigen::Matrix3Xd target = (rotation * source).colwise() + offset;
    target.col(0) += Vector3d(4, 0, 0);
    std::vector<double> weights(10, 2.0);
    weights[0] = 0.0;
    EXPECT_LT((km::fitSimilarity(source, target, weights, true, false).rotation - rotation).norm(),
              1e-12);
    for (const std::vector<double>& equal : {std::vector<double>{}, std::vector<double>(3, 1.0)})
        EXPECT_GT(
            (km::fitSimilarity(source, target, equal, true, false).rotation - rotation).norm(),
            1e-3);
    EXPECT_TRUE(km::fitSimilarity(Eigen::Matrix3Xd(3, 0), Eigen::Matrix3Xd(3, 0), {}, true, true)
                    .rotation.isIdentity());
}

TEST(EyeGeometry, RotationBetweenTurnsOneDirectionIntoTheOther) {
    const struct {
        Vector3d a, b;
    } cases[] = {{{0, -5.3, 0}, {-0.35, -4.99, -0.13}},
                 {{1, 0, 0}, {0, 0, 7}},
                 {{1e-3, 2e-3, -1e-3}, {-400, 10, 3}}};
    for (const auto& c : cases) {
        const Matrix3d r = km::rotationBetween(c.a, c.b);
        EXPECT_LT((r * c.a.normalized() - c.b.normalized()).norm(), 1e-12);
        EXPECT_NEAR(r.determinant(), 1.0, 1e-12);
    }
    // Parallel and opposite directions have no axis.
    EXPECT_TRUE(km::rotationBetween({0, 1, 0}, {0, 3, 0}).array().isNaN().all());
    EXPECT_TRUE(km::rotationBetween({0, 1, 0}, {0, -3, 0}).array().isNaN().all());
}

// The reported angles follow Eigen's canonical Euler form (first angle in
// [0, pi]): a rotation whose first angle would be negative is reported with
// pi added to it, pi minus the second and the third shifted by pi.
TEST(EyeGeometry, ReportedAnglesUseTheCanonicalFormAndDegreesOf314) {
    const double toDegrees = 180.0 / 3.14;
    const struct {
        Vector3d zyxAngles;  // the rotation Rz * Ry * Rx
        Vector3d stored;     // expected radians
    } cases[] = {
        {{0.3, 0.2, 0.1}, {0.3, 0.2, 0.1}},
        {{1e-3, 0.2, 0.1}, {1e-3, 0.2, 0.1}},
        {{-1e-3, 0.2, 0.1}, {kPi - 1e-3, kPi - 0.2, 0.1 - kPi}},
        {{kPi - 1e-3, 0.2, 0.1}, {kPi - 1e-3, 0.2, 0.1}},
        {{-kPi + 1e-3, 0.2, -0.1}, {1e-3, kPi - 0.2, kPi - 0.1}},
        {{kPi / 2, 0.0, 0.0}, {kPi / 2, 0.0, 0.0}},
    };
    for (const auto& c : cases) {
        km::EyePose pose;
        km::EyeballFitState::storePose(pose, zyx(c.zyxAngles[0], c.zyxAngles[1], c.zyxAngles[2]),
                                       Vector3d(1, 2, 3), 1.5);
        EXPECT_LT((pose.angles - c.stored).norm(), 1e-9) << c.zyxAngles.transpose();
        const km::EyeballReport report = km::EyeballFitState::reportPoses(pose, pose);
        EXPECT_NEAR(report.eye1Angles[0], c.stored[0] * toDegrees, 1e-7);
        EXPECT_NEAR(report.eye1Angles[1], -c.stored[1] * toDegrees, 1e-7);
        EXPECT_NEAR(report.eye1Angles[2], c.stored[2] * toDegrees, 1e-7);
    }
    km::EyePose quarter;
    km::EyeballFitState::storePose(quarter, zyx(kPi / 2, 0, 0), Vector3d::Zero(), 1);
    EXPECT_NEAR(km::EyeballFitState::reportPoses(quarter, quarter).eye0Angles[0], 90.0456, 1e-4);

    // Infinities become 0, NaN stays; the second angle is cleaned before it
    // is negated, so an infinite one comes out as -0.0.
    const double inf = std::numeric_limits<double>::infinity();
    km::EyePose odd;
    odd.angles = Vector3d(inf, inf, 0.5);
    odd.position = Vector3d(-inf, std::nan(""), 2);
    odd.scale = inf;
    const km::EyeballReport report = km::EyeballFitState::reportPoses(odd, quarter);
    EXPECT_EQ(report.eye0Angles[0], 0.0);
    EXPECT_EQ(report.eye0Angles[1], 0.0);
    EXPECT_TRUE(std::signbit(report.eye0Angles[1]));
    EXPECT_EQ(report.eye0Position[0], 0.0);
    EXPECT_TRUE(std::isnan(report.eye0Position[1]));
    EXPECT_EQ(report.scale, 0.0);
}

}  // namespace
