// The strict mesh reader of heads: the first byte picks the name the bytes
// are read under (".obj" or ".ply", which decides OBJ when the bytes are not
// a PLY), the rest is the file. Any bytes read into a well-formed mesh or
// are refused with an InputError naming the file; nothing else escapes.
#include <cmath>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "io/input_error.h"
#include "io/strict_mesh.h"

using namespace kestrel::meridian;
using meridian::fuzz::require;

namespace {

bool allFinite(const std::vector<float>& values) {
    for (float v : values)
        if (!std::isfinite(v)) return false;
    return true;
}

bool allBelow(const std::vector<int32_t>& indices, int64_t count) {
    for (int32_t i : indices)
        if (i < 0 || i >= count) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string path = data[0] & 1 ? "head.ply" : "head.obj";
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    try {
        const StrictMesh mesh = parseStrictMesh(bytes, path);
        require(mesh.vertices.size() % 3 == 0 && mesh.texcoords.size() % 2 == 0);
        require(mesh.faces.size() % 3 == 0);
        require(allFinite(mesh.vertices) && allFinite(mesh.texcoords));
        require(allBelow(mesh.faces, mesh.vertexCount()));
        require(mesh.textureFaces.empty() || mesh.textureFaces.size() == mesh.faces.size());
        require(allBelow(mesh.textureFaces, mesh.texcoordCount()));
        // Every element takes at least one byte of the file.
        require(mesh.vertexCount() + mesh.faceCount() <= static_cast<int64_t>(size));
    } catch (const InputError& e) {
        require(e.path() == path);
        require(std::string_view(e.what()).substr(0, path.size() + 2) == path + ": ");
    }
    return 0;
}
