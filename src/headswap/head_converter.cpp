#include "headswap/head_converter.h"

#include <string>

#include "common/model_paths.h"

#include "headswap/blend_kernels.h"

namespace kestrel::meridian {

namespace {

// A swap must never read outside its source: report the first entry that
// would.
bool sourcesInRange(const Correspondence& record, int64_t sourceCount, const std::string& path,
                    Error& error) {
    BadSourceIndex bad{};
    if (!firstSourceOutOfRange(record, sourceCount, bad)) return true;
    error = {ErrorCode::indexOutOfRange, path,
             path + ": entry " + std::to_string(bad.entry) + " names source vertex " +
                 std::to_string(bad.index) + ", outside 0.." + std::to_string(sourceCount - 1)};
    return false;
}

}  // namespace

bool CHeadConverter::initialise(const std::string& modelDir, Error& error) {
    sources_.clear();
    weights_.clear();
    cornerRuns_.clear();
    const std::string templatePath =
        model_files::modelFilePath(modelDir, model_files::kTemplateToHead);
    if (!loadCorrespondence(templateToHead_, templatePath, error)) return false;
    const std::string enginePath = model_files::modelFilePath(modelDir, model_files::kHeadToEngine);
    if (!loadCorrespondence(headToEngine_, enginePath, error)) return false;
    if (!sourcesInRange(templateToHead_, kTemplateVertexCount, templatePath, error) ||
        !sourcesInRange(headToEngine_, static_cast<int64_t>(templateToHead_.size()), enginePath,
                        error))
        return false;
    composeSwapMap();
    return true;
}

void CHeadConverter::composeSwapMap() {
    if (!headToEngine_.isPairForm()) return;
    // The engine order copies head vertices, so each output vertex is
    // resampled straight from the face: the head entry it copies, looked up
    // once here instead of on every call.
    const std::vector<int32_t>& headVertex = headToEngine_.pairSources;
    const size_t count = headVertex.size();
    if (templateToHead_.isPairForm()) {
        sources_.resize(count);
        for (size_t j = 0; j < count; ++j)
            sources_[j] = templateToHead_.pairSources[static_cast<size_t>(headVertex[j])];
        return;
    }
    // Corner k of output j at k * count + j: each of the six lists is read
    // front to back, a vector of outputs at a time.
    sources_.resize(3 * count);
    weights_.resize(3 * count);
    for (size_t j = 0; j < count; ++j) {
        const auto entry = 3 * static_cast<size_t>(headVertex[j]);
        for (size_t k = 0; k < 3; ++k) {
            sources_[k * count + j] = templateToHead_.triangles[entry + k];
            weights_[k * count + j] = templateToHead_.weights[entry + k];
        }
    }
    const int32_t* const corners[3] = {sources_.data(), sources_.data() + count,
                                       sources_.data() + 2 * count};
    cornerRuns_ = headswap::blockRuns(corners, static_cast<ptrdiff_t>(count));
}

void CHeadConverter::swap(const Eigen::Ref<const PlanarVertices>& face,
                          Eigen::Ref<PlanarVertices> head, simd::Level level) const {
    const Eigen::Index count = engineVertexCount();
    if (!headToEngine_.isPairForm() || count == 0) {
        const Eigen::Matrix3Xd onHead = applyCorrespondence(templateToHead_, face.cast<double>());
        head = applyCorrespondence(headToEngine_, onHead).cast<float>();
        return;
    }
    // Rows of the planar arrays, each contiguous (row-major views).
    const float* in[3] = {face.data(), face.data() + face.outerStride(),
                          face.data() + 2 * face.outerStride()};
    float* out[3] = {head.data(), head.data() + head.outerStride(),
                     head.data() + 2 * head.outerStride()};
    const int32_t* source = sources_.data();
    if (weights_.empty()) {
        for (Eigen::Index j = 0; j < count; ++j) {
            const int32_t v = source[j];
            out[0][j] = in[0][v];
            out[1][j] = in[1][v];
            out[2][j] = in[2][v];
        }
        return;
    }
    // w0*a + w1*b + w2*c in double, added left to right, then narrowed: the
    // arithmetic of resampling onto the head first.
    const auto n = static_cast<size_t>(count);
    const headswap::BlendMap map{{source, source + n, source + 2 * n},
                                 {weights_.data(), weights_.data() + n, weights_.data() + 2 * n},
                                 count,
                                 cornerRuns_.data()};
    const headswap::PlanarRows rows{{in[0], in[1], in[2]}, {out[0], out[1], out[2]}};
    ptrdiff_t j = 0;
    switch (level) {
#if MERIDIAN_SIMD_X86
        case simd::Level::sse2:
            j = headswap::blendVerticesSse2(map, rows);
            break;
        case simd::Level::avx:
            j = headswap::blendVerticesAvx(map, rows);
            break;
        case simd::Level::avx2:
            j = headswap::blendVerticesAvx2(map, rows);
            break;
        case simd::Level::avx512:
            j = headswap::blendVerticesAvx512(map, rows);
            break;
#endif
        default:
            break;
    }
    for (; j < count; ++j) headswap::blendVertex(map, rows, j);
}

}  // namespace kestrel::meridian
