// Helpers of the export tests: a binary glTF read back, its nodes and
// accessors, and the documented model-to-glTF transform written out.
#pragma once

#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <tiny_gltf.h>
#include <Eigen/Core>

namespace meridian::testing {

/// The .glb at `path`, read back; fails the test when it cannot be read.
inline tinygltf::Model readGlb(const std::string& path) {
    tinygltf::Model model;
    tinygltf::TinyGLTF reader;
    std::string error, warning;
    EXPECT_TRUE(reader.LoadBinaryFromFile(&model, &error, &warning, path)) << error;
    EXPECT_EQ(warning, "");
    return model;
}

/// A float accessor with `Rows` components, as Rows by count (tightly packed views only).
template <int Rows = 3>
Eigen::Matrix<float, Rows, Eigen::Dynamic> floats(const tinygltf::Model& model, int accessor) {
    const tinygltf::Accessor& a = model.accessors.at(static_cast<size_t>(accessor));
    const tinygltf::BufferView& view = model.bufferViews.at(static_cast<size_t>(a.bufferView));
    Eigen::Matrix<float, Rows, Eigen::Dynamic> values(Rows, static_cast<Eigen::Index>(a.count));
    EXPECT_EQ(a.componentType, TINYGLTF_COMPONENT_TYPE_FLOAT);
    EXPECT_EQ(view.byteLength, values.size() * sizeof(float));
    std::memcpy(values.data(), model.buffers[0].data.data() + view.byteOffset + a.byteOffset,
                values.size() * sizeof(float));
    return values;
}

/// The node called `name`; fails the test (and gives the first node) without one.
inline const tinygltf::Node& nodeNamed(const tinygltf::Model& model, const std::string& name) {
    for (const tinygltf::Node& node : model.nodes)
        if (node.name == name) return node;
    ADD_FAILURE() << "no node " << name;
    return model.nodes.at(0);
}

inline const tinygltf::Primitive& primitiveOf(const tinygltf::Model& model,
                                              const tinygltf::Node& node) {
    return model.meshes.at(static_cast<size_t>(node.mesh)).primitives.at(0);
}

/// Model point -> glTF: X = s x, Y = s z, Z = -s y (s metres per unit).
inline Eigen::Vector3d toGltf(const Eigen::Vector3d& p, double s) {
    return {s * p.x(), s * p.z(), -s * p.y()};
}

}  // namespace meridian::testing
