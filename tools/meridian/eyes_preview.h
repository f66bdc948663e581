// Front and side views of a head with its eyes and eyelashes, for checking
// the eye fits by eye.
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

namespace meridian::cli {

/// One mesh of the picture, drawn in one colour, flat shaded.
struct PreviewLayer {
    Eigen::Matrix3Xd vertices;  ///< 3 by #V
    Eigen::Matrix3Xi faces;     ///< 3 by #F, 0-based
    Eigen::Vector3d colour;     ///< red, green, blue in 0..1
    /// Drawn in front of earlier layers that lie up to this far in front of
    /// it, so an eye that fills its socket is not lost in the lid surface.
    double depthBias = 0.0;
};

/// Renders the layers orthographically from the front (from -y, x to the
/// right, z up) and from the side (from -x, the face to the right): two
/// panels framed on the first layer (the head), then two close-ups framed on
/// the other layers (the eyes). Writes a PNG; throws CommandError when it
/// cannot.
void writeEyesPreview(const std::string& path, const std::vector<PreviewLayer>& layers);

}  // namespace meridian::cli
