// Sharpness score of a colour frame: the spread of its Laplacian. Plain
// loops, the same on every platform.
#pragma once

#include <vector>

namespace kestrel::meridian {

/// Grey of an 8-bit BGR image (`rows` by `cols`, packed: channel c of pixel
/// (r, k) at 3 (r cols + k) + c), scaled to [0, 1]: each channel becomes
/// float(value) * float(1 / 255), then
/// grey = fma(R, 0.299f, fma(G, 0.587f, B * 0.114f)) in single precision.
/// Returns rows by cols floats, row after row.
std::vector<float> greyFromBgr(const unsigned char* bgr, int rows, int cols);

/// The 3 by 3 Laplacian (0 1 0 / 1 -4 1 / 0 1 0) of a rows by cols float
/// image (row after row), with the reflect-101 border (row -1 reads row 1,
/// row `rows` reads row rows - 2; a single row or column reads itself).
/// Each output is ((up + left) + -4 centre) + right) + down in float.
std::vector<float> laplacian3x3(const std::vector<float>& image, int rows, int cols);

/// Population standard deviation of `values`: sums of the values and of
/// their squares in double, in order; with s = 1 / n, mean = sum s and
/// variance = max(sum2 s - mean^2, 0). 0 for no values.
double standardDeviation(const std::vector<float>& values);

/// Score of an 8-bit BGR image: float(|standard deviation of the Laplacian
/// of its grey| * 255). Smaller means blurrier.
float sharpnessScore(const unsigned char* bgr, int rows, int cols);

}  // namespace kestrel::meridian
