// The demo model set: geometry of the demo head, its fixed vertex ids, and
// the files of the model directory as the project's readers see them.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include <gtest/gtest.h>
#include <Eigen/Dense>

#include "demo/demo_model.h"
#include "demo/float_round.h"
#include "demo/head_topology.h"
#include "eyes_fixtures.h"
#include "io/correspondence.h"
#include "io/mesh_readers.h"

namespace {

namespace demo = meridian::demo;
namespace km = kestrel::meridian;
using Eigen::Vector3d;
using meridian::testing::TempDir;

struct Sphere {
    Vector3d centre;
    double radius;
    double rmsResidual;
};

/// Algebraic least-squares sphere: |p|^2 = 2 c.p + (r^2 - |c|^2).
Sphere fitSphere(const Eigen::Matrix3Xd& points) {
    const Eigen::Index n = points.cols();
    Eigen::MatrixXd a(n, 4);
    a << 2 * points.transpose(), Eigen::VectorXd::Ones(n);
    const Eigen::Vector4d s =
        a.colPivHouseholderQr().solve(points.colwise().squaredNorm().transpose());
    Sphere sphere{s.head<3>(), std::sqrt(s[3] + s.head<3>().squaredNorm()), 0.0};
    const Eigen::ArrayXd residuals =
        (points.colwise() - sphere.centre).colwise().norm().array() - sphere.radius;
    sphere.rmsResidual = std::sqrt(residuals.square().mean());
    return sphere;
}

/// Largest coefficient difference, or infinity when the shapes differ (so
/// that a failure prints one number, not two matrices).
template <typename A, typename B>
double maxDifference(const Eigen::MatrixBase<A>& a, const Eigen::MatrixBase<B>& b) {
    if (a.rows() != b.rows() || a.cols() != b.cols()) return HUGE_VAL;
    if (a.size() == 0) return 0.0;
    return (a.template cast<double>() - b.template cast<double>()).cwiseAbs().maxCoeff();
}

double signedVolume(const Eigen::Matrix3Xd& v, const Eigen::Matrix3Xi& f) {
    double volume = 0;
    for (Eigen::Index k = 0; k < f.cols(); ++k)
        volume += v.col(f(0, k)).dot(v.col(f(1, k)).cross(v.col(f(2, k)))) / 6.0;
    return volume;
}

// --- The head as a surface -------------------------------------------------

TEST(DemoModelHead, IsAClosedOutwardOrientedSurfaceOfHeadSize) {
    const demo::DemoHead& head = demo::demoHead();
    ASSERT_EQ(head.vertices.cols(), demo::kTemplateVertexCount);
    ASSERT_EQ(head.faces.cols(), head.uvFaces.cols());

    // Consistent orientation: every directed edge once, and its reverse once,
    // so every undirected edge lies in exactly two faces.
    std::map<std::pair<int, int>, int> directed;
    for (Eigen::Index f = 0; f < head.faces.cols(); ++f)
        for (int c = 0; c < 3; ++c) ++directed[{head.faces(c, f), head.faces((c + 1) % 3, f)}];
    int badEdges = 0;
    for (const auto& [edge, count] : directed) {
        const auto reverse = directed.find({edge.second, edge.first});
        if (count != 1 || reverse == directed.end() || reverse->second != 1) ++badEdges;
    }
    EXPECT_EQ(badEdges, 0);
    // A sphere, counting every vertex: an unused one would break the sum.
    const long long edges = static_cast<long long>(directed.size()) / 2;
    EXPECT_EQ(head.vertices.cols() - edges + head.faces.cols(), 2);

    // Positive volume means outward normals; roughly that of a head and neck.
    const double volume = signedVolume(head.vertices, head.faces);
    EXPECT_GT(volume, 1.0e5);
    EXPECT_LT(volume, 3.0e5);

    const Vector3d low = head.vertices.rowwise().minCoeff();
    const Vector3d high = head.vertices.rowwise().maxCoeff();
    EXPECT_NEAR(high.x() - low.x(), 58, 8);  // with the ears
    EXPECT_NEAR(high.y() - low.y(), 72, 8);  // with the nose
    EXPECT_GT(high.z() - low.z(), 80);       // with the neck
    EXPECT_LT(low.y(), -17);                 // the face looks toward -y
}

TEST(DemoModelHead, FixedVertexIdsAreDistinctAndLandmarksSitOnTheReference) {
    std::set<int> ids(demo::kLandmarkIds.begin(), demo::kLandmarkIds.end());
    ids.insert(demo::kRingA.begin(), demo::kRingA.end());
    ids.insert(demo::kRingB.begin(), demo::kRingB.end());
    ids.insert({demo::kGazeFirstEye, demo::kGazeSecondEye});
    EXPECT_EQ(ids.size(), 25u + 45u + 45u + 2u);
    EXPECT_LT(*ids.rbegin(), demo::kTemplateVertexCount);

    // The landmark template holds the head's landmark positions as floats.
    const Eigen::Matrix3Xf landmarks =
        demo::demoHead().vertices(Eigen::all, demo::kLandmarkIds).cast<float>();
    EXPECT_EQ(landmarks, Eigen::Map<const Eigen::Matrix3Xf>(&demo::kLandmarkPositions[0][0], 3,
                                                            demo::kLandmarkCount));
}

// --- Eye sockets, texture layout, blendshape face ----------------------------

TEST(DemoModelSockets, SphereFitToEachRingRecoversItsSocket) {
    const demo::DemoHead& head = demo::demoHead();
    // Eye 0 is on the -x side with ring B, eye 1 on the +x side with ring A.
    const Eigen::Matrix3Xd rings[2] = {head.vertices(Eigen::all, demo::kRingB),
                                       head.vertices(Eigen::all, demo::kRingA)};
    const int gaze[2] = {demo::kGazeFirstEye, demo::kGazeSecondEye};
    for (int eye = 0; eye < 2; ++eye) {
        SCOPED_TRACE(eye);
        const demo::SocketSphere& socket = demo::socketSphere(eye);
        EXPECT_EQ(socket.centre.x() > 0, eye == 1);
        EXPECT_GE(socket.radius, 4.0);
        EXPECT_LE(socket.radius, 5.0);

        // Well posed: the ring is far from a plane (smallest spread of the
        // centred points, against float-level noise).
        const Eigen::Matrix3Xd centred = rings[eye].colwise() - rings[eye].rowwise().mean();
        EXPECT_GT(Eigen::JacobiSVD<Eigen::MatrixXd>(centred).singularValues()[2], 0.5);

        const Sphere fit = fitSphere(rings[eye]);
        EXPECT_LT((fit.centre - socket.centre).norm(), 1e-4);
        EXPECT_NEAR(fit.radius, socket.radius, 1e-4);
        EXPECT_LT(fit.rmsResidual, 1e-5);

        // The gaze vertex is the front of the socket: on the sphere, facing -y.
        const Vector3d toGaze = head.vertices.col(gaze[eye]) - fit.centre;
        EXPECT_NEAR(toGaze.norm(), fit.radius, 1e-4);
        EXPECT_GT(toGaze.normalized().dot(-Vector3d::UnitY()), 0.95);
    }
    // Two dozen units apart, where the landmark clusters put the eyes.
    EXPECT_NEAR((demo::socketSphere(1).centre - demo::socketSphere(0).centre).norm(), 24, 3);
}

TEST(DemoModelUv, TextureTrianglesAreProperAndSeamsSplitVertices) {
    const demo::DemoHead& head = demo::demoHead();
    EXPECT_GE(head.uvs.minCoeff(), 0.0);
    EXPECT_LE(head.uvs.maxCoeff(), 1.0);
    // Same winding as the surface seen from outside, so tangent frames agree:
    // no flat and no clockwise texture triangle.
    int notCounterClockwise = 0;
    for (Eigen::Index f = 0; f < head.uvFaces.cols(); ++f) {
        const Eigen::Vector2d a = head.uvs.col(head.uvFaces(0, f));
        const Eigen::Vector2d ab = head.uvs.col(head.uvFaces(1, f)) - a;
        const Eigen::Vector2d ac = head.uvs.col(head.uvFaces(2, f)) - a;
        if (!(ab.x() * ac.y() - ab.y() * ac.x() > 0)) ++notCounterClockwise;
    }
    EXPECT_EQ(notCounterClockwise, 0);

    // Seams: some vertices carry two or more texture coordinates, and a uv
    // never serves two vertices.
    std::set<std::pair<int, int>> pairs;
    for (Eigen::Index f = 0; f < head.faces.cols(); ++f)
        for (int c = 0; c < 3; ++c) pairs.insert({head.faces(c, f), head.uvFaces(c, f)});
    EXPECT_GT(pairs.size(), static_cast<size_t>(head.vertices.cols()) + 200);
    EXPECT_EQ(pairs.size(), static_cast<size_t>(head.uvs.cols()));
}

TEST(DemoModelFaceList, HoldsDistinctUpperVerticesWithAnchorsInPlace) {
    const demo::DemoHead& head = demo::demoHead();
    const std::vector<int>& face = demo::faceVertexList();
    ASSERT_EQ(face.size(), static_cast<size_t>(demo::kFaceVertexCount));
    EXPECT_EQ(std::set<int>(face.begin(), face.end()).size(), face.size());
    // Only the lowest vertices are left out.
    std::vector<bool> inFace(head.vertices.cols(), false);
    for (int v : face) inFace[v] = true;
    double lowestIn = 1e9, highestOut = -1e9;
    for (Eigen::Index v = 0; v < head.vertices.cols(); ++v) {
        if (inFace[v])
            lowestIn = std::min(lowestIn, head.vertices(2, v));
        else
            highestOut = std::max(highestOut, head.vertices(2, v));
    }
    EXPECT_LE(highestOut, lowestIn);

    auto at = [&](int position) { return Vector3d(head.vertices.col(face[position])); };
    EXPECT_DOUBLE_EQ(at(demo::kFaceAnchorNoseTip).y(), head.vertices.row(1).minCoeff());
    EXPECT_DOUBLE_EQ(at(demo::kFaceAnchorEarLeft).x(), head.vertices.row(0).maxCoeff());
    EXPECT_DOUBLE_EQ(at(demo::kFaceAnchorEarRight).x(), head.vertices.row(0).minCoeff());
    EXPECT_GT(at(demo::kFaceAnchorCheekLeft).x(), 10);
    EXPECT_LT(at(demo::kFaceAnchorCheekRight).x(), -10);
    EXPECT_LT(at(demo::kFaceAnchorCheekLeft).y(), 0);  // on the face, not behind it
}

// --- Sample head -----------------------------------------------------------------

TEST(DemoModelSample, IsTheDemoHeadUnderASimilarityNearEyesAndLandmarksOnly) {
    const demo::DemoHead& head = demo::demoHead();
    const Eigen::Matrix3Xd sample = demo::sampleHead();
    ASSERT_EQ(sample.cols(), demo::kTemplateVertexCount);
    const demo::SampleMotion& m = demo::sampleMotion();
    auto moved = [&](const Vector3d& p) {
        return Vector3d(m.scale * (m.rotation * p) + m.translation);
    };

    // Rotation and scale recovered from the landmarks (scaled Kabsch).
    const Eigen::Matrix3Xd from = head.vertices(Eigen::all, demo::kLandmarkIds);
    const Eigen::Matrix3Xd to = sample(Eigen::all, demo::kLandmarkIds);
    const Eigen::Matrix3Xd a = from.colwise() - from.rowwise().mean();
    const Eigen::Matrix3Xd b = to.colwise() - to.rowwise().mean();
    Eigen::JacobiSVD<Eigen::Matrix3d> svd(b * a.transpose(),
                                          Eigen::ComputeFullU | Eigen::ComputeFullV);
    EXPECT_LT((svd.matrixU() * svd.matrixV().transpose() - m.rotation).norm(), 1e-5);
    EXPECT_NEAR(std::sqrt(b.squaredNorm() / a.squaredNorm()), m.scale, 1e-6);
    const Eigen::Matrix3Xd movedFrom = (m.scale * (m.rotation * from)).colwise() + m.translation;
    EXPECT_LT((to - movedFrom).colwise().norm().maxCoeff(), 1e-4);

    for (int eye = 0; eye < 2; ++eye) {
        const Sphere fit = fitSphere(eye == 0 ? sample(Eigen::all, demo::kRingB)
                                              : sample(Eigen::all, demo::kRingA));
        EXPECT_LT((fit.centre - moved(demo::socketSphere(eye).centre)).norm(), 1e-3);
        EXPECT_NEAR(fit.radius, m.scale * demo::socketSphere(eye).radius, 1e-3);
    }

    // Elsewhere it is another shape: the nose tip is not where the motion puts it.
    const int noseTip = demo::faceVertexList()[demo::kFaceAnchorNoseTip];
    EXPECT_GT((sample.col(noseTip) - moved(head.vertices.col(noseTip))).norm(), 1.0);
}

// --- Model directory -------------------------------------------------------------

// The model directory, written once per process.
std::string file(const std::string& name) {
    return meridian::testing::demoModel().file(name);
}

TEST(DemoModelFiles, CorrespondencesCarryTheTemplateOntoEveryEngineVertex) {
    km::Correspondence toHead, toEngine;
    km::Error error;
    ASSERT_TRUE(km::loadCorrespondence(toHead, file("idx_tavi2head.corresp"), error));
    ASSERT_TRUE(km::loadCorrespondence(toEngine, file("idx_head2ue4.corresp"), error));
    EXPECT_FALSE(toHead.isPairForm());
    EXPECT_TRUE(toEngine.isPairForm());
    ASSERT_EQ(toHead.size(), static_cast<size_t>(demo::kHeadVertexCount));
    ASSERT_EQ(toEngine.size(), static_cast<size_t>(demo::kEngineVertexCount));
    km::BadSourceIndex bad{};
    EXPECT_FALSE(km::firstSourceOutOfRange(toHead, demo::kTemplateVertexCount, bad)) << bad.entry;
    EXPECT_FALSE(km::firstSourceOutOfRange(toEngine, demo::kHeadVertexCount, bad)) << bad.entry;

    for (size_t k = 0; k < toHead.size(); ++k) {
        ASSERT_EQ(toHead.targets[k], static_cast<int>(k));
        const double sum =
            toHead.weights[3 * k] + toHead.weights[3 * k + 1] + toHead.weights[3 * k + 2];
        ASSERT_NEAR(sum, 1.0, 1e-15) << "entry " << k;
    }
    // Every head vertex reaches the engine, seam vertices more than once.
    std::vector<int> uses(demo::kHeadVertexCount, 0);
    for (int32_t source : toEngine.pairSources) ++uses[source];
    EXPECT_EQ(std::count(uses.begin(), uses.end(), 0), 0);
    EXPECT_GT(std::count_if(uses.begin(), uses.end(), [](int n) { return n > 1; }), 100);

    // Template vertices arrive unchanged; added vertices are triangle centroids.
    const Eigen::Matrix3Xd& sample = demo::sampleHead();
    const Eigen::Matrix3Xd onHead = km::applyCorrespondence(toHead, sample);
    EXPECT_EQ(maxDifference(onHead.leftCols(demo::kTemplateVertexCount), sample), 0.0);
    for (int k = demo::kTemplateVertexCount; k < demo::kHeadVertexCount; ++k) {
        const Eigen::Matrix3Xd corners =
            sample(Eigen::all, Eigen::Map<const Eigen::Vector3i>(&toHead.triangles[3 * k]));
        ASSERT_LT((onHead.col(k) - corners.rowwise().mean()).norm(), 1e-12);
    }
    // The engine mesh file holds the demo head carried the same way, as floats.
    const Eigen::Matrix3Xd engine = km::applyCorrespondence(
        toEngine, km::applyCorrespondence(toHead, demo::demoHead().vertices));
    const km::ObjMeshData mesh = km::readObj(file("ue4_head.obj"));
    ASSERT_EQ(mesh.vertices.cols(), demo::kEngineVertexCount);
    EXPECT_EQ(mesh.texcoords.cols(), demo::kEngineVertexCount);
    EXPECT_EQ(maxDifference(mesh.faces, mesh.textureFaces), 0.0);
    const Eigen::Matrix3Xd engineAsFloat =
        engine.unaryExpr([](double v) { return demo::detail::roundToFloat(v); });
    EXPECT_EQ(maxDifference(mesh.vertices, engineAsFloat), 0.0);
    EXPECT_EQ(mesh.faces.minCoeff(), 1);
    EXPECT_EQ(mesh.faces.maxCoeff(), demo::kEngineVertexCount);
    // The split triangles make the head mesh three faces out of one.
    EXPECT_EQ(mesh.faces.cols(), demo::demoHead().faces.cols() + 2 * demo::kSplitTriangleCount);
}

TEST(DemoModelFiles, MeshesReadBackAsTheHeadsTheyHold) {
    const demo::DemoHead& head = demo::demoHead();
    const km::ObjMeshData tbn = km::readObj(file("TBN/std_20481_with_UV_F_TF.obj"));
    // Coordinates are float values, so they come back exactly.
    EXPECT_EQ(maxDifference(tbn.vertices, head.vertices), 0.0);
    EXPECT_EQ(maxDifference(tbn.texcoords, head.uvs), 0.0);
    EXPECT_EQ(maxDifference(tbn.faces, (head.faces.array() + 1).matrix()), 0.0);
    EXPECT_EQ(maxDifference(tbn.textureFaces, (head.uvFaces.array() + 1).matrix()), 0.0);

    const Eigen::Matrix3Xd sample = demo::sampleHead();
    EXPECT_EQ(maxDifference(km::readObj(file("sample_head.obj")).vertices, sample), 0.0);
    EXPECT_EQ(km::countPlyHeaderLines(file("sample_head.ply")), 7);
    const km::PlyMeshData ply = km::readPly(file("sample_head.ply"), 7);
    EXPECT_EQ(maxDifference(ply.vertices, sample), 0.0);
    EXPECT_EQ(ply.faces.cols(), 0);
}

TEST(DemoModelFiles, SplitTemplateCopiesHeadVerticesBothWays) {
    const demo::DemoHead& head = demo::demoHead();
    std::vector<int32_t> toHead, fromHead;
    km::Error error;
    ASSERT_TRUE(km::loadIndexList(toHead, file("TBN/idx_tavi2head.txt"), error));
    ASSERT_TRUE(km::loadIndexList(fromHead, file("TBN/idx_head2tavi.txt"), error));
    const km::ObjMeshData split = km::readObj(file("TBN/head_split_uv.obj"));
    ASSERT_EQ(toHead.size(), static_cast<size_t>(split.vertices.cols()));
    ASSERT_EQ(fromHead.size(), static_cast<size_t>(demo::kTemplateVertexCount));
    EXPECT_GT(split.vertices.cols(), demo::kTemplateVertexCount);
    // One vertex per (position, uv) pair.
    EXPECT_EQ(split.texcoords.cols(), split.vertices.cols());
    EXPECT_EQ(maxDifference(split.faces, split.textureFaces), 0.0);

    EXPECT_EQ(maxDifference(split.vertices, km::applyIndexList(toHead, head.vertices)), 0.0);
    for (int j = 0; j < demo::kTemplateVertexCount; ++j)
        ASSERT_EQ(toHead[fromHead[j]], j) << "head vertex " << j;
    // Its own numbering, not the head's.
    int sameOrder = 0;
    for (int j = 0; j < demo::kTemplateVertexCount; ++j) sameOrder += toHead[j] == j;
    EXPECT_LT(sameOrder, demo::kTemplateVertexCount / 2);
    // Same surface: equal volume and orientation through the split numbering.
    const Eigen::Matrix3Xi faces = (split.faces.array() - 1).cast<int>().matrix();
    EXPECT_NEAR(signedVolume(split.vertices, faces), signedVolume(head.vertices, head.faces), 1e-6);
}

TEST(DemoModelFiles, GenerationIsRepeatableAndReportsFailure) {
    TempDir again;
    std::string error;
    ASSERT_TRUE(demo::writeDemoModel(again.file("nested/model"), error)) << error;
    int compared = 0;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(meridian::testing::demoModel().path())) {
        if (!entry.is_regular_file()) continue;
        const auto relative =
            std::filesystem::relative(entry.path(), meridian::testing::demoModel().path());
        EXPECT_EQ(meridian::testing::readBytes(entry.path().string()),
                  meridian::testing::readBytes(again.file("nested/model/" + relative.string())))
            << relative;
        ++compared;
    }
    EXPECT_EQ(compared, 9 + 21);  // head and tangent-frame files, eye files

    // A directory that cannot be created.
    std::string why;
    EXPECT_FALSE(demo::writeDemoModel(file("ue4_head.obj") + "/inside", why));
    EXPECT_FALSE(why.empty());
}

}  // namespace
