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
#include "mesh_render.h"

namespace meridian::cli {

namespace {

constexpr int kPanelSize = 420;
constexpr int kMargin = 24;
constexpr int kLabelHeight = 40;

using Eigen::Vector3d;

/// Screen axes of a view toward the head from `viewFrom`, z staying up.
struct SheetView {
    Vector3d right, up, toward;  ///< toward: from the viewer into the scene
    explicit SheetView(const Vector3d& viewFrom) {
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
    const SheetView view(panel.viewFrom);
    cv::Mat region = image(cv::Rect(left, 0, kPanelSize, image.rows));
    cv::Mat depth(region.rows, region.cols, CV_32F, std::numeric_limits<float>::infinity());
    auto project = [&](int v) {  // column, row, depth
        const Vector3d p = panel.vertices.col(v) - centre;
        return Vector3d(kPanelSize / 2.0 + scale * p.dot(view.right),
                        kLabelHeight + kPanelSize / 2.0 - scale * p.dot(view.up),
                        p.dot(view.toward));
    };
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        const int ids[3] = {faces(0, f), faces(1, f), faces(2, f)};
        const Vector3d a = panel.vertices.col(ids[0]), b = panel.vertices.col(ids[1]),
                       c = panel.vertices.col(ids[2]);
        const double light =
            0.3 + 0.7 * std::abs((b - a).cross(c - a).normalized().dot(view.toward));
        rasterise({project(ids[0]), project(ids[1]), project(ids[2])}, depth, region,
                  [&](const double(&w)[3]) {
                      const double distance =
                          w[0] * moved(ids[0]) + w[1] * moved(ids[1]) + w[2] * moved(ids[2]);
                      const Vector3d colour =
                          light * heat(maxMoved > 0 ? distance / maxMoved : 0.0);
                      return cv::Vec3b(cv::saturate_cast<uchar>(255 * colour.z()),
                                       cv::saturate_cast<uchar>(255 * colour.y()),
                                       cv::saturate_cast<uchar>(255 * colour.x()));
                  });
    }
    cv::putText(image, panel.label, cv::Point(left + 10, 26), cv::FONT_HERSHEY_SIMPLEX, 0.55,
                cv::Scalar(235, 235, 235), 1, cv::LINE_AA);
}

}  // namespace

void writeBlendshapeSheet(const std::string& path, const std::vector<SheetPanel>& panels,
                          const Eigen::Matrix3Xi& faces,
                          kestrel::meridian::AtomicFileSet* outputs) {
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

    writePanels(path, {image}, outputs);
}

}  // namespace meridian::cli
