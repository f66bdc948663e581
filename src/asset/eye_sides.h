// Splitting an eye aligner's export-order mesh, which holds both eyes (or
// both eyelashes), into one mesh per side.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "io/correspondence.h"

namespace meridian::exporter {

/// One side's share of an export-order mesh.
struct MeshSide {
    std::vector<int> vertices;  ///< export-order vertices it keeps, ascending
    Eigen::Matrix3Xi faces;     ///< 3 by #F, indices into `vertices`
};

/// Sides in the order of the aligners' files: the subject's left, then right.
enum Side : int { kLeft = 0, kRight = 1 };

/// Splits the faces (3 by #F, 0-based export-order vertices) of an aligner's
/// export-order mesh by side. Export vertex k copies mesh vertex s
/// (`meshToExport`, the first corner of a blended entry); it is on the side
/// whose vertex list (`leftVertices`, `rightVertices`: the aligner's
/// "..._left.txt" and "..._right.txt") holds s. A face goes with the side of
/// its corners; a side keeps the vertices its faces use. Throws ExportError
/// (naming `what`) for a face that joins both sides or has no corner on
/// either.
std::array<MeshSide, 2> splitSides(const kestrel::meridian::Correspondence& meshToExport,
                                   const std::vector<int32_t>& leftVertices,
                                   const std::vector<int32_t>& rightVertices,
                                   const Eigen::Matrix3Xi& faces, const std::string& what);

}  // namespace meridian::exporter
