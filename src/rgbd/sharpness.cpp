#include "rgbd/sharpness.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace kestrel::meridian {

namespace {

// The grey loop. Its two fused multiply-adds must be exact (one rounding
// each) on every platform: with the processor's FMA instruction where it has
// one, else the C library's fma, which is exact but a call per value.
#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#define MERIDIAN_GREY_FMA_DISPATCH 1
__attribute__((target("fma"))) void greyLoopFma(const unsigned char* bgr, size_t count,
                                                float* grey) {
    const float scale = static_cast<float>(1.0 / 255.0);
    for (size_t i = 0; i < count; ++i) {
        const float b = static_cast<float>(bgr[3 * i]) * scale;
        const float g = static_cast<float>(bgr[3 * i + 1]) * scale;
        const float r = static_cast<float>(bgr[3 * i + 2]) * scale;
        grey[i] = __builtin_fmaf(r, 0.299f, __builtin_fmaf(g, 0.587f, b * 0.114f));
    }
}
#endif

void greyLoop(const unsigned char* bgr, size_t count, float* grey) {
    const float scale = static_cast<float>(1.0 / 255.0);
    for (size_t i = 0; i < count; ++i) {
        const float b = static_cast<float>(bgr[3 * i]) * scale;
        const float g = static_cast<float>(bgr[3 * i + 1]) * scale;
        const float r = static_cast<float>(bgr[3 * i + 2]) * scale;
        grey[i] = std::fma(r, 0.299f, std::fma(g, 0.587f, b * 0.114f));
    }
}

}  // namespace

std::vector<float> greyFromBgr(const unsigned char* bgr, int rows, int cols) {
    const size_t count = static_cast<size_t>(rows) * static_cast<size_t>(cols);
    std::vector<float> grey(count);
#if defined(MERIDIAN_GREY_FMA_DISPATCH)
    static const bool hardwareFma = __builtin_cpu_supports("fma");
    if (hardwareFma) {
        greyLoopFma(bgr, count, grey.data());
        return grey;
    }
#endif
    greyLoop(bgr, count, grey.data());
    return grey;
}

namespace {

// Reflect-101 index of p in [0, n): -1 reads 1, n reads n - 2.
int reflect101(int p, int n) {
    if (n == 1) return 0;
    if (p < 0) return -p;
    if (p >= n) return 2 * n - 2 - p;
    return p;
}

}  // namespace

std::vector<float> laplacian3x3(const std::vector<float>& image, int rows, int cols) {
    std::vector<float> out(image.size());
    for (int r = 0; r < rows; ++r) {
        const float* up = &image[static_cast<size_t>(reflect101(r - 1, rows)) * cols];
        const float* row = &image[static_cast<size_t>(r) * cols];
        const float* down = &image[static_cast<size_t>(reflect101(r + 1, rows)) * cols];
        float* target = &out[static_cast<size_t>(r) * cols];
        for (int c = 0; c < cols; ++c) {
            const float left = row[reflect101(c - 1, cols)];
            const float right = row[reflect101(c + 1, cols)];
            target[c] = (((up[c] + left) + row[c] * -4.0f) + right) + down[c];
        }
    }
    return out;
}

double standardDeviation(const std::vector<float>& values) {
    if (values.empty()) return 0.0;
    double sum = 0.0, squares = 0.0;
    for (const float v : values) {
        sum += v;
        squares += static_cast<double>(v) * v;
    }
    // Scaled by the reciprocal of the count, not divided by it: the
    // reference's rounding.
    const double scale = 1.0 / static_cast<double>(values.size());
    const double mean = sum * scale;
    return std::sqrt(std::max(squares * scale - mean * mean, 0.0));
}

float sharpnessScore(const unsigned char* bgr, int rows, int cols) {
    const std::vector<float> filtered = laplacian3x3(greyFromBgr(bgr, rows, cols), rows, cols);
    return static_cast<float>(std::fabs(standardDeviation(filtered)) * 255);
}

}  // namespace kestrel::meridian
