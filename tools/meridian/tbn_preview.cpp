#include "tbn_preview.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include <Eigen/Geometry>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_common.h"
#include "mesh_render.h"

namespace meridian::cli {

namespace {

constexpr int kPanelHeight = 640;
constexpr int kMargin = 16;
// Toward the viewer, and toward a light at the viewer's upper left.
const Eigen::Vector3d kTowardViewer(0, -1, 0);
const Eigen::Vector3d kLight = Eigen::Vector3d(-0.5, -1.0, 0.6).normalized();

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
            // The frames point into the head; the viewer's convention is
            // outward, so the surface is lit by the flipped normal.
            const Eigen::Vector3d outward = -normalAt(w);
            const double light = 0.2 + 0.8 * std::max(0.0, outward.dot(kLight));
            return outward.dot(kTowardViewer) >= 0 ? toPixel(light, 0.93 * light, 0.85 * light)
                                                   : toPixel(light, 0.1 * light, 0.1 * light);
        });
    }
    const cv::Scalar text(230, 230, 230);
    cv::Mat panels;
    cv::hconcat(std::vector<cv::Mat>{colours, lit}, panels);
    // Panel titles above, the frames' convention below, off the head.
    cv::Mat titles(2 * 18 + 8, panels.cols, CV_8UC3, cv::Scalar(40, 40, 40));
    const auto title = [&](int column, int line, const char* words) {
        cv::putText(titles, words, cv::Point(column + 8, 18 + 18 * line), cv::FONT_HERSHEY_SIMPLEX,
                    0.45, text);
    };
    title(0, 0, "n as written: rgb = 0.5 + 0.5 n");
    title(colours.cols, 0, "lit by -n (outward), light upper left");
    title(colours.cols, 1, "red: -n faces away (a flipped frame)");
    cv::Mat caption(5 * 18 + 12, panels.cols, CV_8UC3, cv::Scalar(40, 40, 40));
    const char* lines[] = {
        "Frames as written (the head asset's convention): tangent t = (1, 0, 0);",
        "normal n = -(mean of the faces' T x B), pointing INTO the head here;",
        "bitangent b = -(n' x (1, 0, 0)) with n' the unnegated mean normal.",
        "Components above 0.99 in magnitude are written as +-1, below 0.001 as -0.",
        "So n faces away from you on the front; -n is the outward normal a viewer expects.",
    };
    for (int line = 0; line < 5; ++line)
        cv::putText(caption, lines[line], cv::Point(8, 18 + 18 * line), cv::FONT_HERSHEY_SIMPLEX,
                    0.45, text);
    cv::Mat picture;
    cv::vconcat(std::vector<cv::Mat>{titles, panels, caption}, picture);
    writePanels(path, {picture}, outputs);
}

}  // namespace meridian::cli
