// The blendshape handle.
#include <climits>
#include <cstdint>
#include <memory>
#include <string>

#include "blendshape/blendshape_engine.h"
#include "blendshape/parallel_tasks.h"
#include "capi/handle_support.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

struct meridian_blendshapes {
    std::unique_ptr<CBlendshapeEngine> engine;
    LastError lastError;
};

extern "C" MERIDIAN_MODERN_API meridian_blendshapes* meridian_blendshapes_open(
    const char* model_dir) {
    return openHandle<meridian_blendshapes>([&](meridian_blendshapes& shapes, Error& error) {
        error = checkModelDirectory(model_dir, {ModelTask::blendshapes});
        if (error) return false;
        shapes.engine = CBlendshapeEngine::load(model_dir, error);
        return shapes.engine != nullptr;
    });
}

extern "C" MERIDIAN_MODERN_API void meridian_blendshapes_close(meridian_blendshapes* shapes) {
    delete shapes;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_blendshapes_set_thread_count(meridian_blendshapes* shapes, unsigned threads) {
    return runCall(shapes, [&]() -> Error {
        const int regions = blendshape::kRegionCount;
        shapes->engine->setThreadCount(threads == 0 ? blendshape::defaultThreadCount(regions)
                                                    : static_cast<int>(threads));
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API size_t meridian_blendshapes_shape_count(void) {
    return CBlendshapeEngine::kShapeCount;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_blendshapes_run(meridian_blendshapes* shapes, const float* head, size_t head_count,
                         float* out, size_t out_count) {
    return runCall(shapes, [&]() -> Error {
        if (Error error = checkHead(head, head_count)) return error;
        if (Error error =
                checkOutput(out, out_count, CBlendshapeEngine::kShapeFloats, "the output"))
            return error;
        shapes->engine->generate(head, out);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_blendshapes_run_batch(meridian_blendshapes* shapes, const float* heads, size_t heads_count,
                               size_t batch_size, float* out, size_t out_count) {
    return runCall(shapes, [&]() -> Error {
        constexpr size_t headFloats = CBlendshapeEngine::kHeadFloats;
        constexpr size_t shapeFloats = CBlendshapeEngine::kShapeFloats;
        if (batch_size == 0) return {ErrorCode::invalidArgument, "", "the batch has no heads"};
        if (batch_size > static_cast<size_t>(INT_MAX) || batch_size > SIZE_MAX / shapeFloats)
            return {ErrorCode::invalidArgument, "",
                    "a batch of " + std::to_string(batch_size) + " heads is too large"};
        if (heads == nullptr) return {ErrorCode::invalidArgument, "", "the heads are NULL"};
        if (heads_count != batch_size * headFloats)
            return {ErrorCode::invalidArgument, "",
                    "the heads have " + std::to_string(heads_count) + " floats; " +
                        std::to_string(batch_size) + " template heads have " +
                        std::to_string(batch_size * headFloats) + " (3 x 20481 each)"};
        for (size_t k = 0; k < batch_size; ++k)
            if (Error error = checkHead(heads + k * headFloats, headFloats)) {
                error.message = "head " + std::to_string(k) + ": " + error.message;
                return error;
            }
        if (Error error = checkOutput(out, out_count, batch_size * shapeFloats, "the output"))
            return error;
        shapes->engine->generateBatch(heads, static_cast<int>(batch_size), out);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API const char* meridian_blendshapes_last_error(
    const meridian_blendshapes* shapes) {
    return lastErrorOf(shapes);
}
