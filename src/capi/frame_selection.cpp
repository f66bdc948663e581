// The frame-selection handle. Builds without OpenCV have no frame
// selection: their open call says so.
#include "capi/handle_support.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

#if defined(MERIDIAN_WITH_RGBD)

#include <algorithm>
#include <memory>
#include <string>

#include "rgbd/capture_driver.h"
#include "rgbd/frame_selection.h"
#include "rgbd/landmark_model.h"

struct meridian_frame_selection {
    std::unique_ptr<LandmarkModel> model;
    FrameSelection selection;
    LastError lastError;
};

extern "C" MERIDIAN_MODERN_API meridian_frame_selection* meridian_frame_selection_open(
    const char* model_dir, const char* provider_path) {
    return openHandle<meridian_frame_selection>(
        [&](meridian_frame_selection& handle, Error& error) {
            error = checkPath(model_dir, "the model directory");
            if (error) return false;
            std::string why;
            handle.model = LandmarkModel::load(model_dir, provider_path ? provider_path : "", why);
            if (!handle.model) error = {ErrorCode::cannotOpen, model_dir, why};
            return handle.model != nullptr;
        });
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_frame_selection_add(
    meridian_frame_selection* selection, int32_t frame_id, const uint8_t* bgr, size_t width,
    size_t height, size_t bgr_count, meridian_frame_intake* intake) {
    return runCall(selection, [&]() -> Error {
        constexpr size_t kMaxSide = 1 << 15;
        if (bgr == nullptr || intake == nullptr)
            return {ErrorCode::invalidArgument, "", "the image or the intake is NULL"};
        if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide)
            return {ErrorCode::invalidArgument, "",
                    "an image is 1 to 32768 pixels wide and high, not " + std::to_string(width) +
                        " x " + std::to_string(height)};
        if (bgr_count != width * height * 3)
            return {ErrorCode::invalidArgument, "",
                    "the image has " + std::to_string(bgr_count) + " bytes; " +
                        std::to_string(width) + " x " + std::to_string(height) +
                        " BGR pixels have " + std::to_string(width * height * 3)};
        float yaw = kNoAngle, pitch = kNoAngle;
        intake->result =
            selection->selection.intake(*selection->model, frame_id, bgr, static_cast<int>(height),
                                        static_cast<int>(width), yaw, pitch);
        intake->yaw = yaw;
        intake->pitch = pitch;
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_frame_selection_choose(
    meridian_frame_selection* selection, int32_t* ids, size_t ids_count) {
    return runCall(selection, [&]() -> Error {
        if (ids == nullptr || ids_count != 4)
            return {ErrorCode::invalidArgument, "", "the choice needs room for 4 ids"};
        int chosen[4];
        const int code =
            selection->selection.finalChoice(chosen[0], chosen[1], chosen[2], chosen[3]);
        if (code != 1) {
            static const char* const kBuckets[] = {"front", "yaw -25", "yaw +25", "up"};
            return {ErrorCode::incomplete, "",
                    std::string("no frame in the ") + kBuckets[code + 5] + " bucket"};
        }
        std::copy(chosen, chosen + 4, ids);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_frame_selection_clear(meridian_frame_selection* selection) {
    return runCall(selection, [&]() -> Error {
        selection->selection.clear();
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_frame_selection_run_capture(
    meridian_frame_selection* selection, const char* capture_dir, int32_t* ids, size_t ids_count) {
    if (selection == nullptr) return MERIDIAN_NOT_LOADED;
    const meridian_status ran = runCall(selection, [&]() -> Error {
        if (Error error = checkPath(capture_dir, "the capture folder")) return error;
        if (ids == nullptr || ids_count != 4)
            return {ErrorCode::invalidArgument, "", "the choice needs room for 4 ids"};
        runCapture(*selection->model, selection->selection, capture_dir);
        return {};
    });
    if (ran != MERIDIAN_OK) return ran;
    return meridian_frame_selection_choose(selection, ids, ids_count);
}

#else

struct meridian_frame_selection {
    LastError lastError;
};

extern "C" MERIDIAN_MODERN_API meridian_frame_selection* meridian_frame_selection_open(
    const char*, const char*) {
    openError() = {ErrorCode::unavailable, "", "this build has no frame selection (no OpenCV)"};
    return nullptr;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_frame_selection_add(meridian_frame_selection*, int32_t, const uint8_t*, size_t, size_t,
                             size_t, meridian_frame_intake*) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_frame_selection_choose(meridian_frame_selection*, int32_t*, size_t) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_frame_selection_clear(meridian_frame_selection*) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_frame_selection_run_capture(meridian_frame_selection*, const char*, int32_t*, size_t) {
    return MERIDIAN_NOT_LOADED;
}

#endif

extern "C" MERIDIAN_MODERN_API void meridian_frame_selection_close(
    meridian_frame_selection* selection) {
    delete selection;
}

extern "C" MERIDIAN_MODERN_API size_t meridian_frame_selection_choice_count(void) {
    return 4;
}

extern "C" MERIDIAN_MODERN_API const char* meridian_frame_selection_last_error(
    const meridian_frame_selection* selection) {
    return lastErrorOf(selection);
}
