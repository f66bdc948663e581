#include "mesh_render.h"

#include <algorithm>
#include <array>
#include <limits>

#include <Eigen/Geometry>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_common.h"
#include "image_file.h"
#include "io/atomic_file.h"

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
            rasterise(screen, panel.depth, panel.image, [&](const double(&w)[3]) {
                return shaded(layer.colour, w[0] * light[0] + w[1] * light[1] + w[2] * light[2]);
            });
        }
    }
    cv::putText(panel.image, view.label, cv::Point(8, 20), cv::FONT_HERSHEY_SIMPLEX, 0.5,
                cv::Scalar(230, 230, 230));
    return panel.image;
}

Eigen::Matrix3Xd vertexNormals(const PreviewLayer& layer) {
    Eigen::Matrix3Xd normals = Eigen::Matrix3Xd::Zero(3, layer.vertices.cols());
    for (Eigen::Index f = 0; f < layer.faces.cols(); ++f) {
        const Eigen::Vector3d a = layer.vertices.col(layer.faces(0, f));
        // Twice the face's area times its unit normal.
        const Eigen::Vector3d weighted = (layer.vertices.col(layer.faces(1, f)) - a)
                                             .cross(layer.vertices.col(layer.faces(2, f)) - a);
        for (int k = 0; k < 3; ++k) normals.col(layer.faces(k, f)) += weighted;
    }
    for (Eigen::Index v = 0; v < normals.cols(); ++v) {
        const double length = normals.col(v).norm();
        if (length > 0) normals.col(v) /= length;
    }
    return normals;
}

cv::Mat colourKeyPanel(const std::vector<PreviewLayer>& layers, int height) {
    std::vector<const PreviewLayer*> listed;
    for (const PreviewLayer& layer : layers)
        if (!layer.name.empty() &&
            std::none_of(listed.begin(), listed.end(),
                         [&](const PreviewLayer* seen) { return seen->name == layer.name; }))
            listed.push_back(&layer);
    constexpr int kRow = 24, kSwatch = 14, kFont = cv::FONT_HERSHEY_SIMPLEX;
    constexpr double kScale = 0.5;
    int width = 0;
    for (const PreviewLayer* layer : listed) {
        int baseline = 0;
        width = std::max(width, cv::getTextSize(layer->name, kFont, kScale, 1, &baseline).width);
    }
    cv::Mat panel(height, 8 + kSwatch + 8 + width + kMargin, CV_8UC3, cv::Scalar(40, 40, 40));
    cv::putText(panel, "colour key", cv::Point(8, 20), kFont, kScale, cv::Scalar(230, 230, 230));
    int top = 20 + kRow / 2;
    for (const PreviewLayer* layer : listed) {
        const cv::Rect swatch(8, top + (kRow - kSwatch) / 2, kSwatch, kSwatch);
        cv::rectangle(panel, swatch, shaded(layer->colour, 1.0), cv::FILLED);
        cv::putText(panel, layer->name, cv::Point(8 + kSwatch + 8, top + kRow - 7), kFont, kScale,
                    cv::Scalar(230, 230, 230));
        top += kRow;
    }
    return panel;
}

void writePanels(const std::string& path, const std::vector<cv::Mat>& panels,
                 kestrel::meridian::AtomicFileSet* outputs) {
    cv::Mat all;
    cv::hconcat(panels, all);
    if (outputs)
        outputs->add(path, encodeImage(path, all));
    else
        writeImageFile(path, all);
}

}  // namespace meridian::cli
