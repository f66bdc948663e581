// The two passes over basis rows a region fit makes per call. Both stream
// rows once, in order; each output is summed in a fixed order, so results
// never depend on how rows are split among calls, nor on the instruction set
// (simd::Level) the passes run with.
#pragma once

#include <Eigen/Core>

#include "simd/simd_level.h"

namespace kestrel::meridian::blendshape {

/// y[r] = dot(row r, x) for `count` rows of `cols` values stored row after
/// row from `rows` (count x cols, element (r, c) at r * cols + c). Each dot
/// product is summed as eight interleaved partial sums (partial k takes
/// columns c = k mod 8 of the whole groups of eight, in order), added as
/// ((s0 + s2) + (s4 + s6)) + ((s1 + s3) + (s5 + s7)), then the leftover
/// columns one by one.
/// x: cols values; y: count values, written
void multiplyRows(const double* rows, Eigen::Index count, Eigen::Index cols, const double* x,
                  double* y, simd::Level level = simd::widestLevel());

/// sum[c] = sum over r of weight[r] * row r [c], starting from 0 and adding
/// rows in order.
/// rows: count x cols as for multiplyRows; weight: count values; sum: cols
/// values, written
void weightedRowSum(const double* rows, Eigen::Index count, Eigen::Index cols, const double* weight,
                    double* sum, simd::Level level = simd::widestLevel());

/// multiplyRows for `vectors` vectors at once: each row is read once and
/// multiplied with every vector while cached. ys[k * count + r] has the bits
/// multiplyRows gives y[r] for x = xs + k * cols.
/// xs: vectors x cols, value c of vector k at k * cols + c
/// ys: vectors x count, product r of vector k at k * count + r, written
void multiplyRowsBatch(const double* rows, Eigen::Index count, Eigen::Index cols, const double* xs,
                       Eigen::Index vectors, double* ys, simd::Level level = simd::widestLevel());

/// weightedRowSum for `vectors` weight vectors at once, each row read once.
/// sums[k * cols + c] has the bits weightedRowSum gives sum[c] for
/// weight = weights + k * count.
/// weights: vectors x count, weight r of vector k at k * count + r
/// sums:    vectors x cols, column c of sum k at k * cols + c, written
void weightedRowSumBatch(const double* rows, Eigen::Index count, Eigen::Index cols,
                         const double* weights, Eigen::Index vectors, double* sums,
                         simd::Level level = simd::widestLevel());

}  // namespace kestrel::meridian::blendshape
