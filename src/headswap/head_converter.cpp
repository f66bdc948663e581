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
           sourcesInRange(headToEngine_, static_cast<int64_t>(templateToHead_.size()),
                          enginePath);
}

Eigen::Matrix3Xd CHeadConverter::swap(const Eigen::Ref<const Eigen::Matrix3Xd>& face) const {
    const Eigen::Matrix3Xd head = applyCorrespondence(templateToHead_, face);
    return applyCorrespondence(headToEngine_, head);
}

}  // namespace kestrel::meridian
