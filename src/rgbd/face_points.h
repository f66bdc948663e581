// Landmarks of a frame: taken from the provider's block, and the two checks
// made on them (face size, open eyes).
#pragma once

#include <Eigen/Core>

#include "meridian/cv_face.h"

namespace kestrel::meridian {

/// Landmarks kept for pose and checks: the provider's 106 less the four
/// pupil points 59, 60, 69 and 70.
constexpr int kKeptPointCount = 102;

/// Kept landmarks, 2 by 102: row 0 x, row 1 y, in kept order; stored row
/// after row (x of landmark j at j, y at 102 + j).
using FaceLandmarks = Eigen::Matrix<float, 2, kKeptPointCount, Eigen::RowMajor>;

/// Whether provider point `i` (0..105) is one of the four skipped pupils.
constexpr bool isSkippedPoint(int i) {
    return i == 59 || i == 60 || i == 69 || i == 70;
}

/// Fills `landmarks` (row 0 x, row 1 y, in kept order)
/// from the provider's points of an image of `rows` by `cols` pixels: a
/// point (x, y) is stored as (x - 1, y - 2). Returns false, leaving the
/// columns after the offending one unset, as soon as a point has x outside
/// [0, cols) or y - 1 outside [0, rows).
bool extractLandmarks(const CvFaceResult& block, int rows, int cols, FaceLandmarks& landmarks);

/// Larger side of the landmarks' bounding box; minima start at 10000 and
/// maxima at 0.
float faceSize(const FaceLandmarks& landmarks);

/// Faces smaller than this many pixels are rejected.
constexpr float kMinFaceSize = 230.0f;

/// Eye openness of the landmarks: for each eye the three lid
/// distances over the corner distance, against 0.2 when `frontal`, else 0.5.
/// Returns 1 (both open), -1 (one closed) or -3 (both closed).
int eyeOpenness(const FaceLandmarks& landmarks, bool frontal);

}  // namespace kestrel::meridian
