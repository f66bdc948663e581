// The whole chain with the real provider: a public-domain portrait, the
// labelled photographs (when ../shared is there), and the demo capture.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "demo/rgbd/demo_capture.h"
#include "fixtures.h"
#include "meridian/meridian.h"
#include "pose_evaluation.h"
#include "rgbd/frame_selection.h"

namespace {

using namespace kestrel::meridian;

std::unique_ptr<LandmarkModel> realModel() {
    std::string error;
    auto model = LandmarkModel::load("", MERIDIAN_PROVIDER_PATH, error);
    EXPECT_NE(model, nullptr) << error;
    return model;
}

TEST(RgbdRealProvider, FindsTheFaceOfThePortraitInTheLayout) {
    const cv::Mat photo = cv::imread(meridian::demo::demoCapturePhotoPath(), cv::IMREAD_COLOR);
    if (photo.empty()) GTEST_SKIP() << "no " << meridian::demo::demoCapturePhotoPath();
    const auto model = realModel();
    ASSERT_NE(model, nullptr);
    CvFaceResult block;
    model->provider().faceLandmarks(photo.data, photo.rows, photo.cols, 3, block);
    ASSERT_EQ(block.face_count, 1);
    ASSERT_EQ(block.point_count, CV_FACE_POINT_COUNT);
    EXPECT_GT(block.score, 0.0f);
    auto x = [&](int i) { return block.points[2 * i]; };
    auto y = [&](int i) { return block.points[2 * i + 1]; };
    // Left to right: contour ends, eye corners, mouth corners; top to
    // bottom: brows, pupils, nose tip, lips, chin.
    EXPECT_LT(x(0), x(51));
    EXPECT_LT(x(51), x(54));
    EXPECT_LT(x(54), x(61));
    EXPECT_LT(x(61), x(64));
    EXPECT_LT(x(64), x(32));
    EXPECT_LT(x(84), x(90));
    EXPECT_LT(y(35), y(59));
    EXPECT_LT(y(59), y(74));
    EXPECT_LT(y(74), y(87));
    EXPECT_LT(y(87), y(16));
    // Each pupil inside its eye's corners; lid middles above and below it.
    for (int eye : {0, 1}) {
        const int base = 51 + 10 * eye;
        EXPECT_GT(x(base + 8), std::min(x(base), x(base + 3)));
        EXPECT_LT(x(base + 8), std::max(x(base), x(base + 3)));
        EXPECT_LT(y(base + 6), y(base + 8));
        EXPECT_GT(y(base + 7), y(base + 8));
    }
    const auto analysis = analyseFrame(*model, photo.data, photo.rows, photo.cols);
    ASSERT_TRUE(analysis.found);
    EXPECT_LT(std::fabs(analysis.angles.yaw), 5.0f);  // a frontal portrait
    EXPECT_LT(std::fabs(analysis.angles.pitch), 8.0f);
}

TEST(RgbdRealProvider, HeadAnglesOfLabelledPhotosMeetTheirTargets) {
    const std::string dir = std::string(MERIDIAN_SHARED_DIR) + "/realdata/head-pose";
    if (!std::filesystem::exists(dir + "/labels.csv"))
        GTEST_SKIP() << "labelled photos not available (" << dir << ")";
    const auto model = realModel();
    ASSERT_NE(model, nullptr);
    // Twice their size, so the faces pass the selection's size check.
    const auto results = meridian::rgbd_eval::evaluatePhotos(*model, dir, 2.0);
    const auto s = meridian::rgbd_eval::summarise(results);
    EXPECT_EQ(s.photos, 27);
    EXPECT_GE(s.found, 25);
    EXPECT_LE(s.yawMeanAbsError, 3.0);
    EXPECT_LE(s.pitchMeanAbsError, 5.0);
    for (const auto& r : results) {
        if (r.found) {
            EXPECT_GE(r.faceSize, 230.0f) << r.image;
        }
    }
}

TEST(RgbdRealProvider, DemoCaptureGivesItsFourFrames) {
    if (!std::filesystem::exists(meridian::demo::demoCapturePhotoPath()))
        GTEST_SKIP() << "no " << meridian::demo::demoCapturePhotoPath();
    meridian::testing::TempDir capture;
    std::string error;
    ASSERT_TRUE(meridian::demo::writeDemoCapture(capture.str(), error)) << error;
    // Through the library as a host loads it: the provider next to it.
    ASSERT_EQ(AI_system_init_Choose4RGBD(""), 1);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(debug_test_RGBD_choose4(capture.str().c_str()), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "final: 1\n");
    int ids[4] = {-1, -1, -1, -1};
    EXPECT_EQ(AI_Choose4RGBD_get_final_4_rgbd(&ids[0], &ids[1], &ids[2], &ids[3]), 1);
    const auto expected = meridian::demo::demoCaptureExpectedChoice();
    EXPECT_EQ(std::vector<int>(ids, ids + 4),
              (std::vector<int>{expected.front, expected.yawNegative, expected.yawPositive,
                                expected.up}));
    AI_Choose4RGBD_clear();
    AI_system_over();
}

}  // namespace
