// `meridian blendshapes` on the demo model set, as a user runs it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "blendshape/backend_files.h"
#include "blendshape_demo_data.h"
#include "demo/demo_model.h"
#include "fixtures.h"
#include "io/mesh_readers.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
using meridian::testing::readBytes;
using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

const std::string& kModelDir = meridian::testing::kBlendshapeDemoDir;

TEST(BlendshapeDemoCli, WritesTheSixShapesAsMeshesAndAPicture) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
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
    // Six heads side by side: width and height from the PNG's header.
    const std::string png = readBytes(out.file("shapes/blendshapes.png"));
    ASSERT_GE(png.size(), 24u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    auto word = [&](size_t at) {
        return (uint32_t(uint8_t(png[at])) << 24) | (uint8_t(png[at + 1]) << 16) |
               (uint8_t(png[at + 2]) << 8) | uint8_t(png[at + 3]);
    };
    EXPECT_GT(word(16), 5 * word(20));
    EXPECT_GT(word(20), 200u);
}

}  // namespace
