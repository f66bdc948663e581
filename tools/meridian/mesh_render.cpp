#include "mesh_render.h"

#include <algorithm>
#include <array>
#include <limits>

#include <Eigen/Geometry>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_common.h"

namespace meridian::cli {

namespace {

constexpr int kMargin = 16;

struct Panel {
    cv::Mat image;
    cv::Mat depth;  // distance from the viewer's plane, smaller is nearer
};

cv::Vec3b shaded(const Eigen::Vector3d& colour, double light) {
    auto byte = [&](double v) {
        return static_cast<uchar>(std::clamp(std::lround(255.0 * v * light), 0L, 255L));
    };
    return cv::Vec3b(byte(colour.z()), byte(colour.y()), byte(colour.x()));
}

/// Light on a surface of normal `n`: ambient plus how much it faces the viewer.
double lightOf(const Eigen::Vector3d& n, const View& view) {
    return 0.3 + 0.7 * std::abs(n.dot(view.towardViewer));
}

/// Fills a triangle given in screen coordinates (x, y, depth), its light
/// interpolated between the corners.
void drawTriangle(const std::array<Eigen::Vector3d, 3>& screen, const std::array<double, 3>& light,
                  const Eigen::Vector3d& colour, Panel& panel) {
    const auto& [a, b, c] = screen;
    const double area = (b.x() - a.x()) * (c.y() - a.y()) - (c.x() - a.x()) * (b.y() - a.y());
    if (std::abs(area) < 1e-12) return;
    const int c0 = std::max(0, static_cast<int>(std::floor(std::min({a.x(), b.x(), c.x()}))));
    const int c1 = std::min(panel.image.cols - 1,
                            static_cast<int>(std::ceil(std::max({a.x(), b.x(), c.x()}))));
    const int r0 = std::max(0, static_cast<int>(std::floor(std::min({a.y(), b.y(), c.y()}))));
    const int r1 = std::min(panel.image.rows - 1,
                            static_cast<int>(std::ceil(std::max({a.y(), b.y(), c.y()}))));
    for (int r = r0; r <= r1; ++r)
        for (int col = c0; col <= c1; ++col) {
            const double x = col + 0.5, y = r + 0.5;
            const double w0 = ((b.x() - x) * (c.y() - y) - (c.x() - x) * (b.y() - y)) / area;
            const double w1 = ((c.x() - x) * (a.y() - y) - (a.x() - x) * (c.y() - y)) / area;
            const double w2 = 1.0 - w0 - w1;
            if (w0 < 0 || w1 < 0 || w2 < 0) continue;
            const float z = static_cast<float>(w0 * a.z() + w1 * b.z() + w2 * c.z());
            float& nearest = panel.depth.at<float>(r, col);
            if (z >= nearest) continue;
            nearest = z;
            panel.image.at<cv::Vec3b>(r, col) =
                shaded(colour, w0 * light[0] + w1 * light[1] + w2 * light[2]);
        }
}

}  // namespace

Extent extentOf(const View& view, const std::vector<PreviewLayer>& layers, size_t first,
                size_t last, double margin) {
    Extent e{HUGE_VAL, -HUGE_VAL, HUGE_VAL, -HUGE_VAL};
    for (size_t k = first; k < last; ++k)
        for (Eigen::Index v = 0; v < layers[k].vertices.cols(); ++v) {
            const double x = view.right.dot(layers[k].vertices.col(v));
            const double y = view.up.dot(layers[k].vertices.col(v));
            e = {std::min(e.left, x), std::max(e.right, x), std::min(e.bottom, y),
                 std::max(e.top, y)};
        }
    const double grow = margin * std::max(e.right - e.left, e.top - e.bottom);
    return {e.left - grow, e.right + grow, e.bottom - grow, e.top + grow};
}

cv::Mat drawView(const View& view, const std::vector<PreviewLayer>& layers, const Extent& frame,
                 int height, const Section& cut) {
    const double scale = (height - 2 * kMargin) / std::max(frame.top - frame.bottom, 1e-9);
    const int width = std::min(
        4 * height, static_cast<int>(std::ceil((frame.right - frame.left) * scale)) + 2 * kMargin);
    Panel panel{cv::Mat(height, width, CV_8UC3, cv::Scalar(40, 40, 40)),
                cv::Mat(height, width, CV_32F, std::numeric_limits<float>::infinity())};
    auto project = [&](const Eigen::Vector3d& p, double bias) {
        return Eigen::Vector3d(kMargin + (view.right.dot(p) - frame.left) * scale,
                               kMargin + (frame.top - view.up.dot(p)) * scale,
                               -view.towardViewer.dot(p) - bias);
    };
    for (const PreviewLayer& layer : layers) {
        const bool smooth = layer.normals.cols() == layer.vertices.cols();
        for (Eigen::Index f = 0; f < layer.faces.cols(); ++f) {
            std::array<Eigen::Vector3d, 3> corners, screen;
            for (int k = 0; k < 3; ++k) {
                corners[k] = layer.vertices.col(layer.faces(k, f));
                screen[k] = project(corners[k], layer.depthBias);
            }
            const double depth = (screen[0].z() + screen[1].z() + screen[2].z()) / 3.0;
            if (&layer == &layers.front() ? depth < cut.depth
                                          : std::abs(depth - cut.depth) > cut.slab)
                continue;
            std::array<double, 3> light;
            if (smooth) {
                for (int k = 0; k < 3; ++k)
                    light[k] = lightOf(layer.normals.col(layer.faces(k, f)), view);
            } else {
                const Eigen::Vector3d normal =
                    (corners[1] - corners[0]).cross(corners[2] - corners[0]).normalized();
                light.fill(lightOf(normal, view));
            }
            drawTriangle(screen, light, layer.colour, panel);
        }
    }
    cv::putText(panel.image, view.label, cv::Point(8, 20), cv::FONT_HERSHEY_SIMPLEX, 0.5,
                cv::Scalar(230, 230, 230));
    return panel.image;
}

void writePanels(const std::string& path, const std::vector<cv::Mat>& panels) {
    cv::Mat all;
    cv::hconcat(panels, all);
    bool written = false;
    try {
        written = cv::imwrite(path, all);
    } catch (const cv::Exception&) {
        written = false;
    }
    if (!written) throw CommandError("cannot write the preview image " + path);
}

}  // namespace meridian::cli
