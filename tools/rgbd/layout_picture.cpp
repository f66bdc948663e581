// meridian_rgbd_layout_picture OUT.png [--provider PATH]: draws the
// provider's 106 points with their indices on the public-domain portrait
// (the picture of the layout in the README).
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "demo/rgbd/demo_capture.h"
#include "io/atomic_file.h"
#include "rgbd/landmark_provider.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: meridian_rgbd_layout_picture OUT.png [--provider PATH]\n";
        return 2;
    }
    const std::string provider = argc > 3 && !std::strcmp(argv[2], "--provider")
                                     ? argv[3]
                                     : std::string(MERIDIAN_PROVIDER_PATH);
    std::string error;
    const auto landmarks = kestrel::meridian::LandmarkProvider::load(provider, error);
    if (!landmarks || !landmarks->initModel("")) {
        std::cerr << "error: " << (landmarks ? "no landmark model" : error) << '\n';
        return 1;
    }
    const cv::Mat photo = cv::imread(meridian::demo::demoCapturePhotoPath(), cv::IMREAD_COLOR);
    if (photo.empty()) {
        std::cerr << "error: cannot read " << meridian::demo::demoCapturePhotoPath() << '\n';
        return 1;
    }
    // The face, magnified 7 times, lightened so the labels read well.
    const cv::Rect crop(160, 70, 132, 128);
    constexpr double kZoom = 7.0;
    cv::Mat picture;
    cv::resize(photo(crop), picture, cv::Size(), kZoom, kZoom, cv::INTER_CUBIC);
    picture = picture * 0.55 + cv::Scalar::all(110);
    CvFaceResult block;
    landmarks->faceLandmarks(photo.data, photo.rows, photo.cols, 3, block);
    if (block.point_count != CV_FACE_POINT_COUNT) {
        std::cerr << "error: no face found\n";
        return 1;
    }
    for (int i = 0; i < CV_FACE_POINT_COUNT; ++i) {
        const cv::Point2f at((block.points[2 * i] - crop.x + 0.5f) * float(kZoom),
                             (block.points[2 * i + 1] - crop.y + 0.5f) * float(kZoom));
        const bool skipped = i == 59 || i == 60 || i == 69 || i == 70;
        const cv::Scalar colour = skipped ? cv::Scalar(0, 0, 200) : cv::Scalar(0, 110, 0);
        cv::circle(picture, at, 4, colour, cv::FILLED, cv::LINE_AA);
        cv::putText(picture, std::to_string(i), at + cv::Point2f(5, -4), cv::FONT_HERSHEY_SIMPLEX,
                    0.42, colour, 1, cv::LINE_AA);
    }
    cv::putText(picture, "106-point layout (red: pupils 59, 60, 69, 70, not used by the selection)",
                cv::Point(10, picture.rows - 12), cv::FONT_HERSHEY_SIMPLEX, 0.5,
                cv::Scalar(40, 40, 40), 1, cv::LINE_AA);
    // Written atomically, like every file a tool writes.
    try {
        kestrel::meridian::writeFileAtomicallyVia(
            argv[1], [&](const std::string& temporary) { return cv::imwrite(temporary, picture); });
    } catch (const std::exception& e) {
        std::cerr << "error: " << e.what() << '\n';
        return 1;
    }
    std::printf("wrote %s\n", argv[1]);
    return 0;
}
