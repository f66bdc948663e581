// Head angles: the affine fit recovers known rotations of the mean face,
// with the angle conventions (180 in float, 3.14 for pi, the pitch wrap);
// and the mean face itself meets its fixed values.
#include <cmath>

#include <gtest/gtest.h>

#include "rgbd/head_pose.h"
#include "rgbd/mean_face.h"
#include "rgbd_fixtures.h"

namespace {

using namespace kestrel::meridian;
using meridian::testing::projectedFace;

// pi * 180 / 3.14 - 180: how far a level face's pitch lands from 0.
constexpr double kWrapOffset = 3.14159265358979 * 180.0 / 3.14 - 180.0;

TEST(RgbdPose, AffineFitRecoversTurnAndTiltOfTheMeanFace) {
    const MeanFacePseudoInverse& pinv = meanFacePseudoInverse();
    struct Case {
        double yaw, pitch;  // radians
    };
    for (const Case c :
         {Case{0.0, 0.2}, Case{0.3, 0.1}, Case{-0.45, 0.05}, Case{0.2, -0.15}, Case{-0.1, -0.3}}) {
        for (double scale : {0.5, 3.0}) {
            const auto angles =
                affinePoseAngles(projectedFace(c.yaw, c.pitch, scale, 300, 200), pinv);
            // R's rows are the camera's x and y axes: no roll, second angle
            // minus the turn, third the tilt measured from the viewing
            // direction (pi away from level, as image y points down).
            EXPECT_NEAR(angles[0], 0.0, 1e-4);
            EXPECT_NEAR(angles[1], -c.yaw, 1e-4);
            const double expectedThird = c.pitch > 0 ? c.pitch - M_PI : M_PI + c.pitch;
            EXPECT_NEAR(angles[2], expectedThird, 1e-4) << c.yaw << " " << c.pitch;

            const YawPitch degrees = toYawPitch(angles);
            EXPECT_NEAR(degrees.yaw, c.yaw * 180.0 / 3.14, 2e-3);
            const double wrap = c.pitch > 0 ? -kWrapOffset : kWrapOffset;
            EXPECT_NEAR(degrees.pitch, c.pitch * 180.0 / 3.14 + wrap, 2e-3);
        }
    }
}

TEST(RgbdPose, DegreesUseFloatProductAndDoubleDivisionBy314) {
    // second = -0.5: yaw = float(float(0.5 * 180) / 3.14); third = +-3.0:
    // both sides of the wrap.
    const YawPitch up = toYawPitch({0.0f, -0.5f, -3.0f});
    EXPECT_EQ(up.yaw, static_cast<float>(90.0f / 3.14));
    EXPECT_EQ(up.pitch, static_cast<float>(-3.0f * 180.0f / 3.14) + 360.0f - 180.0f);
    const YawPitch down = toYawPitch({0.0f, 0.25f, 3.0f});
    EXPECT_EQ(down.yaw, static_cast<float>(-45.0f / 3.14));
    EXPECT_EQ(down.pitch, static_cast<float>(3.0f * 180.0f / 3.14) - 180.0f);
}

TEST(RgbdPose, MeanFaceHasItsFixedColumnsAndBounds) {
    const auto& c = meanFaceConstants();
    auto at = [&](int row, int column) { return c[102 * row + column]; };
    const double fixed[4][4] = {{0, -68.1757, 53.3108, -23.8053},
                                {1, -67.8518, 42.6718, -22.8051},
                                {2, -68.1146, 33.6623, -27.0445},
                                {101, 9.8368, -21.1083, 49.7104}};
    for (const auto& f : fixed)
        for (int r = 0; r < 3; ++r) EXPECT_EQ(at(r, int(f[0])), f[r + 1]) << f[0] << " " << r;
    const double low[3] = {-68.1757, -56.5257, -27.0445}, high[3] = {67.3734, 68.1411, 62.8978};
    for (int r = 0; r < 3; ++r) {
        double lo = 1e9, hi = -1e9;
        for (int j = 0; j < 102; ++j) lo = std::min(lo, at(r, j)), hi = std::max(hi, at(r, j));
        EXPECT_EQ(lo, low[r]);
        EXPECT_EQ(hi, high[r]);
    }
    // A face, not a cloud: contour left to right, eyes above the mouth,
    // nose tip in front.
    EXPECT_LT(at(0, 0), at(0, 32));
    EXPECT_GT(at(1, 52), at(1, 95));
    EXPECT_EQ(at(2, 70), high[2]);  // kept column 70 = point 74, the nose tip
}

}  // namespace
