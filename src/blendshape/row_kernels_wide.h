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

/// The dot products of R rows with H vectors, each summed in the documented
/// order (row_kernels.h): per group of eight columns every row and every
/// vector is loaded once and serves H (resp. R) products, which keep their
/// own eight partial sums.
/// a: R row pointers; x: H vector pointers; out: R x H values, product of
/// row i with vector h at i * H + h, written
template <typename L, int R, int H>
inline void dotBlockWide(const double* const* a, const double* const* x, ptrdiff_t cols,
                         double* out) {
    using V = typename L::Vector;
    constexpr int kVectors = 8 / L::kLanes;
    static_assert(kVectors * L::kLanes == 8, "eight partial sums");
    V s[R][H][kVectors];
    for (int i = 0; i < R; ++i)
        for (int h = 0; h < H; ++h)
            for (int v = 0; v < kVectors; ++v) s[i][h][v] = L::zero();
    ptrdiff_t c = 0;
    for (; c + 8 <= cols; c += 8)
        for (int v = 0; v < kVectors; ++v) {
            V row[R];
            for (int i = 0; i < R; ++i) row[i] = L::load(a[i] + c + v * L::kLanes);
            for (int h = 0; h < H; ++h) {
                const V xv = L::load(x[h] + c + v * L::kLanes);
                for (int i = 0; i < R; ++i) s[i][h][v] = L::add(s[i][h][v], L::mul(row[i], xv));
            }
        }
    for (int i = 0; i < R; ++i)
        for (int h = 0; h < H; ++h) {
            double partial[8];
            for (int v = 0; v < kVectors; ++v) L::store(partial + v * L::kLanes, s[i][h][v]);
            double sum = ((partial[0] + partial[2]) + (partial[4] + partial[6])) +
                         ((partial[1] + partial[3]) + (partial[5] + partial[7]));
            for (ptrdiff_t t = c; t < cols; ++t) sum += a[i][t] * x[h][t];
            out[i * H + h] = sum;
        }
}

/// dot(a, x) over `cols` values in the documented order (row_kernels.h).
template <typename L>
inline double dotRowWide(const double* a, const double* x, ptrdiff_t cols) {
    double out;
    dotBlockWide<L, 1, 1>(&a, &x, cols, &out);
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

/// Rows [r, r + R) against every vector, H vectors per block and the
/// leftover vectors one at a time.
template <typename L, int R, int H>
inline void multiplyRowBlock(const double* rows, ptrdiff_t r, ptrdiff_t count, ptrdiff_t cols,
                             const double* xs, ptrdiff_t vectors, double* ys) {
    const double* a[R];
    for (int i = 0; i < R; ++i) a[i] = rows + (r + i) * cols;
    double y[R * H];
    ptrdiff_t k = 0;
    for (; k + H <= vectors; k += H) {
        const double* x[H];
        for (int h = 0; h < H; ++h) x[h] = xs + (k + h) * cols;
        dotBlockWide<L, R, H>(a, x, cols, y);
        for (int i = 0; i < R; ++i)
            for (int h = 0; h < H; ++h) ys[(k + h) * count + r + i] = y[i * H + h];
    }
    for (; k < vectors; ++k) {
        const double* x = xs + k * cols;
        dotBlockWide<L, R, 1>(a, &x, cols, y);
        for (int i = 0; i < R; ++i) ys[k * count + r + i] = y[i];
    }
}

// The batch passes read each row once, while it is in cache, for every
// vector; each output still gets exactly the single pass's operations.
template <typename L>
void multiplyRowsBatchWide(const double* rows, ptrdiff_t count, ptrdiff_t cols, const double* xs,
                           ptrdiff_t vectors, double* ys) {
    // Register blocks of rows by vectors: every load serves several products.
    // The accumulators (rows x vectors x 8 / lanes) fill half the registers
    // of the instruction set (32 vector registers with AVX-512, 16 below),
    // leaving room for the loaded rows and vector.
    constexpr int kVectors = 8 / L::kLanes;
    constexpr int kRows = kVectors == 1 ? 4 : 2;
    constexpr int kHeads = kVectors == 1 ? 4 : kVectors == 2 ? 2 : 1;
    ptrdiff_t r = 0;
    for (; r + kRows <= count; r += kRows)
        multiplyRowBlock<L, kRows, kHeads>(rows, r, count, cols, xs, vectors, ys);
    for (; r < count; ++r) multiplyRowBlock<L, 1, kHeads>(rows, r, count, cols, xs, vectors, ys);
}

/// sum[h][c] += w[h][0] * a0[c], then w[h][1] * a1[c], ... w[h][3] * a3[c]
/// for four consecutive rows a0..a3 (`cols` apart, from `a`) and H sums:
/// each row value is loaded once for all H sums, and each sum element once
/// per four rows.
/// w: H pointers to four weights each; sum: H pointers to `cols` values
template <typename L, int H>
inline void addFourRowsWide(const double* a, ptrdiff_t cols, const double* const* w,
                            double* const* sum) {
    using V = typename L::Vector;
    V weight[H][4];
    for (int h = 0; h < H; ++h)
        for (int b = 0; b < 4; ++b) weight[h][b] = L::broadcast(w[h][b]);
    ptrdiff_t c = 0;
    for (; c + L::kLanes <= cols; c += L::kLanes) {
        V row[4];
        for (int b = 0; b < 4; ++b) row[b] = L::load(a + b * cols + c);
        for (int h = 0; h < H; ++h) {
            V s = L::load(sum[h] + c);
            for (int b = 0; b < 4; ++b) s = L::add(s, L::mul(weight[h][b], row[b]));
            L::store(sum[h] + c, s);
        }
    }
    for (; c < cols; ++c)
        for (int h = 0; h < H; ++h)
            for (int b = 0; b < 4; ++b) sum[h][c] += w[h][b] * a[b * cols + c];
}

template <typename L>
void addWeightedRowsBatchWide(const double* rows, ptrdiff_t count, ptrdiff_t cols,
                              const double* weights, ptrdiff_t vectors, double* sums) {
    // Four rows at a time, cached while every sum takes them, for several
    // sums at once; every sum element still adds the rows one by one in
    // order.
    constexpr int kSums = L::kLanes == 8 ? 4 : 2;
    ptrdiff_t r = 0;
    for (; r + 4 <= count; r += 4) {
        const double* a = rows + r * cols;
        ptrdiff_t k = 0;
        for (; k + kSums <= vectors; k += kSums) {
            const double* w[kSums];
            double* sum[kSums];
            for (int h = 0; h < kSums; ++h) {
                w[h] = weights + (k + h) * count + r;
                sum[h] = sums + (k + h) * cols;
            }
            addFourRowsWide<L, kSums>(a, cols, w, sum);
        }
        for (; k < vectors; ++k) {
            const double* w = weights + k * count + r;
            double* sum = sums + k * cols;
            addFourRowsWide<L, 1>(a, cols, &w, &sum);
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
