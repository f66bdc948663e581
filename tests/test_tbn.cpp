// Tangent-frame engines: frames of meshes whose normals are known, the
// degenerate and clamp cases, the general engine's remapping, agreement of
// the single-pass engines with the literal per-face computation, and the C
// exports.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "demo/demo_model.h"
#include "fixtures.h"
#include "io/mesh_readers.h"
#include "io/planar.h"
#include "meridian/meridian.h"
#include "tbn/frame_arithmetic.h"
#include "tbn/tbn_engine_general.h"
#include "tbn/tbn_engine_std.h"
#include "tbn/tbn_literal_reference.h"

namespace {

namespace fs = std::filesystem;
using kestrel::meridian::TBNEngineStd;
using Frame = std::array<float, 9>;

constexpr Eigen::Index kHead = 20481;

// A mesh with 0-based indices; vertex i is head vertex i.
struct TestMesh {
    Eigen::Matrix3Xd positions;
    Eigen::Matrix2Xd uv;
    Eigen::Matrix3Xi faces;
    Eigen::Matrix3Xi uvFaces;
};

// The OBJ tables the engines load: indices 1-based, stored as doubles.
Eigen::MatrixXd oneBased(const Eigen::Matrix3Xi& indices) {
    return (indices.array() + 1).cast<double>().matrix();
}

std::vector<float> planarHead(const Eigen::Matrix3Xd& positions) {
    std::vector<float> head(3 * kHead, 0.0f);
    for (Eigen::Index i = 0; i < positions.cols(); ++i)
        for (int c = 0; c < 3; ++c) head[c * kHead + i] = static_cast<float>(positions(c, i));
    return head;
}

std::vector<float> fixedFrames(const TestMesh& mesh, const std::vector<float>& head) {
    TBNEngineStd engine;
    EXPECT_EQ(engine.load(mesh.uv, oneBased(mesh.faces), oneBased(mesh.uvFaces), "test"), 1);
    std::vector<float> out(9 * kHead);
    EXPECT_EQ(engine.computeFrames(head.data(), out.data()), 1);
    return out;
}

std::vector<float> fixedFrames(const TestMesh& mesh) {
    return fixedFrames(mesh, planarHead(mesh.positions));
}

std::vector<float> literalFixedFrames(const TestMesh& mesh, const std::vector<float>& head) {
    return kestrel::meridian::literal::fixedEngineFrames(head.data(), mesh.uv, oneBased(mesh.faces),
                                                         oneBased(mesh.uvFaces));
}

Frame frameOf(const std::vector<float>& planar, Eigen::Index count, Eigen::Index v) {
    Frame frame;
    for (int k = 0; k < 9; ++k) frame[k] = planar[k * count + v];
    return frame;
}

Eigen::Vector3d normalOf(const Frame& f) {
    return Eigen::Vector3d(f[6], f[7], f[8]);
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// The single pass with every kernel this machine runs, against the literal
// computation: the normal sums against rows 6-8 of its accumulator in double
// (a difference in the last bit shows here even when the float output hides
// it), and the frames in float.
bool matchesLiteralWithEveryKernel(const Eigen::MatrixXd& positions, const Eigen::MatrixXd& uv,
                                   const Eigen::MatrixXd& faces, const Eigen::MatrixXd& uvFaces,
                                   bool guardDeterminant) {
    using namespace kestrel::meridian;
    const Eigen::Index n = positions.cols();
    FrameTopology topology;
    const auto bad = buildFrameTopology(
        faces, uvFaces, uv, n,
        guardDeterminant ? DeterminantGuard::epsilon : DeterminantGuard::none, topology);
    EXPECT_FALSE(bad.has_value());
    const Eigen::MatrixXd planar = positions.transpose();  // column-major: all x, all y, all z
    const Eigen::MatrixXd accumulator =
        literal::accumulateFrames(positions, uv, faces, uvFaces, guardDeterminant);
    std::vector<float> literalFrames(9 * n);
    matrixToPlanar(literal::framesFromAccumulator(accumulator), literalFrames.data());

    bool same = true;
    for (FrameKernel kernel : {FrameKernel::scalar, FrameKernel::sse2, FrameKernel::avx}) {
        if (!frameKernelAvailable(kernel)) continue;
        const auto name = static_cast<int>(kernel);
        std::vector<double> sums(3 * n, 0.0);
        accumulateNormalSums(topology, planar.data(), sums.data(), kernel);
        for (Eigen::Index v = 0; v < n; ++v)
            for (int c = 0; c < 3; ++c)
                if (std::memcmp(&sums[3 * v + c], &accumulator(6 + c, v), sizeof(double)) != 0) {
                    ADD_FAILURE() << "kernel " << name << ", normal sum " << c << " of vertex " << v
                                  << ": " << sums[3 * v + c] << " vs " << accumulator(6 + c, v);
                    return false;
                }
        std::vector<float> frames(9 * n);
        writeVertexFrames(sums.data(), nullptr, n, frames.data(), kernel);
        if (!sameBits(frames, literalFrames)) {
            ADD_FAILURE() << "kernel " << name << ": frames differ";
            same = false;
        }
    }
    return same;
}

Eigen::MatrixXd widened(const std::vector<float>& head) {
    return kestrel::meridian::planarToVertices(head.data(), kHead);
}

bool isNegativeZero(float v) {
    return v == 0.0f && std::signbit(v);
}
bool isPositiveZero(float v) {
    return v == 0.0f && !std::signbit(v);
}

// Every face gets the texture triangle (0,0), (1,0), (0,1) in corner order,
// so T x B is the face normal of its winding: (p1 - p0) x (p2 - p0).
TestMesh withUnitUvs(Eigen::Matrix3Xd positions, Eigen::Matrix3Xi faces) {
    TestMesh mesh;
    mesh.positions = std::move(positions);
    mesh.uv.resize(2, 3);
    mesh.uv << 0, 1, 0, 0, 0, 1;
    mesh.faces = std::move(faces);
    mesh.uvFaces.resize(3, mesh.faces.cols());
    mesh.uvFaces.colwise() = Eigen::Vector3i(0, 1, 2);
    return mesh;
}

// All triangles of a convex solid's vertex triples that lie on its hull,
// wound counter-clockwise seen from outside (the solid contains the origin).
Eigen::Matrix3Xi outwardHullFaces(const Eigen::Matrix3Xd& p) {
    std::vector<Eigen::Vector3i> faces;
    const int n = static_cast<int>(p.cols());
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j)
            for (int k = j + 1; k < n; ++k) {
                const Eigen::Vector3d normal = (p.col(j) - p.col(i)).cross(p.col(k) - p.col(i));
                const double offset = normal.dot(p.col(i));
                bool hull = std::abs(offset) > 1e-9;
                for (int m = 0; m < n && hull; ++m)
                    hull = normal.dot(p.col(m)) * offset <= offset * offset + 1e-9;
                if (hull)
                    faces.push_back(offset > 0 ? Eigen::Vector3i(i, j, k)
                                               : Eigen::Vector3i(i, k, j));
            }
    Eigen::Matrix3Xi out(3, static_cast<Eigen::Index>(faces.size()));
    for (size_t f = 0; f < faces.size(); ++f) out.col(static_cast<Eigen::Index>(f)) = faces[f];
    return out;
}

// A wavy grid with jittered texture coordinates, two faces per cell.
TestMesh wavyGrid(int side, uint64_t seed) {
    std::mt19937_64 random(seed);
    auto uniform = [&] { return static_cast<double>(random() >> 11) * 0x1.0p-53; };
    TestMesh mesh;
    const int n = side * side;
    mesh.positions.resize(3, n);
    mesh.uv.resize(2, n);
    for (int i = 0; i < n; ++i) {
        const double x = i % side, y = i / side;
        mesh.positions.col(i) << x + 0.3 * uniform(), y + 0.3 * uniform(),
            2.0 * std::sin(0.7 * x) * std::cos(0.5 * y) + uniform();
        mesh.uv.col(i) << (x + 0.2 * uniform()) / side, (y + 0.2 * uniform()) / side;
    }
    const int cells = (side - 1) * (side - 1);
    mesh.faces.resize(3, 2 * cells);
    for (int c = 0, f = 0; c < cells; ++c) {
        const int i = c % (side - 1) + (c / (side - 1)) * side;
        mesh.faces.col(f++) << i, i + 1, i + side + 1;
        mesh.faces.col(f++) << i, i + side + 1, i + side;
    }
    mesh.uvFaces = mesh.faces;
    // Values an OBJ file round-trips exactly.
    mesh.positions = mesh.positions.cast<float>().cast<double>();
    mesh.uv = mesh.uv.cast<float>().cast<double>();
    return mesh;
}

// ---------------------------------------------------------------------------
// Frames with known answers

TEST(TbnKnownFrames, FlatQuadGivesNegatedUnitNormalAndExactSigns) {
    Eigen::Matrix3Xd p(3, 4);
    p << 0, 1, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0;
    TestMesh quad;
    quad.positions = p;
    quad.uv = p.topRows(2);  // u along x, v along y: T x B = +z
    quad.faces.resize(3, 2);
    quad.faces << 0, 0, 1, 2, 2, 3;
    quad.uvFaces = quad.faces;
    const std::vector<float> out = fixedFrames(quad);
    for (Eigen::Index v = 0; v < 4; ++v) {
        const Frame f = frameOf(out, kHead, v);
        EXPECT_EQ(f[0], 1.0f);
        EXPECT_TRUE(isPositiveZero(f[1]) && isPositiveZero(f[2]));
        // bitangent -(n x x) with n = (0, 0, 1): -(0, 1, 0)
        EXPECT_TRUE(isNegativeZero(f[3]));
        EXPECT_EQ(f[4], -1.0f);
        EXPECT_TRUE(isNegativeZero(f[5]));
        EXPECT_TRUE(isNegativeZero(f[6]) && isNegativeZero(f[7]));
        EXPECT_EQ(f[8], -1.0f);
    }
    // A mirrored texture (u flipped) turns T x B, and so the output, around.
    quad.uv.row(0) = -quad.uv.row(0);
    EXPECT_EQ(frameOf(fixedFrames(quad), kHead, 2)[8], 1.0f);
}

TEST(TbnKnownFrames, UnusedVertexHasAxisTangentAndNegativeZeros) {
    Eigen::Matrix3Xd p(3, 3);
    p << 0, 1, 0, 0, 0, 1, 0, 0, 0;
    const std::vector<float> out =
        fixedFrames(withUnitUvs(p, Eigen::Matrix3Xi(Eigen::Vector3i(0, 1, 2))));
    for (Eigen::Index v : {Eigen::Index(3), Eigen::Index(777), kHead - 1}) {
        const Frame f = frameOf(out, kHead, v);
        EXPECT_EQ(f[0], 1.0f);
        EXPECT_TRUE(isPositiveZero(f[1]) && isPositiveZero(f[2]));
        for (int k = 3; k < 9; ++k) EXPECT_TRUE(isNegativeZero(f[k])) << "component " << k;
    }
}

TEST(TbnKnownFrames, RegularSolidsGiveRadialNormals) {
    // Regular tetrahedron: each vertex normal is its own direction, with
    // components 1/sqrt(3), below the snap threshold.
    Eigen::Matrix3Xd tetra(3, 4);
    tetra << 1, 1, -1, -1, 1, -1, 1, -1, 1, -1, -1, 1;
    const std::vector<float> out = fixedFrames(withUnitUvs(tetra, outwardHullFaces(tetra)));
    for (Eigen::Index v = 0; v < 4; ++v) {
        const Eigen::Vector3d expected = -tetra.col(v).normalized();
        const Frame f = frameOf(out, kHead, v);
        EXPECT_LT((normalOf(f) - expected).norm(), 1e-6) << "vertex " << v;
        // bitangent -(n x x) = -(0, nz, -ny) with n the unnegated normal
        EXPECT_TRUE(isNegativeZero(f[3]));
        EXPECT_NEAR(f[4], expected.z(), 1e-6);
        EXPECT_NEAR(f[5], -expected.y(), 1e-6);
    }
    // Octahedron: each vertex normal is an axis; the tiny cross terms are
    // snapped to zero and the axis component to exactly -1.
    Eigen::Matrix3Xd octa(3, 6);
    octa << 1, -1, 0, 0, 0, 0, 0, 0, 1, -1, 0, 0, 0, 0, 0, 0, 1, -1;
    const std::vector<float> octaOut = fixedFrames(withUnitUvs(octa, outwardHullFaces(octa)));
    for (Eigen::Index v = 0; v < 6; ++v) {
        const Frame f = frameOf(octaOut, kHead, v);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(f[6 + c], static_cast<float>(-octa(c, v)));
    }
}

TEST(TbnKnownFrames, TiltedPlaneKeepsSmallComponentsAndSnapsLargeOnes) {
    // Plane z = 0.75 y: normal (0, -0.6, 0.8), nothing snapped.
    // Plane z = 0.1 x: normal (-0.0995, 0, 0.995), z snapped to 1.
    for (const auto& [slopeX, slopeY] : {std::pair{0.0, 0.75}, std::pair{0.1, 0.0}}) {
        Eigen::Matrix3Xd p(3, 4);
        p << 0, 2, 2, 0, 0, 0, 2, 2, 0, 0, 0, 0;
        p.row(2) = slopeX * p.row(0) + slopeY * p.row(1);
        TestMesh plane;
        plane.positions = p;
        plane.uv = p.topRows(2) / 2.0;
        plane.faces.resize(3, 2);
        plane.faces << 0, 0, 1, 2, 2, 3;
        plane.uvFaces = plane.faces;
        const Eigen::Vector3d n = Eigen::Vector3d(-slopeX, -slopeY, 1.0).normalized();
        const Frame f = frameOf(fixedFrames(plane), kHead, 1);
        for (int c = 0; c < 3; ++c) {
            const double expected = std::abs(n(c)) > 0.99 ? -std::copysign(1.0, n(c)) : -n(c);
            EXPECT_NEAR(f[6 + c], expected, 1e-6) << "slope " << slopeX << "," << slopeY;
        }
        if (slopeX > 0) {
            EXPECT_EQ(f[8], -1.0f);
        }
    }
}

TEST(TbnKnownFrames, ClampBoundaries) {
    using kestrel::meridian::clampFrameValue;
    EXPECT_EQ(clampFrameValue(0.99), 0.99);
    EXPECT_EQ(clampFrameValue(std::nextafter(0.99, 2.0)), 1.0);
    EXPECT_EQ(clampFrameValue(-0.99), -0.99);
    EXPECT_EQ(clampFrameValue(std::nextafter(-0.99, -2.0)), -1.0);
    EXPECT_EQ(clampFrameValue(0.001), 0.001);
    EXPECT_EQ(clampFrameValue(-0.001), -0.001);
    const double belowPositive = clampFrameValue(std::nextafter(0.001, 0.0));
    const double belowNegative = clampFrameValue(std::nextafter(-0.001, 0.0));
    EXPECT_TRUE(belowPositive == 0.0 && !std::signbit(belowPositive));
    EXPECT_TRUE(belowNegative == 0.0 && !std::signbit(belowNegative));
    EXPECT_TRUE(std::isnan(clampFrameValue(std::numeric_limits<double>::quiet_NaN())));
}

// ---------------------------------------------------------------------------
// Degenerate texture triangles

TEST(TbnDegenerateUv, FixedEngineSpreadsNonFiniteGeneralEngineStaysFinite) {
    // Two faces share an edge; face 1's texture triangle is collapsed to a
    // point (0 * inf) or to a line (inf - inf). Vertex 3 is only in face 1.
    for (const Eigen::Vector3i& degenerate : {Eigen::Vector3i(0, 0, 0), Eigen::Vector3i(3, 4, 5)}) {
        TestMesh mesh;
        mesh.positions.resize(3, 4);
        mesh.positions << 0, 1, 0, 1, 0, 0, 1, 1, 0, 0.2, 0, 0.5;
        mesh.uv.resize(2, 6);
        mesh.uv << 0, 1, 0, 0.1, 0.2, 0.3, 0, 0, 1, 0.1, 0.2, 0.3;
        mesh.faces.resize(3, 2);
        mesh.faces << 0, 1, 1, 3, 2, 2;
        mesh.uvFaces.resize(3, 2);
        mesh.uvFaces.col(0) << 0, 1, 2;
        mesh.uvFaces.col(1) = degenerate;
        const std::vector<float> fixed = fixedFrames(mesh);
        EXPECT_TRUE(std::isfinite(frameOf(fixed, kHead, 0)[8]));
        for (Eigen::Index v = 1; v < 4; ++v)
            EXPECT_FALSE(normalOf(frameOf(fixed, kHead, v)).allFinite()) << "vertex " << v;

        TBNEngineGeneral general;
        std::vector<int> identity(4);
        std::iota(identity.begin(), identity.end(), 0);
        ASSERT_EQ(
            general.load(mesh.positions, mesh.uv, oneBased(mesh.faces), oneBased(mesh.uvFaces),
                         "test", identity.data(), 4, identity.data(), 4),
            TBNEngineGeneral::kOk);
        const std::vector<float> head = planarHead(mesh.positions);
        std::vector<float> out(9 * 4);
        general.computeFrames(head.data(), out.data());
        for (float v : out) EXPECT_TRUE(std::isfinite(v));
        // Vertex 0 only sees the good face: same frame in both engines.
        EXPECT_EQ(frameOf(out, 4, 0), frameOf(fixed, kHead, 0));
    }
}

// ---------------------------------------------------------------------------
// The single pass against the literal per-face computation

TEST(TbnLiteralAgreement, FixedEngineMatchesBitForBitIncludingNonFinite) {
    TestMesh mesh = wavyGrid(40, 7);
    std::vector<float> head = planarHead(mesh.positions);
    EXPECT_TRUE(sameBits(fixedFrames(mesh, head), literalFixedFrames(mesh, head)));
    EXPECT_TRUE(matchesLiteralWithEveryKernel(widened(head), mesh.uv, oneBased(mesh.faces),
                                              oneBased(mesh.uvFaces), false));

    // Degenerate texture triangles (point and line), a face with a repeated
    // corner, and a vertex at infinity and one that is NaN (with the sign bit
    // of the NaN that invalid operations produce, so every NaN has the same
    // bits whichever operand an addition keeps).
    const auto base = static_cast<int>(mesh.uv.cols());
    mesh.uv.conservativeResize(2, base + 3);
    mesh.uv.rightCols(3) << 0.1, 0.2, 0.3, 0.1, 0.2, 0.3;
    mesh.uvFaces.col(100) << 5, 5, 5;
    mesh.uvFaces.col(500) << base, base + 1, base + 2;
    mesh.faces.col(900) << 40, 40, 41;
    // An odd face count leaves one face for the narrowest kernel.
    mesh.faces.conservativeResize(3, mesh.faces.cols() - 1);
    mesh.uvFaces.conservativeResize(3, mesh.uvFaces.cols() - 1);
    head[2 * kHead + 1300] = std::numeric_limits<float>::infinity();
    head[kHead + 1400] = -std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> fast = fixedFrames(mesh, head);
    EXPECT_TRUE(sameBits(fast, literalFixedFrames(mesh, head)));
    EXPECT_TRUE(matchesLiteralWithEveryKernel(widened(head), mesh.uv, oneBased(mesh.faces),
                                              oneBased(mesh.uvFaces), false));
    EXPECT_TRUE(std::any_of(fast.begin(), fast.end(), [](float v) { return std::isnan(v); }));
}

TEST(TbnLiteralAgreement, GeneralEngineMatchesBitForBit) {
    TestMesh mesh = wavyGrid(29, 11);  // 841 vertices, 1568 faces
    mesh.uvFaces.col(10) << 3, 3, 3;   // finite through the determinant guard
    mesh.faces.conservativeResize(3, 1567);
    mesh.uvFaces.conservativeResize(3, 1567);
    const auto m = static_cast<int>(mesh.positions.cols());
    // Template vertices in a shuffled order, output in yet another.
    std::vector<int> taviToHead(m), headToTavi(2 * m);
    std::iota(taviToHead.begin(), taviToHead.end(), 0);
    std::shuffle(taviToHead.begin(), taviToHead.end(), std::mt19937(3));
    std::vector<int> headToTemplate(m);
    for (int i = 0; i < m; ++i) headToTemplate[taviToHead[i]] = i;
    Eigen::Matrix3Xi templateFaces = mesh.faces.unaryExpr([&](int v) { return headToTemplate[v]; });
    std::mt19937 pick(5);
    for (int& v : headToTavi) v = static_cast<int>(pick() % m);

    TBNEngineGeneral engine;
    ASSERT_EQ(
        engine.load(Eigen::MatrixXd::Zero(3, m), mesh.uv, oneBased(templateFaces),
                    oneBased(mesh.uvFaces), "test", taviToHead.data(), m, headToTavi.data(), 2 * m),
        TBNEngineGeneral::kOk);
    const std::vector<float> head = planarHead(mesh.positions);
    std::vector<float> fast(9 * 2 * m);
    engine.computeFrames(head.data(), fast.data());
    const std::vector<float> literal = kestrel::meridian::literal::generalEngineFrames(
        head.data(), mesh.uv, oneBased(templateFaces), oneBased(mesh.uvFaces), taviToHead,
        headToTavi);
    EXPECT_TRUE(sameBits(fast, literal));
    EXPECT_TRUE(matchesLiteralWithEveryKernel(mesh.positions, mesh.uv, oneBased(mesh.faces),
                                              oneBased(mesh.uvFaces), true));
}

// ---------------------------------------------------------------------------
// General engine: gather and remap

TEST(TbnGeneralRemap, PermutedTemplateGivesTheFixedFramesPermuted) {
    const TestMesh mesh = wavyGrid(20, 23);
    const auto m = static_cast<int>(mesh.positions.cols());
    std::vector<int> taviToHead(m);
    std::iota(taviToHead.begin(), taviToHead.end(), 0);
    std::reverse(taviToHead.begin(), taviToHead.end());
    Eigen::Matrix3Xi templateFaces = mesh.faces.unaryExpr([&](int v) { return m - 1 - v; });
    std::vector<int> headToTavi(m);
    for (int j = 0; j < m; ++j) headToTavi[j] = m - 1 - j;

    TBNEngineGeneral engine;
    ASSERT_EQ(
        engine.load(Eigen::MatrixXd::Zero(3, m), mesh.uv, oneBased(templateFaces),
                    oneBased(mesh.uvFaces), "test", taviToHead.data(), m, headToTavi.data(), m),
        TBNEngineGeneral::kOk);
    const std::vector<float> head = planarHead(mesh.positions);
    std::vector<float> general(9 * m);
    engine.computeFrames(head.data(), general.data());
    const std::vector<float> fixed = fixedFrames(mesh, head);
    // The determinant guard is far below float precision for these texture
    // triangles, so the frames agree exactly.
    for (int j = 0; j < m; ++j) EXPECT_EQ(frameOf(general, m, j), frameOf(fixed, kHead, j));
}

TEST(TbnGeneralRemap, SeamCopiesSeeOnlyTheirOwnSide) {
    // Two faces folded along the edge v0-v1: face A in the z = 0 plane
    // (normal +z), face B in the x = 0 plane (normal +x). The head sees both;
    // a template split along the fold gives each copy one side.
    Eigen::Matrix3Xd head(3, 4);
    head << 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1;
    const TestMesh whole =
        withUnitUvs(head, (Eigen::Matrix3Xi(3, 2) << 0, 0, 2, 1, 1, 3).finished());
    const Frame joined = frameOf(fixedFrames(whole), kHead, 0);
    EXPECT_NEAR(joined[6], -std::sqrt(0.5), 1e-6);
    EXPECT_NEAR(joined[8], -std::sqrt(0.5), 1e-6);

    // Template: 0, 1, 2 = v0, v1, v2 (side A); 3, 4, 5 = v0, v1, v3 (side B).
    std::vector<int> taviToHead{0, 1, 2, 0, 1, 3};
    std::vector<int> headToTavi{0, 4, 3, 1};  // v0 from A, v1 from B, v0 from B, v1 from A
    const TestMesh split = withUnitUvs(Eigen::Matrix3Xd::Zero(3, 6),
                                       (Eigen::Matrix3Xi(3, 2) << 0, 3, 2, 4, 1, 5).finished());
    TBNEngineGeneral engine;
    ASSERT_EQ(engine.load(split.positions, split.uv, oneBased(split.faces), oneBased(split.uvFaces),
                          "test", taviToHead.data(), 6, headToTavi.data(), 4),
              TBNEngineGeneral::kOk);
    const std::vector<float> planar = planarHead(head);
    std::vector<float> out(9 * 4);
    engine.computeFrames(planar.data(), out.data());
    const Eigen::Vector3d sideA(0, 0, -1), sideB(-1, 0, 0);
    EXPECT_EQ(normalOf(frameOf(out, 4, 0)), sideA);
    EXPECT_EQ(normalOf(frameOf(out, 4, 1)), sideB);
    EXPECT_EQ(normalOf(frameOf(out, 4, 2)), sideB);
    EXPECT_EQ(normalOf(frameOf(out, 4, 3)), sideA);
}

TEST(TbnGeneralRemap, RejectsIndicesThatWouldReadOutOfRange) {
    const TestMesh mesh = wavyGrid(4, 1);
    const Eigen::MatrixXd vertices = Eigen::MatrixXd::Zero(3, 16);
    std::vector<int> toHead(16), toTavi(16);
    std::iota(toHead.begin(), toHead.end(), 0);
    std::iota(toTavi.begin(), toTavi.end(), 0);
    auto load = [&](const Eigen::Matrix3Xi& faces, const std::vector<int>& a,
                    const std::vector<int>& b) {
        TBNEngineGeneral engine;
        testing::internal::CaptureStdout();
        const int status = engine.load(vertices, mesh.uv, oneBased(faces), oneBased(mesh.uvFaces),
                                       "grid.obj", a.data(), static_cast<unsigned>(a.size()),
                                       b.data(), static_cast<unsigned>(b.size()));
        const std::string message = testing::internal::GetCapturedStdout();
        return std::pair{status, message};
    };
    EXPECT_EQ(load(mesh.faces, toHead, toTavi).first, TBNEngineGeneral::kOk);

    auto shortList = toHead;
    shortList.pop_back();
    EXPECT_EQ(load(mesh.faces, shortList, toTavi).second,
              "Failed to init TBN calculation for invalid idx_tavi2head!\n");

    auto badHead = toHead;
    badHead[5] = 20481;
    const auto [headStatus, headMessage] = load(mesh.faces, badHead, toTavi);
    EXPECT_EQ(headStatus, TBNEngineGeneral::kIndexOutOfRange);
    EXPECT_NE(headMessage.find("idx_tavi2head entry 5 is 20481"), std::string::npos);

    auto badTavi = toTavi;
    badTavi[7] = -1;
    const auto [taviStatus, taviMessage] = load(mesh.faces, toHead, badTavi);
    EXPECT_EQ(taviStatus, TBNEngineGeneral::kIndexOutOfRange);
    EXPECT_NE(taviMessage.find("idx_head2tavi entry 7 is -1"), std::string::npos);

    Eigen::Matrix3Xi badFaces = mesh.faces;
    badFaces(2, 4) = 16;
    const auto [faceStatus, faceMessage] = load(badFaces, toHead, toTavi);
    EXPECT_EQ(faceStatus, TBNEngineGeneral::kFaceOutOfRange);
    EXPECT_NE(faceMessage.find("grid.obj: face 5 names vertex 17"), std::string::npos);
}

// ---------------------------------------------------------------------------
// The demo head

TestMesh demoMesh() {
    const meridian::demo::DemoHead& demo = meridian::demo::demoHead();
    return TestMesh{demo.vertices, demo.uvs, demo.faces, demo.uvFaces};
}

// Demo model files (the general engine's split template and index lists),
// written once for the suite.
class TbnDemoHead : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        modelDir_ = new fs::path(fs::temp_directory_path() /
                                 ("meridian-tbn-demo-" + std::to_string(getpid())));
        std::string error;
        ASSERT_TRUE(meridian::demo::writeDemoModel(modelDir_->string(), error)) << error;
    }
    static void TearDownTestSuite() {
        fs::remove_all(*modelDir_);
        delete modelDir_;
        modelDir_ = nullptr;
    }
    static std::string file(const char* name) { return (*modelDir_ / "TBN" / name).string(); }

    static fs::path* modelDir_;
};

fs::path* TbnDemoHead::modelDir_ = nullptr;

TEST_F(TbnDemoHead, FixedEngineMatchesLiteralBitForBit) {
    const TestMesh mesh = demoMesh();
    for (const Eigen::Matrix3Xd& shape : {mesh.positions, meridian::demo::sampleHead()}) {
        const std::vector<float> head = planarHead(shape);
        EXPECT_TRUE(sameBits(fixedFrames(mesh, head), literalFixedFrames(mesh, head)));
        EXPECT_TRUE(matchesLiteralWithEveryKernel(widened(head), mesh.uv, oneBased(mesh.faces),
                                                  oneBased(mesh.uvFaces), false));
    }
}

TEST_F(TbnDemoHead, NormalsFollowUniformlyWeightedFaceNormals) {
    // Each face's T x B is its geometric normal times the sign of its texture
    // determinant, so with a consistently oriented texture layout the normal
    // sum is exactly the uniformly weighted sum of unit face normals. What
    // remains is rounding and the clamp: snapping a component above 0.99 to
    // 1 or below 0.001 to 0 turns the direction by less than 0.01 rad.
    const TestMesh mesh = demoMesh();
    const std::vector<float> out = fixedFrames(mesh);
    Eigen::Matrix3Xd geometric = Eigen::Matrix3Xd::Zero(3, kHead);
    for (Eigen::Index f = 0; f < mesh.faces.cols(); ++f) {
        const Eigen::Vector3d a = mesh.positions.col(mesh.faces(0, f));
        const Eigen::Vector3d n = (mesh.positions.col(mesh.faces(1, f)) - a)
                                      .cross(mesh.positions.col(mesh.faces(2, f)) - a)
                                      .normalized();
        for (int k = 0; k < 3; ++k) geometric.col(mesh.faces(k, f)) += n;
    }
    // The emitted normal is negated: it points inward on this outward mesh
    // when the texture layout keeps the winding's orientation.
    double worst = 1.0;
    for (Eigen::Index v = 0; v < kHead; ++v) {
        const Eigen::Vector3d emitted = normalOf(frameOf(out, kHead, v));
        worst = std::min(worst, -emitted.normalized().dot(geometric.col(v).normalized()));
    }
    EXPECT_GT(worst, 0.99995);
}

TEST_F(TbnDemoHead, GeneralEngineOnTheSplitTemplate) {
    std::vector<int> toHead, toTavi;
    ASSERT_TRUE(kestrel::meridian::readTangentFrameIndexFile(file("idx_tavi2head.txt"), toHead));
    ASSERT_TRUE(kestrel::meridian::readTangentFrameIndexFile(file("idx_head2tavi.txt"), toTavi));
    ASSERT_EQ(toTavi.size(), static_cast<size_t>(kHead));
    const meridian_handle handle =
        AI_system_init_TBN_g2(file("head_split_uv.obj").c_str(), file("idx_tavi2head.txt").c_str(),
                              file("idx_head2tavi.txt").c_str());
    ASSERT_NE(handle, 0u);

    const std::vector<float> head = planarHead(meridian::demo::sampleHead());
    std::vector<float> general(9 * kHead);
    EXPECT_EQ(AI_get_TBN_g(handle, head.data(), general.data()), 0);
    const kestrel::meridian::ObjMeshData split =
        kestrel::meridian::readObj(file("head_split_uv.obj"));
    EXPECT_TRUE(sameBits(general, kestrel::meridian::literal::generalEngineFrames(
                                      head.data(), split.texcoords, split.faces, split.textureFaces,
                                      toHead, toTavi)));

    // Away from the seams a head vertex has one template copy that sees all
    // of its faces: the fixed engine's frame, up to summation order.
    std::vector<int> copies(kHead, 0);
    for (int h : toHead) ++copies[h];
    const std::vector<float> fixed = fixedFrames(demoMesh(), head);
    int compared = 0;
    for (Eigen::Index v = 0; v < kHead; ++v) {
        if (copies[v] != 1) continue;
        ++compared;
        const Eigen::Vector3d difference =
            normalOf(frameOf(general, kHead, v)) - normalOf(frameOf(fixed, kHead, v));
        ASSERT_LT(difference.norm(), 1e-5) << "vertex " << v;
    }
    EXPECT_GT(compared, kHead * 9 / 10);
    AI_system_over();
}

TEST_F(TbnDemoHead, CommandLineWritesFramesAndPreview) {
    const meridian::testing::TempDir out;
    const std::string ply = out.file("frames.ply"), png = out.file("frames.png");
    const meridian::testing::ToolRun run = meridian::testing::runTool(
        "tbn --model " + modelDir_->string() + " --in " +
        (*modelDir_ / "sample_head.ply").string() + " --out " + ply + " --preview " + png);
    ASSERT_EQ(run.exitCode, 0) << run.output;

    // The file's normals (nx ny nz, right after the position) are the
    // library's, to the last bit of the float.
    const std::vector<float> head = planarHead(meridian::demo::sampleHead());
    std::vector<float> frames(9 * kHead);
    ASSERT_EQ(AI_system_init_TBN(modelDir_->string().c_str()), 1);
    ASSERT_EQ(AI_get_TBN(head.data(), frames.data()), 1);
    AI_system_over();
    const kestrel::meridian::PlyMeshData written =
        kestrel::meridian::readPly(ply, kestrel::meridian::countPlyHeaderLines(ply));
    ASSERT_EQ(written.vertices.cols(), kHead);
    for (Eigen::Index v = 0; v < kHead; ++v)
        for (int c = 0; c < 3; ++c) {
            ASSERT_EQ(static_cast<float>(written.vertices(c, v)), head[c * kHead + v]);
            ASSERT_EQ(static_cast<float>(written.extra(c, v)), frames[(6 + c) * kHead + v]);
        }
    EXPECT_EQ(written.faces, demoMesh().faces.cast<double>());

    std::ifstream image(png, std::ios::binary);
    std::string signature(8, '\0');
    image.read(signature.data(), 8);
    EXPECT_EQ(signature, "\x89PNG\r\n\x1a\n");

    const std::string tooSmall = out.write("small.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n");
    const meridian::testing::ToolRun wrongCount = meridian::testing::runTool(
        "tbn --model " + modelDir_->string() + " --in " + tooSmall + " --out " + ply);
    EXPECT_EQ(wrongCount.exitCode, 1);
    EXPECT_NE(wrongCount.output.find("has 3 vertices"), std::string::npos) << wrongCount.output;
    const meridian::testing::ToolRun noModel = meridian::testing::runTool(
        "tbn --model " + out.file("none") + " --in " + tooSmall + " --out " + ply);
    EXPECT_EQ(noModel.exitCode, 1);
    EXPECT_NE(noModel.output.find("model directory not found"), std::string::npos);
}

// ---------------------------------------------------------------------------
// C exports

class TbnExports : public testing::Test {
  protected:
    void SetUp() override {
        AI_system_over();
        fs::create_directories(dir_.path() / "TBN");
    }
    void TearDown() override { AI_system_over(); }

    // Writes "v", "vt" and "f a/b" records (1-based) of `mesh`.
    std::string writeObj(const std::string& name, const TestMesh& mesh) const {
        std::ostringstream out;
        out.precision(9);
        for (Eigen::Index i = 0; i < mesh.positions.cols(); ++i)
            out << "v " << mesh.positions(0, i) << ' ' << mesh.positions(1, i) << ' '
                << mesh.positions(2, i) << '\n';
        for (Eigen::Index i = 0; i < mesh.uv.cols(); ++i)
            out << "vt " << mesh.uv(0, i) << ' ' << mesh.uv(1, i) << '\n';
        for (Eigen::Index f = 0; f < mesh.faces.cols(); ++f) {
            out << 'f';
            for (int k = 0; k < 3; ++k)
                out << ' ' << mesh.faces(k, f) + 1 << '/' << mesh.uvFaces(k, f) + 1;
            out << '\n';
        }
        return dir_.write(name, out.str());
    }
    std::string writeText(const std::string& name, const std::string& text) const {
        return dir_.write(name, text);
    }

    meridian::testing::TempDir dir_;
};

TEST_F(TbnExports, FixedEngineLifecycleAndMessages) {
    const std::vector<float> head = planarHead(wavyGrid(10, 2).positions);
    std::vector<float> out(9 * kHead, 7.0f);
    // Before any init: -1, nothing written.
    EXPECT_EQ(AI_get_TBN(head.data(), out.data()), -1);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float v) { return v == 7.0f; }));
    EXPECT_EQ(AI_system_init_TBN(nullptr), -1);
    EXPECT_EQ(AI_get_TBN(head.data(), out.data()), -1);

    // A missing template: -1 with the path glued to the message, and later
    // get calls see an engine with no faces.
    const std::string missing = (dir_.path() / "nowhere").string();
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN(missing.c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              missing + "/TBN/std_20481_with_UV_F_TF.obj" + "not exist! initialize TBN failed!\n");
    EXPECT_EQ(AI_get_TBN(head.data(), out.data()), 1);
    EXPECT_TRUE(isNegativeZero(out[8 * kHead + 5]));

    // A valid template: 1, silently, and the frames of the engine.
    const TestMesh grid = wavyGrid(10, 2);
    writeObj("TBN/std_20481_with_UV_F_TF.obj", grid);
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN(dir_.str().c_str()), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(AI_get_TBN(head.data(), out.data()), 1);
    EXPECT_TRUE(sameBits(out, fixedFrames(grid, head)));
    EXPECT_EQ(AI_get_TBN(nullptr, out.data()), -1);

    // AI_system_over drops the engine again.
    AI_system_over();
    std::fill(out.begin(), out.end(), 7.0f);
    EXPECT_EQ(AI_get_TBN(head.data(), out.data()), -1);
    EXPECT_EQ(out[0], 7.0f);
}

TEST_F(TbnExports, FixedEngineRejectsFacesOutsideItsTables) {
    const std::vector<float> head = planarHead(wavyGrid(10, 2).positions);
    std::vector<float> out(9 * kHead);
    const std::string obj = (dir_.path() / "TBN/std_20481_with_UV_F_TF.obj").string();
    // Face 2 names vertex 20482 of a 20481-vertex head.
    writeText("TBN/std_20481_with_UV_F_TF.obj",
              "vt 0 0\nvt 1 0\nvt 0 1\nf 1/1 2/2 3/3\nf 1/1 20482/2 3/3\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN(dir_.str().c_str()), -1);
    const std::string message = testing::internal::GetCapturedStdout();
    EXPECT_NE(message.find(obj + ": face 2 names vertex 20482"), std::string::npos) << message;
    EXPECT_EQ(AI_get_TBN(head.data(), out.data()), 1);
    EXPECT_TRUE(isNegativeZero(out[8 * kHead + 1]));  // face 1 was dropped too

    // Texture index 4 of 3, and a face with no texture indices at all.
    for (const char* faces : {"f 1/1 2/4 3/3\n", "f 1 2 3\n"}) {
        writeText("TBN/std_20481_with_UV_F_TF.obj",
                  std::string("vt 0 0\nvt 1 0\nvt 0 1\n") + faces);
        testing::internal::CaptureStdout();
        EXPECT_EQ(AI_system_init_TBN(dir_.str().c_str()), -1);
        EXPECT_NE(testing::internal::GetCapturedStdout().find(obj + ": face 1"), std::string::npos);
    }
    // A texture table narrower than the head still loads: the test on its
    // shape is either-or.
    writeText("TBN/std_20481_with_UV_F_TF.obj", "vt 0 0\nvt 1 0\nvt 0 1\nf 1/1 2/2 3/3\n");
    EXPECT_EQ(AI_system_init_TBN(dir_.str().c_str()), 1);
}

TEST_F(TbnExports, GeneralEngineHandlesAndIndexFiles) {
    const TestMesh grid = wavyGrid(10, 4);
    const std::string obj = writeObj("grid.obj", grid);
    std::vector<int> identity(100);
    std::iota(identity.begin(), identity.end(), 0);
    const std::vector<float> head = planarHead(grid.positions);

    const meridian_handle handle =
        AI_system_init_TBN_g(obj.c_str(), identity.data(), 100, identity.data(), 100);
    ASSERT_NE(handle, 0u);
    std::vector<float> out(9 * 100, 7.0f);
    EXPECT_EQ(AI_get_TBN_g(handle, head.data(), out.data()), 0);
    const std::vector<float> literal = kestrel::meridian::literal::generalEngineFrames(
        head.data(), grid.uv, oneBased(grid.faces), oneBased(grid.uvFaces), identity, identity);
    EXPECT_TRUE(sameBits(out, literal));

    // Failures: messages and 0.
    const std::string missing = (dir_.path() / "missing.obj").string();
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN_g(missing.c_str(), identity.data(), 100, identity.data(), 100),
              0u);
    EXPECT_EQ(AI_system_init_TBN_g(obj.c_str(), identity.data(), 99, identity.data(), 100), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Failed to init TBN calculation for invalid headobj: " + missing +
                  "\nFailed to init TBN calculation for invalid idx_tavi2head!\n");
    EXPECT_EQ(AI_system_init_TBN_g(nullptr, identity.data(), 100, identity.data(), 100), 0u);

    // Index files: integers up to the first other token; a missing file.
    std::string numbers;
    for (int i = 0; i < 100; ++i) numbers += std::to_string(i) + (i % 10 == 9 ? "\r\n" : " ");
    const std::string toHead = writeText("tavi2head.txt", numbers + "end 5 6");
    const std::string toTavi = writeText("head2tavi.txt", "3 1 4 1.5 9");
    const meridian_handle fromFiles =
        AI_system_init_TBN_g2(obj.c_str(), toHead.c_str(), toTavi.c_str());
    ASSERT_NE(fromFiles, 0u);
    std::vector<float> four(9 * 4);
    EXPECT_EQ(AI_get_TBN_g(fromFiles, head.data(), four.data()), 0);
    for (int j = 0; j < 4; ++j)
        EXPECT_EQ(frameOf(four, 4, j), frameOf(literal, 100, std::array{3, 1, 4, 1}[j]));
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN_g2(obj.c_str(), missing.c_str(), toTavi.c_str()), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Invalid index file: " + missing + "\n");

    // Zero, foreign and stale handles: 0, nothing written.
    std::fill(out.begin(), out.end(), 7.0f);
    const auto foreign = reinterpret_cast<meridian_handle>(&identity);
    EXPECT_EQ(AI_get_TBN_g(0, head.data(), out.data()), 0);
    EXPECT_EQ(AI_get_TBN_g(foreign, head.data(), out.data()), 0);
    AI_system_over();
    EXPECT_EQ(AI_get_TBN_g(handle, head.data(), out.data()), 0);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float v) { return v == 7.0f; }));
}

}  // namespace
