#include "rgbd/head_pose.h"

#include <cmath>

#include "common/template_head.h"

namespace kestrel::meridian {

cv::Mat homogeneousPseudoInverse(const cv::Mat& meanFace) {
    cv::Mat homogeneous;
    cv::vconcat(meanFace, cv::Mat::ones(1, meanFace.cols, CV_32F), homogeneous);
    return homogeneous.inv(cv::DECOMP_SVD);
}

std::array<float, 3> affinePoseAngles(const cv::Mat& landmarks, const cv::Mat& pinv) {
    const cv::Mat camera = landmarks * pinv;  // 2 by 4
    float r[3][3];
    for (int row = 0; row < 2; ++row) {
        const float* m = camera.ptr<float>(row);
        const float length = sqrtf(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]);
        for (int k = 0; k < 3; ++k) r[row][k] = m[k] / length;
    }
    r[2][0] = r[0][1] * r[1][2] - r[0][2] * r[1][1];
    r[2][1] = r[0][2] * r[1][0] - r[0][0] * r[1][2];
    r[2][2] = r[0][0] * r[1][1] - r[0][1] * r[1][0];
    return {atan2f(r[0][1], r[0][0]), asinf(-r[0][2]), atan2f(r[1][2], r[2][2])};
}

YawPitch toYawPitch(const std::array<float, 3>& angles) {
    YawPitch result;
    result.yaw = static_cast<float>(-angles[1] * 180.0f / kPi314);
    result.pitch = static_cast<float>(angles[2] * 180.0f / kPi314);
    if (result.pitch < 0) result.pitch += 360;
    result.pitch -= 180;
    return result;
}

}  // namespace kestrel::meridian
