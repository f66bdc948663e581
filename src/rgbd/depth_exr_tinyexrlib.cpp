// Depth images in builds without OpenEXR (Windows): read with tinyexr,
// whose implementation and zlib inflater are compiled in here.
#define TINYEXR_IMPLEMENTATION
#define TINYEXR_USE_MINIZ 0
#include <tinyexr.h>
#include <zlib.h>

#include "rgbd/capture_files.h"
#include "rgbd/depth_exr_tinyexr.h"

namespace kestrel::meridian {

DepthImage readDepthExr(const std::string& path) {
    return readDepthExrWithTinyexr(path);
}

}  // namespace kestrel::meridian
