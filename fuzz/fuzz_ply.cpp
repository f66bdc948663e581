// ASCII PLY meshes: the first byte is the header line count the caller
// gives, the rest is the file. Any bytes read or are refused, into tables of
// the documented shapes.
#include "fuzz_input.h"
#include "io/input_limits.h"
#include "io/mesh_readers.h"

using namespace kestrel::meridian;
using meridian::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const int headerLines = data[0] % 16;
    const std::string& path = meridian::fuzz::writeInput(data + 1, size - 1);
    const int counted = countPlyHeaderLines(path);
    require(counted >= 0 && counted <= 256);
    try {
        const PlyMeshData mesh = readPly(path, headerLines);
        require(mesh.vertices.rows() == 3 && mesh.extra.rows() == 3 && mesh.faces.rows() == 3);
        require(mesh.extra.cols() == mesh.vertices.cols());
        require(mesh.vertices.cols() + mesh.faces.cols() <= 2 * static_cast<Eigen::Index>(size));
    } catch (const InputRefused&) {
    }
    return 0;
}
