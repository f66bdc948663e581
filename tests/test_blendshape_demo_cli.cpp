// `meridian blendshapes` on the demo model set, as a user runs it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "blendshape/backend_files.h"
#include "demo/demo_model.h"
#include "fixtures.h"
#include "io/mesh_readers.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
using meridian::testing::readBytes;
using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

const std::string kModelDir = MERIDIAN_BLENDSHAPE_DEMO_DIR;

/// Width and height from a PNG's header, or 0 by 0 when it is not one.
std::pair<int, int> pngSize(const std::string& bytes) {
    if (bytes.size() < 24 || bytes.compare(1, 3, "PNG") != 0) return {0, 0};
    auto word = [&](size_t at) {
        int value = 0;
        for (size_t i = at; i < at + 4; ++i)
            value = value * 256 + static_cast<unsigned char>(bytes[i]);
        return value;
    };
    return {word(16), word(20)};
}

TEST(BlendshapeDemoCli, WritesTheSixShapesAsMeshesAndAPicture) {
    if (!std::filesystem::exists(kModelDir + "/BS"))
        GTEST_SKIP() << "no demo blendshape data in " << kModelDir
                     << ": run the tests through ctest (its setup writes it)";
    TempDir out;
    const ToolRun run = runTool("blendshapes --model " + kModelDir + " --in " + kModelDir +
                                "/sample_head.ply --out-dir " + out.file("shapes"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("loading blendshape data from " + kModelDir + "/BS/ ... done in"),
              std::string::npos)
        << run.output;

    const auto neutral = kestrel::meridian::readObj(out.file("shapes/bs_0_neutral.obj"));
    const Eigen::Matrix3Xd sample = meridian::demo::sampleHead();
    ASSERT_EQ(neutral.vertices.cols(), sample.cols());
    EXPECT_LT((neutral.vertices - sample).cwiseAbs().maxCoeff(), 1e-5);  // "%f" digits
    EXPECT_GT(neutral.faces.cols(), 40000);
    EXPECT_EQ(neutral.texcoords.rows(), 2);
    const std::vector<int>& faceList = meridian::demo::faceVertexList();
    for (int r = 0; r < bs::kRegionCount; ++r) {
        const std::string name =
            "shapes/bs_" + std::to_string(r + 1) + "_" + bs::kRegions[r].name + ".obj";
        const auto shape = kestrel::meridian::readObj(out.file(name));
        ASSERT_EQ(shape.vertices.cols(), sample.cols()) << name;
        EXPECT_EQ(shape.faces, neutral.faces) << name;
        const int anchor = faceList[bs::kRegions[r].anchor];
        EXPECT_GT((shape.vertices.col(anchor) - neutral.vertices.col(anchor)).norm(), 0.2) << name;
    }
    const auto [width, height] = pngSize(readBytes(out.file("shapes/blendshapes.png")));
    EXPECT_GT(width, 5 * height);  // six heads side by side
    EXPECT_GT(height, 200);
}

}  // namespace
