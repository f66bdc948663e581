// The plain eyeball task on the demo model set: alignment, scale, the
// placed eyes against the known socket spheres, and the failure cases of
// the exports.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <Eigen/Geometry>

#include "api/gbk_texts.h"
#include "debug/pose_debug.h"
#include "demo/demo_model.h"
#include "demo/eye_model.h"
#include "eyes/eye_geometry.h"
#include "eyes/eyeball_fit_state.h"
#include "eyes_fixtures.h"
#include "io/mesh_readers.h"
#include "meridian/meridian.h"

namespace {

namespace demo = meridian::demo;
namespace km = kestrel::meridian;
using Eigen::Vector3d;
using meridian::testing::demoModel;
using meridian::testing::planar;

struct EyeOutputs {
    int status = -1;
    double angles[2][3];
    double positions[2][3];
    double scale;
};

EyeOutputs addEyeball(const Eigen::Matrix3Xd& head, unsigned templateIndex) {
    EyeOutputs out;
    for (double* block : {&out.angles[0][0], &out.positions[0][0]})
        std::fill(block, block + 6, 123.0);
    out.scale = 123.0;
    const std::vector<float> values = planar(head);
    out.status = AI_add_eyeball(values.data(), templateIndex, out.angles[0], out.angles[1],
                                out.positions[0], out.positions[1], &out.scale);
    return out;
}

class EyeballFit : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(AI_system_init_eyeball(demoModel().str().c_str()), 1); }
    void TearDown() override { AI_system_over(); }
};

TEST_F(EyeballFit, DemoHeadIsAlignedByTheIdentityAndEyesFillItsSockets) {
    EXPECT_EQ(km::countPlyHeaderLines(demoModel().file("eyeball/new_eye.ply")), 9);
    km::EyeballFitState state;
    km::Error error;
    ASSERT_TRUE(state.load(demoModel().str(), error)) << error.message;
    // The template eyeball: a sphere about the origin looking toward -y.
    const km::EyeFitRecord& eye = state.record(0);
    EXPECT_NEAR(eye.refRadius, demo::kEyeballRadius, 1e-6);
    EXPECT_LT(eye.refCentre.norm(), 1e-6);
    EXPECT_LT((eye.refPoint.normalized() - Vector3d(0, -1, 0)).norm(), 1e-12);

    const Eigen::Matrix3Xd& head = demo::demoHead().vertices;
    ASSERT_EQ(state.landmarks().size(), 25u);
    const km::RigidMotion alignment =
        km::fitRigid(head(Eigen::all, state.landmarks()), state.landmarkTemplate(0));
    EXPECT_LT((alignment.rotation - Eigen::Matrix3d::Identity()).norm(), 1e-12);
    EXPECT_LT(alignment.translation.norm(), 1e-12);

    // Each eye is the turn of the template's front toward its gaze vertex,
    // rolled by 25 degrees (converted with 3.14) about an axis in the turn,
    // and sits at its socket's centre.
    state.fit(head, 0);
    const EyeOutputs out = addEyeball(head, 0);
    ASSERT_EQ(out.status, 1);
    EXPECT_NEAR(out.scale, 1.0, 1e-6);
    for (int eye = 0; eye < 2; ++eye) {
        const Vector3d gaze = head.col(eye == 0 ? demo::kGazeFirstEye : demo::kGazeSecondEye);
        const Vector3d centre = demo::socketSphere(eye).centre;
        const Eigen::Matrix3d turn = km::rotationBetween(state.record(eye).refPoint, gaze - centre);
        const km::EyePose& pose = eye == 0 ? state.pose0() : state.pose1();
        EXPECT_NEAR(Eigen::AngleAxisd(turn.transpose() * pose.rotation).angle(),
                    25.0 * 3.14 / 180.0, 1e-6);
        EXPECT_LT((Eigen::Map<const Vector3d>(out.positions[eye]) - centre).norm(), 1e-4);
    }
}

TEST_F(EyeballFit, SampleEyesSitInTheSocketsAndLookForwardForEveryTemplate) {
    const demo::SampleMotion& m = demo::sampleMotion();
    const Vector3d forward = m.rotation * Vector3d(0, -1, 0);
    const double firstScale = addEyeball(demo::sampleHead(), 0).scale;
    EXPECT_NEAR(firstScale, m.scale, 1e-5);
    for (unsigned t = 0; t < 3; ++t) {
        const EyeOutputs out = addEyeball(demo::sampleHead(), t);
        ASSERT_EQ(out.status, 1);
        // Rigid alignment keeps sizes: the same scale for every template.
        EXPECT_NEAR(out.scale, firstScale, 1e-9) << t;
        for (int eye = 0; eye < 2; ++eye) {
            const Vector3d position = Eigen::Map<const Vector3d>(out.positions[eye]);
            const Vector3d socket = m.scale * (m.rotation * demo::socketSphere(eye).centre);
            EXPECT_LT((position - socket - m.translation).norm(), 0.1) << t << eye;
            // The reported angles rebuild the rotation; the pupil (-y in the
            // template) then points the way the face looks, give or take the
            // offset of the gaze vertex from the socket axis.
            const Vector3d pupil = km::reportedAnglesRotation(out.angles[eye]) * Vector3d(0, -1, 0);
            EXPECT_GT(pupil.dot(forward), std::cos(6.0 * 3.14159265 / 180.0)) << t << eye;
        }
    }
}

TEST_F(EyeballFit, BothEyesGetTheSmallerScale) {
    const Eigen::Matrix3Xd& demoVertices = demo::demoHead().vertices;
    for (const auto& [eye, factor] : {std::pair{0, 1.1}, std::pair{1, 0.9}}) {
        // One socket ring scaled about its sphere's centre.
        Eigen::Matrix3Xd head = demoVertices;
        const Vector3d centre = demo::socketSphere(eye).centre;
        for (int v : eye == 0 ? demo::kRingB : demo::kRingA)
            head.col(v) = centre + factor * (head.col(v) - centre);
        const EyeOutputs out = addEyeball(head, 0);
        EXPECT_NEAR(out.scale, std::min(1.0, factor), 1e-5) << eye;
    }
}

TEST(EyeballFitFailures, NothingIsWrittenWithoutAUsableStateOrTemplate) {
    meridian::testing::TempDir empty;
    const Eigen::Matrix3Xd& head = demo::demoHead().vertices;
    AI_system_over();
    EXPECT_EQ(addEyeball(head, 0).status, 0);  // no state

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_eyeball(empty.str().c_str()), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              empty.str() + "/eyeball/new_eye.ply" + km::kGbkPathMissing + "\n");
    EXPECT_EQ(addEyeball(head, 0).status, 0);  // failed init

    // An eyeball too small for the sphere list.
    empty.write("eyeball/new_eye.ply",
                "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\n"
                "property float z\nelement face 0\nproperty list uchar int vertex_indices\n"
                "end_header\n0 0 0\n");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_eyeball(empty.str().c_str()), 0);
    EXPECT_NE(::testing::internal::GetCapturedStdout().find("1 vertices"), std::string::npos);

    ASSERT_EQ(AI_system_init_eyeball(demoModel().str().c_str()), 1);
    const EyeOutputs bad = addEyeball(head, 3);
    EXPECT_EQ(bad.status, 0);
    EXPECT_EQ(bad.angles[0][0], 123.0);
    EXPECT_EQ(bad.scale, 123.0);
    const std::vector<float> values = planar(head);
    double a[3], b[3], c[3], d[3], s;
    EXPECT_EQ(AI_add_eyeball(nullptr, 0, a, b, c, d, &s), 0);
    EXPECT_EQ(AI_add_eyeball(values.data(), 0, a, b, c, d, nullptr), 0);
    EXPECT_EQ(addEyeball(head, 2).status, 1);

    AI_system_over();
    EXPECT_EQ(addEyeball(head, 0).status, 0);
}

}  // namespace
