// The model files each part of the head asset needs, checked before any
// engine is loaded: the blendshape loader ends the process on a missing or
// short file, and a missing aligner mesh fails without naming it.
#pragma once

#include <string>

#include "common/model_paths.h"

namespace meridian::exporter {

/// "idx_tavi2head.corresp", "idx_head2ue4.corresp" and "ue4_head.obj".
void checkHeadFiles(const std::string& modelDir);

/// Every file the blendshape data set reads below modelDir + "/BS/", each
/// at least as long as its shape needs.
void checkBlendshapeFiles(const std::string& modelDir);

/// The template eyeball, both aligners' files and the export-order eyeball
/// and eyelash meshes.
void checkEyeFiles(const std::string& modelDir);

/// The export-order template meshes, relative to the model directory.
inline constexpr const char* kHeadTemplateFile = kestrel::meridian::model_files::kEngineHeadMesh;
inline constexpr const char* kEyeballTemplateFile = "eyeball/ue4_eyeball.obj";
inline constexpr const char* kEyelashTemplateFile = "eyelash/ue4_eyelash.obj";

/// model directory / name, with a separator inserted when it lacks one.
std::string modelPath(const std::string& modelDir, const std::string& name);

}  // namespace meridian::exporter
