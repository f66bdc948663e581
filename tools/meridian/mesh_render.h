// Orthographic software rendering of triangle meshes, shaded by how much
// each surface faces the viewer: the pictures the tool draws.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include <Eigen/Core>
#include <opencv2/core.hpp>

namespace meridian::cli {

/// One mesh of a picture, drawn in one colour.
struct PreviewLayer {
    Eigen::Matrix3Xd vertices;  ///< 3 by #V
    Eigen::Matrix3Xi faces;     ///< 3 by #F, 0-based
    Eigen::Vector3d colour;     ///< red, green, blue in 0..1
    /// Drawn in front of earlier layers that lie up to this far in front of
    /// it, so an eye that fills its socket is not lost in the lid surface.
    double depthBias = 0.0;
    /// 3 by #V vertex normals for smooth shading; 3 by 0 shades each face flat.
    Eigen::Matrix3Xd normals = Eigen::Matrix3Xd(3, 0);
};

/// A view: screen right, screen up and the direction toward the viewer.
struct View {
    Eigen::Vector3d right, up, towardViewer;
    std::string label;
};

/// A rectangle on a view's screen axes.
struct Extent {
    double left, right, bottom, top;
};

/// Extent of layers [first, last) seen in `view`, widened by `margin` times
/// its size on every side.
Extent extentOf(const View& view, const std::vector<PreviewLayer>& layers, size_t first,
                size_t last, double margin);

/// A section: faces of the first layer nearer to the viewer than `depth`
/// are left out, which opens it up, and of the other layers only faces
/// within `slab` of `depth` are drawn.
struct Section {
    double depth = -HUGE_VAL;
    double slab = HUGE_VAL;
};

/// Draws the layers framed on `frame`, `height` pixels tall, labelled.
cv::Mat drawView(const View& view, const std::vector<PreviewLayer>& layers, const Extent& frame,
                 int height, const Section& cut = {});

/// Writes the panels side by side as a PNG; throws CommandError when it cannot.
void writePanels(const std::string& path, const std::vector<cv::Mat>& panels);

}  // namespace meridian::cli
