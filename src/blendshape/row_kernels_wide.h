// The row passes for any vector width, written once over a lanes type
// (simd/lanes_*.h) and instantiated by the per-width files only. Each output
// gets the scalar pass's operations in the scalar pass's order: the eight
// partial sums of a dot product are eight lanes whatever the vector width.
#pragma once

#include <cstddef>

namespace kestrel::meridian::blendshape::kernels {

// Entry points, one per instruction set (row_kernels_<set>.cpp). Shapes as
// in row_kernels.h; weightedRowSum adds to `sum`, which the caller zeroes.
void multiplyRowsSse2(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                      double* y);
void multiplyRowsAvx(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                     double* y);
void multiplyRowsAvx2(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                      double* y);
void multiplyRowsAvx512(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                        double* y);
void addWeightedRowsSse2(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* weight,
                         double* sum);
void addWeightedRowsAvx(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* weight,
                        double* sum);
void addWeightedRowsAvx2(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* weight,
                         double* sum);
void addWeightedRowsAvx512(const double* rows, ptrdiff_t count, ptrdiff_t cols,
                           const double* weight, double* sum);

}  // namespace kestrel::meridian::blendshape::kernels

#if defined(MERIDIAN_ROW_KERNELS_LANES)

namespace {

template <typename L>
void multiplyRowsWide(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                      double* y) {
    using V = typename L::Vector;
    constexpr int kVectors = 8 / L::kLanes;
    static_assert(kVectors * L::kLanes == 8, "eight partial sums");
    for (ptrdiff_t r = 0; r < count; ++r) {
        const double* a = rows + r * cols;
        V s[kVectors];
        for (int v = 0; v < kVectors; ++v) s[v] = L::zero();
        ptrdiff_t c = 0;
        for (; c + 8 <= cols; c += 8)
            for (int v = 0; v < kVectors; ++v)
                s[v] = L::add(
                    s[v], L::mul(L::load(a + c + v * L::kLanes), L::load(x + c + v * L::kLanes)));
        double partial[8];
        for (int v = 0; v < kVectors; ++v) L::store(partial + v * L::kLanes, s[v]);
        double sum = ((partial[0] + partial[2]) + (partial[4] + partial[6])) +
                     ((partial[1] + partial[3]) + (partial[5] + partial[7]));
        for (; c < cols; ++c) sum += a[c] * x[c];
        y[r] = sum;
    }
}

template <typename L>
void addWeightedRowsWide(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* weight,
                         double* sum) {
    for (ptrdiff_t r = 0; r < count; ++r) {
        const double* a = rows + r * cols;
        const typename L::Vector w = L::broadcast(weight[r]);
        ptrdiff_t c = 0;
        for (; c + L::kLanes <= cols; c += L::kLanes)
            L::store(sum + c, L::add(L::load(sum + c), L::mul(w, L::load(a + c))));
        for (; c < cols; ++c) sum[c] += weight[r] * a[c];
    }
}

}  // namespace

#endif
