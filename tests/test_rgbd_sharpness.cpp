// Sharpness score: known answers of the grey, the Laplacian with its
// reflect-101 border, and the deviation.
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "rgbd/sharpness.h"

namespace {

using namespace kestrel::meridian;

// A rows by cols BGR image whose pixel (r, c) is grey level `level(r, c)`.
template <typename Level>
std::vector<unsigned char> greyImage(int rows, int cols, Level level) {
    std::vector<unsigned char> image(size_t(rows) * cols * 3);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            for (int k = 0; k < 3; ++k) image[(size_t(r) * cols + c) * 3 + k] = level(r, c);
    return image;
}

TEST(RgbdSharpness, KnownAnswers) {
    // A one-pixel checkerboard of 0 and 255 has Laplacian +-4 everywhere
    // (reflect-101 mirrors the opposite colour in): deviation 4, score 1020.
    const auto checker = greyImage(40, 60, [](int r, int c) { return (r + c) % 2 ? 255 : 0; });
    EXPECT_NEAR(sharpnessScore(checker.data(), 40, 60), 1020.0f, 1e-2);
    // A ramp of one grey level per column: Laplacian 0 inside, +-2/255 in
    // the first and last columns under reflect-101 (a replicated border
    // would give half): deviation 2/255 sqrt(2/W), score 2 sqrt(2/W).
    const auto ramp = greyImage(30, 200, [](int, int c) { return c; });
    EXPECT_NEAR(sharpnessScore(ramp.data(), 30, 200), 2.0 * std::sqrt(2.0 / 200), 1e-4);
    // Flat colour, a single pixel, a single row: nothing varies.
    const std::vector<unsigned char> flat = {10, 200, 90};
    EXPECT_EQ(sharpnessScore(std::vector<unsigned char>(30 * 30 * 3, 77).data(), 30, 30), 0.0f);
    EXPECT_EQ(sharpnessScore(flat.data(), 1, 1), 0.0f);
}

TEST(RgbdSharpness, GreyWeightsAndScale) {
    // Pure blue, green and red at 255: the weights themselves.
    const std::vector<unsigned char> bgr = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255};
    const std::vector<float> grey = greyFromBgr(bgr.data(), 1, 4);
    const float one = 255.0f * static_cast<float>(1.0 / 255.0);
    EXPECT_EQ(grey[0], one * 0.114f);
    EXPECT_EQ(grey[1], std::fma(one, 0.587f, 0.0f));
    EXPECT_EQ(grey[2], one * 0.299f);
    EXPECT_NEAR(grey[3], 1.0f, 1e-6);
}

TEST(RgbdSharpness, LaplacianBorderReflects101) {
    // A 3 by 3 image with one bright centre: its four neighbours see it
    // once, the corners not at all; on a 1 by 3 row the border reads the
    // row itself, so the centre gets up and down from itself (-2 x).
    std::vector<float> image(9, 0.0f);
    image[4] = 1.0f;
    EXPECT_EQ(laplacian3x3(image, 3, 3), (std::vector<float>{0, 2, 0, 2, -4, 2, 0, 2, 0}));
    EXPECT_EQ(laplacian3x3({0.0f, 1.0f, 0.0f}, 1, 3), (std::vector<float>{2, -2, 2}));
    EXPECT_EQ(standardDeviation({}), 0.0);
    EXPECT_EQ(standardDeviation({1.0f, 3.0f}), 1.0);
}

}  // namespace
