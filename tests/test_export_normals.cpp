// Seamless normals are computed once per copy id, a block of ids at a time
// with packed square roots and divisions. They must give every vertex the
// bits of the plain per-vertex loop: the head asset's bytes depend on it.
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <Eigen/Geometry>

#include "asset/engine_mesh.h"

namespace {

namespace ex = meridian::exporter;

/// The per-vertex loop the export used before: each vertex normalises its
/// id's sum itself.
Eigen::Matrix3Xd referenceNormals(const Eigen::Matrix3Xd& positions, const Eigen::Matrix3Xi& faces,
                                  const std::vector<int>& copyOf, int idCount) {
    Eigen::Matrix3Xd sums = Eigen::Matrix3Xd::Zero(3, idCount);
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const Eigen::Vector3d a = positions.col(faces(0, f)), b = positions.col(faces(1, f)),
                              c = positions.col(faces(2, f));
        const Eigen::Vector3d weighted = (b - a).cross(c - a);
        for (int k = 0; k < 3; ++k) sums.col(copyOf[static_cast<size_t>(faces(k, f))]) += weighted;
    }
    Eigen::Matrix3Xd normals(3, positions.cols());
    for (Eigen::Index v = 0; v < positions.cols(); ++v) {
        const Eigen::Vector3d sum = sums.col(copyOf[static_cast<size_t>(v)]);
        const double length = sum.norm();
        normals.col(v) = length > 0.0 ? Eigen::Vector3d(sum / length) : Eigen::Vector3d::UnitY();
    }
    return normals;
}

struct Mesh {
    std::string name;
    Eigen::Matrix3Xd positions;
    Eigen::Matrix3Xi faces;
    std::vector<int> copyOf;
    int idCount = 0;
};

/// `vertices` random points (coordinates scaled by `scale`), `faceCount`
/// random triangles, every `copyEvery`-th vertex a copy of the one before.
Mesh randomMesh(const std::string& name, int vertices, int faceCount, double scale, int copyEvery,
                unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> coordinate(-1.0, 1.0);
    std::uniform_int_distribution<int> vertex(0, vertices - 1);
    Mesh mesh{name, Eigen::Matrix3Xd(3, vertices), Eigen::Matrix3Xi(3, faceCount), {}, 0};
    for (Eigen::Index i = 0; i < mesh.positions.size(); ++i)
        mesh.positions.data()[i] = scale * coordinate(random);
    for (Eigen::Index i = 0; i < mesh.faces.size(); ++i) mesh.faces.data()[i] = vertex(random);
    for (int v = 0; v < vertices; ++v) {
        const bool copy = copyEvery > 0 && v > 0 && v % copyEvery == 0;
        mesh.copyOf.push_back(copy ? mesh.copyOf.back() : mesh.idCount++);
        if (copy) mesh.positions.col(v) = mesh.positions.col(v - 1);
    }
    return mesh;
}

bool sameBits(const Eigen::Matrix3Xd& a, const Eigen::Matrix3Xd& b) {
    return a.cols() == b.cols() &&
           std::memcmp(a.data(), b.data(), sizeof(double) * static_cast<size_t>(a.size())) == 0;
}

TEST(SeamlessNormals, PerIdBlocksGiveTheBitsOfThePerVertexLoop) {
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    std::vector<Mesh> meshes;
    // Id counts around the block size, so that partial last blocks are
    // covered, and copies so that ids and vertices differ.
    for (int vertices : {1, 3, 63, 64, 65, 130, 1000})
        meshes.push_back(randomMesh("random " + std::to_string(vertices), vertices,
                                    2 * vertices + 1, 1.0, 7, static_cast<unsigned>(vertices)));
    // Squares that overflow (infinite length: quotients 0 or NaN) and that
    // underflow (zero length from non-zero sums: the fallback normal).
    meshes.push_back(randomMesh("huge", 100, 150, 1e160, 5, 11));
    meshes.push_back(randomMesh("tiny", 100, 150, 1e-100, 5, 12));
    meshes.push_back(randomMesh("subnormal sums", 100, 150, 1e-160, 0, 13));
    {
        // Collinear faces, a vertex in no face, a NaN corner, and faces
        // that cancel to a signed-zero sum.
        Mesh mesh{"degenerate", Eigen::Matrix3Xd(3, 8), Eigen::Matrix3Xi(3, 5), {}, 0};
        mesh.positions << 0, 1, 2, 0, 5, kNaN, 0, 0,  //
            0, 1, 2, 1, 5, 0, 0, 1,                   //
            0, 1, 2, 0, 5, 0, -0.0, 0;
        mesh.faces << 0, 0, 3, 0, 0,  //
            1, 3, 5, 3, 7,            //
            2, 6, 0, 7, 3;
        mesh.copyOf = {0, 1, 2, 3, 4, 5, 6, 3};
        mesh.idCount = 7;
        meshes.push_back(mesh);
    }
    for (const Mesh& mesh : meshes) {
        SCOPED_TRACE(mesh.name);
        const Eigen::Matrix3Xd expected =
            referenceNormals(mesh.positions, mesh.faces, mesh.copyOf, mesh.idCount);
        EXPECT_TRUE(
            sameBits(ex::seamlessNormals(mesh.positions, mesh.faces, mesh.copyOf), expected));

        // Storage kept from a larger mesh is resized, not read.
        std::vector<double> perId(3 * static_cast<size_t>(mesh.idCount) + 300, 7.0);
        ex::seamlessNormalsPerId(mesh.positions.data(), mesh.faces,
                                 ex::cornerIds(mesh.faces, mesh.copyOf), mesh.idCount, perId);
        ASSERT_EQ(perId.size(), 3 * static_cast<size_t>(mesh.idCount));
        Eigen::Matrix3Xd gathered(3, mesh.positions.cols());
        for (Eigen::Index v = 0; v < gathered.cols(); ++v)
            for (int r = 0; r < 3; ++r)
                gathered(r, v) = perId[3 * static_cast<size_t>(mesh.copyOf[v]) + r];
        EXPECT_TRUE(sameBits(gathered, expected));
    }
}

}  // namespace
