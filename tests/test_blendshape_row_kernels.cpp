// The row passes of the region fit with every instruction set this machine
// runs, against the summation order they promise, bit for bit: shapes with
// and without whole groups of eight columns, and values whose sums depend
// on the order (cancellation, signed zeros, infinities, NaN).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "blendshape/row_kernels.h"
#include "simd/simd_level.h"

namespace {

namespace bs = kestrel::meridian::blendshape;
namespace simd = kestrel::meridian::simd;

// The documented order of one dot product, element by element.
double orderedDot(const double* a, const double* x, int cols) {
    double partial[8] = {};
    int c = 0;
    for (; c + 8 <= cols; c += 8)
        for (int k = 0; k < 8; ++k) partial[k] = partial[k] + a[c + k] * x[c + k];
    double sum = ((partial[0] + partial[2]) + (partial[4] + partial[6])) +
                 ((partial[1] + partial[3]) + (partial[5] + partial[7]));
    for (; c < cols; ++c) sum = sum + a[c] * x[c];
    return sum;
}

bool sameBits(const std::vector<double>& a, const std::vector<double>& b) {
    // memcmp must not see the null data of an empty vector.
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

// Magnitudes over thirty decades, so that sums lose different bits in
// different orders, with a few special values sprinkled in.
std::vector<double> awkwardValues(size_t count, unsigned seed, bool special) {
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
    std::uniform_int_distribution<int> exponent(-15, 15);
    std::vector<double> values(count);
    for (double& v : values) v = std::ldexp(mantissa(random), exponent(random) * 3);
    if (special && count > 40) {
        values[3] = -0.0;
        values[11] = std::numeric_limits<double>::infinity();
        values[29] = -std::numeric_limits<double>::infinity();
        values[37] = std::numeric_limits<double>::quiet_NaN();
    }
    return values;
}

TEST(BlendshapeRowKernels, EveryInstructionSetSumsInTheDocumentedOrder) {
    struct Shape {
        int rows, cols;
        bool special;
    };
    const Shape shapes[] = {{5, 0, false},   {7, 3, false},   {9, 8, false},
                            {13, 21, false}, {33, 64, false}, {17, 99, true}};
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.cols);
        const auto count = static_cast<size_t>(shape.rows) * static_cast<size_t>(shape.cols);
        const std::vector<double> rows = awkwardValues(count, 1 + shape.cols, shape.special);
        const std::vector<double> x = awkwardValues(static_cast<size_t>(shape.cols), 2, false);
        const std::vector<double> weight = awkwardValues(static_cast<size_t>(shape.rows), 3, false);

        std::vector<double> expectedProducts(static_cast<size_t>(shape.rows));
        for (int r = 0; r < shape.rows; ++r)
            expectedProducts[r] = orderedDot(rows.data() + r * shape.cols, x.data(), shape.cols);
        std::vector<double> expectedSum(static_cast<size_t>(shape.cols), 0.0);
        for (int r = 0; r < shape.rows; ++r)
            for (int c = 0; c < shape.cols; ++c)
                expectedSum[c] = expectedSum[c] + weight[r] * rows[r * shape.cols + c];

        for (const simd::Level level : simd::kLevels) {
            if (!simd::levelAvailable(level)) continue;
            SCOPED_TRACE(simd::levelName(level));
            std::vector<double> products(static_cast<size_t>(shape.rows), -1.0);
            std::vector<double> sum(static_cast<size_t>(shape.cols), -1.0);
            bs::multiplyRows(rows.data(), shape.rows, shape.cols, x.data(), products.data(), level);
            bs::weightedRowSum(rows.data(), shape.rows, shape.cols, weight.data(), sum.data(),
                               level);
            EXPECT_TRUE(sameBits(products, expectedProducts));
            EXPECT_TRUE(sameBits(sum, expectedSum));
        }
    }
}

TEST(BlendshapeRowKernels, BatchPassesGiveEachVectorTheSinglePassBits) {
    struct Shape {
        int rows, cols, vectors;
    };
    const Shape shapes[] = {{5, 0, 3},    {7, 3, 1},   {9, 8, 2},
                            {13, 21, 16}, {33, 64, 5}, {17, 99, 4}};
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.cols << " for "
                                        << shape.vectors << " vectors");
        const auto rowCount = static_cast<size_t>(shape.rows);
        const auto colCount = static_cast<size_t>(shape.cols);
        const std::vector<double> rows = awkwardValues(rowCount * colCount, 7 + shape.cols, true);
        const std::vector<double> xs = awkwardValues(shape.vectors * colCount, 8, false);
        const std::vector<double> weights = awkwardValues(shape.vectors * rowCount, 9, false);
        for (const simd::Level level : simd::kLevels) {
            if (!simd::levelAvailable(level)) continue;
            SCOPED_TRACE(simd::levelName(level));
            std::vector<double> products(shape.vectors * rowCount, -1.0);
            std::vector<double> sums(shape.vectors * colCount, -1.0);
            bs::multiplyRowsBatch(rows.data(), shape.rows, shape.cols, xs.data(), shape.vectors,
                                  products.data(), level);
            bs::weightedRowSumBatch(rows.data(), shape.rows, shape.cols, weights.data(),
                                    shape.vectors, sums.data(), level);
            for (int k = 0; k < shape.vectors; ++k) {
                std::vector<double> product(rowCount), sum(colCount);
                bs::multiplyRows(rows.data(), shape.rows, shape.cols, xs.data() + k * colCount,
                                 product.data(), level);
                bs::weightedRowSum(rows.data(), shape.rows, shape.cols,
                                   weights.data() + k * rowCount, sum.data(), level);
                EXPECT_TRUE(sameBits(product, {products.begin() + k * rowCount,
                                               products.begin() + (k + 1) * rowCount}))
                    << "vector " << k;
                EXPECT_TRUE(
                    sameBits(sum, {sums.begin() + k * colCount, sums.begin() + (k + 1) * colCount}))
                    << "vector " << k;
            }
        }
    }
}

TEST(BlendshapeRowKernels, TheWidestLevelIsAvailableAndScalarAlwaysIs) {
    EXPECT_TRUE(simd::levelAvailable(simd::Level::scalar));
    EXPECT_TRUE(simd::levelAvailable(simd::widestLevel()));
    for (const simd::Level level : simd::kLevels) {
        if (level > simd::widestLevel()) {
            EXPECT_FALSE(simd::levelAvailable(level));
        }
    }
#if defined(__x86_64__) || defined(_M_X64)
    EXPECT_TRUE(simd::levelAvailable(simd::Level::sse2));
#endif
}

}  // namespace
