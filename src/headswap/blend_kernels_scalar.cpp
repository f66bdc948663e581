// One output vertex at a time: the arithmetic every wider blend repeats lane
// by lane.
#include "headswap/blend_kernels.h"

namespace kestrel::meridian::headswap {

void blendVertex(const BlendMap& map, const PlanarRows& rows, ptrdiff_t j) {
    const ptrdiff_t a = map.corners[0][j], b = map.corners[1][j], c = map.corners[2][j];
    const double w0 = map.weights[0][j], w1 = map.weights[1][j], w2 = map.weights[2][j];
    for (int r = 0; r < 3; ++r) {
        const float* row = rows.in[r];
        const double blended = w0 * static_cast<double>(row[a]) + w1 * static_cast<double>(row[b]) +
                               w2 * static_cast<double>(row[c]);
        rows.out[r][j] = static_cast<float>(blended);
    }
}

}  // namespace kestrel::meridian::headswap
