#include "rgbd/landmark_model.h"

#include "rgbd/face_points.h"
#include "rgbd/head_pose.h"
#include "rgbd/mean_face.h"

namespace kestrel::meridian {

cv::Mat meanFaceMatrix() {
    const std::array<double, 306>& constants = meanFaceConstants();
    cv::Mat face = cv::Mat::zeros(3, kKeptPointCount, CV_32F);
    for (int r = 0; r < 3; ++r)
        for (int j = 0; j < kKeptPointCount; ++j)
            face.at<float>(r, j) =
                static_cast<float>(constants[static_cast<size_t>(kKeptPointCount * r + j)]);
    return face;
}

std::unique_ptr<LandmarkModel> LandmarkModel::load(const std::string& modelDir,
                                                   const std::string& providerPath,
                                                   std::string& error) {
    auto model = std::unique_ptr<LandmarkModel>(new LandmarkModel());
    model->provider_ = LandmarkProvider::load(providerPath, error);
    if (!model->provider_) return nullptr;
    if (!model->provider_->initModel(modelDir)) {
        error = "landmark provider " + model->provider_->location() +
                " could not load its model from " + modelDir;
        return nullptr;
    }
    model->meanFace_ = meanFaceMatrix();
    model->pseudoInverse_ = homogeneousPseudoInverse(model->meanFace_);
    return model;
}

}  // namespace kestrel::meridian
