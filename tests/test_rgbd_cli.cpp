// `meridian rgbd-demo` and `meridian rgbd-select` as a user runs them.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "demo/rgbd/demo_capture.h"
#include "fixtures.h"

namespace {

using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

TEST(RgbdCli, DemoCaptureSelectsItsFourFramesWithAContactSheet) {
    if (!std::filesystem::exists(meridian::demo::demoCapturePhotoPath()))
        GTEST_SKIP() << "no " << meridian::demo::demoCapturePhotoPath();
    TempDir dir;
    const std::string capture = dir.file("capture");
    const ToolRun demo = runTool("rgbd-demo --out " + capture);
    ASSERT_EQ(demo.exitCode, 0) << demo.output;
    const size_t frames = meridian::demo::demoCaptureFrames().size();
    for (size_t n = 1; n <= frames; ++n)
        for (const char* kind : {"jpg", "exr"})
            EXPECT_TRUE(std::filesystem::exists(capture + "/" + kind + "/" + std::to_string(n) +
                                                "." + kind));

    const std::string sheet = dir.file("sheet.png");
    const ToolRun run = runTool("rgbd-select --landmarks /nonexistent --capture " + capture +
                                " --contact-sheet " + sheet);
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const auto expected = meridian::demo::demoCaptureExpectedChoice();
    const std::pair<const char*, int> chosen[] = {{"front    id", expected.front},
                                                  {"yaw -25  id", expected.yawNegative},
                                                  {"yaw +25  id", expected.yawPositive},
                                                  {"up       id", expected.up}};
    for (const auto& [role, id] : chosen) {
        char line[128];
        std::snprintf(line, sizeof line, "%s %3d  %s/jpg/%d.jpg", role, id, capture.c_str(),
                      id + 1);
        EXPECT_NE(run.output.find(line), std::string::npos) << line << "\n" << run.output;
    }
    const std::string all = std::to_string(frames);
    EXPECT_NE(run.output.find("[####################]  " + all + "/" + all), std::string::npos);
    EXPECT_NE(run.output.find("code -2  eyes closed"), std::string::npos);
    const cv::Mat picture = cv::imread(sheet);
    EXPECT_EQ(picture.cols, 800);
    EXPECT_EQ(picture.rows, 800);
}

TEST(RgbdCli, SelectExplainsWhatIsWrong) {
    TempDir dir;
    dir.write("capture/jpg/1.jpg", "not a picture");
    struct Case {
        std::string arguments, says;
    };
    const Case cases[] = {
        {"rgbd-select --landmarks x --capture " + dir.file("none"), "capture directory not found"},
        {"rgbd-select --landmarks x --capture " + dir.str(), "no frames in"},
        {"rgbd-select --landmarks x --capture " + dir.file("capture"), "no frontal frame"},
    };
    for (const Case& c : cases) {
        const ToolRun run = runTool(c.arguments);
        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_NE(run.output.find("error: " + c.says), std::string::npos) << run.output;
    }
}

}  // namespace
