// The topologies the demo model directory ties together:
//  - template: the 20481-vertex demo head (demoHead());
//  - head: the template plus vertices at the centroids of some template
//    triangles, each of which is split in three;
//  - engine: the game engine's order, one vertex per (head vertex, uv) pair,
//    so vertices on texture seams appear more than once;
//  - split template: the template with one vertex per (vertex, uv) pair, in
//    an order of its own (cap island first), for the general tangent frames.
#pragma once

#include <vector>

#include <Eigen/Core>

#include "common/template_head.h"

namespace meridian::demo {

/// Template triangles split at their centroid in the head topology.
constexpr int kSplitTriangleCount = 95;
constexpr int kHeadVertexCount = kestrel::meridian::kTemplateHeadVertexCount + kSplitTriangleCount;

struct DemoTopology {
    // Head vertex k = sum_c blendWeights(c, k) * template vertex blendCorners(c, k).
    // Template vertices (k < 20481) copy themselves: weights (1, 0, 0), with
    // the corners of a triangle they belong to, k first.
    Eigen::Matrix3Xi blendCorners;    ///< 3 by #H template vertex ids
    Eigen::Matrix3Xd blendWeights;    ///< 3 by #H barycentric weights
    std::vector<int> blendFace;       ///< #H: the template face the corners come from
    std::vector<int> splitTriangles;  ///< #95 template faces split in the head topology

    Eigen::Matrix3Xi headFaces;     ///< 3 by #HF head vertex ids, counter-clockwise from outside
    Eigen::Matrix3Xi engineFaces;   ///< 3 by #HF engine vertex ids, same faces as headFaces
    std::vector<int> engineToHead;  ///< 20864: head vertex of each engine vertex
    Eigen::Matrix2Xd engineUvs;     ///< 2 by 20864 texture coordinates

    std::vector<int> splitTemplateToTemplate;  ///< #S: template vertex each one copies
    std::vector<int> templateToSplitTemplate;  ///< 20481: a split-template copy of each
    Eigen::Matrix3Xi splitTemplateFaces;       ///< 3 by #F vertex (= uv) ids
    Eigen::Matrix2Xd splitTemplateUvs;         ///< 2 by #S texture coordinates
};

/// Built once from demoHead().
const DemoTopology& demoTopology();

/// Carries template vertices (3 by 20481) onto the head topology (3 by #H).
Eigen::Matrix3Xd templateToHead(const Eigen::Matrix3Xd& templateVertices);

}  // namespace meridian::demo
