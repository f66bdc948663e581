#include "demo/head_numbering.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "demo/grid_mesh.h"

namespace meridian::demo::detail {

namespace {

using Eigen::Vector3d;

// Ring vertices lie in three loops around the socket axis, so that they do
// not share a plane and a sphere fit to them is well posed.
constexpr double kRingLoopRadii[] = {2.2, 1.7, 1.2};
constexpr int kRingLoopSize = kRingSize / 3;
// Keeps ring vertices clear of the cap border, where the sphere hands over.
constexpr double kCapMargin = 0.05;

struct Socket {
    const std::array<int, kRingSize>& ring;
    int gaze;
};

/// The free vertex seen from the head centre in the direction closest to
/// `target`'s, so that snapping it onto `target` moves it mostly along its
/// own ray and keeps neighbouring vertices in order.
int nearestFreeByDirection(const Eigen::Matrix3Xd& points, const std::vector<bool>& used,
                           const Vector3d& target) {
    const Vector3d centre = headCentre();
    const Vector3d wanted = (target - centre).normalized();
    int best = -1;
    double bestCosine = 0;
    for (int v = 0; v < points.cols(); ++v) {
        if (used[v]) continue;
        const double cosine = (points.col(v) - centre).normalized().dot(wanted);
        if (best < 0 || cosine > bestCosine) best = v, bestCosine = cosine;
    }
    return best;
}

/// Free grid vertices on the front of a socket cap, with their distance
/// from the socket axis.
std::vector<std::pair<double, int>> capVertices(const HeadShape& shape, const SocketSphere& socket,
                                                const std::vector<bool>& used) {
    std::vector<std::pair<double, int>> cap;
    for (int v = 0; v < shape.points.cols(); ++v) {
        const Vector3d p = shape.points.col(v);
        const double axis = socketAxisDistance(socket, p);
        if (!used[v] && p.y() < socket.centre.y() && axis < kSocketCapRadius - kCapMargin)
            cap.emplace_back(axis, v);
    }
    return cap;
}

/// Picks the gaze vertex (closest to the axis) and the ring vertices of one
/// socket; ring vertices come loop by loop, each loop ordered around the axis.
void chooseSocketVertices(const HeadShape& shape, const SocketSphere& socket,
                          std::vector<bool>& used, int& gaze, std::vector<int>& ring) {
    std::vector<std::pair<double, int>> cap = capVertices(shape, socket, used);
    if (cap.size() < 1 + static_cast<size_t>(kRingSize))
        throw std::logic_error("demo head: too few vertices on a socket cap");
    gaze = std::min_element(cap.begin(), cap.end())->second;
    used[gaze] = true;
    ring.clear();
    for (double loopRadius : kRingLoopRadii) {
        std::vector<std::pair<double, int>> byGap;
        for (const auto& [axis, v] : cap)
            if (!used[v]) byGap.emplace_back(std::abs(axis - loopRadius), v);
        std::sort(byGap.begin(), byGap.end());
        std::vector<std::pair<double, int>> loop;
        for (int k = 0; k < kRingLoopSize; ++k) {
            const int v = byGap[k].second;
            used[v] = true;
            const Vector3d p = shape.points.col(v);
            loop.emplace_back(std::atan2(p.z() - socket.centre.z(), p.x() - socket.centre.x()), v);
        }
        std::sort(loop.begin(), loop.end());
        for (const auto& entry : loop) ring.push_back(entry.second);
    }
}

}  // namespace

HeadNumbering numberHead(HeadShape& shape) {
    const int count = static_cast<int>(shape.points.cols());
    std::vector<bool> used(count, false);
    HeadNumbering numbering;
    numbering.gridOfId.assign(count, -1);
    auto assign = [&](int id, int grid) {
        if (numbering.gridOfId[id] >= 0) throw std::logic_error("demo head: id given twice");
        numbering.gridOfId[id] = grid;
        used[grid] = true;
    };

    std::array<int, kLandmarkCount> landmarkGrid{};
    for (int k = 0; k < kLandmarkCount; ++k) {
        const Vector3d p(kLandmarkPositions[k][0], kLandmarkPositions[k][1],
                         kLandmarkPositions[k][2]);
        landmarkGrid[k] = nearestFreeByDirection(shape.points, used, p);
        assign(kLandmarkIds[k], landmarkGrid[k]);
    }

    const Socket sockets[2] = {{kRingB, kGazeFirstEye}, {kRingA, kGazeSecondEye}};
    for (int eye = 0; eye < 2; ++eye) {
        int gaze = -1;
        std::vector<int> ring;
        chooseSocketVertices(shape, shape.sockets[eye], used, gaze, ring);
        assign(sockets[eye].gaze, gaze);
        for (int k = 0; k < kRingSize; ++k) assign(sockets[eye].ring[k], ring[k]);
    }

    // Every other id, in grid order.
    int nextId = 0;
    for (int grid = 0; grid < count; ++grid) {
        if (used[grid]) continue;
        while (numbering.gridOfId[nextId] >= 0) ++nextId;
        numbering.gridOfId[nextId] = grid;
    }
    numbering.idOfGrid.assign(count, -1);
    for (int id = 0; id < count; ++id) numbering.idOfGrid[numbering.gridOfId[id]] = id;

    for (int k = 0; k < kLandmarkCount; ++k)
        shape.points.col(landmarkGrid[k]) << kLandmarkPositions[k][0], kLandmarkPositions[k][1],
            kLandmarkPositions[k][2];
    return numbering;
}

}  // namespace meridian::demo::detail
