// The head export: seamless normals, the eye meshes split by side, and
// `meridian export` as a user runs it on the demo model without its
// blendshape data.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "asset/engine_mesh.h"
#include "asset/export_error.h"
#include "asset/eye_sides.h"
#include "asset/gltf_asset.h"
#include "demo/demo_model.h"
#include "export_fixtures.h"
#include "eyes_fixtures.h"
#include "io/correspondence.h"
#include "io/mesh_readers.h"
#include "meridian/meridian.h"

namespace {

namespace fs = std::filesystem;
namespace ex = meridian::exporter;
namespace km = kestrel::meridian;
using meridian::testing::demoModel;
using meridian::testing::floats;
using meridian::testing::nodeNamed;
using meridian::testing::primitiveOf;
using meridian::testing::readGlb;
using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::toGltf;
using meridian::testing::ToolRun;

constexpr double kMetresPerUnit = 0.0026;  // the documented default

km::Correspondence pairRecord(const std::vector<int32_t>& sources) {
    km::Correspondence record;
    for (size_t k = 0; k < sources.size(); ++k) record.targets.push_back(static_cast<int>(k));
    record.pairSources = sources;
    return record;
}

// A regular octahedron: by symmetry every vertex's area-weighted normal is
// its direction from the centre. Vertex 6 is a copy of the top vertex 4, as
// a texture seam makes one, and carries half of the top's faces.
TEST(SeamlessNormals, CopiesShareTheNormalOfTheWholeSurfaceAroundThem) {
    Eigen::Matrix3Xd p(3, 7);
    p << 1, -1, 0, 0, 0, 0, 0,  //
        0, 0, 1, -1, 0, 0, 0,   //
        0, 0, 0, 0, 1, -1, 1;
    Eigen::Matrix3Xi faces(3, 8);
    faces << 0, 2, 1, 3, 2, 1, 3, 0,  //
        2, 1, 3, 0, 0, 2, 1, 3,       //
        4, 4, 6, 6, 5, 5, 5, 5;
    const std::vector<int> ids = ex::copyIds(pairRecord({0, 1, 2, 3, 4, 5, 4}));
    EXPECT_EQ(ids[6], ids[4]);
    const Eigen::Matrix3Xd normals = ex::seamlessNormals(p, faces, ids);
    for (Eigen::Index v = 0; v < 7; ++v)
        EXPECT_LT((normals.col(v) - p.col(v).normalized()).norm(), 1e-12) << v;
    // Unwelded, each copy sees half the cap and tilts away from +z.
    const Eigen::Matrix3Xd apart = ex::seamlessNormals(p, faces, {0, 1, 2, 3, 4, 5, 6});
    EXPECT_GT((apart.col(4) - Eigen::Vector3d::UnitZ()).norm(), 0.3);

    // Blended entries are copies when triangle and weights agree.
    km::Correspondence blended;
    blended.targets = {0, 1, 2};
    blended.triangles = {0, 1, 2, 0, 1, 2, 0, 1, 2};
    blended.weights = {0.2, 0.3, 0.5, 0.2, 0.3, 0.5, 0.5, 0.3, 0.2};
    EXPECT_EQ(ex::copyIds(blended), (std::vector<int>{0, 0, 1}));
}

// The bounds of positions and of target offsets, as their rows' minCoeff
// and maxCoeff give them: signed zeros and ties resolved by folding each row
// first to last, a morph target's as the mesh's.
TEST(GltfBounds, FollowEachRowsMinAndMaxCoefficients) {
    Eigen::Matrix3Xf values(3, 6);
    values << 0.0f, -0.0f, 1.5f, -2.0f, 0.0f, 1.5f,  //
        -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f,       //
        3.0f, 3.0f, -1.0f, 7.0f, -1.0f, -0.0f;
    ex::HeadAsset asset;
    asset.head.name = "head";
    asset.head.positions = values;
    asset.head.normals = Eigen::Matrix3Xf::Zero(3, 6);
    asset.head.faces = (Eigen::Matrix3Xi(3, 2) << 0, 3, 1, 4, 2, 5).finished();
    asset.head.targets.push_back({"reversed", values.rowwise().reverse(), asset.head.normals});
    asset.head.targets.push_back({"single", values.leftCols(1), values.leftCols(1)});
    const tinygltf::Model model = ex::buildGltfModel(asset);
    const tinygltf::Primitive& primitive = model.meshes.at(0).primitives.at(0);
    const auto expectBounds = [&](int accessor, const Eigen::Matrix3Xf& of, const char* what) {
        const tinygltf::Accessor& a = model.accessors.at(static_cast<size_t>(accessor));
        ASSERT_EQ(a.minValues.size(), 3u) << what;
        ASSERT_EQ(a.maxValues.size(), 3u) << what;
        for (int r = 0; r < 3; ++r) {
            const float low = of.row(r).minCoeff(), high = of.row(r).maxCoeff();
            EXPECT_EQ(a.minValues[r], low) << what << " row " << r;
            EXPECT_EQ(std::signbit(a.minValues[r]), std::signbit(low)) << what << " row " << r;
            EXPECT_EQ(a.maxValues[r], high) << what << " row " << r;
            EXPECT_EQ(std::signbit(a.maxValues[r]), std::signbit(high)) << what << " row " << r;
        }
    };
    expectBounds(primitive.attributes.at("POSITION"), values, "positions");
    expectBounds(primitive.targets.at(0).at("POSITION"), values.rowwise().reverse(), "reversed");
    expectBounds(primitive.targets.at(1).at("POSITION"), values.leftCols(1), "single column");
    EXPECT_TRUE(model.accessors.at(static_cast<size_t>(primitive.attributes.at("NORMAL")))
                    .minValues.empty());
}

TEST(EyeSides, FacesGoWithTheSideOfTheMeshVerticesTheyCopy) {
    // Mesh vertices 0, 1 are left, 2, 3 right; export vertex 4 is a second
    // copy of mesh vertex 0, export vertex 5 of mesh vertex 2.
    const km::Correspondence order = pairRecord({3, 0, 1, 2, 0, 2});
    Eigen::Matrix3Xi faces(3, 2);
    faces << 1, 0,  //
        2, 3,       //
        4, 5;
    const auto sides = ex::splitSides(order, {0, 1}, {2, 3}, faces, "eyes.obj");
    EXPECT_EQ(sides[ex::kLeft].vertices, (std::vector<int>{1, 2, 4}));
    EXPECT_EQ(sides[ex::kRight].vertices, (std::vector<int>{0, 3, 5}));
    for (const ex::MeshSide& side : sides)
        EXPECT_EQ(side.faces, Eigen::Matrix3Xi(Eigen::Vector3i(0, 1, 2)));

    faces.col(1) << 1, 0, 2;  // export vertices 1 and 0 lie on different sides
    EXPECT_THROW(ex::splitSides(order, {0, 1}, {2, 3}, faces, "eyes.obj"), ex::ExportError);
}

// One export of the sample head (no blendshape data in this model), shared
// by the tests below.
struct SampleExport {
    TempDir out;
    ToolRun run = runTool("export --model " + demoModel().str() + " --in " +
                          demoModel().file("sample_head.ply") + " --out " + out.file("head.glb") +
                          " --skip blendshapes --preview " + out.file("head.png"));
};
const SampleExport& sampleExport() {
    static const SampleExport once;
    return once;
}

TEST(ExportCli, HeadIsTheSwappedInputUprightFacingForwardWithSeamlessNormals) {
    const SampleExport& exported = sampleExport();
    ASSERT_EQ(exported.run.exitCode, 0) << exported.run.output;
    for (const char* stage : {"head swap ...", "eyes ...", "stage times:", "  total"})
        EXPECT_NE(exported.run.output.find(stage), std::string::npos)
            << stage << exported.run.output;
    EXPECT_EQ(meridian::testing::readBytes(exported.out.file("head.png")).substr(1, 3), "PNG");

    const tinygltf::Model model = readGlb(exported.out.file("head.glb"));
    ASSERT_EQ(model.scenes.size(), 1u);
    const tinygltf::Node& head = model.nodes.at(static_cast<size_t>(model.scenes[0].nodes.at(0)));
    EXPECT_EQ(head.name, "head");
    EXPECT_EQ(head.children.size(), 4u);
    const tinygltf::Primitive& primitive = primitiveOf(model, head);
    EXPECT_TRUE(primitive.targets.empty());
    const Eigen::Matrix3Xf positions = floats(model, primitive.attributes.at("POSITION"));
    const Eigen::Matrix3Xf normals = floats(model, primitive.attributes.at("NORMAL"));
    ASSERT_EQ(positions.cols(), meridian::demo::kEngineVertexCount);
    EXPECT_EQ(floats<2>(model, primitive.attributes.at("TEXCOORD_0")).cols(), positions.cols());

    // The library's own swap of the same input, through the documented transform.
    const std::string input = demoModel().file("sample_head.ply");
    const Eigen::Matrix3Xd sample =
        km::readPly(input, km::countPlyHeaderLines(input)).vertices.topRows<3>();
    std::vector<float> swapped(3 * static_cast<size_t>(positions.cols()));
    const meridian_handle converter = AI_system_init_swaphead(demoModel().str().c_str());
    ASSERT_EQ(AI_swap_head(converter, meridian::testing::planar(sample).data(), swapped.data(), 0),
              positions.cols());
    AI_system_over();
    const Eigen::Matrix3Xd engineOrder = km::planarToVertices(swapped.data(), positions.cols());
    Eigen::Index equal = 0;
    for (Eigen::Index k = 0; k < positions.cols(); ++k)
        equal += toGltf(engineOrder.col(k), kMetresPerUnit).cast<float>() == positions.col(k);
    EXPECT_EQ(equal, positions.cols());

    // Upright and facing +Z: tallest along Y, the eyes in front of the head's
    // centre, the subject's left eye at +X.
    const Eigen::Vector3f size = positions.rowwise().maxCoeff() - positions.rowwise().minCoeff();
    EXPECT_GT(size.y(), size.x());
    EXPECT_GT(size.y(), size.z());
    const Eigen::Vector3f centre = positions.rowwise().mean();
    const auto& left = nodeNamed(model, "eyeball_left").translation;
    const auto& right = nodeNamed(model, "eyeball_right").translation;
    EXPECT_GT(left.at(0), centre.x());
    EXPECT_LT(right.at(0), centre.x());
    EXPECT_GT(std::min(left.at(2), right.at(2)), centre.z() + 0.25 * size.z());

    // Unit normals pointing out of the head; copies of one head vertex share theirs.
    km::Correspondence headToEngine;
    km::Error error;
    ASSERT_TRUE(
        km::loadCorrespondence(headToEngine, demoModel().file("idx_head2ue4.corresp"), error));
    std::vector<Eigen::Index> firstCopy(
        1 + *std::max_element(headToEngine.pairSources.begin(), headToEngine.pairSources.end()),
        -1);
    int outward = 0, sharedSeams = 0;
    for (Eigen::Index k = 0; k < normals.cols(); ++k) {
        EXPECT_NEAR(normals.col(k).norm(), 1.0f, 1e-6f);
        outward += normals.col(k).dot(positions.col(k) - centre) > 0;
        Eigen::Index& first = firstCopy.at(static_cast<size_t>(headToEngine.pairSources[k]));
        if (first < 0) {
            first = k;
        } else {
            EXPECT_EQ(normals.col(k), normals.col(first)) << k;
            ++sharedSeams;
        }
    }
    EXPECT_GT(sharedSeams, 200);
    EXPECT_GT(outward, 0.97 * normals.cols());
}

TEST(ExportCli, EyesSitInTheSampleHeadsSocketsWithThePlainFitsPoses) {
    const SampleExport& exported = sampleExport();
    ASSERT_EQ(exported.run.exitCode, 0) << exported.run.output;
    const tinygltf::Model model = readGlb(exported.out.file("head.glb"));
    const meridian::demo::SampleMotion& motion = meridian::demo::sampleMotion();
    // The subject's left eye is the second socket.
    for (const auto& [side, socket] : {std::pair{"left", 1}, std::pair{"right", 0}}) {
        const meridian::demo::SocketSphere& sphere = meridian::demo::socketSphere(socket);
        const Eigen::Vector3d inModel =
            motion.scale * motion.rotation * sphere.centre + motion.translation;
        const Eigen::Vector3d centre = toGltf(inModel, kMetresPerUnit);
        const double radius = motion.scale * sphere.radius * kMetresPerUnit;

        const tinygltf::Node& ball = nodeNamed(model, std::string("eyeball_") + side);
        const tinygltf::Node& lash = nodeNamed(model, std::string("eyelash_") + side);
        const Eigen::Vector3d ballAt = Eigen::Map<const Eigen::Vector3d>(ball.translation.data());
        const Eigen::Vector3d lashAt = Eigen::Map<const Eigen::Vector3d>(lash.translation.data());
        EXPECT_LT((ballAt - centre).norm(), 0.2 * radius) << side;
        EXPECT_LT((lashAt - centre).norm(), 1.5 * radius) << side;
        EXPECT_GT(lashAt.y(), centre.y()) << side;  // on the upper lid

        const tinygltf::Value& pose = ball.extras.Get("eyeball_pose");
        EXPECT_EQ(pose.Get("eye").GetNumberAsInt(), socket) << side;
        EXPECT_NEAR(pose.Get("scale").GetNumberAsDouble(), motion.scale, 1e-5);
        for (int a = 0; a < 3; ++a)
            EXPECT_NEAR(pose.Get("position").Get(a).GetNumberAsDouble(), inModel[a], 1e-3);
    }
}

TEST(ExportErrors, NameWhatIsMissingAndLeaveTheOutputAlone) {
    TempDir scratch;
    std::string error;
    const std::string broken = scratch.file("broken");
    ASSERT_TRUE(meridian::demo::writeDemoModel(broken, error)) << error;
    fs::remove(broken + "/eyelash/ue4_eyelash.obj");
    const std::string shortData = scratch.file("short");
    ASSERT_TRUE(meridian::demo::writeDemoModel(shortData, error)) << error;
    scratch.write("short/BS/kp_86_h_r_1_c_86.bin", std::string(8, '\0'));
    const std::string sample = demoModel().file("sample_head.obj");
    const std::string small = scratch.write("small.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n");

    const std::string out = scratch.file("out/head.glb");
    scratch.write("out/head.glb", "old");
    const struct {
        std::string arguments, says;
    } cases[] = {
        {"--model " + scratch.file("nowhere") + " --in " + sample, "model directory not found"},
        {"--model " + demoModel().str() + " --in " + small, small + ": 3 vertices"},
        {"--model " + demoModel().str() + " --in " + sample,
         demoModel().str() +
             "/BS/kp_86_h_r_1_c_86.bin: no such file (leave the blendshapes out with --skip "
             "blendshapes)"},
        {"--model " + shortData + " --in " + sample,
         "BS/kp_86_h_r_1_c_86.bin: 8 bytes, but 1 x 86 doubles take exactly 688"},
        {"--model " + broken + " --in " + sample + " --skip blendshapes",
         broken + "/eyelash/ue4_eyelash.obj: no such file (leave the eyes out with --skip eyes)"},
    };
    for (const auto& c : cases) {
        const ToolRun run = runTool("export " + c.arguments + " --out " + out);
        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_NE(run.output.find("error: "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
        EXPECT_EQ(meridian::testing::readBytes(out), "old");
        EXPECT_EQ(std::distance(fs::directory_iterator(scratch.file("out")), {}), 1);
    }

    // Both parts skipped: a head alone replaces the old file.
    const ToolRun headOnly = runTool("export --model " + broken + " --in " + sample +
                                     " --skip eyes,blendshapes --out " + out);
    ASSERT_EQ(headOnly.exitCode, 0) << headOnly.output;
    const tinygltf::Model model = readGlb(out);
    ASSERT_EQ(model.nodes.size(), 1u);
    EXPECT_TRUE(model.nodes[0].children.empty());
}

}  // namespace
