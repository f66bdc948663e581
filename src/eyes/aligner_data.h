// Loading and checking the data files of the eye aligners. Every index a
// fit will follow is checked once here, so a run call never reads outside a
// table; a failed check names the file and its first bad entry.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/error.h"
#include "io/correspondence.h"

namespace kestrel::meridian {

/// A triangle mesh as the aligners keep it.
struct AlignerMesh {
    Eigen::Matrix3Xd vertices;   ///< 3 by #V
    Eigen::Matrix3Xi triangles;  ///< 3 by #F, 0-based vertex indices
};

/// File names of one aligner's data, relative to the model directory.
struct AlignerFiles {
    const char* mesh;             ///< the mesh (OBJ)
    const char* headToMesh;       ///< head vertex -> mesh point, whole mesh
    const char* headToMeshLeft;   ///< the same for the left side
    const char* headToMeshRight;  ///< the same for the right side
    const char* meshToExport;     ///< mesh -> export order
    const char* leftVertices;     ///< mesh vertices of the left side
    const char* rightVertices;    ///< mesh vertices of the right side
};

/// The eyeball aligner's files (its optional weight files aside).
inline constexpr AlignerFiles kEyeballAlignerFiles = {
    "eyeball/eyeball_tri.obj",
    "eyeball/idx_head2eyeball.corresp",
    "eyeball/idx_head2eyeball_left.corresp",
    "eyeball/idx_head2eyeball_right.corresp",
    "eyeball/idx_eyeball2ue4.corresp",
    "eyeball/idx_eyeball_left.txt",
    "eyeball/idx_eyeball_right.txt",
};

/// The eyelash aligner's files, and its blendshape.
inline constexpr AlignerFiles kEyelashAlignerFiles = {
    "eyelash/eyelash_tri.obj",
    "eyelash/idx_head2eyelash.corresp",
    "eyelash/idx_head2eyelash_left.corresp",
    "eyelash/idx_head2eyelash_right.corresp",
    "eyelash/idx_eyelash2ue4.corresp",
    "eyelash/idx_eyelash_left.txt",
    "eyelash/idx_eyelash_right.txt",
};
inline constexpr const char* kEyelashBlendshapeFile = "eyelash/eyelash_bs01.obj";

/// Reads an OBJ's vertices and triangles. False with `error` set:
/// cannotOpenMesh when the file cannot be opened, indexOutOfRange when a
/// face names a vertex that does not exist. A file without vertices gives
/// an empty mesh.
bool loadAlignerMesh(const std::string& path, AlignerMesh& mesh, Error& error);

/// Every source vertex (pair form) or triangle corner lies in
/// 0..sourceCount-1; else false with an indexOutOfRange error.
bool checkSources(const Correspondence& record, int64_t sourceCount, const std::string& path,
                  Error& error);

/// Every target index lies in 0..targetCount-1; else false as above.
bool checkTargets(const Correspondence& record, int64_t targetCount, const std::string& path,
                  Error& error);

/// Every entry lies in 0..count-1; else false as above.
bool checkIndexList(const std::vector<int32_t>& list, int64_t count, const std::string& path,
                    Error& error);

/// The record's vertex weights are absent or one per entry; else false with
/// a badContent error.
bool checkVertexWeights(const Correspondence& record, const std::string& weightPath,
                        const std::string& path, Error& error);

}  // namespace kestrel::meridian
