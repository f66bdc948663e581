#include "demo/grid_mesh.h"

#include <cmath>

#include "demo/float_round.h"

namespace meridian::demo::detail {

namespace {

// Sheet island: columns run left to right, rings top to bottom; the cap
// disc sits below it.
constexpr double kSheetLeft = 0.01, kSheetWidth = 0.98;
constexpr double kSheetTop = 0.99, kSheetHeight = 0.76;
constexpr double kCapCentreU = 0.115, kCapCentreV = 0.115, kCapRadius = 0.1;
constexpr double kPi = 3.14159265358979323846;

int sheetUv(int row, int col) {
    return 1 + row * (kGridCols + 1) + col;
}
constexpr int kSheetUvCount = 1 + kGridRows * (kGridCols + 1);

struct FaceSink {
    GridMesh& mesh;
    int count = 0;
    void add(int a, int b, int c, int ta, int tb, int tc) {
        mesh.faces.col(count) << a, b, c;
        mesh.uvFaces.col(count) << ta, tb, tc;
        ++count;
    }
};

}  // namespace

GridMesh buildGridMesh() {
    GridMesh mesh;
    const int capUvCount = kGridCols;
    const int uvCount = kSheetUvCount + capUvCount;
    mesh.uvs.resize(2, uvCount);
    mesh.uvVertex.resize(uvCount);
    mesh.uvIsland.resize(uvCount);

    mesh.uvs.col(0) << 0.5, roundToFloat(kSheetTop);
    mesh.uvVertex[0] = 0;
    mesh.uvIsland[0] = kSheetIsland;
    for (int row = 0; row < kGridRows; ++row) {
        const double v = roundToFloat(kSheetTop - kSheetHeight * (row + 1) / kGridRows);
        // Column kGridCols repeats column 0 on the other side of the seam.
        for (int col = 0; col <= kGridCols; ++col) {
            const int t = sheetUv(row, col);
            mesh.uvs.col(t) << roundToFloat(kSheetLeft + kSheetWidth * col / kGridCols), v;
            mesh.uvVertex[t] = gridVertex(row, col);
            mesh.uvIsland[t] = kSheetIsland;
        }
    }
    // Cap disc: clockwise in column order, because the cap is seen from below.
    for (int col = 0; col < kGridCols; ++col) {
        const int t = kSheetUvCount + col;
        const double angle = -2.0 * kPi * col / kGridCols;
        mesh.uvs.col(t) << roundToFloat(kCapCentreU + kCapRadius * std::cos(angle)),
            roundToFloat(kCapCentreV + kCapRadius * std::sin(angle));
        mesh.uvVertex[t] = gridVertex(kGridRows - 1, col);
        mesh.uvIsland[t] = kCapIsland;
    }

    const int faceCount = kGridCols + 2 * (kGridRows - 1) * kGridCols + (kGridCols - 2);
    mesh.faces.resize(3, faceCount);
    mesh.uvFaces.resize(3, faceCount);
    FaceSink sink{mesh};

    // Crown fan around the pole.
    for (int col = 0; col < kGridCols; ++col)
        sink.add(0, gridVertex(0, col), gridVertex(0, col + 1), 0, sheetUv(0, col),
                 sheetUv(0, col + 1));
    // Quads between consecutive rings; rows go down and columns go east, so
    // (down, then east) is counter-clockwise seen from outside.
    for (int row = 0; row + 1 < kGridRows; ++row) {
        for (int col = 0; col < kGridCols; ++col) {
            const int v00 = gridVertex(row, col), v01 = gridVertex(row, col + 1);
            const int v10 = gridVertex(row + 1, col), v11 = gridVertex(row + 1, col + 1);
            const int t00 = sheetUv(row, col), t01 = sheetUv(row, col + 1);
            const int t10 = sheetUv(row + 1, col), t11 = sheetUv(row + 1, col + 1);
            sink.add(v00, v10, v11, t00, t10, t11);
            sink.add(v00, v11, v01, t00, t11, t01);
        }
    }
    // Cap: zig-zag strip over the last ring taken in reverse column order.
    auto capCorner = [](int k) { return (kGridCols - k) % kGridCols; };
    int a = 0, b = kGridCols - 1;
    bool advanceFront = true;
    while (b - a > 1) {
        const int ca = capCorner(a), cb = capCorner(b);
        const int cm = advanceFront ? capCorner(a + 1) : capCorner(b - 1);
        const int last = kGridRows - 1;
        sink.add(gridVertex(last, ca), gridVertex(last, cm), gridVertex(last, cb),
                 kSheetUvCount + ca, kSheetUvCount + cm, kSheetUvCount + cb);
        if (advanceFront)
            ++a;
        else
            --b;
        advanceFront = !advanceFront;
    }
    return mesh;
}

}  // namespace meridian::demo::detail
