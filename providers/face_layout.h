// The 106-point layout built from the 68 points of the shape predictor.
#pragma once

#include <array>

namespace cv_face {

constexpr int kSourcePointCount = 68;

/// Weights that make each of the 106 layout points from the 68 predictor
/// points: layout point i = sum over k of weights[i][k] * source point k.
/// Every row sums to 1, so the mapping commutes with any affine map of the
/// points (a layout point of a projected face is the projection of the
/// layout point of the 3-D face).
using LayoutWeights = std::array<std::array<double, kSourcePointCount>, 106>;

const LayoutWeights& layoutWeights();

}  // namespace cv_face
