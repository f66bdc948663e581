// The two depth readers: OpenEXR (Linux) and tinyexr (builds without
// OpenEXR, e.g. Windows) give the same values, bit for bit.
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "demo/rgbd/demo_capture.h"
#include "fixtures.h"
#include "rgbd/capture_files.h"

#if MERIDIAN_RGBD_WITH_TINYEXR
#include "rgbd/depth_exr_tinyexr.h"

namespace {

using namespace kestrel::meridian;
using meridian::testing::TempDir;

bool sameBits(const DepthImage& a, const DepthImage& b) {
    return a.rows == b.rows && a.cols == b.cols && a.depth.size() == b.depth.size() &&
           std::memcmp(a.depth.data(), b.depth.data(), a.depth.size() * sizeof(float)) == 0;
}

TEST(DepthReaders, TinyexrGivesOpenExrsValuesOnTheDemoCaptureAndFailsAlike) {
    TempDir dir;
    std::string error;
    ASSERT_TRUE(meridian::demo::writeDemoCapture(dir.file("capture"), error)) << error;
    std::vector<std::string> readable;
    for (const auto& entry : std::filesystem::directory_iterator(dir.file("capture/exr")))
        readable.push_back(entry.path().string());
    ASSERT_FALSE(readable.empty());

    // A small image with awkward values, and files neither reader takes.
    DepthImage odd;
    odd.rows = 3;
    odd.cols = 5;
    odd.depth = {0.0f,  -0.0f,    1e-30f, 65504.0f, 1e30f, 0.1f,  0.2f, 0.3f,
                 -7.5f, 1.0f / 3, 2.0f,   4.0f,     8.0f,  16.0f, 32.0f};
    ASSERT_TRUE(writeDepthExr(dir.file("odd.exr"), odd));
    readable.push_back(dir.file("odd.exr"));
    const std::vector<std::string> unreadable = {
        dir.write("text.exr", "not an image"), dir.write("empty.exr", ""), dir.file("missing.exr")};

    for (const std::string& path : readable) {
        SCOPED_TRACE(path);
        const DepthImage reference = readDepthExr(path);
        ASSERT_FALSE(reference.empty());
        EXPECT_TRUE(sameBits(readDepthExrWithTinyexr(path), reference));
    }
    EXPECT_TRUE(sameBits(readDepthExrWithTinyexr(dir.file("odd.exr")), odd));
    for (const std::string& path : unreadable) {
        SCOPED_TRACE(path);
        EXPECT_TRUE(readDepthExr(path).empty());
        EXPECT_TRUE(readDepthExrWithTinyexr(path).empty());
    }
}

}  // namespace
#endif
