// Frame-selection exports: the landmark model (a singleton released by
// AI_system_over) and the four frame buckets (emptied only by
// AI_Choose4RGBD_clear).
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "api/engines.h"
#include "meridian/meridian.h"
#include "rgbd/capture_driver.h"
#include "rgbd/frame_selection.h"
#include "rgbd/landmark_model.h"

using kestrel::meridian::FrameSelection;
using kestrel::meridian::kNoAngle;
using kestrel::meridian::LandmarkModel;
using namespace kestrel::meridian::api;

namespace kestrel::meridian::api {

Singleton<LandmarkModel>& landmarkModel() {
    static Singleton<LandmarkModel> model;
    return model;
}

}  // namespace kestrel::meridian::api

namespace {

FrameSelection& frameSelection() {
    static FrameSelection selection;
    return selection;
}

}  // namespace

extern "C" MERIDIAN_API int32_t AI_system_init_Choose4RGBD(const char* model_dir) {
    std::string error;
    std::unique_ptr<LandmarkModel> model;
    try {
        model = LandmarkModel::load(model_dir ? model_dir : "", "", error);
    } catch (const std::exception& e) {
        error = e.what();
    }
    if (!model) {
        // The host cannot go on without landmarks: say so, wait for the
        // operator, and end the process.
        std::cerr << error << '\n';
        std::cout << "Init landmark model failed." << std::endl;
        std::getchar();
        std::exit(0);
    }
    landmarkModel().replace(std::move(model));
    return 1;
}

extern "C" MERIDIAN_API int32_t AI_Choose4RGBD_input_1_rgbd(int frame_id, const void* color,
                                                            int color_width, int color_height,
                                                            const void* depth, int depth_width,
                                                            int depth_height, float* yaw_out,
                                                            float* pitch_out) {
    const auto noFace = [&] {
        if (yaw_out) *yaw_out = kNoAngle;
        if (pitch_out) *pitch_out = kNoAngle;
        return -1;
    };
    const LandmarkModel* model = landmarkModel().get();
    if (model == nullptr || color == nullptr || depth == nullptr || yaw_out == nullptr ||
        pitch_out == nullptr || color_width <= 0 || color_height <= 0 || depth_width <= 0 ||
        depth_height <= 0)
        return noFace();
    return guarded<int32_t>(-1, [&] {
        return frameSelection().intake(*model, frame_id, static_cast<const unsigned char*>(color),
                                       color_height, color_width, *yaw_out, *pitch_out);
    });
}

extern "C" MERIDIAN_API int32_t AI_Choose4RGBD_get_final_4_rgbd(int* front_id, int* yaw_neg_id,
                                                                int* yaw_pos_id, int* up_id) {
    if (front_id == nullptr || yaw_neg_id == nullptr || yaw_pos_id == nullptr || up_id == nullptr)
        return -5;
    return guarded<int32_t>(-5, [&] {
        return frameSelection().finalChoice(*front_id, *yaw_neg_id, *yaw_pos_id, *up_id);
    });
}

extern "C" MERIDIAN_API int32_t AI_Choose4RGBD_clear(void) {
    frameSelection().clear();
    return 0;
}

extern "C" MERIDIAN_API int32_t debug_test_RGBD_choose4(const char* capture_dir) {
    const LandmarkModel* model = landmarkModel().get();
    if (model == nullptr || capture_dir == nullptr) return -1;
    return guarded<int32_t>(-1, [&] {
        const int code = kestrel::meridian::runCapture(*model, frameSelection(), capture_dir);
        std::cout << "final: " << code << std::endl;
        return 1;
    });
}
