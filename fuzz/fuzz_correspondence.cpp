// Correspondence and weight files: any bytes load or are refused; a loaded
// record is consistent, and once its sources are checked against a mesh it
// maps that mesh without reading outside it.
#include <Eigen/Core>

#include "fuzz_input.h"
#include "io/correspondence.h"
#include "io/input_limits.h"

using namespace kestrel::meridian;
using meridian::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& path = meridian::fuzz::writeInput(data, size);
    Correspondence record;
    Error error;
    try {
        require(loadCorrespondence(record, path, error));
    } catch (const InputRefused&) {
        return 0;
    }
    const size_t n = record.size();
    require(n <= size);
    if (record.isPairForm()) {
        require(record.weightedSecond.empty() && record.triangles.empty());
    } else {
        require(record.pairSources.empty() && record.weightedSecond.size() == n);
        require(record.triangles.size() == 3 * n && record.weights.size() == 3 * n);
    }

    constexpr Eigen::Index kSourceVertices = 16;
    BadSourceIndex bad{};
    if (!firstSourceOutOfRange(record, kSourceVertices, bad)) {
        const Eigen::Matrix3Xd source = Eigen::Matrix3Xd::Random(3, kSourceVertices);
        require(applyCorrespondence(record, source).cols() == static_cast<Eigen::Index>(n));
    } else {
        require(bad.entry < n && (bad.index < 0 || bad.index >= kSourceVertices));
    }

    require(loadWeightFile(record, path));
    require(record.vertexWeights.size() <= size);
    return 0;
}
