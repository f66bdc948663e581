// The frame-selection exports as a host calls them: a copy of the library
// that finds the provider double next to itself. Undefined cases made safe,
// the init failure that ends the process, and the capture driver.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "fixtures.h"
#include "rgbd/capture_files.h"
#include "rgbd_fixtures.h"

namespace {

using meridian::testing::faceAt;
using meridian::testing::FrameSelectionExports;
using meridian::testing::TempDir;

class RgbdExports : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(api_.library, nullptr) << dlerror();
        ASSERT_NE(api_.provider.handle, nullptr);
        api_.provider.reset();
        TearDown();
    }
    void TearDown() override {
        api_.over();
        api_.clear();
    }

    static FrameSelectionExports& exports() {
        static FrameSelectionExports loaded(MERIDIAN_LIBRARY_BESIDE_DOUBLE,
                                            MERIDIAN_DOUBLE_PROVIDER_PATH, 640, 480);
        return loaded;
    }
    FrameSelectionExports& api_ = exports();
};

TEST_F(RgbdExports, CallsWithoutAModelOrWithBadArgumentsAreSafe) {
    float yaw = 1, pitch = 1;
    int ids[4] = {7, 7, 7, 7};
    // Before init.
    EXPECT_EQ(api_.offer(0, faceAt(0, 0), &yaw, &pitch), -1);
    EXPECT_EQ(yaw, -10000.0f);
    EXPECT_EQ(pitch, -10000.0f);
    EXPECT_EQ(api_.final4(&ids[0], &ids[1], &ids[2], &ids[3]), -5);
    EXPECT_EQ(api_.driver("."), -1);
    EXPECT_EQ(api_.provider.call(0), 0);

    ASSERT_EQ(api_.init("models"), 1);
    EXPECT_STREQ(api_.provider.modelDir(), "models");
    EXPECT_EQ(api_.provider.call(5), -1);  // InitModel(dir, -1, 0)
    EXPECT_EQ(api_.provider.call(6), 0);
    api_.provider.next(faceAt(0, 0));
    const unsigned char* color = api_.color.data();
    const float* depth = api_.depth.data();
    struct Case {
        const void* color;
        int w, h;
        const void* depth;
        int dw, dh;
        float* yaw;
    };
    for (const Case& c :
         {Case{nullptr, 640, 480, depth, 640, 480, &yaw},
          Case{color, 0, 480, depth, 640, 480, &yaw}, Case{color, 640, -1, depth, 640, 480, &yaw},
          Case{color, 640, 480, nullptr, 640, 480, &yaw},
          Case{color, 640, 480, depth, 640, 0, &yaw},
          Case{color, 640, 480, depth, 640, 480, nullptr}}) {
        yaw = pitch = 1;
        EXPECT_EQ(api_.input(3, c.color, c.w, c.h, c.depth, c.dw, c.dh, c.yaw, &pitch), -1);
        EXPECT_EQ(pitch, -10000.0f);
        if (c.yaw) {
            EXPECT_EQ(yaw, -10000.0f);
        }
    }
    EXPECT_EQ(api_.provider.call(0), 0);  // the images were never read
    EXPECT_EQ(api_.final4(nullptr, &ids[1], &ids[2], &ids[3]), -5);
    EXPECT_EQ(api_.driver(nullptr), -1);
}

TEST_F(RgbdExports, TearDownDropsTheModelButKeepsTheBuckets) {
    ASSERT_EQ(api_.init("models"), 1);
    float yaw, pitch;
    EXPECT_EQ(api_.offer(0, faceAt(0, 0), &yaw, &pitch), 5);
    EXPECT_EQ(api_.offer(1, faceAt(-25, 0), &yaw, &pitch), 4);
    EXPECT_EQ(api_.offer(2, faceAt(25, 0), &yaw, &pitch), 3);
    EXPECT_EQ(api_.offer(3, faceAt(1, 6), &yaw, &pitch), 2);
    EXPECT_EQ(api_.over(), 1);
    EXPECT_EQ(api_.offer(4, faceAt(0, 0), &yaw, &pitch), -1);
    int ids[4] = {-1, -1, -1, -1};
    EXPECT_EQ(api_.final4(&ids[0], &ids[1], &ids[2], &ids[3]), 1);
    EXPECT_EQ(std::vector<int>(ids, ids + 4), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(api_.clear(), 0);
    EXPECT_EQ(api_.final4(&ids[0], &ids[1], &ids[2], &ids[3]), -5);
}

TEST_F(RgbdExports, FailedInitSaysSoWaitsForAKeyAndEndsTheProcess) {
    for (const std::string key : {"x", ""}) {  // a key, or standard input at its end
        int keys[2];
        ASSERT_EQ(pipe(keys), 0);
        ASSERT_EQ(write(keys[1], key.data(), key.size()), ssize_t(key.size()));
        close(keys[1]);
        std::fflush(nullptr);  // nothing buffered may reach the child's output
        // The child's standard output goes where its standard error went,
        // which is matched whole; its own standard error is dropped.
        EXPECT_EXIT(
            {
                dup2(keys[0], 0);
                dup2(2, 1);
                dup2(open("/dev/null", O_WRONLY), 2);
                api_.init("fail");
            },
            ::testing::ExitedWithCode(0), "^Init landmark model failed\\.\n$");
        close(keys[0]);
    }
}

TEST_F(RgbdExports, DriverReadsFilesFromOneAndGivesIdsFromZero) {
    ASSERT_EQ(api_.init("models"), 1);
    TempDir capture;
    std::filesystem::create_directories(capture.path() / "jpg" / "not-a-frame");
    // Files 1..4 in a uniform grey of 40 * n, so the double can tell which
    // it was given; 5.jpg is missing (listed as the fifth of five entries).
    for (int n = 1; n <= 4; ++n)
        cv::imwrite(capture.file("jpg/" + std::to_string(n) + ".jpg"),
                    cv::Mat(480, 640, CV_8UC3, cv::Scalar::all(40 * n)));
    capture.write("jpg/notes.txt", "the listing counts regular files\n");
    for (const auto& points : {faceAt(0, 0), faceAt(-25, 0), faceAt(25, 0), faceAt(0, 6)})
        api_.provider.next(points);

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(api_.driver(capture.str().c_str()), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "final: 1\n");
    EXPECT_EQ(api_.provider.call(0), 4);  // the missing fifth file is no frame
    EXPECT_NEAR(api_.provider.call(4), 160, 2);
    int ids[4] = {-1, -1, -1, -1};
    EXPECT_EQ(api_.final4(&ids[0], &ids[1], &ids[2], &ids[3]), 1);
    EXPECT_EQ(std::vector<int>(ids, ids + 4), (std::vector<int>{0, 1, 2, 3}));

    // A second run starts from empty buckets: nothing found, front empty.
    TempDir empty;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(api_.driver(empty.str().c_str()), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "final: -5\n");
}

TEST(RgbdCaptureFiles, DepthExrRoundTripsAndWrongFilesReadEmpty) {
    TempDir dir;
    kestrel::meridian::DepthImage depth;
    depth.rows = 3;
    depth.cols = 5;
    for (int k = 0; k < 15; ++k) depth.depth.push_back(0.5f + 0.001f * k);
    ASSERT_TRUE(kestrel::meridian::writeDepthExr(dir.file("d.exr"), depth));
    const kestrel::meridian::DepthImage back = kestrel::meridian::readDepthExr(dir.file("d.exr"));
    EXPECT_EQ(back.rows, 3);
    EXPECT_EQ(back.cols, 5);
    EXPECT_EQ(back.depth, depth.depth);
    dir.write("bad.exr", "not an image");
    EXPECT_TRUE(kestrel::meridian::readDepthExr(dir.file("bad.exr")).empty());
    EXPECT_TRUE(kestrel::meridian::readColorImage(dir.file("bad.exr")).empty());
}

}  // namespace
