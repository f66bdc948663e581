// The strict head reader and the model check, without a handle: their
// failures are reported like a failed open, per thread.
#include <algorithm>

#include "capi/handle_support.h"
#include "common/template_head.h"
#include "io/head_reader.h"
#include "io/model_check.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

extern "C" MERIDIAN_MODERN_API meridian_status meridian_read_head(const char* path, float* out,
                                                                  size_t out_count) {
    Error& failure = openError();
    failure = guarded([&]() -> Error {
        if (Error error = checkPath(path, "the path")) return error;
        const size_t expected = 3 * static_cast<size_t>(kTemplateHeadVertexCount);
        if (Error error = checkOutput(out, out_count, expected, "the head")) return error;
        const std::vector<float> head = readHeadPlanar(path);
        std::copy(head.begin(), head.end(), out);
        return {};
    });
    return statusOf(failure);
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_check_model(const char* model_dir,
                                                                    uint32_t parts) {
    Error& failure = openError();
    failure = guarded([&]() -> Error {
        if (Error error = checkPath(model_dir, "the model directory")) return error;
        if (parts == 0 || (parts & ~uint32_t{MERIDIAN_MODEL_ASSET | MERIDIAN_MODEL_TANGENT_FRAMES}))
            return {ErrorCode::invalidArgument, "",
                    "parts must be meridian_model_part flags, not " + std::to_string(parts)};
        // In the order the engines would load; the first fault is reported.
        if (parts & (MERIDIAN_MODEL_HEAD_SWAP | MERIDIAN_MODEL_ENGINE_HEAD))
            checkModel(model_dir, ModelTask::headSwap);
        if (parts & MERIDIAN_MODEL_ENGINE_HEAD) checkModel(model_dir, ModelTask::engineHeadMesh);
        if (parts & MERIDIAN_MODEL_TANGENT_FRAMES) checkModel(model_dir, ModelTask::tangentFrames);
        if (parts & MERIDIAN_MODEL_EYEBALL_FIT) checkModel(model_dir, ModelTask::eyeballFit);
        if (parts & MERIDIAN_MODEL_EYE_ALIGNERS)
            checkModel(model_dir, {ModelTask::eyeballAligner, ModelTask::eyelashAligner});
        if (parts & MERIDIAN_MODEL_EYE_EXPORT)
            checkModel(model_dir, {ModelTask::eyeballExportMesh, ModelTask::eyelashExportMesh});
        if (parts & MERIDIAN_MODEL_BLENDSHAPES) checkModel(model_dir, ModelTask::blendshapes);
        return {};
    });
    return statusOf(failure);
}
