#include "tbn_preview.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_common.h"
#include "mesh_render.h"

namespace meridian::cli {

namespace {

constexpr int kPanelHeight = 640;
constexpr int kMargin = 16;

cv::Vec3b toPixel(double red, double green, double blue) {
    auto byte = [](double v) {
        return static_cast<uchar>(std::clamp(std::lround(255.0 * v), 0L, 255L));
    };
    return cv::Vec3b(byte(blue), byte(green), byte(red));
}

}  // namespace

bool isPreviewImagePath(const std::string& path) {
    try {
        return cv::haveImageWriter(path);
    } catch (const cv::Exception&) {
        return false;
    }
}

void writeNormalPreview(const std::string& path, const Eigen::Matrix3Xd& vertices,
                        const Eigen::Matrix3Xi& faces, const Eigen::Matrix3Xd& normals,
                        kestrel::meridian::AtomicFileSet* outputs) {
    // Viewer at -y looking toward +y, z up: x runs to the right.
    const Eigen::Vector3d low = vertices.rowwise().minCoeff();
    const Eigen::Vector3d high = vertices.rowwise().maxCoeff();
    const double scale = (kPanelHeight - 2 * kMargin) / std::max(high.z() - low.z(), 1e-9);
    const int panelWidth = static_cast<int>(std::ceil((high.x() - low.x()) * scale)) + 2 * kMargin;

    cv::Mat colours(kPanelHeight, panelWidth, CV_8UC3, cv::Scalar(40, 40, 40));
    cv::Mat lit = colours.clone();
    cv::Mat depth(kPanelHeight, panelWidth, CV_32F, std::numeric_limits<float>::infinity());
    cv::Mat litDepth = depth.clone();
    auto project = [&](Eigen::Index i) {
        return Eigen::Vector3d(kMargin + (vertices(0, i) - low.x()) * scale,
                               kMargin + (high.z() - vertices(2, i)) * scale, vertices(1, i));
    };
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const std::array<Eigen::Vector3d, 3> corners = {project(faces(0, f)), project(faces(1, f)),
                                                        project(faces(2, f))};
        auto normalAt = [&](const double(&w)[3]) {
            const Eigen::Vector3d n = w[0] * normals.col(faces(0, f)) +
                                      w[1] * normals.col(faces(1, f)) +
                                      w[2] * normals.col(faces(2, f));
            return n.norm() > 0 ? Eigen::Vector3d(n.normalized()) : Eigen::Vector3d::Zero();
        };
        rasterise(corners, depth, colours, [&](const double(&w)[3]) {
            const Eigen::Vector3d n = normalAt(w);
            return toPixel(0.5 + 0.5 * n.x(), 0.5 + 0.5 * n.y(), 0.5 + 0.5 * n.z());
        });
        rasterise(corners, litDepth, lit, [&](const double(&w)[3]) {
            // Toward the viewer is -y. Which way the normals should face
            // depends on the texture layout; that they all face the same
            // way is what shows here.
            const double facing = -normalAt(w).y();
            const double light = 0.15 + 0.85 * std::abs(facing);
            return facing > 0 ? toPixel(light, 0.55 * light, 0.2 * light)
                              : toPixel(0.6 * light, 0.75 * light, light);
        });
    }
    const cv::Scalar text(230, 230, 230);
    cv::putText(colours, "rgb = 0.5 + 0.5 n", cv::Point(8, 20), cv::FONT_HERSHEY_SIMPLEX, 0.45,
                text);
    cv::putText(lit, "brightness |n.view|", cv::Point(8, 20), cv::FONT_HERSHEY_SIMPLEX, 0.45, text);
    cv::putText(lit, "blue: n away from viewer", cv::Point(8, 38), cv::FONT_HERSHEY_SIMPLEX, 0.45,
                text);
    cv::putText(lit, "orange: n toward viewer", cv::Point(8, 56), cv::FONT_HERSHEY_SIMPLEX, 0.45,
                text);
    writePanels(path, {colours, lit}, outputs);
}

}  // namespace meridian::cli
