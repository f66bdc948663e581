#include "blendshape_sheet.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include <Eigen/Geometry>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_common.h"

namespace meridian::cli {

namespace {

constexpr int kPanelSize = 420;
constexpr int kMargin = 24;
constexpr int kLabelHeight = 40;

using Eigen::Vector3d;

/// Screen axes of a view toward the head from `viewFrom`, z staying up.
struct View {
    Vector3d right, up, toward;  ///< toward: from the viewer into the scene
    explicit View(const Vector3d& viewFrom) {
        toward = -viewFrom.normalized();
        up = Vector3d::UnitZ();
        right = toward.cross(up).normalized();
        up = right.cross(toward);
    }
};

/// Heat colour for t in [0, 1]: grey at 0, through yellow, to red at 1.
Vector3d heat(double t) {
    const Vector3d grey(0.78, 0.78, 0.78), yellow(1.0, 0.85, 0.2), red(0.85, 0.1, 0.1);
    if (t <= 0.0) return grey;
    if (t < 0.5) return grey + (yellow - grey) * (t / 0.5);
    return yellow + (red - yellow) * std::min(1.0, (t - 0.5) / 0.5);
}

void drawPanel(cv::Mat& image, int left, const SheetPanel& panel, const Eigen::VectorXd& moved,
               double maxMoved, const Eigen::Matrix3Xi& faces, double scale,
               const Vector3d& centre) {
    const View view(panel.viewFrom);
    const Eigen::Index n = panel.vertices.cols();
    Eigen::Matrix3Xd screen(3, n);  // column, row, depth
    for (Eigen::Index v = 0; v < n; ++v) {
        const Vector3d p = panel.vertices.col(v) - centre;
        screen.col(v) << left + kPanelSize / 2.0 + scale * p.dot(view.right),
            kLabelHeight + kPanelSize / 2.0 - scale * p.dot(view.up), p.dot(view.toward);
    }
    cv::Mat depth(image.rows, image.cols, CV_64F, std::numeric_limits<double>::infinity());
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const int ids[3] = {faces(0, f), faces(1, f), faces(2, f)};
        const Vector3d a = panel.vertices.col(ids[0]), b = panel.vertices.col(ids[1]),
                       c = panel.vertices.col(ids[2]);
        const Vector3d normal = (b - a).cross(c - a).normalized();
        const double light = 0.3 + 0.7 * std::abs(normal.dot(view.toward));
        const double area =
            (screen(0, ids[1]) - screen(0, ids[0])) * (screen(1, ids[2]) - screen(1, ids[0])) -
            (screen(0, ids[2]) - screen(0, ids[0])) * (screen(1, ids[1]) - screen(1, ids[0]));
        if (std::abs(area) < 1e-12) continue;
        double lowCol = 1e30, highCol = -1e30, lowRow = 1e30, highRow = -1e30;
        for (int id : ids) {
            lowCol = std::min(lowCol, screen(0, id)), highCol = std::max(highCol, screen(0, id));
            lowRow = std::min(lowRow, screen(1, id)), highRow = std::max(highRow, screen(1, id));
        }
        const int c0 = std::max(left, static_cast<int>(std::floor(lowCol)));
        const int c1 = std::min(left + kPanelSize - 1, static_cast<int>(std::ceil(highCol)));
        const int r0 = std::max(0, static_cast<int>(std::floor(lowRow)));
        const int r1 = std::min(image.rows - 1, static_cast<int>(std::ceil(highRow)));
        for (int r = r0; r <= r1; ++r)
            for (int col = c0; col <= c1; ++col) {
                const double x = col + 0.5, y = r + 0.5;
                double w[3];
                for (int k = 0; k < 3; ++k) {
                    const int i = ids[(k + 1) % 3], j = ids[(k + 2) % 3];
                    w[k] = ((screen(0, j) - screen(0, i)) * (y - screen(1, i)) -
                            (x - screen(0, i)) * (screen(1, j) - screen(1, i))) /
                           area;
                }
                if (w[0] < 0 || w[1] < 0 || w[2] < 0) continue;
                const double z =
                    w[0] * screen(2, ids[0]) + w[1] * screen(2, ids[1]) + w[2] * screen(2, ids[2]);
                double& nearest = depth.at<double>(r, col);
                if (z >= nearest) continue;
                nearest = z;
                const double distance =
                    w[0] * moved(ids[0]) + w[1] * moved(ids[1]) + w[2] * moved(ids[2]);
                const Vector3d colour = light * heat(maxMoved > 0 ? distance / maxMoved : 0.0);
                image.at<cv::Vec3b>(r, col) = cv::Vec3b(cv::saturate_cast<uchar>(255 * colour.z()),
                                                        cv::saturate_cast<uchar>(255 * colour.y()),
                                                        cv::saturate_cast<uchar>(255 * colour.x()));
            }
    }
    cv::putText(image, panel.label, cv::Point(left + 10, 26), cv::FONT_HERSHEY_SIMPLEX, 0.55,
                cv::Scalar(235, 235, 235), 1, cv::LINE_AA);
}

}  // namespace

void writeBlendshapeSheet(const std::string& path, const std::vector<SheetPanel>& panels,
                          const Eigen::Matrix3Xi& faces) {
    if (panels.empty()) throw CommandError("no shapes to draw");
    const Eigen::Matrix3Xd& first = panels[0].vertices;
    const Vector3d low = first.rowwise().minCoeff(), high = first.rowwise().maxCoeff();
    const Vector3d centre = 0.5 * (low + high);
    const double scale = (kPanelSize - 2 * kMargin) / (high - low).maxCoeff();

    std::vector<Eigen::VectorXd> moved;
    double maxMoved = 0.0;
    for (const SheetPanel& panel : panels) {
        moved.push_back((panel.vertices - first).colwise().norm().transpose());
        maxMoved = std::max(maxMoved, moved.back().maxCoeff());
    }
    const int width = static_cast<int>(panels.size()) * kPanelSize;
    cv::Mat image(kLabelHeight + kPanelSize + kLabelHeight, width, CV_8UC3, cv::Scalar(45, 40, 40));
    for (size_t i = 0; i < panels.size(); ++i)
        drawPanel(image, static_cast<int>(i) * kPanelSize, panels[i], moved[i], maxMoved, faces,
                  scale, centre);

    // Colour scale along the bottom.
    const int barTop = kLabelHeight + kPanelSize + 8, barLeft = 10, barWidth = 300;
    for (int x = 0; x < barWidth; ++x) {
        const Vector3d c = heat(static_cast<double>(x) / (barWidth - 1));
        cv::line(image, cv::Point(barLeft + x, barTop), cv::Point(barLeft + x, barTop + 14),
                 cv::Scalar(255 * c.z(), 255 * c.y(), 255 * c.x()));
    }
    char scaleText[96];
    std::snprintf(scaleText, sizeof scaleText, "distance moved: 0 .. %.3g (model units)", maxMoved);
    cv::putText(image, scaleText, cv::Point(barLeft + barWidth + 12, barTop + 13),
                cv::FONT_HERSHEY_SIMPLEX, 0.5, cv::Scalar(235, 235, 235), 1, cv::LINE_AA);

    bool written = false;
    try {
        written = cv::imwrite(path, image);
    } catch (const cv::Exception&) {
        written = false;
    }
    if (!written) throw CommandError("cannot write the picture " + path);
}

}  // namespace meridian::cli
