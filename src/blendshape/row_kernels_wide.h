// The row passes for any vector width, written once over a lanes type
// (simd/lanes_*.h) and instantiated by the per-width files only. Each output
// gets the scalar pass's operations in the scalar pass's order: the eight
// partial sums of a dot product are eight lanes whatever the vector width.
#pragma once

#include <cstddef>

namespace kestrel::meridian::blendshape::kernels {

// Entry points, one per instruction set (row_kernels_<set>.cpp). Shapes as
// in row_kernels.h; the weighted sums add to `sum`/`sums`, which the caller
// zeroes.
#define MERIDIAN_ROW_KERNEL_ENTRIES(Set)                                                         \
    void multiplyRows##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x, \
                           double* y);                                                           \
    void addWeightedRows##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols,               \
                              const double* weight, double* sum);                                \
    void multiplyRowsBatch##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols,             \
                                const double* xs, ptrdiff_t vectors, double* ys);                \
    void addWeightedRowsBatch##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols,          \
                                   const double* weights, ptrdiff_t vectors, double* sums);
MERIDIAN_ROW_KERNEL_ENTRIES(Sse2)
MERIDIAN_ROW_KERNEL_ENTRIES(Avx)
MERIDIAN_ROW_KERNEL_ENTRIES(Avx2)
MERIDIAN_ROW_KERNEL_ENTRIES(Avx512)
#undef MERIDIAN_ROW_KERNEL_ENTRIES

}  // namespace kestrel::meridian::blendshape::kernels

#if defined(MERIDIAN_ROW_KERNELS_LANES)

namespace {

/// dot(a, x) over `cols` values in the documented order (row_kernels.h).
template <typename L>
inline double dotRowWide(const double* a, const double* x, ptrdiff_t cols) {
    using V = typename L::Vector;
    constexpr int kVectors = 8 / L::kLanes;
    static_assert(kVectors * L::kLanes == 8, "eight partial sums");
    V s[kVectors];
    for (int v = 0; v < kVectors; ++v) s[v] = L::zero();
    ptrdiff_t c = 0;
    for (; c + 8 <= cols; c += 8)
        for (int v = 0; v < kVectors; ++v)
            s[v] = L::add(s[v],
                          L::mul(L::load(a + c + v * L::kLanes), L::load(x + c + v * L::kLanes)));
    double partial[8];
    for (int v = 0; v < kVectors; ++v) L::store(partial + v * L::kLanes, s[v]);
    double sum = ((partial[0] + partial[2]) + (partial[4] + partial[6])) +
                 ((partial[1] + partial[3]) + (partial[5] + partial[7]));
    for (; c < cols; ++c) sum += a[c] * x[c];
    return sum;
}

/// sum[c] += w * a[c] for `cols` values.
template <typename L>
inline void addWeightedRowWide(const double* a, double w, ptrdiff_t cols, double* sum) {
    const typename L::Vector wide = L::broadcast(w);
    ptrdiff_t c = 0;
    for (; c + L::kLanes <= cols; c += L::kLanes)
        L::store(sum + c, L::add(L::load(sum + c), L::mul(wide, L::load(a + c))));
    for (; c < cols; ++c) sum[c] += w * a[c];
}

template <typename L>
void multiplyRowsWide(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x,
                      double* y) {
    for (ptrdiff_t r = 0; r < count; ++r) y[r] = dotRowWide<L>(rows + r * cols, x, cols);
}

template <typename L>
void addWeightedRowsWide(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* weight,
                         double* sum) {
    for (ptrdiff_t r = 0; r < count; ++r)
        addWeightedRowWide<L>(rows + r * cols, weight[r], cols, sum);
}

// The batch passes read each row once, while it is in cache, for every
// vector; each output still gets exactly the single pass's operations.
template <typename L>
void multiplyRowsBatchWide(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* xs,
                           ptrdiff_t vectors, double* ys) {
    for (ptrdiff_t r = 0; r < count; ++r)
        for (ptrdiff_t k = 0; k < vectors; ++k)
            ys[k * count + r] = dotRowWide<L>(rows + r * cols, xs + k * cols, cols);
}

template <typename L>
void addWeightedRowsBatchWide(const double* rows, ptrdiff_t count, ptrdiff_t cols,
                              const double* weights, ptrdiff_t vectors, double* sums) {
    for (ptrdiff_t r = 0; r < count; ++r)
        for (ptrdiff_t k = 0; k < vectors; ++k)
            addWeightedRowWide<L>(rows + r * cols, weights[k * count + r], cols, sums + k * cols);
}

}  // namespace

/// Defines the four entry points of one instruction set from a lanes type.
#define MERIDIAN_DEFINE_ROW_KERNELS(Set, Lanes)                                                  \
    void multiplyRows##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* x, \
                           double* y) {                                                          \
        multiplyRowsWide<Lanes>(rows, count, cols, x, y);                                        \
    }                                                                                            \
    void addWeightedRows##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols,               \
                              const double* weight, double* sum) {                               \
        addWeightedRowsWide<Lanes>(rows, count, cols, weight, sum);                              \
    }                                                                                            \
    void multiplyRowsBatch##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols,             \
                                const double* xs, ptrdiff_t vectors, double* ys) {               \
        multiplyRowsBatchWide<Lanes>(rows, count, cols, xs, vectors, ys);                        \
    }                                                                                            \
    void addWeightedRowsBatch##Set(const double* rows, ptrdiff_t count, ptrdiff_t cols,          \
                                   const double* weights, ptrdiff_t vectors, double* sums) {     \
        addWeightedRowsBatchWide<Lanes>(rows, count, cols, weights, vectors, sums);              \
    }

#endif
