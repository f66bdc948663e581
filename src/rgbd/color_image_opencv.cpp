// Colour images decoded by OpenCV (builds with OpenCV).
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "rgbd/capture_files.h"

namespace kestrel::meridian {

ColorImage readColorImage(const std::string& path) {
    cv::Mat image = cv::imread(path, cv::IMREAD_UNCHANGED);
    if (image.empty() || image.depth() != CV_8U) return {};
    if (image.channels() == 1) cv::cvtColor(image, image, cv::COLOR_GRAY2BGR);
    if (image.channels() == 4) cv::cvtColor(image, image, cv::COLOR_BGRA2BGR);
    if (image.channels() != 3) return {};
    if (!image.isContinuous()) image = image.clone();
    ColorImage result;
    result.rows = image.rows;
    result.cols = image.cols;
    result.bgr.assign(image.data, image.data + image.total() * 3);
    return result;
}

}  // namespace kestrel::meridian
