// `meridian export` with the demo model's blendshape data: the five regional
// blendshapes as morph targets of the head.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "blendshape/backend_files.h"
#include "blendshape_demo_data.h"
#include "demo/demo_model.h"
#include "export_fixtures.h"
#include "fixtures.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
using meridian::testing::floats;
using meridian::testing::toGltf;

const std::string& kModelDir = meridian::testing::kBlendshapeDemoDir;

TEST(ExportDemo, MorphTargetsMoveTheirOwnRegions) {
    REQUIRE_BLENDSHAPE_DEMO_DATA();
    meridian::testing::TempDir out;
    const meridian::testing::ToolRun run =
        meridian::testing::runTool("export --model " + kModelDir + " --in " + kModelDir +
                                   "/sample_head.ply --out " + out.file("head.glb"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const tinygltf::Model model = meridian::testing::readGlb(out.file("head.glb"));
    const tinygltf::Mesh& mesh = model.meshes.at(0);
    const tinygltf::Primitive& primitive = mesh.primitives.at(0);
    ASSERT_EQ(primitive.targets.size(), 5u);
    EXPECT_EQ(mesh.weights, std::vector<double>(5, 0.0));
    const Eigen::Matrix3Xf base = floats(model, primitive.attributes.at("POSITION"));
    const Eigen::Matrix3Xf normals = floats(model, primitive.attributes.at("NORMAL"));
    EXPECT_EQ(base.cols(), meridian::demo::kEngineVertexCount);

    // Each region's anchor on the sample head, in glTF.
    const Eigen::Matrix3Xd sample = meridian::demo::sampleHead();
    Eigen::Matrix<double, 3, bs::kRegionCount> anchors;
    for (int r = 0; r < bs::kRegionCount; ++r)
        anchors.col(r) =
            toGltf(sample.col(meridian::demo::faceVertexList().at(bs::kRegions[r].anchor)), 0.0026);

    for (int r = 0; r < bs::kRegionCount; ++r) {
        const std::string name = bs::kRegions[r].name;
        EXPECT_EQ(mesh.extras.Get("targetNames").Get(r).Get<std::string>(), name);
        const Eigen::Matrix3Xf offsets = floats(model, primitive.targets[r].at("POSITION"));
        const Eigen::Matrix3Xf turns = floats(model, primitive.targets[r].at("NORMAL"));
        Eigen::Index moved;
        const float largest = offsets.colwise().norm().maxCoeff(&moved);
        EXPECT_GT(largest, 5e-4f) << name;  // half a millimetre
        Eigen::Index nearest;
        (anchors.colwise() - base.col(moved).cast<double>()).colwise().norm().minCoeff(&nearest);
        EXPECT_EQ(nearest, r) << name;
        // The moved surface's normals are unit vectors again.
        EXPECT_LT(((normals + turns).colwise().norm().array() - 1.0f).abs().maxCoeff(), 1e-5f)
            << name;
    }
}

}  // namespace
