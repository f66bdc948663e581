#include "tbn_preview.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_common.h"

namespace meridian::cli {

namespace {

constexpr int kPanelHeight = 640;
constexpr int kMargin = 16;

struct ScreenVertex {
    double column, row, depth;
};

// Fills the pixels whose centres lie inside the triangle, nearest depth wins;
// `shade` gets the barycentric weights of a pixel and returns its colour.
template <typename Shade>
void rasterise(const ScreenVertex (&v)[3], cv::Mat& depth, cv::Mat& image, Shade&& shade) {
    const double area = (v[1].column - v[0].column) * (v[2].row - v[0].row) -
                        (v[2].column - v[0].column) * (v[1].row - v[0].row);
    if (std::abs(area) < 1e-12) return;
    const int c0 = std::max(
        0, static_cast<int>(std::floor(std::min({v[0].column, v[1].column, v[2].column}))));
    const int c1 =
        std::min(image.cols - 1,
                 static_cast<int>(std::ceil(std::max({v[0].column, v[1].column, v[2].column}))));
    const int r0 =
        std::max(0, static_cast<int>(std::floor(std::min({v[0].row, v[1].row, v[2].row}))));
    const int r1 = std::min(image.rows - 1,
                            static_cast<int>(std::ceil(std::max({v[0].row, v[1].row, v[2].row}))));
    for (int r = r0; r <= r1; ++r)
        for (int c = c0; c <= c1; ++c) {
            const double x = c + 0.5, y = r + 0.5;
            double w[3];
            for (int k = 0; k < 3; ++k) {
                const ScreenVertex& a = v[(k + 1) % 3];
                const ScreenVertex& b = v[(k + 2) % 3];
                w[k] =
                    ((b.column - a.column) * (y - a.row) - (x - a.column) * (b.row - a.row)) / area;
            }
            if (w[0] < 0 || w[1] < 0 || w[2] < 0) continue;
            const double z = w[0] * v[0].depth + w[1] * v[1].depth + w[2] * v[2].depth;
            float& nearest = depth.at<float>(r, c);
            if (z >= nearest) continue;
            nearest = static_cast<float>(z);
            image.at<cv::Vec3b>(r, c) = shade(w);
        }
}

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
                        const Eigen::Matrix3Xi& faces, const Eigen::Matrix3Xd& normals) {
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
        return ScreenVertex{kMargin + (vertices(0, i) - low.x()) * scale,
                            kMargin + (high.z() - vertices(2, i)) * scale, vertices(1, i)};
    };
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const ScreenVertex corners[3] = {project(faces(0, f)), project(faces(1, f)),
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
    cv::Mat both;
    cv::hconcat(colours, lit, both);
    bool written = false;
    try {
        written = cv::imwrite(path, both);
    } catch (const cv::Exception&) {
        written = false;
    }
    if (!written) throw CommandError("cannot write the preview image " + path);
}

}  // namespace meridian::cli
