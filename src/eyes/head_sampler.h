// The few head vertices an aligner reads, computed straight from the
// template head: carrying all 20481 template vertices onto the head topology
// would cost more than the whole fit.
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>

#include "io/correspondence.h"

namespace kestrel::meridian {

class HeadSampler {
  public:
    /// Prepares sampling for `users`: correspondences whose target indices
    /// are head vertices (entries of `templateToHead`). Both must have been
    /// range-checked.
    void build(const Correspondence& templateToHead,
               const std::vector<const Correspondence*>& users);

    /// The head vertices the users name, each computed as `templateToHead`
    /// computes it (a copy or w0*a + w1*b + w2*c), 3 by #distinct.
    /// templateHead: 3 by 20481
    Eigen::Matrix3Xd sample(const Eigen::Ref<const Eigen::Matrix3Xd>& templateHead) const;

    /// The head vertices user `user` targets, in entry order, 3 by its
    /// entry count. `sampled` is the result of sample().
    Eigen::Matrix3Xd gather(const Eigen::Matrix3Xd& sampled, size_t user) const;

  private:
    /// The template-to-head entries of the sampled head vertices, in
    /// sampled-column order (pair form: one source each; weighted form: a
    /// triangle and its weights each).
    Correspondence entries_;
    std::vector<std::vector<int32_t>> userColumns_;  ///< per user: sampled column of each entry
};

}  // namespace kestrel::meridian
