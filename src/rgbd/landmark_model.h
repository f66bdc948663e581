// The loaded landmark model of the frame selection: the provider and the
// 3-D mean face its landmarks are fitted to.
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>

#include "rgbd/landmark_provider.h"

namespace kestrel::meridian {

/// The mean face, 3 by 102, CV_32F: element (r, j) = constant 102 r + j.
cv::Mat meanFaceMatrix();

class LandmarkModel {
  public:
    /// Loads the provider (see LandmarkProvider::load; empty `providerPath`
    /// looks for "libcv_face" the usual way) and runs its InitModel on
    /// `modelDir`. Returns null and says why in `error`.
    static std::unique_ptr<LandmarkModel> load(const std::string& modelDir,
                                               const std::string& providerPath, std::string& error);

    const LandmarkProvider& provider() const { return *provider_; }

    /// 3 by 102, CV_32F: the mean face, element (r, j) = constant 102 r + j.
    const cv::Mat& meanFace() const { return meanFace_; }

    /// 102 by 4, CV_32F: pseudo-inverse of the mean face with a row of ones.
    const cv::Mat& meanFacePseudoInverse() const { return pseudoInverse_; }

  private:
    LandmarkModel() = default;
    std::unique_ptr<LandmarkProvider> provider_;
    cv::Mat meanFace_;
    cv::Mat pseudoInverse_;
};

}  // namespace kestrel::meridian
