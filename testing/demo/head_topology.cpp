#include "demo/head_topology.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <tuple>

#include "demo/demo_model.h"
#include "demo/float_round.h"
#include "demo/grid_mesh.h"

namespace meridian::demo {

namespace {

/// Spreads the split triangles evenly over the quad rows of the grid
/// (after the crown fan, before the neck cap).
std::vector<int> chooseSplitTriangles() {
    const int first = detail::kGridCols;
    const int quadTriangles = 2 * (detail::kGridRows - 1) * detail::kGridCols;
    std::vector<int> faces(kSplitTriangleCount);
    for (int k = 0; k < kSplitTriangleCount; ++k)
        faces[k] =
            first + static_cast<int>((2LL * k + 1) * quadTriangles / (2 * kSplitTriangleCount));
    return faces;
}

DemoTopology buildTopology() {
    const DemoHead& head = demoHead();
    const detail::GridMesh grid = detail::buildGridMesh();
    const int templateCount = kTemplateVertexCount;
    const int faceCount = static_cast<int>(head.faces.cols());
    const int uvCount = static_cast<int>(head.uvs.cols());
    DemoTopology t;

    // Each texture coordinate belongs to exactly one vertex.
    std::vector<int> uvVertex(uvCount, -1);
    for (int f = 0; f < faceCount; ++f)
        for (int c = 0; c < 3; ++c) uvVertex[head.uvFaces(c, f)] = head.faces(c, f);

    t.splitTriangles = chooseSplitTriangles();
    std::vector<int> splitIndex(faceCount, -1);
    for (int k = 0; k < kSplitTriangleCount; ++k) splitIndex[t.splitTriangles[k]] = k;

    t.blendCorners.resize(3, kHeadVertexCount);
    t.blendWeights.resize(3, kHeadVertexCount);
    t.blendFace.assign(kHeadVertexCount, -1);
    for (int f = faceCount - 1; f >= 0; --f) {  // leaves each vertex with its first face
        for (int c = 0; c < 3; ++c) {
            const int v = head.faces(c, f);
            t.blendFace[v] = f;
            t.blendCorners.col(v) << v, head.faces((c + 1) % 3, f), head.faces((c + 2) % 3, f);
            t.blendWeights.col(v) << 1.0, 0.0, 0.0;
        }
    }
    for (int k = 0; k < kSplitTriangleCount; ++k) {
        const int v = templateCount + k;
        t.blendFace[v] = t.splitTriangles[k];
        t.blendCorners.col(v) = head.faces.col(t.splitTriangles[k]);
        t.blendWeights.col(v).setConstant(1.0 / 3.0);
    }

    // Engine vertices before ordering: template uv ids, then the centroids.
    const int pairCount = uvCount + kSplitTriangleCount;
    if (pairCount != kEngineVertexCount)
        throw std::logic_error("demo head: engine vertex count does not add up");
    std::vector<int> pairHead(pairCount);
    Eigen::Matrix2Xd pairUv(2, pairCount);
    std::vector<int> pairIsland(pairCount);
    for (int uv = 0; uv < uvCount; ++uv) {
        pairHead[uv] = uvVertex[uv];
        pairUv.col(uv) = head.uvs.col(uv);
        pairIsland[uv] = grid.uvIsland[uv];
    }
    for (int k = 0; k < kSplitTriangleCount; ++k) {
        const int f = t.splitTriangles[k];
        const Eigen::Vector2d centroid =
            (head.uvs.col(head.uvFaces(0, f)) + head.uvs.col(head.uvFaces(1, f)) +
             head.uvs.col(head.uvFaces(2, f))) /
            3.0;
        pairHead[uvCount + k] = templateCount + k;
        pairUv.col(uvCount + k) = detail::roundToFloat(centroid);
        pairIsland[uvCount + k] = grid.uvIsland[head.uvFaces(0, f)];
    }

    // Engine order: island by island, texture rows top to bottom, left to right.
    std::vector<int> order(pairCount);
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](int a, int b) {
        return std::make_tuple(pairIsland[a], -pairUv(1, a), pairUv(0, a), a) <
               std::make_tuple(pairIsland[b], -pairUv(1, b), pairUv(0, b), b);
    });
    std::vector<int> engineOfPair(pairCount);
    t.engineToHead.resize(pairCount);
    t.engineUvs.resize(2, pairCount);
    for (int e = 0; e < pairCount; ++e) {
        engineOfPair[order[e]] = e;
        t.engineToHead[e] = pairHead[order[e]];
        t.engineUvs.col(e) = pairUv.col(order[e]);
    }

    // Head and engine faces: a split triangle becomes three around its centroid.
    const int headFaceCount = faceCount + 2 * kSplitTriangleCount;
    t.headFaces.resize(3, headFaceCount);
    t.engineFaces.resize(3, headFaceCount);
    int out = 0;
    for (int f = 0; f < faceCount; ++f) {
        int corner[3], engine[3];
        for (int c = 0; c < 3; ++c) {
            corner[c] = head.faces(c, f);
            engine[c] = engineOfPair[head.uvFaces(c, f)];
        }
        if (splitIndex[f] < 0) {
            t.headFaces.col(out) << corner[0], corner[1], corner[2];
            t.engineFaces.col(out++) << engine[0], engine[1], engine[2];
            continue;
        }
        const int centre = templateCount + splitIndex[f];
        const int centreEngine = engineOfPair[uvCount + splitIndex[f]];
        for (int c = 0; c < 3; ++c) {
            t.headFaces.col(out) << corner[c], corner[(c + 1) % 3], centre;
            t.engineFaces.col(out++) << engine[c], engine[(c + 1) % 3], centreEngine;
        }
    }

    // Split template: cap island first, then the sheet, each in uv order.
    std::vector<int> splitOrder(uvCount);
    std::iota(splitOrder.begin(), splitOrder.end(), 0);
    std::stable_sort(splitOrder.begin(), splitOrder.end(),
                     [&](int a, int b) { return grid.uvIsland[a] > grid.uvIsland[b]; });
    std::vector<int> splitOfUv(uvCount);
    t.splitTemplateToTemplate.resize(uvCount);
    t.splitTemplateUvs.resize(2, uvCount);
    t.templateToSplitTemplate.assign(templateCount, -1);
    for (int s = 0; s < uvCount; ++s) {
        const int uv = splitOrder[s];
        splitOfUv[uv] = s;
        t.splitTemplateToTemplate[s] = uvVertex[uv];
        t.splitTemplateUvs.col(s) = head.uvs.col(uv);
        if (t.templateToSplitTemplate[uvVertex[uv]] < 0)
            t.templateToSplitTemplate[uvVertex[uv]] = s;
    }
    t.splitTemplateFaces.resize(3, faceCount);
    for (int f = 0; f < faceCount; ++f)
        for (int c = 0; c < 3; ++c) t.splitTemplateFaces(c, f) = splitOfUv[head.uvFaces(c, f)];
    return t;
}

}  // namespace

const DemoTopology& demoTopology() {
    static const DemoTopology topology = buildTopology();
    return topology;
}

Eigen::Matrix3Xd templateToHead(const Eigen::Matrix3Xd& templateVertices) {
    const DemoTopology& t = demoTopology();
    Eigen::Matrix3Xd head(3, kHeadVertexCount);
    for (int k = 0; k < kHeadVertexCount; ++k) {
        head.col(k) = t.blendWeights(0, k) * templateVertices.col(t.blendCorners(0, k)) +
                      t.blendWeights(1, k) * templateVertices.col(t.blendCorners(1, k)) +
                      t.blendWeights(2, k) * templateVertices.col(t.blendCorners(2, k));
    }
    return head;
}

}  // namespace meridian::demo
