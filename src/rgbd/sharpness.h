// Sharpness score of a colour frame: the spread of its Laplacian.
#pragma once

#include <opencv2/core.hpp>

namespace kestrel::meridian {

/// The caller's 8-bit BGR image (`rows` by `cols`, packed) as float BGR
/// scaled by 1/255 (CV_32FC3).
cv::Mat colorToFloat(const unsigned char* bgr, int rows, int cols);

/// Score of a float BGR image (CV_32FC3): grey (BGR to grey), filtered with
/// the 3 by 3 Laplacian kernel (0 1 0 / 1 -4 1 / 0 1 0) at the source depth
/// with a reflect-101 border, then |standard deviation| * 255 as a float.
/// Smaller means blurrier.
float sharpnessScore(const cv::Mat& colorFloat);

}  // namespace kestrel::meridian
