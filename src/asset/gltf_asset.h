// A head asset as glTF 2.0: the head mesh with its morph targets and the
// eye meshes as children of the head's node, written as one binary file.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include <tiny_gltf.h>
#include <Eigen/Core>

namespace meridian::exporter {

/// A morph target: offsets from the mesh's own positions and normals.
struct MorphTarget {
    std::string name;
    Eigen::Matrix3Xf positionOffsets;  ///< 3 by #V
    Eigen::Matrix3Xf normalOffsets;    ///< 3 by #V (base normal + offset is unit length)
};

/// How a mesh looks: a plain metal-free material.
struct Surface {
    std::string name;
    Eigen::Vector4d baseColour{0.8, 0.8, 0.8, 1.0};  ///< linear RGBA
    double roughness = 0.6;
    bool doubleSided = false;
};

/// One node with its mesh. Everything is in glTF's frame and units.
struct MeshNode {
    std::string name;
    Eigen::Vector3d translation = Eigen::Vector3d::Zero();  ///< positions are relative to it
    Eigen::Matrix3Xf positions;                             ///< 3 by #V, metres
    Eigen::Matrix3Xf normals;                               ///< 3 by #V, unit length
    Eigen::Matrix2Xf uvs;                                   ///< 2 by #V, or 2 by 0 for none
    Eigen::Matrix3Xi faces;  ///< 3 by #F, 0-based, counter-clockwise seen from outside
    std::vector<MorphTarget> targets;
    Surface surface;
    tinygltf::Value extras;  ///< the node's extras; null for none
};

struct HeadAsset {
    MeshNode head;
    std::vector<MeshNode> parts;  ///< children of the head's node
    tinygltf::Value extras;       ///< the asset's extras; null for none
};

/// The glTF model of an asset: one scene whose root is the head's node, one
/// mesh per node (its targets named in the mesh's extras.targetNames, all
/// weights 0), one material per surface name, every array in one buffer
/// with a view of its own, and bounds on every POSITION accessor.
tinygltf::Model buildGltfModel(const HeadAsset& asset);

/// Writes `model` as binary glTF (one buffer, in the file's BIN chunk).
/// Returns false when the stream fails.
bool writeGlb(const tinygltf::Model& model, std::ostream& out);

/// `model` as binary glTF bytes, the same bytes writeGlb writes, with the
/// buffer copied once, into storage sized for it up front (the writer
/// copies a 4 MB asset twice). Takes the model by value so that a caller
/// handing over a temporary pays no copy; a caller passing a model it keeps
/// copies its buffer. Empty when the writer fails.
std::string glbBytes(tinygltf::Model model);

}  // namespace meridian::exporter
