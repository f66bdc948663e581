// The real provider: a public-domain portrait and the labelled photographs
// (when ../shared is there). The demo capture through the library as a host
// loads it is the Python suite's and the install check's.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "demo/rgbd/demo_capture.h"
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
    for (const auto& [coordinate, chain] : {std::pair{0, std::vector<int>{0, 51, 54, 61, 64, 32}},
                                            std::pair{0, std::vector<int>{84, 90}},
                                            std::pair{1, std::vector<int>{35, 59, 74, 87, 16}}})
        for (size_t k = 1; k < chain.size(); ++k)
            EXPECT_LT(block.points[2 * chain[k - 1] + coordinate],
                      block.points[2 * chain[k] + coordinate])
                << chain[k - 1] << " " << chain[k];
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

}  // namespace
