// The glTF stage's own encoding: the container assembled around the writer's
// JSON, and the map into glTF, each against the general code it replaces.
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "asset/gltf_asset.h"
#include "asset/model_to_gltf.h"
#include "io/planar.h"

namespace {

namespace ex = meridian::exporter;

ex::MeshNode meshNode(const char* name, int vertices, int targets) {
    ex::MeshNode node;
    node.name = name;
    node.positions = Eigen::Matrix3Xf::Random(3, vertices);
    node.normals = Eigen::Matrix3Xf::Random(3, vertices);
    node.uvs = Eigen::Matrix2Xf::Random(2, vertices);
    node.faces.resize(3, vertices / 3);
    for (Eigen::Index k = 0; k < node.faces.size(); ++k)
        node.faces.data()[k] = static_cast<int>(k % vertices);
    for (int t = 0; t < targets; ++t)
        node.targets.push_back(
            {"target " + std::to_string(t), node.positions * 0.5f, node.normals * -0.25f});
    return node;
}

TEST(GlbBytes, AreTheBytesTheWriterWrites) {
    const struct {
        const char* what;
        int vertices, targets, parts;
        const char* bufferName;  // a named buffer takes the writer's own path
    } cases[] = {
        {"head with targets and parts", 300, 5, 2, ""},
        {"head alone", 9, 0, 0, ""},
        {"name of another length (JSON padding)", 9, 0, 0, nullptr},
        {"no arrays at all: no BIN chunk", 0, 0, 0, ""},
        {"named buffer", 30, 1, 1, "named"},
    };
    for (const auto& c : cases) {
        ex::HeadAsset asset;
        asset.head = meshNode(c.bufferName ? "head" : "head_", c.vertices, c.targets);
        for (int p = 0; p < c.parts; ++p) asset.parts.push_back(meshNode("part", 12, 0));
        asset.extras = tinygltf::Value(tinygltf::Value::Object{
            {"note", tinygltf::Value(std::string("\"buffers\":[{\"byteLength\":0}]"))}});
        tinygltf::Model model = ex::buildGltfModel(asset);
        if (c.bufferName && *c.bufferName) model.buffers.at(0).name = c.bufferName;

        std::ostringstream written;
        ASSERT_TRUE(ex::writeGlb(model, written)) << c.what;
        const std::string bytes = ex::glbBytes(model);
        EXPECT_EQ(bytes.size(), written.str().size()) << c.what;
        EXPECT_TRUE(bytes == written.str()) << c.what;
        EXPECT_EQ(bytes.size() % 4, 0u) << c.what;
    }
}

/// Bit for bit, except that any NaN matches any NaN (which NaN an addition
/// of two keeps is not pinned by the compiler either).
bool sameBits(double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(ModelToGltf, MapsAsTheGeneralProductDoesBitForBit) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const double special[][3] = {{0.0, 0.0, 0.0},    {-0.0, -0.0, -0.0},    {-0.0, 1.0, -0.0},
                                 {1.0, -0.0, 2.0},   {inf, 1.0, 2.0},       {1.0, -inf, 0.0},
                                 {nan, 0.0, 0.0},    {0.0, 0.0, nan},       {1e-310, -1e-310, 0},
                                 {1e308, -1e308, 3}, {123.456, -7.5, 0.125}};
    // The special points spread among ordinary ones.
    constexpr int kPoints = 64;
    Eigen::Matrix3Xd points = Eigen::Matrix3Xd::Random(3, kPoints) * 100.0;
    for (size_t k = 0; k < std::size(special); ++k)
        points.col(static_cast<Eigen::Index>(5 * k)) = Eigen::Vector3d(special[k]);

    for (const double metresPerUnit : {ex::kDefaultMetresPerUnit, 1.0, -0.5, 1e-300}) {
        const ex::ModelToGltf map{metresPerUnit};
        const Eigen::Matrix3Xd expected = map.matrix() * points;
        std::vector<float> planar(3 * kPoints);
        kestrel::meridian::matrixToPlanar(points, planar.data());
        const Eigen::Matrix3Xd widened =
            kestrel::meridian::planarToVertices(planar.data(), kPoints);
        const Eigen::Matrix3Xd expectedFromFloats = map.matrix() * widened;

        const Eigen::Matrix3Xd mapped = map(points);
        const Eigen::Matrix3Xd fromPlanar = map.fromPlanar(planar.data(), kPoints);
        ASSERT_EQ(mapped.cols(), kPoints);
        ASSERT_EQ(fromPlanar.cols(), kPoints);
        for (Eigen::Index i = 0; i < expected.size(); ++i) {
            EXPECT_TRUE(sameBits(mapped.data()[i], expected.data()[i]))
                << "scale " << metresPerUnit << " coordinate " << i << ": " << mapped.data()[i]
                << " against " << expected.data()[i];
            EXPECT_TRUE(sameBits(fromPlanar.data()[i], expectedFromFloats.data()[i]))
                << "scale " << metresPerUnit << " planar coordinate " << i;
        }
    }
}

}  // namespace
