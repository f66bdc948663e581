#include "export_preview.h"

#include <cmath>
#include <cstring>

#include <tiny_gltf.h>
#include <Eigen/Geometry>

#include "cli_common.h"
#include "mesh_render.h"

namespace meridian::cli {

namespace {

constexpr int kPanelHeight = 400;

/// Bytes of element `i` of an accessor, after its view's stride.
const unsigned char* element(const tinygltf::Model& model, const tinygltf::Accessor& accessor,
                             size_t i) {
    const tinygltf::BufferView& view =
        model.bufferViews.at(static_cast<size_t>(accessor.bufferView));
    const int stride = accessor.ByteStride(view);
    const std::vector<unsigned char>& data =
        model.buffers.at(static_cast<size_t>(view.buffer)).data;
    const size_t at = view.byteOffset + accessor.byteOffset + i * static_cast<size_t>(stride);
    if (stride <= 0 || at + static_cast<size_t>(stride) > data.size())
        throw CommandError("the asset's accessor data lies outside its buffer");
    return data.data() + at;
}

Eigen::Matrix3Xd readVectors(const tinygltf::Model& model, int index) {
    const tinygltf::Accessor& accessor = model.accessors.at(static_cast<size_t>(index));
    if (accessor.componentType != TINYGLTF_COMPONENT_TYPE_FLOAT ||
        accessor.type != TINYGLTF_TYPE_VEC3)
        throw CommandError("the asset has a vertex attribute that is not 3 floats");
    Eigen::Matrix3Xd values(3, static_cast<Eigen::Index>(accessor.count));
    for (size_t i = 0; i < accessor.count; ++i) {
        float v[3];
        std::memcpy(v, element(model, accessor, i), sizeof v);
        values.col(static_cast<Eigen::Index>(i)) << v[0], v[1], v[2];
    }
    return values;
}

Eigen::Matrix3Xi readTriangles(const tinygltf::Model& model, int index) {
    const tinygltf::Accessor& accessor = model.accessors.at(static_cast<size_t>(index));
    Eigen::Matrix3Xi faces(3, static_cast<Eigen::Index>(accessor.count / 3));
    for (size_t i = 0; i < 3 * static_cast<size_t>(faces.cols()); ++i) {
        const unsigned char* p = element(model, accessor, i);
        uint32_t value = 0;
        if (accessor.componentType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT) {
            std::memcpy(&value, p, 4);
        } else if (accessor.componentType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT) {
            uint16_t v16;
            std::memcpy(&v16, p, 2);
            value = v16;
        } else {
            value = *p;
        }
        faces(static_cast<Eigen::Index>(i % 3), static_cast<Eigen::Index>(i / 3)) =
            static_cast<int>(value);
    }
    return faces;
}

Eigen::Affine3d localTransform(const tinygltf::Node& node) {
    Eigen::Affine3d t = Eigen::Affine3d::Identity();
    if (node.matrix.size() == 16) {
        t.matrix() = Eigen::Map<const Eigen::Matrix4d>(node.matrix.data());
        return t;
    }
    if (node.translation.size() == 3)
        t.translate(Eigen::Vector3d(node.translation[0], node.translation[1], node.translation[2]));
    if (node.rotation.size() == 4)
        t.rotate(Eigen::Quaterniond(node.rotation[3], node.rotation[0], node.rotation[1],
                                    node.rotation[2]));
    if (node.scale.size() == 3)
        t.scale(Eigen::Vector3d(node.scale[0], node.scale[1], node.scale[2]));
    return t;
}

/// Display colour of a material: its base colour, linear to sRGB-like.
Eigen::Vector3d displayColour(const tinygltf::Model& model, int material) {
    if (material < 0) return {0.8, 0.8, 0.8};
    const std::vector<double>& c =
        model.materials.at(static_cast<size_t>(material)).pbrMetallicRoughness.baseColorFactor;
    return {std::pow(c[0], 1 / 2.2), std::pow(c[1], 1 / 2.2), std::pow(c[2], 1 / 2.2)};
}

void collectLayers(const tinygltf::Model& model, int nodeIndex, const Eigen::Affine3d& parent,
                   std::vector<PreviewLayer>& layers) {
    const tinygltf::Node& node = model.nodes.at(static_cast<size_t>(nodeIndex));
    const Eigen::Affine3d world = parent * localTransform(node);
    if (node.mesh >= 0)
        for (const tinygltf::Primitive& primitive :
             model.meshes.at(static_cast<size_t>(node.mesh)).primitives) {
            const auto position = primitive.attributes.find("POSITION");
            if (position == primitive.attributes.end() || primitive.indices < 0) continue;
            PreviewLayer layer;
            layer.vertices = world * readVectors(model, position->second);
            layer.faces = readTriangles(model, primitive.indices);
            if (layer.faces.size() > 0 &&
                (layer.faces.minCoeff() < 0 || layer.faces.maxCoeff() >= layer.vertices.cols()))
                throw CommandError("the asset has a triangle outside its vertices");
            layer.colour = displayColour(model, primitive.material);
            const auto normal = primitive.attributes.find("NORMAL");
            if (normal != primitive.attributes.end()) {
                layer.normals =
                    world.linear().inverse().transpose() * readVectors(model, normal->second);
                layer.normals.colwise().normalize();
                if (layer.normals.cols() != layer.vertices.cols()) layer.normals.resize(3, 0);
            }
            layers.push_back(std::move(layer));
        }
    for (int child : node.children) collectLayers(model, child, world, layers);
}

View viewFrom(double degrees, const char* label) {
    // Turned about +Y from the front (+Z) toward the asset's left (+X).
    const double a = degrees * M_PI / 180.0;
    const Eigen::Vector3d up = Eigen::Vector3d::UnitY();
    const Eigen::Vector3d toward(std::sin(a), 0.0, std::cos(a));
    return {up.cross(toward), up, toward, label};
}

}  // namespace

void writeExportPreview(std::string_view glb, const std::string& glbPath,
                        const std::string& pngPath, kestrel::meridian::AtomicFileSet& outputs) {
    tinygltf::Model model;
    tinygltf::TinyGLTF reader;
    std::string error, warning;
    if (!reader.LoadBinaryFromMemory(&model, &error, &warning,
                                     reinterpret_cast<const unsigned char*>(glb.data()),
                                     static_cast<unsigned int>(glb.size())))
        throw CommandError("cannot read " + glbPath + ": " + error);
    const int scene = model.defaultScene >= 0 ? model.defaultScene : 0;
    std::vector<PreviewLayer> layers;
    if (!model.scenes.empty())
        for (int root : model.scenes.at(static_cast<size_t>(scene)).nodes)
            collectLayers(model, root, Eigen::Affine3d::Identity(), layers);
    if (layers.empty()) throw CommandError(glbPath + " has no triangle mesh to draw");

    // Eyes sit in their sockets: a small bias keeps them in front of the lid.
    const Extent head = extentOf(viewFrom(0, ""), layers, 0, 1, 0.0);
    for (size_t k = 1; k < layers.size(); ++k)
        layers[k].depthBias = 0.004 * (head.top - head.bottom);

    std::vector<cv::Mat> panels;
    for (const View& view :
         {viewFrom(0, "front"), viewFrom(40, "three quarters"), viewFrom(-90, "side")})
        panels.push_back(
            drawView(view, layers, extentOf(view, layers, 0, layers.size(), 0.02), kPanelHeight));
    writePanels(pngPath, panels, &outputs);
}

}  // namespace meridian::cli
