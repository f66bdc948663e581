// Orthographic software rendering of triangle meshes, shaded by how much
// each surface faces the viewer: the pictures the tool draws.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include <Eigen/Core>
#include <opencv2/core.hpp>

namespace kestrel::meridian {
class AtomicFileSet;
}

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
    /// What the layer shows, for the picture's colour key; empty: not listed.
    std::string name = {};
};

/// 3 by #V vertex normals of `layer`: each vertex's faces' normals, weighted
/// by the faces' areas, normalised. Shading by them instead of by each
/// face's own normal keeps small, steep faces (a crease at a socket rim, a
/// fold of a few triangles) from standing out as light or dark shards.
Eigen::Matrix3Xd vertexNormals(const PreviewLayer& layer);

/// A panel `height` pixels tall holding the colour key of the named layers:
/// one swatch and name per distinct name, in layer order.
cv::Mat colourKeyPanel(const std::vector<PreviewLayer>& layers, int height);

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

/// Writes the panels side by side as a PNG, atomically; with `outputs`, adds
/// the picture to them instead, to appear together with the other outputs.
/// Throws CommandError or InputError when it cannot.
void writePanels(const std::string& path, const std::vector<cv::Mat>& panels,
                 kestrel::meridian::AtomicFileSet* outputs = nullptr);

/// Fills the pixels of `image` (CV_8UC3) whose centres lie inside a triangle
/// given by its corners' (column, row, depth), where the depth is nearer than
/// what `depth` (CV_32F, the image's size) holds; the nearest wins. `shade`
/// gets the pixel's barycentric weights (`const double (&)[3]`) and returns
/// its cv::Vec3b colour.
template <typename Shade>
void rasterise(const std::array<Eigen::Vector3d, 3>& corners, cv::Mat& depth, cv::Mat& image,
               Shade&& shade) {
    const auto& [a, b, c] = corners;
    const double area = (b.x() - a.x()) * (c.y() - a.y()) - (c.x() - a.x()) * (b.y() - a.y());
    if (std::abs(area) < 1e-12) return;
    const int c0 = std::max(0, static_cast<int>(std::floor(std::min({a.x(), b.x(), c.x()}))));
    const int c1 =
        std::min(image.cols - 1, static_cast<int>(std::ceil(std::max({a.x(), b.x(), c.x()}))));
    const int r0 = std::max(0, static_cast<int>(std::floor(std::min({a.y(), b.y(), c.y()}))));
    const int r1 =
        std::min(image.rows - 1, static_cast<int>(std::ceil(std::max({a.y(), b.y(), c.y()}))));
    for (int r = r0; r <= r1; ++r)
        for (int col = c0; col <= c1; ++col) {
            const double x = col + 0.5, y = r + 0.5;
            double w[3];
            w[0] = ((b.x() - x) * (c.y() - y) - (c.x() - x) * (b.y() - y)) / area;
            w[1] = ((c.x() - x) * (a.y() - y) - (a.x() - x) * (c.y() - y)) / area;
            w[2] = 1.0 - w[0] - w[1];
            if (w[0] < 0 || w[1] < 0 || w[2] < 0) continue;
            const float z = static_cast<float>(w[0] * a.z() + w[1] * b.z() + w[2] * c.z());
            float& nearest = depth.at<float>(r, col);
            if (z >= nearest) continue;
            nearest = z;
            image.at<cv::Vec3b>(r, col) = shade(w);
        }
}

}  // namespace meridian::cli
