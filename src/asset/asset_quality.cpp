#include "asset_quality.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace meridian::exporter {

namespace {

size_t nonFinite(const Eigen::Matrix3Xf& values) {
    return static_cast<size_t>(std::count_if(values.data(), values.data() + values.size(),
                                             [](float v) { return !std::isfinite(v); }));
}

}  // namespace

AssetQuality measureAsset(const HeadAsset& asset) {
    AssetQuality quality;
    constexpr double kInf = std::numeric_limits<double>::infinity();
    Eigen::Vector3d low = Eigen::Vector3d::Constant(kInf), high = Eigen::Vector3d::Constant(-kInf);
    const auto measure = [&](const MeshNode& node, const Eigen::Vector3d& offset) {
        quality.nonFinitePositions += nonFinite(node.positions);
        quality.nonFiniteNormals += nonFinite(node.normals);
        for (const MorphTarget& target : node.targets) {
            quality.nonFinitePositions += nonFinite(target.positionOffsets);
            quality.nonFiniteNormals += nonFinite(target.normalOffsets);
        }
        for (Eigen::Index v = 0; v < node.positions.cols(); ++v) {
            const Eigen::Vector3d p = node.positions.col(v).cast<double>() + offset;
            if (!p.allFinite()) continue;
            low = low.cwiseMin(p);
            high = high.cwiseMax(p);
        }
    };
    measure(asset.head, asset.head.translation);
    for (const MeshNode& part : asset.parts)
        measure(part, asset.head.translation + part.translation);
    if (low.allFinite() && high.allFinite()) {
        quality.boundsMin = low;
        quality.boundsMax = high;
    }
    const size_t regions =
        std::min(asset.head.targets.size(), quality.regionMaxDisplacement.size());
    for (size_t r = 0; r < regions; ++r) {
        const Eigen::Matrix3Xf& offsets = asset.head.targets[r].positionOffsets;
        quality.regionMaxDisplacement[r] =
            offsets.cols() == 0 ? 0.0 : offsets.cast<double>().colwise().norm().maxCoeff();
    }
    return quality;
}

}  // namespace meridian::exporter
