// The eyelash aligner: fits a pair of eyelashes to a head like the eyeball
// aligner fits eyeballs, then solves the weight of one blendshape from how
// far the placed lashes still lie from the head, five times over.
#pragma once

#include <array>
#include <string>

#include <Eigen/Core>

#include "eyes/eyeball_aligner.h"

namespace kestrel::meridian {

class CKOVAEyelashAligner : public CKOVAEyeballAligner {
  public:
    /// Refits of the sides and the blendshape per run.
    static constexpr int kPassCount = 5;

    /// Loads, from `modelDir`: "idx_tavi2head.corresp", "eyelash/eyelash_tri.obj",
    /// "eyelash/eyelash_bs01.obj" (the blendshape: the same vertices,
    /// moved), "eyelash/idx_head2eyelash.corresp", its _left and _right
    /// forms (no weight files), "eyelash/idx_eyelash2ue4.corresp",
    /// "eyelash/idx_eyelash_left.txt" and "eyelash/idx_eyelash_right.txt".
    /// Failures as the eyeball aligner's; the blendshape must have as many
    /// vertices as the lash mesh.
    bool init(const std::string& modelDir, Error& error) override;

    /// Fits the lashes to `head` (3 by 20481) and writes them in export
    /// order to `result`. Returns the result's column count.
    int apply(const Eigen::Matrix3Xd& head, Eigen::Matrix3Xd& result) const override;

    /// The fit behind apply(): `lash` receives the fitted lash vertices
    /// (3 by #V, mesh order); returns the blendshape weight of each pass,
    /// w = <r, d> / <d, d> with r the head's remaining offset and d the
    /// blendshape, both at the head-side entries.
    std::array<double, kPassCount> fitLash(const Eigen::Matrix3Xd& head,
                                           Eigen::Matrix3Xd& lash) const;

    const Eigen::Matrix3Xd& blendDelta() const { return blendDelta_; }  ///< 3 by #V

  private:
    AlignerMesh blendMesh_;
    Eigen::Matrix3Xd blendDelta_;       ///< blendshape minus lash, 3 by #V
    Eigen::VectorXd blendDeltaMapped_;  ///< blendDelta at the head-side entries, x y z per entry
    double blendNorm_ = 0.0;            ///< <blendDeltaMapped, blendDeltaMapped>
};

}  // namespace kestrel::meridian
