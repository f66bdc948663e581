#include "rgbd/sharpness.h"

#include <cmath>

#include <opencv2/imgproc.hpp>

namespace kestrel::meridian {

cv::Mat colorToFloat(const unsigned char* bgr, int rows, int cols) {
    const cv::Mat wrapped(rows, cols, CV_8UC3, const_cast<unsigned char*>(bgr));
    cv::Mat colorFloat;
    wrapped.convertTo(colorFloat, CV_32FC3, 1.0 / 255.0);
    return colorFloat;
}

float sharpnessScore(const cv::Mat& colorFloat) {
    static const cv::Mat kLaplacian = (cv::Mat_<signed char>(3, 3) << 0, 1, 0, 1, -4, 1, 0, 1, 0);
    cv::Mat grey, filtered;
    cv::cvtColor(colorFloat, grey, cv::COLOR_BGR2GRAY);
    cv::filter2D(grey, filtered, -1, kLaplacian, cv::Point(-1, -1), 0.0, cv::BORDER_REFLECT_101);
    cv::Scalar mean, deviation;
    cv::meanStdDev(filtered, mean, deviation);
    return static_cast<float>(std::fabs(deviation[0]) * 255);
}

}  // namespace kestrel::meridian
