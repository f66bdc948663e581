// The two passes over basis rows a region fit makes per call. Both stream
// rows once, in order, so they run at memory speed; each row is summed in a
// fixed order, so results never depend on how rows are split among calls.
#pragma once

#include <Eigen/Core>

namespace kestrel::meridian::blendshape {

/// y[r] = dot(row r, x) for `count` rows of `cols` values stored row after
/// row from `rows`.
void multiplyRows(const double* rows, Eigen::Index count, Eigen::Index cols, const double* x,
                  double* y);

/// sum[c] = sum over r of weight[r] * row r [c], rows added in order.
void weightedRowSum(const double* rows, Eigen::Index count, Eigen::Index cols, const double* weight,
                    double* sum);

}  // namespace kestrel::meridian::blendshape
