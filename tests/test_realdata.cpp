// A real head scan (v, vt and triangular f a/b records) read by our OBJ
// reader and by tinyobjloader, compared value by value, and checked as the
// closed surface it is.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <tiny_obj_loader.h>
#include <Eigen/Geometry>

#include "io/mesh_readers.h"

namespace {

/// Entries of `ours` (column after column) unlike tinyobjloader's values read
/// as floats; -1 when the counts differ.
long differing(const Eigen::MatrixXd& ours, const std::vector<tinyobj::real_t>& flat) {
    if (static_cast<size_t>(ours.size()) != flat.size()) return -1;
    long count = 0;
    for (size_t k = 0; k < flat.size(); ++k) count += ours.data()[k] != static_cast<float>(flat[k]);
    return count;
}

TEST(RealDataHeadScan, ReadsAsTinyObjLoaderDoesAndClosesAnOrientedSphere) {
    const std::string path =
        std::string(MERIDIAN_SHARED_DIR) + "/realdata/meshes/lee-perry-smith-head.obj";
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "real data not found at " << path;
    const kestrel::meridian::ObjMeshData ours = kestrel::meridian::readObj(path);
    tinyobj::ObjReader reference;
    tinyobj::ObjReaderConfig config;
    config.triangulate = false;
    config.mtl_search_path = "";
    ASSERT_TRUE(reference.ParseFromFile(path, config)) << reference.Error();

    // Counts of the file; equal sizes below then fix the rows (3 and 2).
    EXPECT_EQ(ours.vertices.cols(), 8844);
    EXPECT_EQ(ours.texcoords.cols(), 9223);
    ASSERT_EQ(ours.faces.cols(), 17684);
    ASSERT_EQ(ours.textureFaces.cols(), 17684);
    EXPECT_EQ(differing(ours.vertices, reference.GetAttrib().vertices), 0);
    EXPECT_EQ(differing(ours.texcoords, reference.GetAttrib().texcoords), 0);

    // tinyobjloader counts from 0; ours keeps the file's 1-based numbers.
    Eigen::Index corner = 0, wrong = 0;
    for (const auto& shape : reference.GetShapes()) {
        for (unsigned char n : shape.mesh.num_face_vertices) EXPECT_EQ(n, 3);
        for (const tinyobj::index_t& c : shape.mesh.indices) {
            if (corner < ours.faces.size())
                wrong += ours.faces.data()[corner] != c.vertex_index + 1 ||
                         ours.textureFaces.data()[corner] != c.texcoord_index + 1;
            ++corner;
        }
    }
    EXPECT_EQ(corner, ours.faces.size());
    EXPECT_EQ(wrong, 0);
    ASSERT_GE(ours.faces.minCoeff(), 1);
    ASSERT_LE(ours.faces.maxCoeff(), ours.vertices.cols());
    EXPECT_GE(ours.textureFaces.minCoeff(), 1);
    EXPECT_LE(ours.textureFaces.maxCoeff(), ours.texcoords.cols());
    EXPECT_GE(ours.texcoords.minCoeff(), 0);
    EXPECT_LE(ours.texcoords.maxCoeff(), 1);

    // One closed piece of genus 0: every directed edge once, its reverse once,
    // and V - E + F = 2.
    const Eigen::MatrixXd& faces = ours.faces;
    std::map<std::pair<int, int>, int> directed;
    for (Eigen::Index f = 0; f < faces.cols(); ++f)
        for (int c = 0; c < 3; ++c)
            ++directed[{static_cast<int>(faces(c, f)), static_cast<int>(faces((c + 1) % 3, f))}];
    for (const auto& [edge, uses] : directed) {
        ASSERT_EQ(uses, 1) << edge.first << "->" << edge.second;
        ASSERT_EQ(directed.count({edge.second, edge.first}), 1u)
            << edge.first << "->" << edge.second;
    }
    const auto edges = static_cast<Eigen::Index>(directed.size() / 2);
    EXPECT_EQ(ours.vertices.cols() - edges + faces.cols(), 2);

    // A closed surface's area vectors cancel, and it encloses positive volume.
    Eigen::Vector3d areaSum = Eigen::Vector3d::Zero();
    double area = 0, volume = 0;
    auto vertexAt = [&](Eigen::Index f, int c) {
        return Eigen::Vector3d(ours.vertices.col(static_cast<Eigen::Index>(faces(c, f)) - 1));
    };
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const Eigen::Vector3d a = vertexAt(f, 0), b = vertexAt(f, 1), c = vertexAt(f, 2);
        const Eigen::Vector3d n = (b - a).cross(c - a);
        areaSum += n;
        area += n.norm();
        volume += a.dot(b.cross(c)) / 6;
    }
    EXPECT_LT(areaSum.norm(), 1e-9 * area);
    EXPECT_GT(volume, 0);
}

}  // namespace
