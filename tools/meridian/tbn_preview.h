// Front view of a head shaded by its per-vertex normals, for checking
// tangent frames by eye.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

#include "io/atomic_file.h"

namespace meridian::cli {

/// Whether an image format is known for the extension of `path`.
bool isPreviewImagePath(const std::string& path);

/// Renders the head orthographically as seen from -y (x to the right, z up)
/// with a depth buffer, in two panels over a caption that states the frames'
/// sign convention. The normals given are the frames as written: the legacy
/// convention, the negated mean of the faces' T x B, which on a head with
/// an outward UV layout points into the head. Left: those normals as colours
/// (R, G, B = 0.5 + 0.5 * (nx, ny, nz)). Right: the surface lit by -n, the
/// normal flipped into the viewer's (outward) convention, from the upper
/// left front; where -n faces away from the viewer the surface is red, so a
/// patch of flipped frames stands out. Normals are interpolated across each
/// triangle.
/// vertices: 3 by #V positions, coordinate r of vertex j at (r, j)
/// faces:    3 by #F 0-based vertex indices
/// normals:  3 by #V per-vertex normals as written (rows 6..8 of the frames)
/// Throws CommandError when the PNG cannot be written.
/// With `outputs`, the picture is added to them instead of written.
void writeNormalPreview(const std::string& path, const Eigen::Matrix3Xd& vertices,
                        const Eigen::Matrix3Xi& faces, const Eigen::Matrix3Xd& normals,
                        kestrel::meridian::AtomicFileSet* outputs = nullptr);

}  // namespace meridian::cli
