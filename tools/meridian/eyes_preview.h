// Front and side views of a head with its eyes and eyelashes, for checking
// the eye fits by eye.
#pragma once

#include <string>
#include <vector>

#include "mesh_render.h"

namespace meridian::cli {

/// Renders the layers orthographically from the front (from -y, x to the
/// right, z up) and from the side (from -x, the face to the right): two
/// panels framed on the first layer (the head), then two close-ups framed on
/// the other layers (the eyes). Writes a PNG; throws CommandError when it
/// cannot. Layers without vertex normals are shaded smoothly by
/// vertexNormals(); the named ones are listed in a colour key, the last
/// panel.
/// With `outputs`, the picture is added to them instead of written.
void writeEyesPreview(const std::string& path, std::vector<PreviewLayer> layers,
                      kestrel::meridian::AtomicFileSet* outputs = nullptr);

}  // namespace meridian::cli
