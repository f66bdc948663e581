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

/// dot(a, x[h]) for H vectors x[h], each summed in the documented order
/// (row_kernels.h): the row is loaded once per group of eight columns for
/// all H, and each product keeps its own eight partial sums.
/// out: H values, written
template <typename L, int H>
inline void dotRowsWide(const double* a, const double* const* x, ptrdiff_t cols, double* out) {
    using V = typename L::Vector;
    constexpr int kVectors = 8 / L::kLanes;
    static_assert(kVectors * L::kLanes == 8, "eight partial sums");
    V s[H][kVectors];
    for (int h = 0; h < H; ++h)
        for (int v = 0; v < kVectors; ++v) s[h][v] = L::zero();
    ptrdiff_t c = 0;
    for (; c + 8 <= cols; c += 8)
        for (int v = 0; v < kVectors; ++v) {
            const V row = L::load(a + c + v * L::kLanes);
            for (int h = 0; h < H; ++h)
                s[h][v] = L::add(s[h][v], L::mul(row, L::load(x[h] + c + v * L::kLanes)));
        }
    for (int h = 0; h < H; ++h) {
        double partial[8];
        for (int v = 0; v < kVectors; ++v) L::store(partial + v * L::kLanes, s[h][v]);
        double sum = ((partial[0] + partial[2]) + (partial[4] + partial[6])) +
                     ((partial[1] + partial[3]) + (partial[5] + partial[7]));
        for (ptrdiff_t t = c; t < cols; ++t) sum += a[t] * x[h][t];
        out[h] = sum;
    }
}

/// dot(a, x) over `cols` values in the documented order (row_kernels.h).
template <typename L>
inline double dotRowWide(const double* a, const double* x, ptrdiff_t cols) {
    double out;
    dotRowsWide<L, 1>(a, &x, cols, &out);
    return out;
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
    // Four vectors per row load; the rest one at a time.
    constexpr int kBlock = 4;
    for (ptrdiff_t r = 0; r < count; ++r) {
        const double* a = rows + r * cols;
        ptrdiff_t k = 0;
        for (; k + kBlock <= vectors; k += kBlock) {
            const double* x[kBlock];
            double y[kBlock];
            for (int h = 0; h < kBlock; ++h) x[h] = xs + (k + h) * cols;
            dotRowsWide<L, kBlock>(a, x, cols, y);
            for (int h = 0; h < kBlock; ++h) ys[(k + h) * count + r] = y[h];
        }
        for (; k < vectors; ++k) ys[k * count + r] = dotRowWide<L>(a, xs + k * cols, cols);
    }
}

template <typename L>
void addWeightedRowsBatchWide(const double* rows, ptrdiff_t count, ptrdiff_t cols,
                              const double* weights, ptrdiff_t vectors, double* sums) {
    // Four rows at a time, cached while every sum takes them: each sum
    // element is loaded and stored once per four rows, and still adds the
    // rows one by one in order.
    constexpr ptrdiff_t kBlock = 4;
    using V = typename L::Vector;
    ptrdiff_t r = 0;
    for (; r + kBlock <= count; r += kBlock) {
        const double* a = rows + r * cols;
        for (ptrdiff_t k = 0; k < vectors; ++k) {
            const double* w = weights + k * count + r;
            double* sum = sums + k * cols;
            const V w0 = L::broadcast(w[0]), w1 = L::broadcast(w[1]);
            const V w2 = L::broadcast(w[2]), w3 = L::broadcast(w[3]);
            ptrdiff_t c = 0;
            for (; c + L::kLanes <= cols; c += L::kLanes) {
                V s = L::load(sum + c);
                s = L::add(s, L::mul(w0, L::load(a + c)));
                s = L::add(s, L::mul(w1, L::load(a + cols + c)));
                s = L::add(s, L::mul(w2, L::load(a + 2 * cols + c)));
                s = L::add(s, L::mul(w3, L::load(a + 3 * cols + c)));
                L::store(sum + c, s);
            }
            for (; c < cols; ++c)
                for (ptrdiff_t b = 0; b < kBlock; ++b) sum[c] += w[b] * a[b * cols + c];
        }
    }
    for (; r < count; ++r)
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
