#include "gltf_asset.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <ostream>
#include <streambuf>

namespace meridian::exporter {

namespace {

/// Appends arrays to the model's one buffer, each with its own view and
/// accessor.
class BufferWriter {
  public:
    explicit BufferWriter(tinygltf::Model& model) : model_(model) {
        if (model_.buffers.empty()) model_.buffers.emplace_back();
    }

    /// Floats, `width` per element (column after column of a 2 or 3 by #V
    /// matrix); with `bounds`, the accessor carries their min and max.
    template <int Rows>
    int floats(const Eigen::Matrix<float, Rows, Eigen::Dynamic>& values, bool bounds) {
        const int accessor =
            add(values.data(), values.size() * sizeof(float), TINYGLTF_COMPONENT_TYPE_FLOAT,
                Rows == 2 ? TINYGLTF_TYPE_VEC2 : TINYGLTF_TYPE_VEC3, values.cols(),
                TINYGLTF_TARGET_ARRAY_BUFFER);
        if (bounds && values.cols() > 0) {
            // One pass over the columns rather than two per row; each row
            // folds its values first to last with std::min / std::max, as a
            // row's minCoeff / maxCoeff do.
            std::array<float, Rows> low, high;
            for (int r = 0; r < Rows; ++r) low[r] = high[r] = values(r, 0);
            const float* column = values.data();
            for (Eigen::Index c = 1; c < values.cols(); ++c) {
                column += Rows;
                for (int r = 0; r < Rows; ++r) {
                    low[r] = std::min(low[r], column[r]);
                    high[r] = std::max(high[r], column[r]);
                }
            }
            tinygltf::Accessor& a = model_.accessors[static_cast<size_t>(accessor)];
            for (int r = 0; r < Rows; ++r) {
                a.minValues.push_back(low[r]);
                a.maxValues.push_back(high[r]);
            }
        }
        return accessor;
    }

    /// Triangle corners as unsigned 32-bit indices.
    int indices(const Eigen::Matrix3Xi& faces) {
        const Eigen::Matrix<uint32_t, 3, Eigen::Dynamic> corners = faces.cast<uint32_t>();
        return add(corners.data(), corners.size() * sizeof(uint32_t),
                   TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT, TINYGLTF_TYPE_SCALAR, corners.size(),
                   TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
    }

  private:
    int add(const void* data, size_t bytes, int componentType, int type, Eigen::Index count,
            int target) {
        std::vector<unsigned char>& buffer = model_.buffers[0].data;
        // Every component here is 4 bytes wide, so views stay aligned.
        buffer.resize((buffer.size() + 3) / 4 * 4);
        tinygltf::BufferView view;
        view.buffer = 0;
        view.byteOffset = buffer.size();
        view.byteLength = bytes;
        view.target = target;
        // Appended, not resized and then copied over: the buffer's space is
        // reserved up front, and zeroing it first would write it twice. An
        // empty array's data may be null, which must never be read.
        if (bytes > 0) {
            const auto* first = static_cast<const unsigned char*>(data);
            buffer.insert(buffer.end(), first, first + bytes);
        }
        model_.bufferViews.push_back(view);

        tinygltf::Accessor accessor;
        accessor.bufferView = static_cast<int>(model_.bufferViews.size()) - 1;
        accessor.componentType = componentType;
        accessor.type = type;
        accessor.count = static_cast<size_t>(count);
        model_.accessors.push_back(accessor);
        return static_cast<int>(model_.accessors.size()) - 1;
    }

    tinygltf::Model& model_;
};

int materialFor(const Surface& surface, tinygltf::Model& model,
                std::map<std::string, int>& materials) {
    const auto found = materials.find(surface.name);
    if (found != materials.end()) return found->second;
    tinygltf::Material material;
    material.name = surface.name;
    material.pbrMetallicRoughness.baseColorFactor.assign(surface.baseColour.data(),
                                                         surface.baseColour.data() + 4);
    material.pbrMetallicRoughness.metallicFactor = 0.0;
    material.pbrMetallicRoughness.roughnessFactor = surface.roughness;
    material.doubleSided = surface.doubleSided;
    model.materials.push_back(material);
    return materials[surface.name] = static_cast<int>(model.materials.size()) - 1;
}

int addMeshNode(const MeshNode& part, tinygltf::Model& model, BufferWriter& writer,
                std::map<std::string, int>& materials) {
    tinygltf::Primitive primitive;
    primitive.mode = TINYGLTF_MODE_TRIANGLES;
    primitive.attributes["POSITION"] = writer.floats(part.positions, true);
    primitive.attributes["NORMAL"] = writer.floats(part.normals, false);
    if (part.uvs.cols() > 0) primitive.attributes["TEXCOORD_0"] = writer.floats(part.uvs, false);
    primitive.indices = writer.indices(part.faces);
    primitive.material = materialFor(part.surface, model, materials);

    tinygltf::Mesh mesh;
    mesh.name = part.name;
    tinygltf::Value::Array targetNames;
    for (const MorphTarget& target : part.targets) {
        primitive.targets.push_back({{"POSITION", writer.floats(target.positionOffsets, true)},
                                     {"NORMAL", writer.floats(target.normalOffsets, false)}});
        targetNames.emplace_back(target.name);
        mesh.weights.push_back(0.0);
    }
    if (!targetNames.empty())
        mesh.extras = tinygltf::Value(
            tinygltf::Value::Object{{"targetNames", tinygltf::Value(std::move(targetNames))}});
    mesh.primitives.push_back(primitive);
    model.meshes.push_back(mesh);

    tinygltf::Node node;
    node.name = part.name;
    node.mesh = static_cast<int>(model.meshes.size()) - 1;
    if (!part.translation.isZero())
        node.translation.assign(part.translation.data(), part.translation.data() + 3);
    node.extras = part.extras;
    model.nodes.push_back(node);
    return static_cast<int>(model.nodes.size()) - 1;
}

}  // namespace

tinygltf::Model buildGltfModel(const HeadAsset& asset) {
    tinygltf::Model model;
    model.asset.version = "2.0";
    model.asset.generator = "meridian export";
    model.asset.extras = asset.extras;
    BufferWriter writer(model);
    // The buffer's final size, so it is allocated once rather than grown
    // (and copied) array by array; every array is whole 4-byte components.
    size_t bytes = 0;
    const auto count = [&](const MeshNode& part) {
        bytes += sizeof(float) *
                 static_cast<size_t>(part.positions.size() + part.normals.size() + part.uvs.size());
        bytes += sizeof(uint32_t) * static_cast<size_t>(part.faces.size());
        for (const MorphTarget& target : part.targets)
            bytes += sizeof(float) * static_cast<size_t>(target.positionOffsets.size() +
                                                         target.normalOffsets.size());
    };
    count(asset.head);
    for (const MeshNode& part : asset.parts) count(part);
    model.buffers[0].data.reserve(bytes);
    std::map<std::string, int> materials;

    const int head = addMeshNode(asset.head, model, writer, materials);
    for (const MeshNode& part : asset.parts) {
        const int child = addMeshNode(part, model, writer, materials);
        model.nodes[static_cast<size_t>(head)].children.push_back(child);
    }
    tinygltf::Scene scene;
    scene.name = asset.head.name;
    scene.nodes.push_back(head);
    model.scenes.push_back(scene);
    model.defaultScene = 0;
    return model;
}

bool writeGlb(const tinygltf::Model& model, std::ostream& out) {
    tinygltf::TinyGLTF writer;
    return writer.WriteGltfSceneToStream(&model, out, false, true) && out.good();
}

namespace {

/// A stream buffer that appends everything written to one string.
class StringSink : public std::streambuf {
  public:
    explicit StringSink(std::string& bytes) : bytes_(bytes) {}

  protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        bytes_.append(data, static_cast<size_t>(count));
        return count;
    }
    int_type overflow(int_type c) override {
        if (!traits_type::eq_int_type(c, traits_type::eof()))
            bytes_.push_back(traits_type::to_char_type(c));
        return traits_type::not_eof(c);
    }

  private:
    std::string& bytes_;
};

}  // namespace

namespace {

void appendWord(std::string& bytes, uint32_t word) {
    // Little-endian, as the container stores every length.
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>((word >> shift) & 0xffu));
}

/// The JSON of `model` whose buffer 0 is empty, with that buffer's length
/// set to `binaryBytes`; empty when the writer fails or the JSON is not as
/// expected.
std::string jsonFor(const tinygltf::Model& model, size_t binaryBytes) {
    std::string container;
    {
        StringSink sink(container);
        std::ostream out(&sink);
        if (!writeGlb(model, out) || container.size() < 20) return {};
    }
    // Without a buffer to carry the writer leaves out the BIN chunk: the
    // JSON chunk runs to the end, padded with spaces.
    std::string json = container.substr(20);
    while (!json.empty() && json.back() == ' ') json.pop_back();
    // A key is never inside a string (its quotes would be escaped), so the
    // empty buffer's entry appears exactly once.
    const std::string emptyEntry = "\"buffers\":[{\"byteLength\":0}]";
    const size_t at = json.find(emptyEntry);
    if (at == std::string::npos || json.find(emptyEntry, at + 1) != std::string::npos) return {};
    json.replace(at, emptyEntry.size(),
                 "\"buffers\":[{\"byteLength\":" + std::to_string(binaryBytes) + "}]");
    return json;
}

}  // namespace

std::string glbBytes(tinygltf::Model model) {
    // The writer would copy the buffer into a vector of its own and then
    // into the stream. Instead it writes only the JSON (buffer 0 moved out,
    // its length patched in) and the container is assembled here around
    // one copy of the buffer.
    const bool oneBinaryBuffer = model.buffers.size() == 1 && model.buffers[0].uri.empty() &&
                                 model.buffers[0].name.empty() &&
                                 model.buffers[0].extras.Type() == tinygltf::NULL_TYPE &&
                                 model.buffers[0].data.size() <= 0xffffffffu - 4;
    if (!oneBinaryBuffer) {
        std::string bytes;
        StringSink sink(bytes);
        std::ostream out(&sink);
        return writeGlb(model, out) ? bytes : std::string();
    }
    const std::vector<unsigned char> binary = std::move(model.buffers[0].data);
    model.buffers[0].data.clear();
    const std::string json = jsonFor(model, binary.size());
    if (json.empty()) return {};

    const auto padded = [](size_t size) { return (size + 3) / 4 * 4; };
    const size_t jsonChunk = padded(json.size());
    const size_t binaryChunk = padded(binary.size());
    const size_t total = 12 + 8 + jsonChunk + (binary.empty() ? 0 : 8 + binaryChunk);
    if (total > 0xffffffffu) return {};
    std::string bytes;
    bytes.reserve(total);
    bytes.append("glTF");
    appendWord(bytes, 2);
    appendWord(bytes, static_cast<uint32_t>(total));
    appendWord(bytes, static_cast<uint32_t>(jsonChunk));
    appendWord(bytes, 0x4E4F534Au);  // "JSON"
    bytes.append(json);
    bytes.append(jsonChunk - json.size(), ' ');
    if (!binary.empty()) {
        appendWord(bytes, static_cast<uint32_t>(binaryChunk));
        appendWord(bytes, 0x004E4942u);  // "BIN\0"
        bytes.append(reinterpret_cast<const char*>(binary.data()), binary.size());
        bytes.append(binaryChunk - binary.size(), '\0');
    }
    return bytes;
}

}  // namespace meridian::exporter
