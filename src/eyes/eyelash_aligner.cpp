#include "eyes/eyelash_aligner.h"

#include <string>

#include "common/model_paths.h"

namespace kestrel::meridian {

namespace {

/// Column after column: x y z of entry 0, then of entry 1, ...
Eigen::Map<const Eigen::VectorXd> flattened(const Eigen::Matrix3Xd& points) {
    return Eigen::Map<const Eigen::VectorXd>(points.data(), points.size());
}

}  // namespace

bool CKOVAEyelashAligner::init(const std::string& modelDir, Error& error) {
    const auto path = [&](const char* name) { return model_files::modelFilePath(modelDir, name); };
    const AlignerFiles& f = kEyelashAlignerFiles;
    if (!loadCorrespondence(tavi2head_, path(model_files::kTemplateToHead), error)) return false;
    if (!loadAlignerMesh(path(f.mesh), eyeballMesh_, error)) return false;
    if (!loadAlignerMesh(path(kEyelashBlendshapeFile), blendMesh_, error)) return false;
    if (!loadCorrespondence(head2eyeball_, path(f.headToMesh), error)) return false;
    if (!loadCorrespondence(head2eyeballLeft_, path(f.headToMeshLeft), error)) return false;
    if (!loadCorrespondence(head2eyeballRight_, path(f.headToMeshRight), error)) return false;
    if (!loadCorrespondence(eyeball2ue4_, path(f.meshToExport), error)) return false;
    if (!loadIndexList(idxEyeballLeft_, path(f.leftVertices), error)) return false;
    if (!loadIndexList(idxEyeballRight_, path(f.rightVertices), error)) return false;

    if (blendMesh_.vertices.cols() != eyeballMesh_.vertices.cols()) {
        const std::string blendPath = path(kEyelashBlendshapeFile);
        error = {ErrorCode::badContent, blendPath,
                 blendPath + ": " + std::to_string(blendMesh_.vertices.cols()) + " vertices, but " +
                     path(f.mesh) + " has " + std::to_string(eyeballMesh_.vertices.cols())};
        return false;
    }
    if (!checkAndPrepare(modelDir, f, nullptr, nullptr, error)) return false;

    blendDelta_ = blendMesh_.vertices - eyeballMesh_.vertices;
    const Eigen::Matrix3Xd mapped = applyCorrespondence(head2eyeball_, blendDelta_);
    blendDeltaMapped_ = flattened(mapped);
    blendNorm_ = blendDeltaMapped_.size() == 0 ? 0.0 : blendDeltaMapped_.dot(blendDeltaMapped_);
    return true;
}

std::array<double, CKOVAEyelashAligner::kPassCount> CKOVAEyelashAligner::fitLash(
    const Eigen::Matrix3Xd& head, Eigen::Matrix3Xd& lash) const {
    const HeadTargets targets = headTargets(head);
    lash = eyeballMesh_.vertices;
    placeWhole(targets.whole, lash);

    std::array<double, kPassCount> weights{};
    for (double& weight : weights) {
        fitSide(head2eyeballLeft_, targets.left, idxEyeballLeft_, lash);
        fitSide(head2eyeballRight_, targets.right, idxEyeballRight_, lash);
        const Eigen::Matrix3Xd offset = targets.whole - applyCorrespondence(head2eyeball_, lash);
        // No guard: an empty blendshape mapping gives 0 / 0, which such data
        // deserves.
        const double numerator =
            blendDeltaMapped_.size() == 0 ? 0.0 : flattened(offset).dot(blendDeltaMapped_);
        weight = numerator / blendNorm_;
        lash += weight * blendDelta_;
    }
    return weights;
}

int CKOVAEyelashAligner::apply(const Eigen::Matrix3Xd& head, Eigen::Matrix3Xd& result) const {
    Eigen::Matrix3Xd lash;
    fitLash(head, lash);
    result = applyCorrespondence(eyeball2ue4_, lash);
    return static_cast<int>(result.cols());
}

}  // namespace kestrel::meridian
