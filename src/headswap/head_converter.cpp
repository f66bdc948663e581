#include "headswap/head_converter.h"

#include <filesystem>
#include <iostream>

namespace kestrel::meridian {

namespace {

std::string joinPath(const std::string& dir, const char* name) {
    return (std::filesystem::path(dir) / name).string();
}

// A swap must never read outside its source: report the first entry that
// would.
bool sourcesInRange(const Correspondence& record, int64_t sourceCount, const std::string& path) {
    BadSourceIndex bad{};
    if (!firstSourceOutOfRange(record, sourceCount, bad)) return true;
    std::cout << path << ": entry " << bad.entry << " names source vertex " << bad.index
              << ", outside 0.." << sourceCount - 1 << std::endl;
    return false;
}

}  // namespace

bool CHeadConverter::initialise(const std::string& modelDir) {
    const std::string templatePath = joinPath(modelDir, "idx_tavi2head.corresp");
    if (!loadCorrespondence(templateToHead_, templatePath)) return false;
    const std::string enginePath = joinPath(modelDir, "idx_head2ue4.corresp");
    if (!loadCorrespondence(headToEngine_, enginePath)) return false;
    return sourcesInRange(templateToHead_, kTemplateVertexCount, templatePath) &&
           sourcesInRange(headToEngine_, static_cast<int64_t>(templateToHead_.size()), enginePath);
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
