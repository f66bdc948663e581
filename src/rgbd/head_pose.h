// Head angles from landmarks: an affine camera fitted to a 3-D mean face.
#pragma once

#include <array>

#include <opencv2/core.hpp>

namespace kestrel::meridian {

/// Pseudo-inverse of the mean face with a row of ones appended: `meanFace`
/// is 3 by 102 (CV_32F, x right, y up, z toward the viewer); the result is
/// 102 by 4 (CV_32F), by single-precision SVD.
cv::Mat homogeneousPseudoInverse(const cv::Mat& meanFace);

/// Fits the 2 by 4 affine camera M = landmarks * pinv (landmarks 2 by 102,
/// CV_32F; pinv from homogeneousPseudoInverse), normalises the first three
/// entries of its rows to r1, r2, takes r3 = r1 x r2 and returns the angles
/// of R = [r1; r2; r3]: atan2f(R01, R00), asinf(-R02), atan2f(R12, R22).
/// All in single precision.
std::array<float, 3> affinePoseAngles(const cv::Mat& landmarks, const cv::Mat& pinv);

struct YawPitch {
    float yaw = 0.0f;
    float pitch = 0.0f;
};

/// Degrees from the fitted angles: yaw = -second * 180 / 3.14 and pitch =
/// third * 180 / 3.14, moved by 360 when negative, minus 180 (a level face
/// looks at the camera with third near +-pi). The product with 180 is taken
/// in float, the division by 3.14 in double, the result rounded to float.
YawPitch toYawPitch(const std::array<float, 3>& angles);

}  // namespace kestrel::meridian
