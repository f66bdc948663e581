// `meridian eyes` as a user runs it.
#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "eyes_fixtures.h"
#include "io/mesh_readers.h"

namespace {

namespace km = kestrel::meridian;
using meridian::testing::demoModel;
using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

TEST(EyesCli, WritesPosesMeshesAndPreview) {
    TempDir out;
    const ToolRun run =
        runTool("eyes --model " + demoModel().str() + " --in " +
                demoModel().file("sample_head.ply") + " --out-dir " + out.file("results"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    for (const char* says : {"eye 0: angles ", "eye 1: angles ", "scale: "})
        EXPECT_NE(run.output.find(says), std::string::npos) << run.output;
    // The sample head is the demo head scaled by 1.04.
    EXPECT_NEAR(std::stod(run.output.substr(run.output.find("scale: ") + 7)), 1.04, 1e-5);

    const struct {
        const char* file;
        Eigen::Index vertices;
        bool hasUvs;
    } meshes[] = {{"results/head_with_eyes.obj", 20481 + 2 * 770, false},
                  {"results/eyeballs_ue4.obj", 1540, true},
                  {"results/eyelashes_ue4.obj", 188, true}};
    for (const auto& m : meshes) {
        const km::ObjMeshData mesh = km::readObj(out.file(m.file));
        EXPECT_EQ(mesh.vertices.cols(), m.vertices) << m.file;
        EXPECT_GT(mesh.faces.cols(), 0) << m.file;
        EXPECT_EQ(mesh.texcoords.cols(), m.hasUvs ? m.vertices : 0) << m.file;
    }
    EXPECT_EQ(meridian::testing::readBytes(out.file("results/eyes_preview.png")).substr(1, 3),
              "PNG");
}

// Pixels of the close-up of the eyes whose grey differs by more than 20 from
// the median of their 9 x 9 neighbourhood, all of it head. Flat shading drew
// the head's small, steep faces at the socket rims and the nose as light and
// dark shards around the eyes: hundreds of such pixels on the sample head.
int shardPixelsAroundTheEyes(const cv::Mat& preview) {
    // The close-up is the first panel with no background at all: a run of
    // columns without a pixel of the background's grey.
    const cv::Vec3b background(40, 40, 40);
    int start = -1, run = 0;
    for (int col = 0; col < preview.cols && run < 640; ++col) {
        bool anyBackground = false;
        for (int row = 0; row < preview.rows && !anyBackground; ++row)
            anyBackground = preview.at<cv::Vec3b>(row, col) == background;
        run = anyBackground ? 0 : run + 1;
        if (run == 1) start = col;
    }
    if (run < 640) return -1;
    const cv::Mat region = preview(cv::Rect(start, 32, 640, preview.rows - 32));  // below the label
    cv::Mat grey(region.size(), CV_8U), green;
    for (int row = 0; row < region.rows; ++row)
        for (int col = 0; col < region.cols; ++col) {
            const cv::Vec3b p = region.at<cv::Vec3b>(row, col);
            grey.at<uchar>(row, col) =
                std::abs(p[0] - p[1]) < 6 && std::abs(p[1] - p[2]) < 6 && p[1] > 50 ? 255 : 0;
        }
    cv::Mat allHead, median, difference;
    cv::erode(grey, allHead, cv::Mat::ones(9, 9, CV_8U));
    cv::extractChannel(region, green, 1);
    cv::medianBlur(green, median, 9);
    cv::absdiff(green, median, difference);
    return cv::countNonZero((difference > 20) & allHead);
}

TEST(EyesCli, PreviewShowsTheHeadAroundTheEyesWithoutShards) {
    TempDir out;
    const ToolRun run =
        runTool("eyes --model " + demoModel().str() + " --in " +
                demoModel().file("sample_head.obj") + " --out-dir " + out.file("results"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const cv::Mat preview = cv::imread(out.file("results/eyes_preview.png"), cv::IMREAD_COLOR);
    ASSERT_FALSE(preview.empty());
    const int shards = shardPixelsAroundTheEyes(preview);
    EXPECT_GE(shards, 0) << "no close-up of the eyes in the preview";
    EXPECT_LT(shards, 50);
}

TEST(EyesCli, ExplainsWhatIsWrong) {
    TempDir scratch;
    const std::string sample = demoModel().file("sample_head.obj");
    const std::string small = scratch.write("small.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n");
    const std::string blocker = scratch.write("blocker", "a file, not a directory");
    const std::string demo = demoModel().str(), out = scratch.file("out");
    const struct {
        std::string model, in, outDir, says;
    } cases[] = {
        {scratch.file("nowhere"), sample, out, "model directory not found"},
        {demo, small, out, small + ": 3 vertices"},
        {scratch.str(), sample, out, "eyeball/new_eye.ply: no such file"},
        {demo, sample, blocker + "/sub", "error: cannot create the output directory"},
    };
    for (const auto& c : cases) {
        const ToolRun run =
            runTool("eyes --model " + c.model + " --in " + c.in + " --out-dir " + c.outDir);
        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_NE(run.output.find("error: "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
    }
}

}  // namespace
