// The portrait is treated as a relief: a height field made of an ellipsoid
// for the head and a bump for the nose, on a flat background card. Each
// frame turns that relief (orthographic view), rasterises it as a mesh with
// a depth buffer and samples the photo at the source position of every
// output pixel. The detector sees a real face; the landmarks move as those
// of a turning head would.
#include "demo/rgbd/demo_capture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "io/atomic_file.h"
#include "io/input_error.h"
#include "rgbd/capture_files.h"

namespace meridian::demo {

namespace {

namespace fs = std::filesystem;

// Geometry of the portrait, in its own pixels: the face between the eyes,
// the nose tip, the eyes.
constexpr double kFaceX = 225.0, kFaceY = 118.0;  // head centre
constexpr double kHeadA = 62.0, kHeadB = 84.0;    // head ellipse half axes (x, y)
constexpr double kHeadDepth = 85.0;               // ellipsoid depth at its centre
constexpr double kPivotDepth = 60.0;              // turning point behind the face
constexpr double kNoseX = 225.0, kNoseY = 124.0;  // nose tip
constexpr double kNoseHeight = 22.0, kNoseSigma = 10.0;
constexpr double kEyes[2][2] = {{203.0, 102.0}, {247.0, 104.0}};
// Output: 640 by 640 frames, the portrait magnified 3 times.
constexpr int kSide = 640;
constexpr double kZoom = 3.0;
constexpr double kMillimetresPerPixel = 1.4;  // of the portrait, for the depth frames
constexpr double kCameraDistance = 0.6;       // metres to the head centre
// Base turn that makes the portrait's own head level and frontal for the
// pose fit (the sitter looks slightly down).
constexpr double kBasePitch = 3.5, kBaseYaw = 0.0;

double height(double x, double y) {
    const double ex = (x - kFaceX) / kHeadA, ey = (y - kFaceY) / kHeadB;
    const double r2 = ex * ex + ey * ey;
    double h = r2 < 1.0 ? kHeadDepth * std::sqrt(1.0 - r2) : 0.0;
    const double nx = x - kNoseX, ny = y - kNoseY;
    h += kNoseHeight * std::exp(-(nx * nx + ny * ny) / (2 * kNoseSigma * kNoseSigma));
    return h;
}

// Rotation for a head turned by `yaw` and tilted by `pitch` (degrees), in
// the portrait's frame: x right, y down, z toward the viewer.
cv::Matx33d headRotation(double yaw, double pitch) {
    const double t = yaw * CV_PI / 180.0, p = pitch * CV_PI / 180.0;
    const cv::Matx33d turn(std::cos(t), 0, std::sin(t), 0, 1, 0, -std::sin(t), 0, std::cos(t));
    const cv::Matx33d tilt(1, 0, 0, 0, std::cos(p), -std::sin(p), 0, std::sin(p), std::cos(p));
    return tilt * turn;
}

// Eyes closed: each eye squeezed vertically into a slit. In every column
// of an ellipse round the eye, of half height H there, a pixel dy from the
// eye line shows the photo at H tanh(k dy / H) / tanh(k): the eye itself
// shrinks about k times, the lids' skin stretches over it, and the ellipse's
// border stays where it was.
cv::Mat closeEyes(const cv::Mat& photo) {
    constexpr double kHalfWidth = 17.0, kHalfHeight = 14.0, kSqueeze = 6.0;
    cv::Mat result = photo.clone();
    for (const auto& eye : kEyes) {
        for (int x = int(eye[0] - kHalfWidth); x <= int(eye[0] + kHalfWidth); ++x) {
            const double u = (x - eye[0]) / kHalfWidth;
            if (std::fabs(u) >= 1.0) continue;
            const double half = kHalfHeight * std::sqrt(1.0 - u * u);
            for (int y = int(std::ceil(eye[1] - half)); y <= int(eye[1] + half); ++y) {
                const double sourceY =
                    eye[1] + half * std::tanh(kSqueeze * (y - eye[1]) / half) / std::tanh(kSqueeze);
                cv::Mat sample;
                cv::getRectSubPix(photo, cv::Size(1, 1), cv::Point2f(float(x), float(sourceY)),
                                  sample);
                result.at<cv::Vec3b>(y, x) = sample.at<cv::Vec3b>(0, 0);
            }
        }
    }
    return result;
}

struct Rendered {
    cv::Mat color;  // CV_8UC3
    cv::Mat depth;  // CV_32FC1, metres
};

Rendered render(const cv::Mat& photo, const DemoCaptureFrame& frame) {
    const cv::Matx33d rotation = headRotation(frame.yaw + kBaseYaw, frame.pitch + kBasePitch);
    // Mesh over the part of the portrait the frame can show, one vertex per
    // portrait pixel.
    const double reach = kSide / kZoom / 2.0 + 80.0;
    const int x0 = std::max(0, int(kFaceX - reach)),
              x1 = std::min(photo.cols - 1, int(kFaceX + reach));
    const int y0 = std::max(0, int(kFaceY - reach)),
              y1 = std::min(photo.rows - 1, int(kFaceY + reach));
    const int w = x1 - x0 + 1, h = y1 - y0 + 1;
    std::vector<cv::Point3d> projected(static_cast<size_t>(w) * h);  // u, v, z
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double px = x0 + x, py = y0 + y;
            // Turned about a point inside the head, behind the face.
            const cv::Vec3d p =
                rotation * cv::Vec3d(px - kFaceX, py - kFaceY, height(px, py) - kPivotDepth);
            projected[static_cast<size_t>(y) * w + x] =
                cv::Point3d(p[0] * kZoom + kSide / 2.0, p[1] * kZoom + kSide / 2.0, p[2]);
        }

    cv::Mat sourceX(kSide, kSide, CV_32F, cv::Scalar(-1)),
        sourceY(kSide, kSide, CV_32F, cv::Scalar(-1));
    cv::Mat zBuffer(kSide, kSide, CV_64F, cv::Scalar(-std::numeric_limits<double>::infinity()));
    auto triangle = [&](int a, int b, int c) {
        const cv::Point3d& A = projected[a];
        const cv::Point3d& B = projected[b];
        const cv::Point3d& C = projected[c];
        const double area = (B.x - A.x) * (C.y - A.y) - (C.x - A.x) * (B.y - A.y);
        if (std::fabs(area) < 1e-12) return;
        const int minX = std::max(0, int(std::floor(std::min({A.x, B.x, C.x}))));
        const int maxX = std::min(kSide - 1, int(std::ceil(std::max({A.x, B.x, C.x}))));
        const int minY = std::max(0, int(std::floor(std::min({A.y, B.y, C.y}))));
        const int maxY = std::min(kSide - 1, int(std::ceil(std::max({A.y, B.y, C.y}))));
        for (int v = minY; v <= maxY; ++v)
            for (int u = minX; u <= maxX; ++u) {
                const double px = u + 0.5, py = v + 0.5;
                const double wa = ((B.x - px) * (C.y - py) - (C.x - px) * (B.y - py)) / area;
                const double wb = ((C.x - px) * (A.y - py) - (A.x - px) * (C.y - py)) / area;
                const double wc = 1.0 - wa - wb;
                if (wa < -1e-9 || wb < -1e-9 || wc < -1e-9) continue;
                const double z = wa * A.z + wb * B.z + wc * C.z;
                if (z <= zBuffer.at<double>(v, u)) continue;
                zBuffer.at<double>(v, u) = z;
                const auto vertexX = [&](int i) { return double(x0 + i % w); };
                const auto vertexY = [&](int i) { return double(y0 + i / w); };
                sourceX.at<float>(v, u) =
                    float(wa * vertexX(a) + wb * vertexX(b) + wc * vertexX(c));
                sourceY.at<float>(v, u) =
                    float(wa * vertexY(a) + wb * vertexY(b) + wc * vertexY(c));
            }
    };
    for (int y = 0; y + 1 < h; ++y)
        for (int x = 0; x + 1 < w; ++x) {
            const int i = y * w + x;
            triangle(i, i + 1, i + w);
            triangle(i + 1, i + w + 1, i + w);
        }

    Rendered out;
    const cv::Mat source = frame.eyesClosed ? closeEyes(photo) : photo;
    cv::remap(source, out.color, sourceX, sourceY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    if (frame.blur > 0) cv::GaussianBlur(out.color, out.color, cv::Size(), frame.blur);
    out.depth.create(kSide, kSide, CV_32F);
    for (int v = 0; v < kSide; ++v)
        for (int u = 0; u < kSide; ++u) {
            const double z = zBuffer.at<double>(v, u);
            const double metres = std::isfinite(z)
                                      ? kCameraDistance - z * kMillimetresPerPixel / 1000.0
                                      : kCameraDistance + 0.5;
            out.depth.at<float>(v, u) = float(metres);
        }
    return out;
}

}  // namespace

const std::vector<DemoCaptureFrame>& demoCaptureFrames() {
    static const std::vector<DemoCaptureFrame> frames = {
        {0, 0, 0, false, "frontal"},
        {0, 0, 1.2, false, "frontal, blurred: the chosen frontal frame"},
        {0, 0, 0, false, "frontal"},
        {-15, 0, 0, false, "turning left: no bucket"},
        {-33, 0, 0, false, "turned left"},
        {-36, 0, 1.2, false, "turned left, blurred: the chosen negative-yaw frame"},
        {-33, 0, 0, true, "turned left, eyes closed: rejected"},
        {0, 0, 2.0, false, "frontal after a side frame: not stored (else it would win)"},
        {15, 0, 0, false, "turning right: no bucket"},
        {30, 0, 0, false, "turned right"},
        {33, 0, 1.2, false, "turned right, blurred: the chosen positive-yaw frame"},
        {36, 0, 0, false, "turned right"},
        {33, 0, 0, true, "turned right, eyes closed: rejected"},
        {0, 8, 0, false, "looking up"},
        {0, 12, 1.2, false, "looking up, blurred: the chosen up frame"},
        {0, 10, 0, true, "looking up, eyes closed: rejected"},
        {0, 16, 0, false, "looking up"},
    };
    return frames;
}

DemoCaptureChoice demoCaptureExpectedChoice() {
    return {1, 5, 10, 14};
}

std::string demoCapturePhotoPath() {
    return "/usr/lib/python3/dist-packages/skimage/data/astronaut.png";
}

bool writeDemoCapture(const std::string& dir, std::string& error) {
    const cv::Mat rgbPhoto = cv::imread(demoCapturePhotoPath(), cv::IMREAD_COLOR);
    if (rgbPhoto.empty()) {
        error = "cannot read the portrait " + demoCapturePhotoPath() +
                " (Debian package python3-skimage)";
        return false;
    }
    std::error_code ec;
    for (const char* sub : {"jpg", "exr"}) {
        fs::create_directories(fs::path(dir) / sub, ec);
        if (ec) {
            error = "cannot create " + (fs::path(dir) / sub).string() + ": " + ec.message();
            return false;
        }
    }
    const auto& frames = demoCaptureFrames();
    for (size_t k = 0; k < frames.size(); ++k) {
        const Rendered frame = render(rgbPhoto, frames[k]);
        const std::string number = std::to_string(k + 1);
        const std::string colorPath = (fs::path(dir) / "jpg" / (number + ".jpg")).string();
        const std::string depthPath = (fs::path(dir) / "exr" / (number + ".exr")).string();
        // Written atomically, like every file of the tool; the encoders
        // write to the temporary (which keeps the extension they go by).
        kestrel::meridian::DepthImage depth;
        depth.rows = frame.depth.rows;
        depth.cols = frame.depth.cols;
        depth.depth.assign(frame.depth.ptr<float>(),
                           frame.depth.ptr<float>() + frame.depth.total());
        try {
            kestrel::meridian::writeFileAtomicallyVia(colorPath, [&](const std::string& path) {
                return cv::imwrite(path, frame.color, {cv::IMWRITE_JPEG_QUALITY, 95});
            });
            kestrel::meridian::writeFileAtomicallyVia(depthPath, [&](const std::string& path) {
                return kestrel::meridian::writeDepthExr(path, depth);
            });
        } catch (const kestrel::meridian::InputError& e) {
            error = e.what();
            return false;
        }
    }
    return true;
}

}  // namespace meridian::demo
