// A picture of an exported head asset, drawn from its bytes read back.
#pragma once

#include <string>
#include <string_view>

#include "io/atomic_file.h"

namespace meridian::cli {

/// Reads the binary glTF `glb` (the bytes of the file `glbPath`, named in
/// messages) and draws every mesh of its default scene, placed by its
/// nodes, in its material's colour, smoothly shaded by the file's normals:
/// from the front (+Z), at three quarters and from the side. Adds the PNG to
/// `outputs`; throws CommandError when the asset cannot be read or the
/// picture encoded.
void writeExportPreview(std::string_view glb, const std::string& glbPath,
                        const std::string& pngPath, kestrel::meridian::AtomicFileSet& outputs);

}  // namespace meridian::cli
