// Front view of a head shaded by its per-vertex normals, for checking
// tangent frames by eye.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

#include "io/atomic_file.h"

namespace meridian::cli {

/// Renders the head orthographically as seen from -y (x to the right, z up)
/// with a depth buffer, in two panels: left, the normals as colours
/// (R, G, B = 0.5 + 0.5 * (nx, ny, nz)); right, shaded by |n . view| and
/// tinted by the side the normal faces (blue: away from the viewer, i.e.
/// toward +y; orange: toward the viewer), so a patch of flipped normals
/// stands out. Normals are interpolated across each triangle.
/// vertices: 3 by #V positions
/// faces:    3 by #F 0-based vertex indices
/// normals:  3 by #V per-vertex normals
/// Throws CommandError when the PNG cannot be written.
/// Whether an image format is known for the extension of `path`.
bool isPreviewImagePath(const std::string& path);

/// With `outputs`, the picture is added to them instead of written.
void writeNormalPreview(const std::string& path, const Eigen::Matrix3Xd& vertices,
                        const Eigen::Matrix3Xi& faces, const Eigen::Matrix3Xd& normals,
                        kestrel::meridian::AtomicFileSet* outputs = nullptr);

}  // namespace meridian::cli
