// The eyeball aligner: fits a pair of eyeballs, one mesh in an export
// topology, to a head given in the template topology, through vertex
// correspondences between head and eyeball mesh.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/error.h"
#include "common/template_head.h"
#include "eyes/aligner_data.h"
#include "eyes/eye_geometry.h"
#include "eyes/head_sampler.h"
#include "io/correspondence.h"

namespace kestrel::meridian {

class CKOVAEyeballAligner {
  public:
    /// Vertices of every head the aligners take.
    static constexpr Eigen::Index kTemplateVertexCount = kTemplateHeadVertexCount;

    CKOVAEyeballAligner() = default;
    virtual ~CKOVAEyeballAligner() = default;
    CKOVAEyeballAligner(const CKOVAEyeballAligner&) = delete;
    CKOVAEyeballAligner& operator=(const CKOVAEyeballAligner&) = delete;

    /// Loads, from `modelDir` (a separator is inserted when missing):
    /// "idx_tavi2head.corresp", "eyeball/eyeball_tri.obj",
    /// "eyeball/idx_head2eyeball.corresp", "eyeball/idx_head2eyeball_left.corresp"
    /// with "eyeball/w_head2eyeball_left.corresp", the same for the right,
    /// "eyeball/idx_eyeball2ue4.corresp", "eyeball/idx_eyeball_left.txt" and
    /// "eyeball/idx_eyeball_right.txt". False, with `error` set, at the
    /// first file that cannot be opened (a weight file may be missing: its
    /// fit is unweighted), and when an index of any file lies outside the
    /// table it names.
    virtual bool init(const std::string& modelDir, Error& error);

    /// Fits the mesh to `head` (3 by 20481, template topology) and writes it
    /// in export order to `result` (3 by exportVertexCount()). Returns the
    /// result's column count; when the mesh has no vertices, returns 0 and
    /// leaves `result` alone.
    virtual int apply(const Eigen::Matrix3Xd& head, Eigen::Matrix3Xd& result) const;

    /// The whole-mesh placement apply() starts with for `head` (3 by
    /// 20481): scale (clamped to 0.9..1.1, unclamped value kept) and
    /// translation, rotation off.
    SimilarityTransform wholePlacement(const Eigen::Matrix3Xd& head) const;

    /// Columns apply() writes: the entries of the export correspondence.
    Eigen::Index exportVertexCount() const {
        return static_cast<Eigen::Index>(eyeball2ue4_.size());
    }

    const AlignerMesh& mesh() const { return eyeballMesh_; }
    const std::vector<int32_t>& leftVertices() const { return idxEyeballLeft_; }
    const std::vector<int32_t>& rightVertices() const { return idxEyeballRight_; }
    const Correspondence& templateToHead() const { return tavi2head_; }
    const Correspondence& headToMesh() const { return head2eyeball_; }
    const Correspondence& headToMeshLeft() const { return head2eyeballLeft_; }
    const Correspondence& headToMeshRight() const { return head2eyeballRight_; }
    const Correspondence& meshToExport() const { return eyeball2ue4_; }

  protected:
    /// Checks every index of the loaded data and prepares head sampling.
    bool checkAndPrepare(const std::string& modelDir, const AlignerFiles& files,
                         const char* leftWeights, const char* rightWeights, Error& error);

    /// The head vertices each head-side correspondence targets: whole,
    /// left, right (3 by entries each).
    struct HeadTargets {
        Eigen::Matrix3Xd whole, left, right;
    };
    HeadTargets headTargets(const Eigen::Matrix3Xd& head) const;

    /// Scales and moves all of `mesh` (3 by #V) onto the head, rotation off.
    void placeWhole(const Eigen::Matrix3Xd& headPoints, Eigen::Matrix3Xd& mesh) const;

    /// Turns and moves the listed vertices of `mesh` onto one side of the
    /// head, scale off, weighted by the correspondence's vertex weights.
    static void fitSide(const Correspondence& headToSide, const Eigen::Matrix3Xd& headPoints,
                        const std::vector<int32_t>& sideVertices, Eigen::Matrix3Xd& mesh);

    AlignerMesh eyeballMesh_;
    std::vector<int32_t> idxEyeballLeft_;
    std::vector<int32_t> idxEyeballRight_;
    Correspondence tavi2head_;
    Correspondence head2eyeball_;
    Correspondence head2eyeballLeft_;
    Correspondence head2eyeballRight_;
    Correspondence eyeball2ue4_;
    HeadSampler headSampler_;
};

}  // namespace kestrel::meridian
