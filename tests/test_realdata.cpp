// A real head scan (v, vt and triangular f a/b records) read by our OBJ
// reader and by tinyobjloader, compared value by value.
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

using kestrel::meridian::ObjMeshData;
using kestrel::meridian::readObj;

const std::string kHeadScan =
    std::string(MERIDIAN_SHARED_DIR) + "/realdata/meshes/lee-perry-smith-head.obj";

class RealDataHeadScan : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        if (!std::filesystem::exists(kHeadScan)) return;
        ours_ = new ObjMeshData(readObj(kHeadScan));
        reference_ = new tinyobj::ObjReader();
        tinyobj::ObjReaderConfig config;
        config.triangulate = false;
        config.mtl_search_path = "";
        referenceOk_ = reference_->ParseFromFile(kHeadScan, config);
    }
    static void TearDownTestSuite() {
        delete ours_;
        delete reference_;
        ours_ = nullptr;
        reference_ = nullptr;
    }
    void SetUp() override {
        if (ours_ == nullptr) GTEST_SKIP() << "real data not found at " << kHeadScan;
        ASSERT_TRUE(referenceOk_) << reference_->Error();
    }

    // All corners of all shapes, in file order.
    static std::vector<tinyobj::index_t> referenceCorners() {
        std::vector<tinyobj::index_t> corners;
        for (const auto& shape : reference_->GetShapes()) {
            for (unsigned char n : shape.mesh.num_face_vertices) EXPECT_EQ(n, 3);
            corners.insert(corners.end(), shape.mesh.indices.begin(), shape.mesh.indices.end());
        }
        return corners;
    }

    static ObjMeshData* ours_;
    static tinyobj::ObjReader* reference_;
    static bool referenceOk_;
};

ObjMeshData* RealDataHeadScan::ours_ = nullptr;
tinyobj::ObjReader* RealDataHeadScan::reference_ = nullptr;
bool RealDataHeadScan::referenceOk_ = false;

// Compares a 2- or 3-row matrix with tinyobjloader's flat float array,
// reporting at most a few differences.
void expectSameAsFloats(const Eigen::MatrixXd& ours, const std::vector<tinyobj::real_t>& flat,
                        const char* what) {
    ASSERT_EQ(static_cast<size_t>(ours.size()), flat.size()) << what;
    int reported = 0;
    for (Eigen::Index k = 0; k < ours.cols(); ++k)
        for (Eigen::Index r = 0; r < ours.rows(); ++r) {
            const double expected =
                static_cast<double>(static_cast<float>(flat[k * ours.rows() + r]));
            if (ours(r, k) != expected && reported++ < 5)
                ADD_FAILURE() << what << " (" << r << ", " << k << "): " << ours(r, k) << " vs "
                              << expected;
        }
    EXPECT_EQ(reported, 0) << what << " values differ";
}

TEST_F(RealDataHeadScan, CountsMatchTheFile) {
    EXPECT_EQ(ours_->vertices.rows(), 3);
    EXPECT_EQ(ours_->vertices.cols(), 8844);
    EXPECT_EQ(ours_->texcoords.rows(), 2);
    EXPECT_EQ(ours_->texcoords.cols(), 9223);
    EXPECT_EQ(ours_->faces.cols(), 17684);
    EXPECT_EQ(ours_->textureFaces.cols(), 17684);
}

TEST_F(RealDataHeadScan, PositionsAndUvsMatchTinyObjLoader) {
    const auto& attrib = reference_->GetAttrib();
    expectSameAsFloats(ours_->vertices, attrib.vertices, "position");
    expectSameAsFloats(ours_->texcoords, attrib.texcoords, "uv");
}

TEST_F(RealDataHeadScan, FaceIndicesMatchTinyObjLoaderPlusOne) {
    const std::vector<tinyobj::index_t> corners = referenceCorners();
    ASSERT_EQ(static_cast<Eigen::Index>(corners.size()), 3 * ours_->faces.cols());
    int reported = 0;
    for (size_t i = 0; i < corners.size() && reported < 5; ++i) {
        const auto f = static_cast<Eigen::Index>(i / 3), r = static_cast<Eigen::Index>(i % 3);
        // tinyobjloader is 0-based; ours keeps the file's 1-based numbers.
        if (ours_->faces(r, f) != corners[i].vertex_index + 1 ||
            ours_->textureFaces(r, f) != corners[i].texcoord_index + 1) {
            ++reported;
            ADD_FAILURE() << "corner " << r << " of face " << f << ": " << ours_->faces(r, f) << "/"
                          << ours_->textureFaces(r, f) << " vs " << corners[i].vertex_index + 1
                          << "/" << corners[i].texcoord_index + 1;
        }
    }
}

TEST_F(RealDataHeadScan, FacesCloseAConsistentlyOrientedSphere) {
    // One closed piece of genus 0: every directed edge once, its reverse once,
    // and V - E + F = 2.
    const Eigen::MatrixXd& faces = ours_->faces;
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
    EXPECT_EQ(ours_->vertices.cols() - edges + faces.cols(), 2);

    // A closed surface's area vectors cancel, and it encloses positive volume.
    Eigen::Vector3d areaSum = Eigen::Vector3d::Zero();
    double area = 0, volume = 0;
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const Eigen::Vector3d a = ours_->vertices.col(static_cast<Eigen::Index>(faces(0, f)) - 1);
        const Eigen::Vector3d b = ours_->vertices.col(static_cast<Eigen::Index>(faces(1, f)) - 1);
        const Eigen::Vector3d c = ours_->vertices.col(static_cast<Eigen::Index>(faces(2, f)) - 1);
        const Eigen::Vector3d n = (b - a).cross(c - a);
        areaSum += n;
        area += n.norm();
        volume += a.dot(b.cross(c)) / 6;
    }
    EXPECT_LT(areaSum.norm(), 1e-9 * area);
    EXPECT_GT(volume, 0);
}

TEST_F(RealDataHeadScan, IndicesStayInsideTheirArrays) {
    EXPECT_GE(ours_->faces.minCoeff(), 1);
    EXPECT_LE(ours_->faces.maxCoeff(), ours_->vertices.cols());
    EXPECT_GE(ours_->textureFaces.minCoeff(), 1);
    EXPECT_LE(ours_->textureFaces.maxCoeff(), ours_->texcoords.cols());
    EXPECT_GE(ours_->texcoords.minCoeff(), 0);
    EXPECT_LE(ours_->texcoords.maxCoeff(), 1);
}

}  // namespace
