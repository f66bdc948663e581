#include "io/head_reader.h"

#include "io/input_error.h"
#include "io/strict_mesh.h"
#include "io/whole_file.h"

namespace kestrel::meridian {

std::vector<float> parseHeadPlanar(std::string_view bytes, const std::string& path) {
    const StrictMesh mesh = parseStrictMesh(bytes, path);
    const int64_t n = mesh.vertexCount();
    if (n != kStrictHeadVertexCount)
        throw InputError(InputFault::wrongCount, path,
                         std::to_string(n) + " vertices; a head in the template topology has " +
                             std::to_string(kStrictHeadVertexCount));
    std::vector<float> planar(static_cast<size_t>(3 * n));
    for (int64_t j = 0; j < n; ++j)
        for (int64_t r = 0; r < 3; ++r)
            planar[static_cast<size_t>(r * n + j)] = mesh.vertices[static_cast<size_t>(3 * j + r)];
    return planar;
}

std::vector<float> readHeadPlanar(const std::string& path) {
    return parseHeadPlanar(readFileBytes(path).view(), path);
}

}  // namespace kestrel::meridian
