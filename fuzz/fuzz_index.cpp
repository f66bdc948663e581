// Index lists: the shared loader and the tangent-frame engine's own loader
// read the same integers from any bytes, and an index list checked against
// a mesh gathers from it without reading outside it.
#include <vector>

#include <Eigen/Core>

#include "fuzz_input.h"
#include "io/correspondence.h"
#include "tbn/tbn_engine_general.h"

using namespace kestrel::meridian;
using meridian::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& path = meridian::fuzz::writeInput(data, size);
    std::vector<int32_t> shared;
    std::vector<int> own;
    Error error;
    require(loadIndexList(shared, path, error));
    require(readTangentFrameIndexFile(path, own, error));
    require(std::vector<int32_t>(own.begin(), own.end()) == shared);

    constexpr int32_t kSourceVertices = 16;
    std::vector<int32_t> inRange;
    for (int32_t index : shared)
        if (index >= 0 && index < kSourceVertices) inRange.push_back(index);
    const Eigen::Matrix3Xd source = Eigen::Matrix3Xd::Random(3, kSourceVertices);
    const Eigen::Matrix3Xd gathered = applyIndexList(inRange, source);
    for (size_t k = 0; k < inRange.size(); ++k)
        require(gathered.col(static_cast<Eigen::Index>(k)) == source.col(inRange[k]));
    return 0;
}
