#include "rgbd/landmark_model.h"

namespace kestrel::meridian {

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
    return model;
}

}  // namespace kestrel::meridian
