// The model check: before any engine loads, every file a task needs is
// present, a regular file, and parses strictly, with the counts the other
// files expect. A damaged model is then one error naming the file and the
// fault instead of a wrong result, a process exit or a half-written output.
#pragma once

#include <initializer_list>
#include <string>

namespace kestrel::meridian {

/// What a caller is about to load from a model directory.
enum class ModelTask {
    headSwap,           ///< idx_tavi2head.corresp, idx_head2ue4.corresp
    engineHeadMesh,     ///< ue4_head.obj, one vertex per engine-order entry
    tangentFrames,      ///< TBN/std_20481_with_UV_F_TF.obj with UVs
    eyeballFit,         ///< eyeball/new_eye.ply
    posedEyeMesh,       ///< eyeball/color_eye/EyeNew.obj (the eye mesh a host poses)
    eyeballAligner,     ///< the eyeball aligner's mesh, correspondences, weights and side lists
    eyelashAligner,     ///< the eyelash aligner's files and its blendshape mesh
    eyeballExportMesh,  ///< eyeball/ue4_eyeball.obj, one vertex per export-order entry
    eyelashExportMesh,  ///< eyelash/ue4_eyelash.obj, one vertex per export-order entry
    blendshapes         ///< the 27 sets and 15 region files under BS/
};

/// Checks every file `task` needs below `modelDir`. Throws InputError
/// naming the first file at fault and the fault: missing or not a regular
/// file; a correspondence whose body does not match its count or whose
/// indices leave the meshes they index; a non-finite weight; a matrix file
/// of any size but 8 x rows x cols bytes, or holding a non-finite value; a
/// malformed mesh, or one whose counts differ from what the other files
/// expect.
void checkModel(const std::string& modelDir, ModelTask task);

/// Checks several tasks in the order given.
void checkModel(const std::string& modelDir, std::initializer_list<ModelTask> tasks);

}  // namespace kestrel::meridian
