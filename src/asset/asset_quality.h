// The figures a reviewer checks on a head asset before it ships.
#pragma once

#include <array>
#include <cstddef>

#include <Eigen/Core>

#include "blendshape/backend_files.h"
#include "gltf_asset.h"

namespace meridian::exporter {

struct AssetQuality {
    /// The eyeball aligner's whole-mesh scale, after the 0.9..1.1 clamp, and
    /// whether the clamp changed it (1 and false without eyes).
    double eyeScale = 1.0;
    bool eyeScaleClamped = false;
    /// Per blendshape region (in shape order), the largest distance a head
    /// vertex moves, in metres (0 without blendshapes).
    std::array<double, kestrel::meridian::blendshape::kRegionCount> regionMaxDisplacement{};
    /// Bounding box of every vertex of the asset, in glTF's frame (metres).
    Eigen::Vector3d boundsMin = Eigen::Vector3d::Zero();
    Eigen::Vector3d boundsMax = Eigen::Vector3d::Zero();
    /// Non-finite coordinates among positions (morph offsets included) and
    /// among normals.
    size_t nonFinitePositions = 0;
    size_t nonFiniteNormals = 0;
};

/// The geometric figures of `asset` (the eye scale is left to the caller).
AssetQuality measureAsset(const HeadAsset& asset);

}  // namespace meridian::exporter
