#include "eyes/eyeball_aligner.h"

#include "common/model_paths.h"
#include "eyes/eye_geometry.h"

namespace kestrel::meridian {

namespace {

constexpr const char* kLeftWeights = "eyeball/w_head2eyeball_left.corresp";
constexpr const char* kRightWeights = "eyeball/w_head2eyeball_right.corresp";

enum HeadUser : size_t { kWhole = 0, kLeft = 1, kRight = 2 };

}  // namespace

bool CKOVAEyeballAligner::init(const std::string& modelDir, Error& error) {
    const auto path = [&](const char* name) { return model_files::modelFilePath(modelDir, name); };
    const AlignerFiles& f = kEyeballAlignerFiles;
    if (!loadCorrespondence(tavi2head_, path(model_files::kTemplateToHead), error)) return false;
    if (!loadAlignerMesh(path(f.mesh), eyeballMesh_, error)) return false;
    if (!loadCorrespondence(head2eyeball_, path(f.headToMesh), error)) return false;
    if (!loadCorrespondence(head2eyeballLeft_, path(f.headToMeshLeft), error)) return false;
    loadWeightFile(head2eyeballLeft_, path(kLeftWeights));
    if (!loadCorrespondence(head2eyeballRight_, path(f.headToMeshRight), error)) return false;
    loadWeightFile(head2eyeballRight_, path(kRightWeights));
    if (!loadCorrespondence(eyeball2ue4_, path(f.meshToExport), error)) return false;
    if (!loadIndexList(idxEyeballLeft_, path(f.leftVertices), error)) return false;
    if (!loadIndexList(idxEyeballRight_, path(f.rightVertices), error)) return false;
    return checkAndPrepare(modelDir, f, kLeftWeights, kRightWeights, error);
}

bool CKOVAEyeballAligner::checkAndPrepare(const std::string& modelDir, const AlignerFiles& files,
                                          const char* leftWeights, const char* rightWeights,
                                          Error& error) {
    const auto path = [&](const char* name) { return model_files::modelFilePath(modelDir, name); };
    const int64_t headCount = static_cast<int64_t>(tavi2head_.size());
    const int64_t meshCount = eyeballMesh_.vertices.cols();
    const struct {
        const Correspondence& record;
        const char* file;
        const char* weights;
    } headSide[] = {{head2eyeball_, files.headToMesh, nullptr},
                    {head2eyeballLeft_, files.headToMeshLeft, leftWeights},
                    {head2eyeballRight_, files.headToMeshRight, rightWeights}};

    if (!checkSources(tavi2head_, kTemplateVertexCount, path(model_files::kTemplateToHead), error))
        return false;
    for (const auto& side : headSide) {
        if (!checkTargets(side.record, headCount, path(side.file), error)) return false;
        if (!checkSources(side.record, meshCount, path(side.file), error)) return false;
        if (side.weights &&
            !checkVertexWeights(side.record, path(side.weights), path(side.file), error))
            return false;
    }
    if (!checkSources(eyeball2ue4_, meshCount, path(files.meshToExport), error) ||
        !checkIndexList(idxEyeballLeft_, meshCount, path(files.leftVertices), error) ||
        !checkIndexList(idxEyeballRight_, meshCount, path(files.rightVertices), error))
        return false;
    headSampler_.build(tavi2head_, {&head2eyeball_, &head2eyeballLeft_, &head2eyeballRight_});
    return true;
}

CKOVAEyeballAligner::HeadTargets CKOVAEyeballAligner::headTargets(
    const Eigen::Matrix3Xd& head) const {
    const Eigen::Matrix3Xd sampled = headSampler_.sample(head);
    return {headSampler_.gather(sampled, kWhole), headSampler_.gather(sampled, kLeft),
            headSampler_.gather(sampled, kRight)};
}

SimilarityTransform CKOVAEyeballAligner::wholePlacement(const Eigen::Matrix3Xd& head) const {
    return fitSimilarity(applyCorrespondence(head2eyeball_, eyeballMesh_.vertices),
                         headTargets(head).whole, {}, false, true);
}

void CKOVAEyeballAligner::placeWhole(const Eigen::Matrix3Xd& headPoints,
                                     Eigen::Matrix3Xd& mesh) const {
    const SimilarityTransform whole =
        fitSimilarity(applyCorrespondence(head2eyeball_, mesh), headPoints, {}, false, true);
    for (Eigen::Index v = 0; v < mesh.cols(); ++v) mesh.col(v) = whole(mesh.col(v));
}

void CKOVAEyeballAligner::fitSide(const Correspondence& headToSide,
                                  const Eigen::Matrix3Xd& headPoints,
                                  const std::vector<int32_t>& sideVertices,
                                  Eigen::Matrix3Xd& mesh) {
    const SimilarityTransform side = fitSimilarity(
        applyCorrespondence(headToSide, mesh), headPoints, headToSide.vertexWeights, true, false);
    for (int32_t v : sideVertices) mesh.col(v) = side(mesh.col(v));
}

int CKOVAEyeballAligner::apply(const Eigen::Matrix3Xd& head, Eigen::Matrix3Xd& result) const {
    const Eigen::Index vertexCount = eyeballMesh_.vertices.cols();
    if (vertexCount <= 0) return static_cast<int>(vertexCount);
    const HeadTargets targets = headTargets(head);
    Eigen::Matrix3Xd mesh = eyeballMesh_.vertices;
    placeWhole(targets.whole, mesh);
    fitSide(head2eyeballLeft_, targets.left, idxEyeballLeft_, mesh);
    fitSide(head2eyeballRight_, targets.right, idxEyeballRight_, mesh);
    result = applyCorrespondence(eyeball2ue4_, mesh);
    return static_cast<int>(result.cols());
}

}  // namespace kestrel::meridian
