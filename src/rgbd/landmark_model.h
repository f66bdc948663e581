// The loaded landmark model of the frame selection: the provider and the
// 3-D mean face its landmarks are fitted to.
#pragma once

#include <memory>
#include <string>

#include "rgbd/head_pose.h"
#include "rgbd/landmark_provider.h"

namespace kestrel::meridian {

class LandmarkModel {
  public:
    /// Loads the provider (see LandmarkProvider::load; empty `providerPath`
    /// looks for "libcv_face" the usual way) and runs its InitModel on
    /// `modelDir`. Returns null and says why in `error`.
    static std::unique_ptr<LandmarkModel> load(const std::string& modelDir,
                                               const std::string& providerPath, std::string& error);

    const LandmarkProvider& provider() const { return *provider_; }

    /// Pseudo-inverse of the mean face with a row of ones (the table).
    const MeanFacePseudoInverse& meanFacePseudoInverse() const {
        return kestrel::meridian::meanFacePseudoInverse();
    }

  private:
    LandmarkModel() = default;
    std::unique_ptr<LandmarkProvider> provider_;
};

}  // namespace kestrel::meridian
