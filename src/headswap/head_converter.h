// Head swap: resampling a template-topology face onto the head and into the
// game engine's vertex order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/error.h"
#include "common/template_head.h"
#include "headswap/blend_kernels.h"
#include "io/correspondence.h"
#include "simd/simd_level.h"

namespace kestrel::meridian {

class CHeadConverter {
  public:
    /// Vertices of the template topology that every input head has.
    static constexpr Eigen::Index kTemplateVertexCount = kTemplateHeadVertexCount;

    /// A vertex set as the C interface passes it: 3 by #V floats stored row
    /// after row (all x, then all y, then all z).
    using PlanarVertices = Eigen::Matrix<float, 3, Eigen::Dynamic, Eigen::RowMajor>;

    /// Loads "idx_tavi2head.corresp" and then "idx_head2ue4.corresp" from
    /// `modelDir` (a separator is inserted when missing). False, with
    /// `error` set, when a file cannot be opened (the second is not tried
    /// after the first fails) or when a source index lies outside its source
    /// mesh: template vertices 0..20480 for the first file, entries of the
    /// first for the second.
    bool initialise(const std::string& modelDir, Error& error);

    /// Carries a face onto the head in engine order. Each output vertex is
    /// the head vertex its engine entry names, computed in double precision
    /// from the widened input and narrowed to float: a copy of one face
    /// vertex or w0*a + w1*b + w2*c of a face triangle.
    /// @param face  3 by 20481 template vertices
    /// @param head  3 by engineVertexCount(), written
    /// @param level instruction set of the blend (must be available); every
    ///              level gives the same bits
    void swap(const Eigen::Ref<const PlanarVertices>& face, Eigen::Ref<PlanarVertices> head,
              simd::Level level = simd::widestLevel()) const;

    /// Number of output vertices (entries of "idx_head2ue4.corresp").
    Eigen::Index engineVertexCount() const {
        return static_cast<Eigen::Index>(headToEngine_.size());
    }

    const Correspondence& templateToHead() const { return templateToHead_; }
    const Correspondence& headToEngine() const { return headToEngine_; }

  private:
    /// Composes both correspondences into one map from face vertices to
    /// output vertices (only when the engine order copies head vertices).
    void composeSwapMap();

    Correspondence templateToHead_;
    Correspondence headToEngine_;
    /// Output vertex j copies face vertex sources_[j] (pair-form head), or
    /// blends face vertices sources_[k * N + j] with weights_[k * N + j],
    /// k = 0, 1, 2, for N output vertices (weighted head). Empty when the
    /// engine order is itself weighted.
    std::vector<int32_t> sources_;
    std::vector<double> weights_;
    /// How each block of the weighted map's corners is read (headswap::blockRuns).
    std::vector<headswap::CornerRun> cornerRuns_;
};

}  // namespace kestrel::meridian
