// Tangent-frame engines: frames of meshes whose normals are known, the
// degenerate and clamp cases, the general engine's remapping, agreement of
// the single-pass engines with the literal per-face computation, and the C
// exports.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "demo/demo_model.h"
#include "fixtures.h"
#include "io/mesh_readers.h"
#include "io/planar.h"
#include "meridian/meridian.h"
#include "tbn/frame_arithmetic.h"
#include "tbn/frame_threads.h"
#include "tbn/tbn_engine_general.h"
#include "tbn/tbn_engine_std.h"
#include "tbn/tbn_literal_reference.h"
#if defined(MERIDIAN_CLI_PATH)
#include <opencv2/imgcodecs.hpp>
#endif

namespace {

namespace km = kestrel::meridian;
using km::TBNEngineStd;
#if defined(MERIDIAN_CLI_PATH)
using meridian::testing::runTool;
#endif
using meridian::testing::TempDir;
using meridian::testing::ToolRun;
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

std::vector<int> identity(int n) {
    std::vector<int> list(n);
    std::iota(list.begin(), list.end(), 0);
    return list;
}

std::vector<float> planarHead(const Eigen::Matrix3Xd& positions) {
    std::vector<float> head(3 * kHead, 0.0f);
    for (Eigen::Index i = 0; i < positions.cols(); ++i)
        for (int c = 0; c < 3; ++c) head[c * kHead + i] = static_cast<float>(positions(c, i));
    return head;
}

// The fixed engine's frames of `head`, by default the mesh's own positions.
std::vector<float> fixedFrames(const TestMesh& mesh, std::vector<float> head = {}) {
    if (head.empty()) head = planarHead(mesh.positions);
    TBNEngineStd engine;
    km::Error error;
    EXPECT_TRUE(engine.load(mesh.uv, oneBased(mesh.faces), oneBased(mesh.uvFaces), "test", error));
    std::vector<float> out(9 * kHead);
    engine.computeFrames(head.data(), out.data());
    return out;
}

std::vector<float> literalFixedFrames(const TestMesh& mesh, const std::vector<float>& head) {
    return km::literal::fixedEngineFrames(head.data(), mesh.uv, oneBased(mesh.faces),
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

// Equal to the bit: sign of zero and NaN patterns included.
template <typename A, typename B>
bool sameBits(const A& a, const B& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// The single pass with every kernel this machine runs, on one thread and on
// two, against the literal computation: the normal sums against rows 6-8 of
// its accumulator in double (a difference in the last bit shows here even
// when the float output hides it), and the frames in float.
bool matchesLiteralWithEveryKernel(const Eigen::MatrixXd& positions, const Eigen::MatrixXd& uv,
                                   const Eigen::MatrixXd& faces, const Eigen::MatrixXd& uvFaces,
                                   bool guardDeterminant) {
    const Eigen::Index n = positions.cols();
    km::FrameTopology topology;
    EXPECT_FALSE(km::buildFrameTopology(
        faces, uvFaces, uv, n,
        guardDeterminant ? km::DeterminantGuard::epsilon : km::DeterminantGuard::none, topology));
    // Column-major records: x y z 0 of vertex i at 4i.
    Eigen::MatrixXd records = Eigen::MatrixXd::Zero(4, n);
    records.topRows(3) = positions;
    const Eigen::MatrixXd accumulator =
        km::literal::accumulateFrames(positions, uv, faces, uvFaces, guardDeterminant);
    // Column-major records, x y z 0 of vertex i at 4i as the kernels lay them out.
    Eigen::MatrixXd literalSums = Eigen::MatrixXd::Zero(4, n);
    literalSums.topRows(3) = accumulator.bottomRows(3);
    std::vector<float> literalFrames(9 * n);
    km::matrixToPlanar(km::literal::framesFromAccumulator(accumulator), literalFrames.data());

    // A picked output (as the general engine writes it): every vertex
    // backwards, then a few again, so no vector of lanes is contiguous.
    std::vector<int32_t> pick(static_cast<size_t>(n) + 13);
    for (size_t j = 0; j < pick.size(); ++j)
        pick[j] = static_cast<int32_t>(j < static_cast<size_t>(n) ? n - 1 - Eigen::Index(j)
                                                                  : (7 * j) % n);
    const auto picked = static_cast<Eigen::Index>(pick.size());
    std::vector<float> literalPicked(9 * pick.size());
    for (Eigen::Index k = 0; k < 9; ++k)
        for (Eigen::Index j = 0; j < picked; ++j)
            literalPicked[k * picked + j] = literalFrames[k * n + pick[j]];

    bool same = true;
    for (const km::simd::Level level : km::simd::kLevels) {
        if (!km::simd::levelAvailable(level)) continue;
        for (const int threads : {1, 2}) {
            // NaN-filled, so a record or a frame the passes leave unwritten
            // shows.
            const double nan = std::numeric_limits<double>::quiet_NaN();
            std::vector<double> sums(4 * n, nan), pickedSums(4 * n, nan);
            std::vector<float> frames(9 * n, NAN), pickedFrames(9 * pick.size(), NAN);
            km::computeFramesOnThreads(topology, km::FramePositions{records.data()}, sums.data(),
                                       nullptr, n, frames.data(), threads, level);
            km::computeFramesOnThreads(topology, km::FramePositions{records.data()},
                                       pickedSums.data(), pick.data(), picked, pickedFrames.data(),
                                       threads, level);
            const auto sameSums = [&](const std::vector<double>& got) {
                return std::memcmp(got.data(), literalSums.data(), got.size() * sizeof(double)) ==
                       0;
            };
            const char* fault = !sameSums(sums) || !sameSums(pickedSums) ? ": normal sums differ"
                                : !sameBits(frames, literalFrames)       ? ": frames differ"
                                : !sameBits(pickedFrames, literalPicked) ? ": picked frames differ"
                                                                         : nullptr;
            if (fault) {
                ADD_FAILURE() << km::simd::levelName(level) << ", " << threads << " thread(s)"
                              << fault;
                same = false;
            }
        }
    }
    return same;
}

// Every face gets the texture triangle (0,0), (1,0), (0,1) in corner order,
// so T x B is the face normal of its winding: (p1 - p0) x (p2 - p0).
TestMesh withUnitUvs(const Eigen::Matrix3Xd& positions, const Eigen::Matrix3Xi& faces) {
    Eigen::Matrix3Xi uvFaces(3, faces.cols());
    uvFaces.colwise() = Eigen::Vector3i(0, 1, 2);
    return {positions, (Eigen::Matrix2Xd(2, 3) << 0, 1, 0, 0, 0, 1).finished(), faces, uvFaces};
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
    return mesh;
}

// ---------------------------------------------------------------------------
// Frames with known answers

TEST(TbnKnownFrames, FlatQuadAndUnusedVerticesHaveExactSigns) {
    // u along x, v along y: T x B = +z. The frame is x, -(n x x), -n.
    const Eigen::Matrix3Xd p =
        (Eigen::Matrix3Xd(3, 4) << 0, 1, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0).finished();
    const Eigen::Matrix3Xi faces = (Eigen::Matrix3Xi(3, 2) << 0, 0, 1, 2, 2, 3).finished();
    TestMesh quad{p, p.topRows(2), faces, faces};
    const std::vector<float> out = fixedFrames(quad);
    const Frame flat = {1, 0, 0, -0.0f, -1, -0.0f, -0.0f, -0.0f, -1};
    const Frame unused = {1, 0, 0, -0.0f, -0.0f, -0.0f, -0.0f, -0.0f, -0.0f};
    for (const Eigen::Index v : {0, 1, 2, 3})
        EXPECT_TRUE(sameBits(frameOf(out, kHead, v), flat)) << "vertex " << v;
    for (const Eigen::Index v : std::array<Eigen::Index, 3>{4, 777, kHead - 1})
        EXPECT_TRUE(sameBits(frameOf(out, kHead, v), unused)) << "vertex " << v;
    // A mirrored texture (u flipped) turns T x B, and so the output, around.
    quad.uv.row(0) = -quad.uv.row(0);
    EXPECT_EQ(frameOf(fixedFrames(quad), kHead, 2)[8], 1.0f);
}

TEST(TbnKnownFrames, RegularSolidsGiveRadialNormals) {
    // Regular tetrahedron: each vertex normal is its own direction, with
    // components 1/sqrt(3), below the snap threshold. Faces wound outward.
    Eigen::Matrix3Xd tetra(3, 4);
    tetra << 1, 1, -1, -1, 1, -1, 1, -1, 1, -1, -1, 1;
    Eigen::Matrix3Xi tetraFaces(3, 4);
    tetraFaces << 0, 0, 0, 1, 1, 3, 2, 3, 2, 1, 3, 2;
    const std::vector<float> out = fixedFrames(withUnitUvs(tetra, tetraFaces));
    for (Eigen::Index v = 0; v < 4; ++v) {
        const Eigen::Vector3d expected = -tetra.col(v).normalized();
        const Frame f = frameOf(out, kHead, v);
        EXPECT_LT((normalOf(f) - expected).norm(), 1e-6) << "vertex " << v;
        // bitangent -(n x x) = -(0, nz, -ny) with n the unnegated normal
        EXPECT_TRUE(f[3] == 0.0f && std::signbit(f[3]));
        EXPECT_NEAR(f[4], expected.z(), 1e-6);
        EXPECT_NEAR(f[5], -expected.y(), 1e-6);
    }
    // Octahedron (+x, -x, +y, -y, +z, -z): each vertex normal is an axis; the
    // tiny cross terms are snapped to zero and the axis component to -1.
    Eigen::Matrix3Xd octa(3, 6);
    octa << 1, -1, 0, 0, 0, 0, 0, 0, 1, -1, 0, 0, 0, 0, 0, 0, 1, -1;
    Eigen::Matrix3Xi octaFaces(3, 8);
    octaFaces << 0, 0, 0, 0, 1, 1, 1, 1,  //
        2, 5, 4, 3, 4, 2, 3, 5,           //
        4, 2, 3, 5, 2, 5, 4, 3;
    const std::vector<float> octaOut = fixedFrames(withUnitUvs(octa, octaFaces));
    for (Eigen::Index v = 0; v < 6; ++v) {
        const Frame f = frameOf(octaOut, kHead, v);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(f[6 + c], static_cast<float>(-octa(c, v)));
    }
}

// Normal sums chosen at the edges of the vertex pass: components that clamp
// to +-1 or to zero (either sign), a zero sum, and non-finite sums between
// finite ones, so that every vector width sees all-finite vectors and
// mixed ones. Every kernel must write the scalar step's bits.
TEST(TbnKnownFrames, VertexFramesAtClampEdgesMatchTheScalarStep) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<std::array<double, 3>> sums = {{0, 0, 1},
                                                     {0, 1e-5, 1},
                                                     {0, -1e-5, 1},
                                                     {0, -0.0, -1},
                                                     {-0.0, -0.0, 0},
                                                     {0.2, 0.999, 0},
                                                     {0.2, -0.999, 0},
                                                     {1e-5, 0.5, -1e-5},
                                                     {0.0005, 0.9, -0.4},
                                                     {3, -4, 12},
                                                     {nan, 0, 1},
                                                     {0, inf, 1},
                                                     {-1e-300, 0, 1e-300},
                                                     {0.7, -0.0005, 0.7},
                                                     {-inf, 0, 0},
                                                     {0, 0, 1e-320},
                                                     {0.001, -0.001, 1},
                                                     {1, 2, 3},
                                                     {-2, 0.001, -1e-4},
                                                     {0.1, 0.1, 0.1}};
    const auto n = static_cast<Eigen::Index>(sums.size());
    std::vector<double> records;
    for (const auto& sum : sums) records.insert(records.end(), {sum[0], sum[1], sum[2], 0.0});
    std::vector<float> scalar(9 * sums.size());
    km::writeVertexFrames(records.data(), nullptr, n, scalar.data(), km::simd::Level::scalar);
    for (const km::simd::Level level : km::simd::kLevels) {
        if (!km::simd::levelAvailable(level)) continue;
        std::vector<float> frames(9 * sums.size());
        km::writeVertexFrames(records.data(), nullptr, n, frames.data(), level);
        EXPECT_TRUE(sameBits(frames, scalar)) << km::simd::levelName(level);
    }
}

TEST(TbnKnownFrames, ClampBoundaries) {
    // Beyond +-0.99 to +-1; magnitudes below 0.001, and -0, to +0.
    const auto next = [](double from, double toward) { return std::nextafter(from, toward); };
    const double in[] = {0.99,           next(0.99, 2),   -0.99, next(-0.99, -2), 0.001, -0.001,
                         next(0.001, 0), next(-0.001, 0), -0.0};
    const double out[] = {0.99, 1, -0.99, -1, 0.001, -0.001, 0, 0, 0};
    for (int i = 0; i < 9; ++i) {
        const double got = km::clampFrameValue(in[i]);
        EXPECT_TRUE(got == out[i] && std::signbit(got) == std::signbit(out[i])) << in[i];
    }
    EXPECT_TRUE(std::isnan(km::clampFrameValue(std::numeric_limits<double>::quiet_NaN())));
}

// ---------------------------------------------------------------------------
// The single pass against the literal per-face computation

TEST(TbnLiteralAgreement, FixedEngineMatchesBitForBitIncludingNonFinite) {
    TestMesh mesh = wavyGrid(40, 7);
    std::vector<float> head = planarHead(mesh.positions);
    // A wavy grid with degenerate texture triangles (point: 0 * inf; line:
    // inf - inf), a face with a repeated corner, and a vertex at infinity and
    // one that is NaN (with the sign bit of the NaN that invalid operations
    // produce, so every NaN has the same bits whichever operand an addition
    // keeps).
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
    EXPECT_TRUE(matchesLiteralWithEveryKernel(km::planarToVertices(head.data(), kHead), mesh.uv,
                                              oneBased(mesh.faces), oneBased(mesh.uvFaces), false));
    // Without the determinant guard the point-like texture triangle makes its
    // corners non-finite; a vertex away from the faults stays finite.
    for (int k = 0; k < 3; ++k)
        EXPECT_FALSE(normalOf(frameOf(fast, kHead, mesh.faces(k, 100))).allFinite()) << k;
    EXPECT_TRUE(normalOf(frameOf(fast, kHead, 0)).allFinite());
}

TEST(TbnLiteralAgreement, GeneralEngineMatchesBitForBit) {
    TestMesh mesh = wavyGrid(29, 11);  // 841 vertices, 1568 faces
    mesh.uvFaces.col(10) << 3, 3, 3;   // finite through the determinant guard
    mesh.faces.conservativeResize(3, 1567);
    mesh.uvFaces.conservativeResize(3, 1567);
    const auto m = static_cast<int>(mesh.positions.cols());
    // Template vertices in a shuffled order, output in yet another.
    std::vector<int> taviToHead = identity(m), headToTavi(2 * m), headToTemplate(m);
    std::shuffle(taviToHead.begin(), taviToHead.end(), std::mt19937(3));
    for (int i = 0; i < m; ++i) headToTemplate[taviToHead[i]] = i;
    const Eigen::Matrix3Xi templateFaces =
        mesh.faces.unaryExpr([&](int v) { return headToTemplate[v]; });
    std::mt19937 pick(5);
    for (int& v : headToTavi) v = static_cast<int>(pick() % m);

    TBNEngineGeneral engine;
    km::Error error;
    ASSERT_TRUE(engine.load(Eigen::MatrixXd::Zero(3, m), mesh.uv, oneBased(templateFaces),
                            oneBased(mesh.uvFaces), "test", taviToHead.data(), m, headToTavi.data(),
                            2 * m, error));
    const std::vector<float> head = planarHead(mesh.positions);
    std::vector<float> fast(9 * 2 * m);
    engine.computeFrames(head.data(), fast.data());
    EXPECT_TRUE(std::all_of(fast.begin(), fast.end(), [](float v) { return std::isfinite(v); }));
    EXPECT_TRUE(sameBits(
        fast, km::literal::generalEngineFrames(head.data(), mesh.uv, oneBased(templateFaces),
                                               oneBased(mesh.uvFaces), taviToHead, headToTavi)));
    EXPECT_TRUE(matchesLiteralWithEveryKernel(mesh.positions, mesh.uv, oneBased(mesh.faces),
                                              oneBased(mesh.uvFaces), true));
}

TestMesh demoMesh() {
    const meridian::demo::DemoHead& demo = meridian::demo::demoHead();
    return TestMesh{demo.vertices, demo.uvs, demo.faces, demo.uvFaces};
}

// ---------------------------------------------------------------------------
// Two threads, each summing the normals of its own half of the vertices

// `mesh` with its faces (and their texture faces) in the order `order`.
TestMesh withFaceOrder(TestMesh mesh, const std::vector<int>& order) {
    const TestMesh original = mesh;
    for (size_t f = 0; f < order.size(); ++f) {
        mesh.faces.col(static_cast<Eigen::Index>(f)) = original.faces.col(order[f]);
        mesh.uvFaces.col(static_cast<Eigen::Index>(f)) = original.uvFaces.col(order[f]);
    }
    return mesh;
}

// `mesh` followed (or preceded) by as many unused vertices: its faces then
// all lie in one half of the vertices.
TestMesh withUnusedHalf(TestMesh mesh, bool unusedFirst) {
    const Eigen::Index n = mesh.positions.cols();
    const Eigen::Matrix3Xd used = mesh.positions;
    mesh.positions.resize(3, 2 * n);
    mesh.positions << used, used;
    if (unusedFirst) mesh.faces.array() += static_cast<int>(n);
    return mesh;
}

// Meshes whose faces meet the split between the two halves in every way
// that could change a sum: each must give the bits of one thread.
struct SplitCase {
    const char* name;
    TestMesh mesh;
};

std::vector<SplitCase> splitCases() {
    std::vector<SplitCase> cases;
    cases.push_back({"demo template", demoMesh()});
    // Border faces far apart, in no order: most faces are in both halves.
    const TestMesh grid = wavyGrid(50, 21);
    std::vector<int> shuffled = identity(static_cast<int>(grid.faces.cols()));
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(9));
    cases.push_back({"shuffled faces", withFaceOrder(grid, shuffled)});
    // Faces in reverse vertex order: the upper half's faces come first.
    std::vector<int> reversed = identity(static_cast<int>(grid.faces.cols()));
    std::reverse(reversed.begin(), reversed.end());
    cases.push_back({"reversed faces", withFaceOrder(grid, reversed)});
    // Half of the vertices unused (an odd vertex count: 2 * 1681), first or
    // last: the split moves to even out the faces.
    cases.push_back({"faces in the lower half only", withUnusedHalf(wavyGrid(41, 22), false)});
    cases.push_back({"faces in the upper half only", withUnusedHalf(wavyGrid(41, 22), true)});
    // Far below the size that starts a second thread; fewer faces than any
    // vector holds.
    cases.push_back({"two faces", wavyGrid(2, 23)});
    cases.push_back({"eight faces", wavyGrid(3, 24)});
    // A vertex of each half used by faces at both ends of the face list:
    // fans around vertex 0 and the last vertex, half of each fan first and
    // half last, so both halves have faces at both ends of the face list.
    TestMesh fans = wavyGrid(40, 25);
    const int n = static_cast<int>(fans.positions.cols()), gridFaces = fans.faces.cols();
    constexpr int kFanFaces = 24;
    Eigen::Matrix3Xi faces(3, gridFaces + 2 * kFanFaces);
    for (int k = 0; k < kFanFaces; ++k) {
        const int column = k < kFanFaces / 2 ? k : gridFaces + kFanFaces / 2 + k;
        faces.col(column) << 0, n - 1 - k, n - 2 - k;
        faces.col(column + kFanFaces / 2) << n - 1, 1 + k, 2 + k;
    }
    faces.middleCols(kFanFaces, gridFaces) = fans.faces;
    fans.faces = faces;
    fans.uvFaces = faces;
    cases.push_back({"vertices shared by the first and the last faces", fans});
    return cases;
}

TEST(TbnTwoThreads, EveryHalfSplitGivesTheBitsOfOneThread) {
    for (const SplitCase& split : splitCases()) {
        SCOPED_TRACE(split.name);
        for (const bool guard : {false, true})
            EXPECT_TRUE(matchesLiteralWithEveryKernel(split.mesh.positions, split.mesh.uv,
                                                      oneBased(split.mesh.faces),
                                                      oneBased(split.mesh.uvFaces), guard))
                << (guard ? "general engine's guard" : "fixed engine's arithmetic");
    }
}

// ---------------------------------------------------------------------------
// General engine: gather, remap and the checks before them

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
    const std::vector<int> taviToHead{0, 1, 2, 0, 1, 3};
    const std::vector<int> headToTavi{0, 4, 3, 1};  // v0 from A, v1 from B, v0 from B, v1 from A
    const TestMesh split = withUnitUvs(Eigen::Matrix3Xd::Zero(3, 6),
                                       (Eigen::Matrix3Xi(3, 2) << 0, 3, 2, 4, 1, 5).finished());
    TBNEngineGeneral engine;
    km::Error error;
    ASSERT_TRUE(engine.load(split.positions, split.uv, oneBased(split.faces),
                            oneBased(split.uvFaces), "test", taviToHead.data(), 6,
                            headToTavi.data(), 4, error));
    std::vector<float> out(9 * 4);
    engine.computeFrames(planarHead(head).data(), out.data());
    const Eigen::Vector3d sideA(0, 0, -1), sideB(-1, 0, 0);
    const Eigen::Vector3d expected[] = {sideA, sideB, sideB, sideA};
    for (int j = 0; j < 4; ++j) EXPECT_EQ(normalOf(frameOf(out, 4, j)), expected[j]) << j;
}

TEST(TbnGeneralRemap, RejectsIndicesThatWouldReadOutOfRange) {
    const TestMesh mesh = wavyGrid(4, 1);
    const std::vector<int> ok = identity(16);
    std::vector<int> shortList = ok, badHead = ok, badTavi = ok;
    shortList.pop_back();
    badHead[5] = 20481;
    badTavi[7] = -1;
    Eigen::Matrix3Xi badFaces = mesh.faces;
    badFaces(2, 4) = 16;
    using km::ErrorCode;
    const struct {
        const Eigen::Matrix3Xi& faces;
        const std::vector<int>&toHead, &toTavi;
        unsigned toTaviCount;
        ErrorCode code;
        std::string says;
    } cases[] = {
        {mesh.faces, ok, ok, 16, ErrorCode::ok, ""},
        {mesh.faces, shortList, ok, 16, ErrorCode::invalidArgument,
         "idx_tavi2head has 15 entries; grid.obj has 16 vertices"},
        {mesh.faces, badHead, ok, 16, ErrorCode::indexOutOfRange,
         "idx_tavi2head entry 5 is 20481, outside 0..20480"},
        {mesh.faces, ok, badTavi, 16, ErrorCode::indexOutOfRange,
         "idx_head2tavi entry 7 is -1, outside 0..15"},
        {badFaces, ok, ok, 16, ErrorCode::indexOutOfRange,
         "grid.obj: face 5 names vertex 17; valid vertices are 1..16"},
        // A count that is no signed 32-bit length is refused before any read.
        {mesh.faces, ok, ok, 0x80000000u, ErrorCode::tooLarge,
         "idx_head2tavi count 2147483648 is above 2147483647"},
    };
    for (const auto& c : cases) {
        TBNEngineGeneral engine;
        km::Error error;
        testing::internal::CaptureStdout();
        EXPECT_EQ(engine.load(Eigen::MatrixXd::Zero(3, 16), mesh.uv, oneBased(c.faces),
                              oneBased(mesh.uvFaces), "grid.obj", c.toHead.data(),
                              static_cast<unsigned>(c.toHead.size()), c.toTavi.data(),
                              c.toTaviCount, error),
                  c.code == ErrorCode::ok);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.message, c.says);
    }
}

// ---------------------------------------------------------------------------
// The demo head and its model directory, through the C interface

class TbnModel : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        model_ = new TempDir();
        std::string error;
        ASSERT_TRUE(meridian::demo::writeDemoModel(model_->str(), error)) << error;
    }
    static void TearDownTestSuite() {
        delete model_;
        model_ = nullptr;
    }
    void SetUp() override { AI_system_over(); }
    void TearDown() override { AI_system_over(); }
    static std::string file(const std::string& name) { return model_->file("TBN/" + name); }

    static TempDir* model_;
    const std::vector<float> sample_ = planarHead(meridian::demo::sampleHead());
};
TempDir* TbnModel::model_ = nullptr;

TEST_F(TbnModel, FixedEngineNormalsFollowUniformlyWeightedFaceNormals) {
    const TestMesh mesh = demoMesh();
    const std::vector<float> out = fixedFrames(mesh);
    EXPECT_TRUE(sameBits(out, literalFixedFrames(mesh, planarHead(mesh.positions))));
    EXPECT_TRUE(sameBits(fixedFrames(mesh, sample_), literalFixedFrames(mesh, sample_)));

    // Each face's T x B is its geometric normal times the sign of its texture
    // determinant, so with a consistently oriented texture layout the normal
    // sum is exactly the uniformly weighted sum of unit face normals. What
    // remains is rounding and the clamp: snapping a component above 0.99 to
    // 1 or below 0.001 to 0 turns the direction by less than 0.01 rad.
    Eigen::Matrix3Xd geometric = Eigen::Matrix3Xd::Zero(3, kHead);
    for (Eigen::Index f = 0; f < mesh.faces.cols(); ++f) {
        const Eigen::Vector3d a = mesh.positions.col(mesh.faces(0, f));
        const Eigen::Vector3d n = (mesh.positions.col(mesh.faces(1, f)) - a)
                                      .cross(mesh.positions.col(mesh.faces(2, f)) - a)
                                      .normalized();
        for (int k = 0; k < 3; ++k) geometric.col(mesh.faces(k, f)) += n;
    }
    // The emitted normal is negated: it points inward on this outward mesh.
    double worst = 1.0;
    for (Eigen::Index v = 0; v < kHead; ++v) {
        const Eigen::Vector3d emitted = normalOf(frameOf(out, kHead, v));
        worst = std::min(worst, -emitted.normalized().dot(geometric.col(v).normalized()));
    }
    EXPECT_GT(worst, 0.99995);
}

TEST_F(TbnModel, FixedEngineLifecycle) {
    std::vector<float> out(9 * kHead, 7.0f);
    const auto untouched = [&] {
        return std::all_of(out.begin(), out.end(), [](float v) { return v == 7.0f; });
    };
    // Before any init and after a null path: -1, nothing written.
    EXPECT_EQ(AI_get_TBN(sample_.data(), out.data()), -1);
    EXPECT_EQ(AI_system_init_TBN(nullptr), -1);
    EXPECT_EQ(AI_get_TBN(sample_.data(), out.data()), -1);
    EXPECT_TRUE(untouched());

    // A valid template: 1, silently, and the frames of the engine.
    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN(model_->str().c_str()), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(AI_get_TBN(sample_.data(), out.data()), 1);
    EXPECT_TRUE(sameBits(out, fixedFrames(demoMesh(), sample_)));
    EXPECT_EQ(AI_get_TBN(nullptr, out.data()), -1);
    EXPECT_EQ(AI_get_TBN(sample_.data(), nullptr), -1);

    // AI_system_over drops the engine again.
    AI_system_over();
    std::fill(out.begin(), out.end(), 7.0f);
    EXPECT_EQ(AI_get_TBN(sample_.data(), out.data()), -1);
    EXPECT_TRUE(untouched());
}

TEST_F(TbnModel, FixedEngineFailedInitsKeepAnEngineWithoutFaces) {
    TempDir dir;
    const std::string obj = dir.file("TBN/std_20481_with_UV_F_TF.obj");
    const std::string uvs = "vt 0 0\nvt 1 0\nvt 0 1\n", failed = "; initialize TBN failed!";
    const struct {
        std::string faces, says;  // faces empty: no template at all
    } cases[] = {
        // The path glued to the message.
        {"", "not exist! initialize TBN failed!"},
        // Face 2 names vertex 20482 of a 20481-vertex head.
        {"f 1/1 2/2 3/3\nf 1/1 20482/2 3/3\n",
         ": face 2 names vertex 20482; valid vertices are 1..20481" + failed},
        {"f 1/1 2/4 3/3\n",
         ": face 1 names texture coordinate 4; valid texture coordinates are 1..3" + failed},
        {"f 1 2 3\n", ": face 1 has no texture indices" + failed},
    };
    std::vector<float> out(9 * kHead);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.says);
        if (!c.faces.empty()) dir.write("TBN/std_20481_with_UV_F_TF.obj", uvs + c.faces);
        testing::internal::CaptureStdout();
        EXPECT_EQ(AI_system_init_TBN(dir.str().c_str()), -1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), obj + c.says + "\n");
        // Later get calls run, but no face is kept, not even the good ones.
        EXPECT_EQ(AI_get_TBN(sample_.data(), out.data()), 1);
        EXPECT_TRUE(out[8 * kHead + 1] == 0.0f && std::signbit(out[8 * kHead + 1]));
    }
    // A texture table narrower than the head still loads: the test on its
    // shape is either-or.
    dir.write("TBN/std_20481_with_UV_F_TF.obj", uvs + "f 1/1 2/2 3/3\n");
    EXPECT_EQ(AI_system_init_TBN(dir.str().c_str()), 1);
}

TEST_F(TbnModel, GeneralEngineOnTheSplitTemplate) {
    std::vector<int> toHead, toTavi;
    km::Error error;
    ASSERT_TRUE(km::readTangentFrameIndexFile(file("idx_tavi2head.txt"), toHead, error));
    ASSERT_TRUE(km::readTangentFrameIndexFile(file("idx_head2tavi.txt"), toTavi, error));
    ASSERT_EQ(toTavi.size(), static_cast<size_t>(kHead));
    const std::string obj = file("head_split_uv.obj");
    const meridian_handle fromFiles = AI_system_init_TBN_g2(
        obj.c_str(), file("idx_tavi2head.txt").c_str(), file("idx_head2tavi.txt").c_str());
    const meridian_handle fromArrays =
        AI_system_init_TBN_g(obj.c_str(), toHead.data(), static_cast<unsigned>(toHead.size()),
                             toTavi.data(), static_cast<unsigned>(toTavi.size()));
    ASSERT_NE(fromFiles, 0u);
    ASSERT_NE(fromArrays, 0u);
    std::vector<float> general(9 * kHead), again(9 * kHead);
    EXPECT_EQ(AI_get_TBN_g(fromFiles, sample_.data(), general.data()), 0);
    EXPECT_EQ(AI_get_TBN_g(fromArrays, sample_.data(), again.data()), 0);
    const km::ObjMeshData split = km::readObj(obj);
    EXPECT_TRUE(sameBits(
        general, km::literal::generalEngineFrames(sample_.data(), split.texcoords, split.faces,
                                                  split.textureFaces, toHead, toTavi)));
    EXPECT_TRUE(sameBits(general, again));

    // Away from the seams a head vertex has one template copy that sees all
    // of its faces: the fixed engine's frame, up to summation order.
    std::vector<int> copies(kHead, 0);
    for (int h : toHead) ++copies[h];
    const std::vector<float> fixed = fixedFrames(demoMesh(), sample_);
    int compared = 0;
    for (Eigen::Index v = 0; v < kHead; ++v) {
        if (copies[v] != 1) continue;
        ++compared;
        const Eigen::Vector3d difference =
            normalOf(frameOf(general, kHead, v)) - normalOf(frameOf(fixed, kHead, v));
        ASSERT_LT(difference.norm(), 1e-5) << "vertex " << v;
    }
    EXPECT_GT(compared, kHead * 9 / 10);

    // Index files hold integers up to the first other token.
    TempDir dir;
    std::vector<int> list{9};
    ASSERT_TRUE(km::readTangentFrameIndexFile(dir.write("a.txt", "3 1\r\n4\t1.5 9"), list, error));
    EXPECT_EQ(list, (std::vector<int>{3, 1, 4, 1}));
    ASSERT_TRUE(km::readTangentFrameIndexFile(dir.write("b.txt", "7 end 5"), list, error));
    EXPECT_EQ(list, std::vector<int>{7});
}

TEST_F(TbnModel, BothEnginesGiveTheLiteralBitsOnOneThreadAndOnTwo) {
    const TestMesh mesh = demoMesh();
    TBNEngineStd fixed;
    km::Error error;
    ASSERT_TRUE(fixed.load(mesh.uv, oneBased(mesh.faces), oneBased(mesh.uvFaces), "demo", error));
    std::vector<int> toHead, toTavi;
    ASSERT_TRUE(km::readTangentFrameIndexFile(file("idx_tavi2head.txt"), toHead, error));
    ASSERT_TRUE(km::readTangentFrameIndexFile(file("idx_head2tavi.txt"), toTavi, error));
    const std::string obj = file("head_split_uv.obj");
    TBNEngineGeneral general;
    ASSERT_TRUE(general.initialise(obj, toHead.data(), static_cast<unsigned>(toHead.size()),
                                   toTavi.data(), static_cast<unsigned>(toTavi.size()), error));
    const km::ObjMeshData split = km::readObj(obj);
    const std::vector<float> literalFixed = literalFixedFrames(mesh, sample_);
    const std::vector<float> literalGeneral = km::literal::generalEngineFrames(
        sample_.data(), split.texcoords, split.faces, split.textureFaces, toHead, toTavi);
    // 0: as many threads as the call is worth on this machine.
    for (const int threads : {1, 2, 0}) {
        SCOPED_TRACE(threads);
        std::vector<float> out(9 * kHead, NAN);
        fixed.computeFrames(sample_.data(), out.data(), threads);
        EXPECT_TRUE(sameBits(out, literalFixed));
        std::fill(out.begin(), out.end(), NAN);
        general.computeFrames(sample_.data(), out.data(), threads);
        EXPECT_TRUE(sameBits(out, literalGeneral));
    }
}

TEST_F(TbnModel, GeneralEngineFailuresAndHandles) {
    const std::string obj = file("head_split_uv.obj"), missing = model_->file("missing.obj");
    const std::string toHeadFile = file("idx_tavi2head.txt"),
                      toTaviFile = file("idx_head2tavi.txt");
    std::vector<int> toHead, toTavi = identity(4);
    km::Error error;
    ASSERT_TRUE(km::readTangentFrameIndexFile(toHeadFile, toHead, error));
    const auto n = static_cast<unsigned>(toHead.size());

    testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_TBN_g(missing.c_str(), toHead.data(), n, toTavi.data(), 4), 0u);
    EXPECT_EQ(AI_system_init_TBN_g(obj.c_str(), toHead.data(), n - 1, toTavi.data(), 4), 0u);
    EXPECT_EQ(AI_system_init_TBN_g2(obj.c_str(), missing.c_str(), toTaviFile.c_str()), 0u);
    EXPECT_EQ(AI_system_init_TBN_g2(obj.c_str(), toHeadFile.c_str(), missing.c_str()), 0u);
    const std::string noIndexFile = "Invalid index file: " + missing + "\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Failed to init TBN calculation for invalid headobj: " + missing +
                  "\nFailed to init TBN calculation for invalid idx_tavi2head!\n" + noIndexFile +
                  noIndexFile);
    EXPECT_EQ(AI_system_init_TBN_g(nullptr, toHead.data(), n, toTavi.data(), 4), 0u);
    EXPECT_EQ(AI_system_init_TBN_g(obj.c_str(), nullptr, n, toTavi.data(), 4), 0u);
    EXPECT_EQ(AI_system_init_TBN_g2(obj.c_str(), nullptr, obj.c_str()), 0u);

    // Zero, foreign and stale handles: 0, nothing written.
    const meridian_handle handle =
        AI_system_init_TBN_g(obj.c_str(), toHead.data(), n, toTavi.data(), 4);
    ASSERT_NE(handle, 0u);
    std::vector<float> out(9 * 4, 7.0f);
    EXPECT_EQ(AI_get_TBN_g(0, sample_.data(), out.data()), 0);
    EXPECT_EQ(AI_get_TBN_g(reinterpret_cast<meridian_handle>(&toHead), sample_.data(), out.data()),
              0);
    AI_system_over();
    EXPECT_EQ(AI_get_TBN_g(handle, sample_.data(), out.data()), 0);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float v) { return v == 7.0f; }));
}

#if defined(MERIDIAN_CLI_PATH)
TEST_F(TbnModel, CommandLineWritesFramesAndPreview) {
    const TempDir out;
    const std::string ply = out.file("frames.ply"), png = out.file("frames.png");
    const ToolRun run =
        runTool("tbn --model " + model_->str() + " --in " + model_->file("sample_head.ply") +
                " --out " + ply + " --preview " + png);
    ASSERT_EQ(run.exitCode, 0) << run.output;

    // The file's normals (nx ny nz, right after the position) are the
    // library's, to the last bit of the float.
    std::vector<float> frames(9 * kHead);
    ASSERT_EQ(AI_system_init_TBN(model_->str().c_str()), 1);
    ASSERT_EQ(AI_get_TBN(sample_.data(), frames.data()), 1);
    const km::PlyMeshData written = km::readPly(ply, km::countPlyHeaderLines(ply));
    ASSERT_EQ(written.vertices.cols(), kHead);
    for (Eigen::Index v = 0; v < kHead; ++v)
        for (int c = 0; c < 3; ++c) {
            ASSERT_EQ(static_cast<float>(written.vertices(c, v)), sample_[c * kHead + v]);
            ASSERT_EQ(static_cast<float>(written.extra(c, v)), frames[(6 + c) * kHead + v]);
        }
    EXPECT_EQ(written.faces, demoMesh().faces.cast<double>());
    EXPECT_EQ(meridian::testing::readBytes(png).substr(0, 8), "\x89PNG\r\n\x1a\n");
    // The right half lights the surface by the flipped, outward normal and
    // paints red where that normal faces away from the viewer. The written
    // normals point into the head, so shading by them unflipped would paint
    // the whole face red; consistent frames leave only a few rim pixels.
    const cv::Mat picture = cv::imread(png, cv::IMREAD_COLOR);
    ASSERT_FALSE(picture.empty());
    int lit = 0, red = 0;
    for (int row = 0; row < picture.rows; ++row)
        for (int col = picture.cols / 2; col < picture.cols; ++col) {
            const cv::Vec3b bgr = picture.at<cv::Vec3b>(row, col);
            if (bgr[2] <= 60) continue;
            lit += bgr[1] >= 0.8 * bgr[2];
            red += bgr[1] < 0.3 * bgr[2];
        }
    EXPECT_GT(lit, picture.rows * picture.cols / 10);
    EXPECT_LT(red, lit / 1000);

    // Usage errors before any work.
    const ToolRun failed = runTool("tbn --model " + out.file("none") + " --in " +
                                   model_->file("sample_head.ply") + " --out " + ply);
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_NE(failed.output.find("model directory not found"), std::string::npos) << failed.output;
}
#endif

}  // namespace
