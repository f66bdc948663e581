// The model directory: the names of its files and how each is joined to the
// directory. The joins differ on purpose and show in messages, so each has
// its own name and none is folded into another:
//   - "appended" joins concatenate the directory and a name that starts with
//     '/', unchanged: "models/" gives "models//TBN/...", "models" gives
//     "models/TBN/...";
//   - "inserted" joins put a separator between the two only when the
//     directory does not end with one.
#pragma once

#include <filesystem>
#include <string>

namespace kestrel::meridian::model_files {

/// The fixed tangent-frame engine's template (appended).
inline constexpr const char* kTangentFrameTemplate = "/TBN/std_20481_with_UV_F_TF.obj";
/// The eyeball task's template eyeball (appended).
inline constexpr const char* kEyeballPly = "/eyeball/new_eye.ply";
/// The template eye mesh the pose debug output moves (appended).
inline constexpr const char* kTemplateEyeMesh = "/eyeball/color_eye/EyeNew.obj";
/// The blendshape back-end folder (appended; file names follow it as is).
inline constexpr const char* kBlendshapeFolder = "/BS/";
/// Template head -> head (inserted).
inline constexpr const char* kTemplateToHead = "idx_tavi2head.corresp";
/// Head -> game-engine vertex order (inserted).
inline constexpr const char* kHeadToEngine = "idx_head2ue4.corresp";
/// The head mesh in game-engine vertex order, with its faces and UVs (inserted).
inline constexpr const char* kEngineHeadMesh = "ue4_head.obj";

/// modelDir + kTangentFrameTemplate.
inline std::string tangentFrameTemplatePath(const std::string& modelDir) {
    return modelDir + kTangentFrameTemplate;
}

/// modelDir + kEyeballPly.
inline std::string eyeballPlyPath(const std::string& modelDir) {
    return modelDir + kEyeballPly;
}

/// modelDir + kTemplateEyeMesh.
inline std::string templateEyeMeshPath(const std::string& modelDir) {
    return modelDir + kTemplateEyeMesh;
}

/// modelDir + kBlendshapeFolder; back-end file names are appended to it.
inline std::string blendshapeFolder(const std::string& modelDir) {
    return modelDir + kBlendshapeFolder;
}

/// modelDir / name for the head swap and the aligners (inserted).
inline std::string modelFilePath(const std::string& modelDir, const char* name) {
    return (std::filesystem::path(modelDir) / name).string();
}

}  // namespace kestrel::meridian::model_files
