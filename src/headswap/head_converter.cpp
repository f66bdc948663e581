#include "headswap/head_converter.h"

#include <string>

#include "common/model_paths.h"

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
    const std::string templatePath =
        model_files::modelFilePath(modelDir, model_files::kTemplateToHead);
    if (!loadCorrespondence(templateToHead_, templatePath, error)) return false;
    const std::string enginePath = model_files::modelFilePath(modelDir, model_files::kHeadToEngine);
    if (!loadCorrespondence(headToEngine_, enginePath, error)) return false;
    return sourcesInRange(templateToHead_, kTemplateVertexCount, templatePath, error) &&
           sourcesInRange(headToEngine_, static_cast<int64_t>(templateToHead_.size()), enginePath,
                          error);
}

void CHeadConverter::swap(const Eigen::Ref<const PlanarVertices>& face,
                          Eigen::Ref<PlanarVertices> head) const {
    if (!headToEngine_.isPairForm()) {
        const Eigen::Matrix3Xd onHead = applyCorrespondence(templateToHead_, face.cast<double>());
        head = applyCorrespondence(headToEngine_, onHead).cast<float>();
        return;
    }
    // The engine order copies head vertices, so each output vertex is
    // resampled straight from the face: the same arithmetic without the
    // intermediate head matrix.
    const std::vector<int32_t>& headVertex = headToEngine_.pairSources;
    const Eigen::Index count = engineVertexCount();
    if (templateToHead_.isPairForm()) {
        for (Eigen::Index j = 0; j < count; ++j)
            head.col(j) = face.col(templateToHead_.pairSources[headVertex[j]]);
        return;
    }
    const int32_t* triangles = templateToHead_.triangles.data();
    const double* weights = templateToHead_.weights.data();
    for (Eigen::Index j = 0; j < count; ++j) {
        const int32_t* tri = triangles + 3 * static_cast<size_t>(headVertex[j]);
        const double* w = weights + 3 * static_cast<size_t>(headVertex[j]);
        for (Eigen::Index r = 0; r < 3; ++r) {
            const double blended = w[0] * static_cast<double>(face(r, tri[0])) +
                                   w[1] * static_cast<double>(face(r, tri[1])) +
                                   w[2] * static_cast<double>(face(r, tri[2]));
            head(r, j) = static_cast<float>(blended);
        }
    }
}

}  // namespace kestrel::meridian
