// One face or vertex at a time: the arithmetic every wider kernel repeats
// lane by lane.
#include <algorithm>
#include <cmath>

#include "tbn/frame_arithmetic.h"
#include "tbn/frame_kernels.h"

namespace kestrel::meridian::kernels {

void addFaceNormal(const FaceTables& topology, size_t f, const double* positions, double* sums) {
    const int32_t* corner = topology.corners + 3 * f;
    const double* a = positions + 4 * corner[0];
    const double* b = positions + 4 * corner[1];
    const double* c = positions + 4 * corner[2];
    // Both edges leave the second corner.
    const double e1x = b[0] - a[0], e1y = b[1] - a[1], e1z = b[2] - a[2];
    const double e2x = b[0] - c[0], e2y = b[1] - c[1], e2z = b[2] - c[2];
    const double du1 = topology.du1[f], dv1 = topology.dv1[f];
    const double du2 = topology.du2[f], dv2 = topology.dv2[f];
    const double r = topology.r[f];

    double tx = (dv2 * e1x - dv1 * e2x) * r;
    double ty = (dv2 * e1y - dv1 * e2y) * r;
    double tz = (dv2 * e1z - dv1 * e2z) * r;
    double bx = (du1 * e2x - du2 * e1x) * r;
    double by = (du1 * e2y - du2 * e1y) * r;
    double bz = (du1 * e2z - du2 * e1z) * r;

    const double tl = std::max(std::sqrt(tx * tx + ty * ty + tz * tz), kFrameEpsilon);
    tx /= tl;
    ty /= tl;
    tz /= tl;
    const double bl = std::max(std::sqrt(bx * bx + by * by + bz * bz), kFrameEpsilon);
    bx /= bl;
    by /= bl;
    bz /= bl;

    const double nx = ty * bz - tz * by;
    const double ny = tz * bx - tx * bz;
    const double nz = tx * by - ty * bx;
    const double nl = std::max(std::sqrt(nx * nx + ny * ny + nz * nz), kFrameEpsilon);
    const double x = nx / nl, y = ny / nl, z = nz / nl;
    for (int k = 0; k < 3; ++k) {
        if (corner[k] < topology.firstVertex || corner[k] >= topology.endVertex) continue;
        double* sum = sums + 4 * corner[k];
        sum[0] += x;
        sum[1] += y;
        sum[2] += z;
        sum[3] += 0.0;
    }
}

void vertexFrame(const FrameOutput& out, ptrdiff_t j) {
    const double* sum = out.sums + 4 * (out.pick ? out.pick[j] : j);
    float* const* rows = out.rows;
    const double length =
        std::max(std::sqrt(sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]), kFrameEpsilon);
    const double nx = sum[0] / length, ny = sum[1] / length, nz = sum[2] / length;
    // n x (1, 0, 0) written out in full: with a non-finite normal the
    // products by zero are NaN, as in a general cross product.
    const double bx = ny * 0.0 - nz * 0.0;
    const double by = nz * 1.0 - nx * 0.0;
    const double bz = nx * 0.0 - ny * 1.0;
    rows[0][j] = static_cast<float>(clampFrameValue(1.0));
    rows[1][j] = static_cast<float>(clampFrameValue(0.0));
    rows[2][j] = static_cast<float>(clampFrameValue(0.0));
    rows[3][j] = static_cast<float>(-clampFrameValue(bx));
    rows[4][j] = static_cast<float>(-clampFrameValue(by));
    rows[5][j] = static_cast<float>(-clampFrameValue(bz));
    rows[6][j] = static_cast<float>(-clampFrameValue(nx));
    rows[7][j] = static_cast<float>(-clampFrameValue(ny));
    rows[8][j] = static_cast<float>(-clampFrameValue(nz));
}

}  // namespace kestrel::meridian::kernels
