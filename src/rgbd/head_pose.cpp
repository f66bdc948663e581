#include "rgbd/head_pose.h"

#include <cmath>

#include "common/template_head.h"
#include "rgbd/mean_face.h"

namespace kestrel::meridian {

const MeanFace& meanFace() {
    static const MeanFace face = [] {
        const std::array<double, 306>& constants = meanFaceConstants();
        MeanFace f;
        for (int r = 0; r < 3; ++r)
            for (int j = 0; j < kKeptPointCount; ++j)
                f(r, j) =
                    static_cast<float>(constants[static_cast<size_t>(kKeptPointCount * r + j)]);
        return f;
    }();
    return face;
}

std::array<float, 3> affinePoseAngles(const FaceLandmarks& landmarks,
                                      const MeanFacePseudoInverse& pinv) {
    // The camera M = landmarks * pinv, 2 by 4; products summed in double in
    // column order, as a single-precision matrix product with a double
    // accumulator gives them.
    float m[2][4];
    for (int row = 0; row < 2; ++row)
        for (int c = 0; c < 4; ++c) {
            double sum = 0.0;
            for (int j = 0; j < kKeptPointCount; ++j)
                sum += static_cast<double>(landmarks(row, j)) * static_cast<double>(pinv(j, c));
            m[row][c] = static_cast<float>(sum);
        }
    float r[3][3];
    for (int row = 0; row < 2; ++row) {
        const float length =
            sqrtf(m[row][0] * m[row][0] + m[row][1] * m[row][1] + m[row][2] * m[row][2]);
        for (int k = 0; k < 3; ++k) r[row][k] = m[row][k] / length;
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
