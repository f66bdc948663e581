// Meshes in an engine's vertex order: their faces and texture coordinates
// from the model's template OBJ, which vertices are copies of one another,
// and vertex normals that ignore the copies.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

#include "io/correspondence.h"

namespace meridian::exporter {

/// Faces and texture coordinates of a mesh in engine order, where every
/// vertex has one texture coordinate (vertices are duplicated along seams).
struct EngineMeshLayout {
    Eigen::Matrix3Xi faces;  ///< 3 by #F, 0-based, counter-clockwise seen from outside
    /// 2 by #V in glTF's texture space (origin at the image's top left: the
    /// OBJ's (u, v) becomes (u, 1 - v)); 2 by 0 when the OBJ has none.
    Eigen::Matrix2Xf uvs;
};

/// Reads an engine-order template OBJ ("f a/t b/t c/t") of `vertexCount`
/// vertices. A vertex in no face gets texture coordinate (0, 0). Throws
/// ExportError when the file is missing, has another vertex count, a face
/// names a vertex or texture coordinate that does not exist, or one vertex
/// is given two different texture coordinates.
EngineMeshLayout readEngineMeshLayout(const std::string& path, Eigen::Index vertexCount);

/// For every entry of `record`, a copy id: entries that copy the same source
/// vertex (or blend the same triangle with the same weights) share one.
/// Ids run from 0 to the number of distinct sources - 1.
std::vector<int> copyIds(const kestrel::meridian::Correspondence& record);

/// Unit vertex normals of a triangle mesh whose vertices may be copies of
/// one another (equal `copyOf` ids, from copyIds): per id, the sum of the
/// area-weighted normals of every face around every copy, so all copies get
/// the same normal and a texture seam leaves no seam in the shading.
/// `positions` is 3 by #V, `faces` 3 by #F (0-based, counter-clockwise seen
/// from outside); the result is 3 by #V. A vertex whose faces have no area
/// gets (0, 1, 0).
Eigen::Matrix3Xd seamlessNormals(const Eigen::Matrix3Xd& positions, const Eigen::Matrix3Xi& faces,
                                 const std::vector<int>& copyOf);

/// The copy id of every corner of `faces` (3 by #F): 3 by #F, the id of
/// corner k of face f at (k, f).
Eigen::Matrix3Xi cornerIds(const Eigen::Matrix3Xi& faces, const std::vector<int>& copyOf);

/// seamlessNormals once per copy id instead of once per vertex, with the
/// bits seamlessNormals gives every copy of the id. `positions` is 3 by #V
/// (coordinate r of vertex j at 3 * j + r), `faces` 3 by #F, `cornerIds`
/// their copy ids (cornerIds(faces, copyOf), ids below `idCount`).
/// `normals` becomes 3 * `idCount` doubles (coordinate r of id i at
/// 3 * i + r); a caller keeping it between meshes reuses its storage.
void seamlessNormalsPerId(const double* positions, const Eigen::Matrix3Xi& faces,
                          const Eigen::Matrix3Xi& cornerIds, int idCount,
                          std::vector<double>& normals);

}  // namespace meridian::exporter
