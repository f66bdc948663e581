// A picture of a set of blendshapes: the heads side by side, each coloured
// by how far its vertices moved from the first.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

#include "io/atomic_file.h"

namespace meridian::cli {

/// One head of the sheet.
struct SheetPanel {
    std::string label;
    Eigen::Matrix3Xd vertices;  ///< 3 by #V, the head frame (x across, z up, face toward -y)
    Eigen::Vector3d viewFrom;   ///< direction from the head toward the viewer
};

/// Renders the panels orthographically, side by side, at one scale: grey
/// shading lit from the viewer, tinted from yellow to red by the distance
/// each vertex moved from panels[0] (one colour scale for all panels).
/// faces: 3 by #F 0-based vertex ids shared by all panels.
/// Throws CommandError when the image cannot be written.
/// With `outputs`, the picture is added to them instead of written.
void writeBlendshapeSheet(const std::string& path, const std::vector<SheetPanel>& panels,
                          const Eigen::Matrix3Xi& faces,
                          kestrel::meridian::AtomicFileSet* outputs = nullptr);

}  // namespace meridian::cli
