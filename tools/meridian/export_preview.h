// A picture of an exported head asset, drawn from the file read back.
#pragma once

#include <string>

namespace meridian::cli {

/// Reads the binary glTF at `glbPath` and draws every mesh of its default
/// scene, placed by its nodes, in its material's colour, smoothly shaded by
/// the file's normals: from the front (+Z), at three quarters and from the
/// side.
/// Writes a PNG; throws CommandError when the file cannot be read or the
/// picture written.
void writeExportPreview(const std::string& glbPath, const std::string& pngPath);

}  // namespace meridian::cli
