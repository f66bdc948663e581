// Head angles from landmarks: an affine camera fitted to a 3-D mean face.
#pragma once

#include <array>

#include <Eigen/Core>

#include "rgbd/face_points.h"

namespace kestrel::meridian {

/// The mean face, 3 by 102 (x right, y up, z toward the viewer), stored row
/// after row: element (r, j) = float(meanFaceConstants()[102 r + j]).
using MeanFace = Eigen::Matrix<float, 3, kKeptPointCount, Eigen::RowMajor>;

/// Pseudo-inverse of the mean face with a row of ones appended, 102 by 4,
/// stored row after row (element (j, c) at 4 j + c).
using MeanFacePseudoInverse = Eigen::Matrix<float, kKeptPointCount, 4, Eigen::RowMajor>;

/// The mean face in single precision.
const MeanFace& meanFace();

/// The pseudo-inverse of [meanFace(); 1 ... 1] by single-precision SVD. It
/// is a generated table (mean_face_pinv.cpp, see its header), so every
/// platform gets the same bits.
const MeanFacePseudoInverse& meanFacePseudoInverse();

/// Fits the 2 by 4 affine camera M = landmarks * pinv (each entry a sum of
/// 102 products of floats, accumulated in double and rounded to float),
/// normalises the first three entries of its rows to r1, r2, takes
/// r3 = r1 x r2 and returns the angles of R = [r1; r2; r3]:
/// atan2f(R01, R00), asinf(-R02), atan2f(R12, R22). The rest in single
/// precision.
std::array<float, 3> affinePoseAngles(const FaceLandmarks& landmarks,
                                      const MeanFacePseudoInverse& pinv);

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
