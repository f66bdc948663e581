// The preview of a build without OpenCV: --preview is refused up front.
#include "cli_common.h"
#include "tbn_preview.h"

namespace meridian::cli {

bool isPreviewImagePath(const std::string&) {
    throw CommandError("--preview needs a build with OpenCV (MERIDIAN_WITH_OPENCV)");
}

void writeNormalPreview(const std::string&, const Eigen::Matrix3Xd&, const Eigen::Matrix3Xi&,
                        const Eigen::Matrix3Xd&) {
    throw CommandError("--preview needs a build with OpenCV (MERIDIAN_WITH_OPENCV)");
}

}  // namespace meridian::cli
