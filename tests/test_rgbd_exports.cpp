// The frame-selection exports as a host calls them: a copy of the library
// that finds the provider double next to itself. Undefined cases made safe,
// the init failure that ends the process, and the capture driver.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "fixtures.h"
#include "rgbd/capture_files.h"
#include "rgbd_fixtures.h"

namespace {

using meridian::testing::faceAt;
using meridian::testing::ProviderDouble;
using meridian::testing::TempDir;

struct Exports {
    int32_t (*init)(const char*);
    int32_t (*input)(int, const void*, int, int, const void*, int, int, float*, float*);
    int32_t (*final4)(int*, int*, int*, int*);
    int32_t (*clear)();
    int32_t (*driver)(const char*);
    int (*over)();
};

class RgbdExports : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        library_ = dlopen(MERIDIAN_LIBRARY_BESIDE_DOUBLE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library_, nullptr) << dlerror();
        auto get = [](const char* name) { return dlsym(library_, name); };
        api_.init = reinterpret_cast<decltype(api_.init)>(get("AI_system_init_Choose4RGBD"));
        api_.input = reinterpret_cast<decltype(api_.input)>(get("AI_Choose4RGBD_input_1_rgbd"));
        api_.final4 =
            reinterpret_cast<decltype(api_.final4)>(get("AI_Choose4RGBD_get_final_4_rgbd"));
        api_.clear = reinterpret_cast<decltype(api_.clear)>(get("AI_Choose4RGBD_clear"));
        api_.driver = reinterpret_cast<decltype(api_.driver)>(get("debug_test_RGBD_choose4"));
        api_.over = reinterpret_cast<decltype(api_.over)>(get("AI_system_over"));
    }
    static void TearDownTestSuite() { dlclose(library_); }
    void SetUp() override {
        ASSERT_NE(provider_.handle, nullptr);
        provider_.reset();
        api_.over();
        api_.clear();
    }
    void TearDown() override {
        api_.over();
        api_.clear();
    }

    // Offers a 640 by 480 frame whose landmarks the double gives.
    int offer(int id, const std::vector<float>& points, float* yaw, float* pitch) {
        provider_.next(points);
        return api_.input(id, color_.data(), 640, 480, depth_.data(), 640, 480, yaw, pitch);
    }

    static void* library_;
    static Exports api_;
    // The double the copied library loads: the same file, so the same one.
    ProviderDouble provider_{MERIDIAN_DOUBLE_PROVIDER_PATH};
    std::vector<unsigned char> color_ = meridian::testing::noiseFrame(30, 7);
    std::vector<float> depth_ = std::vector<float>(640 * 480, 0.6f);
};
void* RgbdExports::library_ = nullptr;
Exports RgbdExports::api_{};

TEST_F(RgbdExports, CallsWithoutAModelOrWithBadArgumentsAreSafe) {
    float yaw = 1, pitch = 1;
    int ids[4] = {7, 7, 7, 7};
    // Before init.
    EXPECT_EQ(offer(0, faceAt(0, 0), &yaw, &pitch), -1);
    EXPECT_EQ(yaw, -10000.0f);
    EXPECT_EQ(pitch, -10000.0f);
    EXPECT_EQ(api_.final4(&ids[0], &ids[1], &ids[2], &ids[3]), -5);
    EXPECT_EQ(api_.driver("."), -1);
    EXPECT_EQ(provider_.call(0), 0);

    ASSERT_EQ(api_.init("models"), 1);
    EXPECT_STREQ(provider_.modelDir(), "models");
    EXPECT_EQ(provider_.call(5), -1);  // InitModel(dir, -1, 0)
    EXPECT_EQ(provider_.call(6), 0);
    provider_.next(faceAt(0, 0));
    struct Case {
        const void* color;
        int w, h;
        const void* depth;
        int dw, dh;
    };
    const Case cases[] = {{nullptr, 640, 480, depth_.data(), 640, 480},
                          {color_.data(), 0, 480, depth_.data(), 640, 480},
                          {color_.data(), 640, -1, depth_.data(), 640, 480},
                          {color_.data(), 640, 480, nullptr, 640, 480},
                          {color_.data(), 640, 480, depth_.data(), 640, 0}};
    for (const Case& c : cases) {
        yaw = pitch = 1;
        EXPECT_EQ(api_.input(3, c.color, c.w, c.h, c.depth, c.dw, c.dh, &yaw, &pitch), -1);
        EXPECT_EQ(yaw, -10000.0f);
    }
    EXPECT_EQ(api_.input(3, color_.data(), 640, 480, depth_.data(), 640, 480, nullptr, &pitch), -1);
    EXPECT_EQ(provider_.call(0), 0);  // the images were never read
    EXPECT_EQ(api_.final4(nullptr, &ids[1], &ids[2], &ids[3]), -5);
    EXPECT_EQ(api_.driver(nullptr), -1);
}

TEST_F(RgbdExports, TearDownDropsTheModelButKeepsTheBuckets) {
    ASSERT_EQ(api_.init("models"), 1);
    float yaw, pitch;
    EXPECT_EQ(offer(0, faceAt(0, 0), &yaw, &pitch), 5);
    EXPECT_EQ(offer(1, faceAt(-25, 0), &yaw, &pitch), 4);
    EXPECT_EQ(offer(2, faceAt(25, 0), &yaw, &pitch), 3);
    EXPECT_EQ(offer(3, faceAt(1, 6), &yaw, &pitch), 2);
    EXPECT_EQ(api_.over(), 1);
    EXPECT_EQ(offer(4, faceAt(0, 0), &yaw, &pitch), -1);
    int ids[4] = {-1, -1, -1, -1};
    EXPECT_EQ(api_.final4(&ids[0], &ids[1], &ids[2], &ids[3]), 1);
    EXPECT_EQ(std::vector<int>(ids, ids + 4), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(api_.clear(), 0);
    EXPECT_EQ(api_.final4(&ids[0], &ids[1], &ids[2], &ids[3]), -5);
}

TEST_F(RgbdExports, FailedInitSaysSoWaitsForAKeyAndEndsTheProcess) {
    for (const char* input : {"x", ""}) {  // a key, or standard input at its end
        int toChild[2], fromChild[2];
        ASSERT_EQ(pipe(toChild), 0);
        ASSERT_EQ(pipe(fromChild), 0);
        std::fflush(nullptr);  // nothing buffered may reach the child's output
        std::cout.flush();
        const pid_t child = fork();
        if (child == 0) {
            dup2(toChild[0], 0);
            dup2(fromChild[1], 1);
            close(toChild[1]);
            close(fromChild[0]);
            api_.init("fail");
            _exit(42);  // not reached
        }
        close(toChild[0]);
        close(fromChild[1]);
        if (*input) {
            ASSERT_EQ(write(toChild[1], input, 1), 1);
        }
        close(toChild[1]);
        std::string output;
        char buffer[256];
        for (ssize_t got; (got = read(fromChild[0], buffer, sizeof buffer)) > 0;)
            output.append(buffer, size_t(got));
        close(fromChild[0]);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
        EXPECT_EQ(output, "Init landmark model failed.\n");
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
        provider_.next(points);

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(api_.driver(capture.str().c_str()), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "final: 1\n");
    EXPECT_EQ(provider_.call(0), 4);  // the missing fifth file is no frame
    EXPECT_NEAR(provider_.call(4), 160, 2);
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
    cv::Mat depth(3, 5, CV_32F);
    for (int k = 0; k < 15; ++k) depth.at<float>(k / 5, k % 5) = 0.5f + 0.001f * k;
    ASSERT_TRUE(kestrel::meridian::writeDepthExr(dir.file("d.exr"), depth));
    const cv::Mat back = kestrel::meridian::readDepthExr(dir.file("d.exr"));
    ASSERT_EQ(back.size(), depth.size());
    EXPECT_EQ(cv::norm(back, depth, cv::NORM_INF), 0.0);
    dir.write("bad.exr", "not an image");
    EXPECT_TRUE(kestrel::meridian::readDepthExr(dir.file("bad.exr")).empty());
    EXPECT_TRUE(kestrel::meridian::readColorImage(dir.file("bad.exr")).empty());
}

}  // namespace
