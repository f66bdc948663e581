// The frame selection's rules, driven through the provider double: landmark
// extraction, the face-size and eye checks, intake codes and buckets, the
// sharpness score and the final choice.
#include <map>
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "rgbd/face_points.h"
#include "rgbd/frame_selection.h"
#include "rgbd/sharpness.h"
#include "rgbd_fixtures.h"

namespace {

using namespace kestrel::meridian;
using meridian::testing::faceAt;
using meridian::testing::kFrameCols;
using meridian::testing::kFrameRows;
using meridian::testing::noiseFrame;
using meridian::testing::ProviderDouble;
using meridian::testing::withEyeClosed;

class RgbdSelection : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(provider_.handle, nullptr) << dlerror();
        provider_.reset();
        std::string error;
        model_ = LandmarkModel::load("model", MERIDIAN_DOUBLE_PROVIDER_PATH, error);
        ASSERT_NE(model_, nullptr) << error;
    }

    // Offers a frame whose landmarks are `points` (or no face when empty).
    int offer(int id, const std::vector<float>& points, int sharpness = 40, float* yawOut = nullptr,
              float* pitchOut = nullptr) {
        if (points.empty())
            provider_.nextNoFace();
        else
            provider_.next(points);
        const std::vector<unsigned char> image = noiseFrame(sharpness, unsigned(id));
        float yaw = 12345.0f, pitch = 12345.0f;
        const int code =
            selection_.intake(*model_, id, image.data(), kFrameRows, kFrameCols, yaw, pitch);
        if (yawOut) *yawOut = yaw;
        if (pitchOut) *pitchOut = pitch;
        return code;
    }

    std::vector<int> ids(Bucket b) const {
        std::vector<int> result;
        for (const StoredFrame& f : selection_.bucket(b)) result.push_back(f.frameId);
        return result;
    }

    ProviderDouble provider_{MERIDIAN_DOUBLE_PROVIDER_PATH};
    std::unique_ptr<LandmarkModel> model_;
    FrameSelection selection_;
};

TEST_F(RgbdSelection, ExtractionShiftsPointsAndStopsOutsideTheImage) {
    CvFaceResult block{};
    for (int i = 0; i < CV_FACE_POINT_COUNT; ++i) {
        block.points[2 * i] = float(i);
        block.points[2 * i + 1] = float(200 + i);
    }
    FaceLandmarks kept;
    ASSERT_TRUE(extractLandmarks(block, 400, 300, kept));
    // Column 59 is point 61 and column 67 point 71: the pupils are skipped.
    for (const auto& [column, point] :
         {std::pair{0, 0}, {58, 58}, {59, 61}, {66, 68}, {67, 71}, {101, 105}}) {
        EXPECT_EQ(kept(0, column), float(point) - 1.0f);
        EXPECT_EQ(kept(1, column), float(200 + point) - 2.0f);
    }
    struct Case {
        int point;
        float x, y;
        bool kept;
    };
    // x must lie in [0, 300) and y - 1 in [0, 400).
    for (const Case c :
         {Case{10, 299.9f, 5, true}, Case{10, 300, 5, false}, Case{10, -0.01f, 5, false},
          Case{10, 0, 1, true}, Case{10, 0, 0.99f, false}, Case{10, 5, 400.99f, true},
          Case{10, 5, 401, false}, Case{59, -50, -50, true}, Case{70, 900, 900, true},
          Case{105, 5, 401, false}}) {
        CvFaceResult moved = block;
        moved.points[2 * c.point] = c.x;
        moved.points[2 * c.point + 1] = c.y;
        EXPECT_EQ(extractLandmarks(moved, 400, 300, kept), c.kept)
            << c.point << " " << c.x << " " << c.y;
    }
}

TEST_F(RgbdSelection, EyeOpennessRatiosAgainstTheirThresholds) {
    // Eye A's corners 10 apart on a line, its three lid pairs each `a`
    // long; eye B likewise with `b`. Columns are 1-based as in the check.
    auto landmarks = [](float a, float b) {
        FaceLandmarks l = FaceLandmarks::Zero();
        auto put = [&](int column, float x, float y) {
            l(0, column - 1) = x;
            l(1, column - 1) = y;
        };
        const int eyes[2][8] = {{52, 55, 58, 59, 53, 57, 54, 56}, {60, 63, 66, 67, 61, 65, 62, 64}};
        for (int e = 0; e < 2; ++e) {
            const float x0 = 100.0f * e, open = e == 0 ? a : b;
            put(eyes[e][0], x0, 0);
            put(eyes[e][1], x0 + 10, 0);
            for (int pair = 0; pair < 3; ++pair) {
                put(eyes[e][2 + 2 * pair], x0 + 2.5f * (pair + 1), -open / 2);
                put(eyes[e][3 + 2 * pair], x0 + 2.5f * (pair + 1), open / 2);
            }
        }
        return l;
    };
    struct Case {
        float a, b;  // lid opening: ratio = 3 * opening / 10
        bool frontal;
        int expected;
    };
    for (const Case c :
         {Case{1.0f, 1.0f, true, 1}, Case{0.6f, 1.0f, true, -1}, Case{0.6f, 0.6f, true, -3},
          Case{1.0f, 1.0f, false, -3}, Case{2.0f, 1.0f, false, -1}, Case{1.0f, 2.0f, false, -1},
          Case{1.7f, 1.7f, false, 1}, Case{0.0f, 2.0f, false, -1}}) {
        EXPECT_EQ(eyeOpenness(landmarks(c.a, c.b), c.frontal), c.expected)
            << c.a << " " << c.b << " " << c.frontal;
    }
}

TEST_F(RgbdSelection, IntakeFillsBucketsInTheirOrder) {
    float yaw = 0, pitch = 0;
    struct Step {
        double yaw, pitch;
        int expected;
    };
    // Side frames wait for a frontal one; frontal ones stop once a side
    // frame is stored; up frames need all three and a pitch more than 3
    // above the first frontal frame's.
    const Step steps[] = {
        {-25, 0, kNoBucket},          {1, 0, kStoredFront},
        {0, 4, kStoredFront},         {3, 0, kNoBucket},
        {-25, 0, kStoredYawNegative}, {0.5, 0, kNoBucket},
        {25, 1, kStoredYawPositive},  {-31, 0, kNoBucket},
        {19, 0, kNoBucket},           {-21, 0, kStoredYawNegative},
        {0, 2.8, kNoBucket},          {4, 10, kStoredUp},
        {6, 10, kNoBucket},           {-1, 3.2, kStoredUp},
    };
    int id = 0;
    for (const Step& s : steps) {
        EXPECT_EQ(offer(id, faceAt(s.yaw, s.pitch), 40, &yaw, &pitch), s.expected)
            << "frame " << id << ": yaw " << s.yaw << " pitch " << s.pitch;
        EXPECT_NEAR(yaw, s.yaw, 0.01);
        EXPECT_NEAR(pitch, s.pitch, 0.1);
        ++id;
    }
    EXPECT_EQ(ids(Bucket::kFront), (std::vector<int>{1, 2}));
    EXPECT_EQ(ids(Bucket::kYawNegative), (std::vector<int>{4, 9}));
    EXPECT_EQ(ids(Bucket::kYawPositive), (std::vector<int>{6}));
    EXPECT_EQ(ids(Bucket::kUp), (std::vector<int>{11, 13}));
    // The first frontal frame's pitch (-0.09: a level face sits just below
    // the wrap) is the reference: 3.2 passes, 2.8 does not.
}

TEST_F(RgbdSelection, RejectedFramesAndWhatTheyWrite) {
    float yaw = 0, pitch = 0;
    EXPECT_EQ(offer(0, {}, 40, &yaw, &pitch), kNoLandmarks);
    EXPECT_EQ(yaw, kNoAngle);
    EXPECT_EQ(pitch, kNoAngle);

    std::vector<float> outside = faceAt(0, 0);
    outside[2 * 20] = float(kFrameCols);  // a contour point on the right edge
    EXPECT_EQ(offer(1, outside, 40, &yaw, &pitch), kNoLandmarks);
    EXPECT_EQ(yaw, kNoAngle);

    EXPECT_EQ(offer(2, faceAt(0, 0, 1.5), 40, &yaw, &pitch), kFaceTooSmall);  // 203 px
    EXPECT_EQ(yaw, 12345.0f);
    EXPECT_EQ(offer(3, faceAt(0, 0, 1.75), 40, &yaw, &pitch), kStoredFront);  // 237 px

    // Closed eyes: one eye rejects a frame that matched a bucket; a frame
    // that matches none is not checked.
    EXPECT_EQ(offer(4, withEyeClosed(faceAt(0, 0), 1), 40, &yaw, &pitch), kEyesClosed);
    EXPECT_EQ(yaw, 12345.0f);
    EXPECT_EQ(offer(5, withEyeClosed(faceAt(25, 0), 0), 40, &yaw, &pitch), kEyesClosed);
    EXPECT_EQ(offer(6, withEyeClosed(faceAt(10, 0), 0), 40, &yaw, &pitch), kNoBucket);
    EXPECT_NEAR(yaw, 10, 0.5);
    EXPECT_EQ(ids(Bucket::kFront), (std::vector<int>{3}));
    EXPECT_TRUE(selection_.bucket(Bucket::kYawPositive).empty());

    // The provider saw the caller's image: rows, cols, 3 channels, and a
    // cleared score field.
    EXPECT_EQ(provider_.call(1), kFrameRows);
    EXPECT_EQ(provider_.call(2), kFrameCols);
    EXPECT_EQ(provider_.call(3), 3);
    EXPECT_EQ(provider_.scoreBefore(), 0.0f);
}

TEST_F(RgbdSelection, FinalChoiceReportsTheFirstEmptyBucket) {
    int f = -9, n = -9, p = -9, u = -9;
    EXPECT_EQ(selection_.finalChoice(f, n, p, u), -5);
    offer(0, faceAt(0, 0));
    EXPECT_EQ(selection_.finalChoice(f, n, p, u), -4);
    offer(1, faceAt(25, 0));
    EXPECT_EQ(selection_.finalChoice(f, n, p, u), -4);
    offer(2, faceAt(-25, 0));
    EXPECT_EQ(selection_.finalChoice(f, n, p, u), -2);
    EXPECT_EQ(f, -9);
    offer(3, faceAt(0, 6));
    EXPECT_EQ(selection_.finalChoice(f, n, p, u), 1);
    EXPECT_EQ(std::vector<int>({f, n, p, u}), (std::vector<int>{0, 2, 1, 3}));
    selection_.clear();
    EXPECT_EQ(selection_.finalChoice(f, n, p, u), -5);
}

TEST_F(RgbdSelection, FinalChoiceTakesTheBlurriestOfTheNearestFive) {
    struct Offer {
        int id;
        double yaw, pitch;
        int sharpness, seed;
    };
    // Front: 1 and 2 share one image (equal scores): the earlier wins.
    // Yaw -25: 14 is the blurriest but the seventh nearest; of the nearest
    // five, 16 is.
    // Up: the target is the chosen frontal frame's pitch (8) + 6, not the
    // first one's (0) + 6, so 35 (pitch 6.5, the blurriest) is sixth.
    const Offer offers[] = {{0, 0, 0, 60, 0},       {1, 0, 8, 20, 1},      {2, 0.5, 8, 20, 1},
                            {10, -25.5, 0, 50, 10}, {11, -24, 0, 45, 11},  {12, -27, 0, 55, 12},
                            {13, -22.5, 0, 60, 13}, {14, -29.9, 0, 5, 14}, {15, -21, 0, 58, 15},
                            {16, -26, 0, 30, 16},   {20, 25, 0, 40, 20},   {21, 28, 0, 10, 21},
                            {30, 0, 14.2, 50, 30},  {31, 0, 13.5, 45, 31}, {32, 0, 15, 40, 32},
                            {33, 0, 12.8, 55, 33},  {34, 0, 15.6, 48, 34}, {35, 0, 6.5, 5, 35}};
    std::map<int, std::vector<unsigned char>> images;
    for (const Offer& o : offers) {
        images[o.id] = noiseFrame(o.sharpness, unsigned(o.seed));
        provider_.next(faceAt(o.yaw, o.pitch));
        float yaw, pitch;
        ASSERT_GT(selection_.intake(*model_, o.id, images[o.id].data(), kFrameRows, kFrameCols, yaw,
                                    pitch),
                  0)
            << o.id;
    }
    int f = -1, n = -1, p = -1, u = -1;
    ASSERT_EQ(selection_.finalChoice(f, n, p, u), 1);
    EXPECT_EQ(std::vector<int>({f, n, p, u}), (std::vector<int>{1, 16, 21, 32}));
    EXPECT_NEAR(selection_.upPitchTarget(), 14.0, 0.1);

    // Stored frames keep a score, not their images; it is bit for bit the
    // score of the colour image, so the choice is the literal one.
    for (Bucket b : {Bucket::kFront, Bucket::kYawNegative, Bucket::kYawPositive, Bucket::kUp})
        for (const StoredFrame& frame : selection_.bucket(b)) {
            const auto& image = images[frame.frameId];
            EXPECT_EQ(frame.sharpness, sharpnessScore(image.data(), kFrameRows, kFrameCols));
        }
    static_assert(sizeof(StoredFrame::landmarks) == 816, "a stored frame keeps 102 points");
}

TEST_F(RgbdSelection, LoaderSaysWhatIsMissing) {
    std::string error;
    EXPECT_EQ(LandmarkProvider::load("/nonexistent/libcv_face.so", error), nullptr);
    EXPECT_NE(error.find("cannot load /nonexistent/libcv_face.so"), std::string::npos) << error;
    EXPECT_EQ(LandmarkProvider::load(MERIDIAN_INCOMPLETE_PROVIDER_PATH, error), nullptr);
    EXPECT_NE(error.find("has no function GetFaceLandmark"), std::string::npos) << error;
    // The provider's own failure, and what it was given.
    EXPECT_EQ(LandmarkModel::load("fail", MERIDIAN_DOUBLE_PROVIDER_PATH, error), nullptr);
    EXPECT_NE(error.find("could not load its model from fail"), std::string::npos) << error;
    EXPECT_EQ(provider_.call(5), -1);
    EXPECT_EQ(provider_.call(6), 0);
}

}  // namespace
