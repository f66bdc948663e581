// OBJ meshes: any text parses or is refused, into tables of the documented
// shapes; the vertex-line reader takes the same bytes; and a parsed mesh
// given to the general tangent-frame engine either fails its checks or
// yields frames without reading outside its tables.
#include <algorithm>
#include <string_view>
#include <vector>

#include "fuzz_input.h"
#include "io/input_limits.h"
#include "io/mesh_readers.h"
#include "tbn/tbn_engine_general.h"

using namespace kestrel::meridian;
using meridian::fuzz::require;

namespace {

// A table is 0 by 0 or has its kind's row count.
bool shaped(const Eigen::MatrixXd& table, Eigen::Index rows) {
    return table.size() == 0 ? table.rows() == 0 || table.rows() == rows : table.rows() == rows;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    ObjMeshData mesh;
    try {
        mesh = parseObj(text);
    } catch (const InputRefused&) {
        return 0;
    }
    require(shaped(mesh.vertices, 3) && shaped(mesh.texcoords, 2));
    require(shaped(mesh.faces, 3) && shaped(mesh.textureFaces, 3));

    const std::string& path = meridian::fuzz::writeInput(data, size);
    require(readObjVertexLines(path).cols() <= static_cast<Eigen::Index>(size));

    // Template vertex i copies head vertex i; output vertex j takes the
    // frame of template vertex j.
    constexpr Eigen::Index kHead = TBNEngineGeneral::kHeadVertexCount;
    const Eigen::Index count = std::min<Eigen::Index>(mesh.vertices.cols(), kHead);
    std::vector<int> identity(static_cast<size_t>(count));
    for (int i = 0; i < static_cast<int>(count); ++i) identity[static_cast<size_t>(i)] = i;
    TBNEngineGeneral engine;
    const unsigned n = static_cast<unsigned>(count);
    Error error;
    if (!engine.load(mesh.vertices, mesh.texcoords, mesh.faces, mesh.textureFaces, "fuzz",
                     identity.data(), n, identity.data(), n, error))
        return 0;
    static const std::vector<float> head(3 * kHead, 0.5f);
    std::vector<float> frames(9 * static_cast<size_t>(engine.outputVertexCount()));
    engine.computeFrames(head.data(), frames.data());
    return 0;
}
