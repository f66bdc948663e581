// The demo head, its eye sockets, its blendshape face list and the sample
// head derived from it.
#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <stdexcept>

#include <Eigen/Geometry>

#include "demo/demo_model.h"
#include "demo/float_round.h"
#include "demo/grid_mesh.h"
#include "demo/head_numbering.h"
#include "demo/head_shape.h"

namespace meridian::demo {

namespace {

using Eigen::Vector3d;

struct BuiltHead {
    DemoHead head;
    std::array<SocketSphere, 2> sockets;
};

const BuiltHead& builtHead() {
    static const BuiltHead built = [] {
        detail::HeadShape shape = detail::buildHeadShape();
        const detail::HeadNumbering numbering = detail::numberHead(shape);
        const detail::GridMesh grid = detail::buildGridMesh();
        BuiltHead result;
        DemoHead& head = result.head;
        head.vertices.resize(3, kTemplateVertexCount);
        for (int id = 0; id < kTemplateVertexCount; ++id)
            head.vertices.col(id) = shape.points.col(numbering.gridOfId[id]);
        head.faces.resize(3, grid.faces.cols());
        for (Eigen::Index f = 0; f < grid.faces.cols(); ++f)
            for (int c = 0; c < 3; ++c) head.faces(c, f) = numbering.idOfGrid[grid.faces(c, f)];
        head.uvs = grid.uvs;
        head.uvFaces = grid.uvFaces;
        result.sockets = shape.sockets;
        return result;
    }();
    return built;
}

// Cheek anchors of the blendshape regions: x and z on the front of the face.
constexpr double kCheekX = 17.0, kCheekZ = -26.0;

/// Vertex on the front (y < 0) whose x and z are closest to (x, z).
int frontVertexAt(const Eigen::Matrix3Xd& v, double x, double z) {
    int best = -1;
    double bestDistance = 0;
    for (int j = 0; j < v.cols(); ++j) {
        if (v(1, j) >= 0) continue;
        const double d = std::hypot(v(0, j) - x, v(2, j) - z);
        if (best < 0 || d < bestDistance) best = j, bestDistance = d;
    }
    return best;
}

std::vector<int> buildFaceList(const Eigen::Matrix3Xd& v) {
    const int count = static_cast<int>(v.cols());
    std::vector<int> byHeight(count);
    std::iota(byHeight.begin(), byHeight.end(), 0);
    std::stable_sort(byHeight.begin(), byHeight.end(),
                     [&](int a, int b) { return v(2, a) < v(2, b); });
    std::vector<bool> kept(count, true);
    for (int k = 0; k < count - kFaceVertexCount; ++k) kept[byHeight[k]] = false;

    Eigen::Index noseTip, earLeft, earRight;
    v.row(1).minCoeff(&noseTip);
    v.row(0).maxCoeff(&earLeft);
    v.row(0).minCoeff(&earRight);
    const std::pair<int, int> anchors[] = {
        {kFaceAnchorEarLeft, static_cast<int>(earLeft)},
        {kFaceAnchorCheekLeft, frontVertexAt(v, kCheekX, kCheekZ)},
        {kFaceAnchorNoseTip, static_cast<int>(noseTip)},
        {kFaceAnchorEarRight, static_cast<int>(earRight)},
        {kFaceAnchorCheekRight, frontVertexAt(v, -kCheekX, kCheekZ)},
    };
    std::vector<int> list(kFaceVertexCount, -1);
    std::vector<bool> placed(count, false);
    for (const auto& [position, vertex] : anchors) {
        if (!kept[vertex] || placed[vertex])
            throw std::logic_error("demo head: bad blendshape anchor");
        list[position] = vertex;
        placed[vertex] = true;
    }
    int next = 0;
    for (int& entry : list) {
        if (entry >= 0) continue;
        while (!kept[next] || placed[next]) ++next;
        entry = next++;
    }
    return list;
}

/// Local shape change of the sample head: bumps along the ray from the head
/// centre with compact support, so they vanish exactly away from their
/// centres (in particular at the landmarks and the eye sockets).
Vector3d localChange(const Vector3d& p) {
    const Vector3d outward = (p - detail::headCentre()).normalized();
    double push = 0;
    for (const FeatureChange& bump : sampleFeatureChanges()) {
        const Vector3d centre(bump.centre[0], bump.centre[1], bump.centre[2]);
        const double t = (p - centre).squaredNorm() / (bump.reach * bump.reach);
        if (t < 1) push += bump.amplitude * std::pow(1 - t, 3);
    }
    return push * outward;
}

}  // namespace

const DemoHead& demoHead() {
    return builtHead().head;
}

const std::vector<FeatureChange>& sampleFeatureChanges() {
    static const std::vector<FeatureChange> changes = {
        {{0, -21, -22}, 7, 2.0},    // longer nose
        {{0, -13, -42}, 8, 1.5},    // stronger chin
        {{20, -2, -34}, 10, 1.2},   // wider jaw, left
        {{-20, -2, -34}, 10, 1.2},  // wider jaw, right
        {{29, 16, -12}, 8, -1.2},   // flatter ear, left
        {{-29, 16, -12}, 8, -1.2},  // flatter ear, right
        {{0, 25, 30}, 20, 2.0},     // higher crown
    };
    return changes;
}

const SocketSphere& socketSphere(int eye) {
    return builtHead().sockets.at(eye);
}

Eigen::Matrix3Xd landmarkPositions() {
    Eigen::Matrix3Xd positions(3, kLandmarkCount);
    for (int k = 0; k < kLandmarkCount; ++k)
        positions.col(k) << kLandmarkPositions[k][0], kLandmarkPositions[k][1],
            kLandmarkPositions[k][2];
    return positions;
}

const std::vector<int>& faceVertexList() {
    static const std::vector<int> list = buildFaceList(demoHead().vertices);
    return list;
}

const SampleMotion& sampleMotion() {
    static const SampleMotion motion = [] {
        constexpr double kDegree = 3.14159265358979323846 / 180.0;
        SampleMotion m;
        m.rotation = (Eigen::AngleAxisd(4.0 * kDegree, Vector3d::UnitZ()) *
                      Eigen::AngleAxisd(-3.0 * kDegree, Vector3d::UnitY()) *
                      Eigen::AngleAxisd(2.5 * kDegree, Vector3d::UnitX()))
                         .toRotationMatrix();
        m.translation = Vector3d(1.5, -2.0, 3.0);
        m.scale = 1.04;
        return m;
    }();
    return motion;
}

Eigen::Matrix3Xd sampleHead() {
    static const Eigen::Matrix3Xd sample = [] {
        const Eigen::Matrix3Xd& demo = demoHead().vertices;
        const SampleMotion& m = sampleMotion();
        Eigen::Matrix3Xd result(3, demo.cols());
        for (Eigen::Index j = 0; j < demo.cols(); ++j) {
            const Vector3d p = demo.col(j);
            const Vector3d moved = m.scale * (m.rotation * (p + localChange(p))) + m.translation;
            result.col(j) = detail::roundToFloat(moved);
        }
        return result;
    }();
    return sample;
}

}  // namespace meridian::demo
