// Geometry of the demo head in grid order (see grid_mesh.h): a star-shaped
// surface around a centre behind the face, with facial features, a neck,
// two spherical eye-socket caps and a smooth correction through the
// landmark positions.
#pragma once

#include <array>
#include <cmath>

#include <Eigen/Core>

#include "demo/demo_model.h"

namespace meridian::demo::detail {

/// Inside this distance from its axis, a socket's surface is its sphere.
inline constexpr double kSocketCapRadius = 2.4;

struct HeadShape {
    Eigen::Matrix3Xd points;              ///< 3 by kGridVertexCount, float-valued, grid order
    std::array<SocketSphere, 2> sockets;  ///< first eye (-x), second eye (+x)
};

/// The point the surface is star-shaped around (behind the eyes).
Eigen::Vector3d headCentre();

/// Builds the surface (landmarks are approached but not yet snapped).
HeadShape buildHeadShape();

/// Distance of `p` from the axis of `socket`, the line through its centre
/// along y (the direction the face looks).
inline double socketAxisDistance(const SocketSphere& socket, const Eigen::Vector3d& p) {
    return std::hypot(p.x() - socket.centre.x(), p.z() - socket.centre.z());
}

}  // namespace meridian::demo::detail
