// Depth images read with tinyexr: the reader of builds without OpenEXR
// (Windows), and on Linux the second reader the tests hold against OpenEXR.
#pragma once

#include <string>

#include "rgbd/capture_files.h"

namespace kestrel::meridian {

/// The same image readDepthExr gives (channel "Y", "Z", "R" or "depth",
/// else the file's only channel; half and unsigned channels widened to
/// float), decoded by tinyexr. Scan-line files only; empty when the file
/// cannot be read, is tiled, or has several channels and none of those names.
/// Pixel (r, k) of the data window is at depth[r * cols + k].
DepthImage readDepthExrWithTinyexr(const std::string& path);

}  // namespace kestrel::meridian
